#pragma once

#include "Console.h"
#include "files/FileConversion.h"

#include <functional>

/// Does the work on a thread of its own, with a progress line; SIGINT and SIGTERM cancel it.
/// @param conversion without a parent; is moved to that thread
Console::ExitStatus runConversion(FileConversion &conversion, const QString &target, const std::function<void()> &work);

template <class Conversion, class Work> Console::ExitStatus runConversion(const QString &target, const Work &work)
{
    Conversion conversion;
    return runConversion(conversion, target, [&] { work(conversion); });
}
