#pragma once

#include "Console.h"

/// What is wrong with the command line, or with what it names, as one sentence. Thrown within the program only.
struct Refusal
{
    Console::ExitStatus status;
    QString sentence;
};

[[noreturn]] inline void refuseUsage(const QString &sentence)
{
    throw Refusal{Console::WrongUsage, sentence};
}

[[noreturn]] inline void refuse(const QString &sentence)
{
    throw Refusal{Console::Failure, sentence};
}
