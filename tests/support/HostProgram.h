#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>

/// One run of the host that stands beside the tests.
struct Outcome
{
    int status; ///< −1 when it crashed or did not end
    QByteArray output;
    QByteArray error;

    QJsonObject json() const { return QJsonDocument::fromJson(output).object(); }
};

inline QString hostProgram()
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/bioprocessing");
}

inline Outcome runHost(const QStringList &arguments)
{
    QProcess process;
    process.start(hostProgram(), arguments);
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit) {
        return {-1, process.readAllStandardOutput(), process.errorString().toLocal8Bit()};
    }
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

inline QStringList words(const char *line)
{
    return QString::fromUtf8(line).split(QLatin1Char(' '));
}
