#include "commands/CommandRun.h"

#include "commands/Refusal.h"

#include <QCommandLineParser>

int runCommand(const QStringList &arguments, void (*addOptions)(QCommandLineParser &parser),
               Console::ExitStatus (*work)(const QCommandLineParser &parser))
{
    QCommandLineParser parser;
    addOptions(parser);
    Console::ExitStatus status = Console::Success;
    if (!Console::parse(parser, arguments, status)) {
        return status;
    }
    try {
        return work(parser);
    } catch (const Refusal &refusal) {
        Console::error(refusal.sentence);
        return refusal.status;
    }
}

QDateTime startOption(const QCommandLineParser &parser)
{
    const QString text = parser.value(QStringLiteral("start"));
    const QDateTime start = QDateTime::fromString(text, Qt::ISODate);
    if (!text.isEmpty() && !start.isValid()) {
        refuseUsage(QStringLiteral("--start takes a time like 2024-03-01T10:00:00, not \"%1\".").arg(text));
    }
    return start;
}
