#include "Console.h"
#include "commands/Commands.h"
#include "files/EDFRescue.h"

#include <QCommandLineParser>

int runRepair(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Makes a sound copy of a recording that was not closed, or that is cut short. The recording "
                       "itself is not touched."));
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("The EDF(+) or BDF(+) file."));
    parser.addPositionalArgument(QStringLiteral("OUT"),
                                 QStringLiteral("The new file, which must not exist; FILE_repaired unless given."),
                                 QStringLiteral("[OUT]"));
    Console::ExitStatus status = Console::Success;
    if (!Console::parse(parser, arguments, status)) {
        return status;
    }
    const QStringList files = parser.positionalArguments();
    if (files.isEmpty() || files.size() > 2) {
        Console::error(QStringLiteral("repair takes one file, and the name of the new one if you like."));
        return Console::WrongUsage;
    }
    const EDFRescue::Result result = EDFRescue::repair(files[0], files.value(1, EDFRescue::repairedPath(files[0])));
    if (!result.done) {
        Console::error(result.text);
        return Console::Failure;
    }
    Console::print(result.text);
    return Console::Success;
}
