#include "Console.h"
#include "commands/CommandRun.h"
#include "commands/Commands.h"
#include "commands/ConversionRun.h"
#include "commands/CsvExport.h"
#include "commands/OutputFile.h"
#include "commands/Refusal.h"
#include "files/EDFReader.h"
#include "files/EDFToXLS.h"

#include <QCommandLineParser>

namespace {

const QString kCsv = QStringLiteral(".csv");
const QString kWorkbook = QStringLiteral(".xlsx");

void addOptions(QCommandLineParser &parser)
{
    parser.setApplicationDescription(QStringLiteral(
        "Writes a recording into a spreadsheet (OUT.xlsx) or as comma-separated text (OUT.csv: the time in "
        "seconds and a column per channel; without the annotations)."));
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("The EDF(+) or BDF(+) file."));
    parser.addPositionalArgument(QStringLiteral("OUT"), QStringLiteral("The file to write, .xlsx or .csv."));
    addForceOption(parser);
}

Console::ExitStatus exportCsv(const QString &source, const QString &target)
{
    const Console::ExitStatus status =
        runConversion<CsvExport>(target, [&](CsvExport &conversion) { conversion.convert(source, target); });
    EDFReader reader(source);
    if (status == Console::Success && reader.open() && !reader.annotations().isEmpty()) {
        Console::error(QStringLiteral("Its annotations (%1) are not in %2: a workbook (.xlsx) has them.")
                           .arg(reader.annotations().size())
                           .arg(target));
    }
    return status;
}

Console::ExitStatus exportRecording(const QCommandLineParser &parser)
{
    const QStringList files = parser.positionalArguments();
    if (files.size() != 2) {
        refuseUsage(QStringLiteral("export takes a recording and the file to write, .xlsx or .csv."));
    }
    const QString &source = files[0];
    const QString &target = files[1];
    requireSuffix(target, QStringLiteral("export"), {kWorkbook, kCsv});
    refuseInput(target, {source});
    refuseToReplace(parser, target);
    if (target.endsWith(kCsv, Qt::CaseInsensitive)) {
        return exportCsv(source, target);
    }
    return runConversion<EDFToXLS>(target, [&](EDFToXLS &conversion) { conversion.convert(source, target); });
}

} // namespace

int runExport(const QStringList &arguments)
{
    return runCommand(arguments, addOptions, exportRecording);
}
