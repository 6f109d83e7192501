#include "CommandRun.h"

#include "Refusal.h"

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
