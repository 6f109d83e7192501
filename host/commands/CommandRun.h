#pragma once

#include "Console.h"

#include <QDateTime>
#include <QStringList>

class QCommandLineParser;

/// What every command does around its own work: parses its options, answers --help, and ends a Refusal as one sentence.
/// @param addOptions  description, arguments and options
/// @param work        may throw a Refusal
int runCommand(const QStringList &arguments, void (*addOptions)(QCommandLineParser &parser),
               Console::ExitStatus (*work)(const QCommandLineParser &parser));

/// The time that the option "start" gives; invalid when it was not given. Throws a Refusal for what is no time.
QDateTime startOption(const QCommandLineParser &parser);
