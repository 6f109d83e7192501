#include "Commands.h"
#include "Console.h"
#include "ConversionRun.h"
#include "files/EDFToXLS.h"

#include <QCommandLineParser>

int runExport(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Writes a recording into a spreadsheet (Office Open XML)."));
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("The EDF(+) or BDF(+) file."));
    parser.addPositionalArgument(QStringLiteral("OUT"), QStringLiteral("The spreadsheet to write."));
    Console::ExitStatus status = Console::Success;
    if (!Console::parse(parser, arguments, status)) {
        return status;
    }
    const QStringList files = parser.positionalArguments();
    if (files.size() != 2) {
        Console::error(QStringLiteral("export takes a recording and the spreadsheet to write."));
        return Console::WrongUsage;
    }
    return runConversion<EDFToXLS>(files[1], [&](EDFToXLS &conversion) { conversion.convert(files[0], files[1]); });
}
