#pragma once

#include <QStringList>

/// One function per command. The arguments begin with the program's name and go on behind the command word; the result
/// is the program's exit status (Console::ExitStatus).

int runDevices(const QStringList &arguments);
int runAcquire(const QStringList &arguments);
int runInfo(const QStringList &arguments);
int runRequest(const QStringList &arguments);
int runServe(const QStringList &arguments);
int runTrain(const QStringList &arguments);
int runClassify(const QStringList &arguments);
int runRepair(const QStringList &arguments);
int runConvert(const QStringList &arguments);
int runExport(const QStringList &arguments);
