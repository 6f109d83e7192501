#include "commands/OutputFile.h"

#include "commands/Refusal.h"

#include <QCommandLineParser>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <filesystem>

namespace {

const QString kForce = QStringLiteral("force");

// The fixed part of an EDF or BDF header.
constexpr int kHeaderSizeAt = 184;
constexpr int kRecordsAt = 236;
constexpr int kRecordsWidth = 8;

QByteArray beginningOf(const QString &path, qint64 bytes)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.read(bytes) : QByteArray();
}

/// Whether the header counts -1 records, as it does until the file is closed, and there are some.
bool isUnclosedRecording(const QString &path)
{
    const QByteArray header = beginningOf(path, kRecordsAt + kRecordsWidth);
    const bool isRecording = header.startsWith("0       ")
        || header.startsWith("\xff"
                             "BIOSEMI");
    return isRecording && header.mid(kRecordsAt).trimmed() == "-1"
        && QFileInfo(path).size() > header.mid(kHeaderSizeAt, kRecordsWidth).trimmed().toLongLong();
}

bool hasJournal(const QString &path)
{
    return beginningOf(path + QStringLiteral(".labels"), 64).startsWith("BioProcessing labels");
}

std::filesystem::path toPath(const QString &path)
{
#ifdef Q_OS_WIN
    return std::filesystem::path(path.toStdWString());
#else
    return std::filesystem::path(QFile::encodeName(path).toStdString());
#endif
}

} // namespace

void addForceOption(QCommandLineParser &parser)
{
    parser.addOption({kForce, QStringLiteral("Replace a file that exists.")});
}

void refuseToReplace(const QCommandLineParser &parser, const QString &path)
{
    if (isUnclosedRecording(path)) {
        refuse(
            QStringLiteral("%1 is a recording that was not closed, or is not yet: \"bioprocessing repair %1\" makes a "
                           "sound copy; remove it then, or choose another name here.")
                .arg(path));
    }
    if (hasJournal(path)) {
        refuse(QStringLiteral("%1.labels holds the labels of a recording that could not be completed: if %1 is that "
                              "recording, \"bioprocessing repair %1\" puts them into a copy; move this text file away "
                              "then, or choose another name here.")
                   .arg(path));
    }
    const QFileInfo info(path);
    if (info.isDir()) {
        refuse(QStringLiteral("%1 is a folder: give the name of a file.").arg(path));
    }
    if (info.exists() && !parser.isSet(kForce)) {
        refuse(QStringLiteral("%1 exists: choose another name, or replace it with --force.").arg(path));
    }
}

void refuseInput(const QString &path, const QStringList &inputs)
{
    for (const QString &input : inputs) {
        std::error_code error;
        if (std::filesystem::equivalent(toPath(path), toPath(input), error) && !error) {
            refuse(QStringLiteral("%1 is the file that is read: choose another name for the result.").arg(path));
        }
    }
}

void requireSuffix(const QString &path, const QString &what, const QStringList &suffixes)
{
    const bool isKnown = std::any_of(suffixes.begin(), suffixes.end(), [&path](const QString &suffix) {
        return path.endsWith(suffix, Qt::CaseInsensitive) && QFileInfo(path).fileName().size() > suffix.size();
    });
    if (!isKnown) {
        refuseUsage(QStringLiteral("%1 writes %2: the name \"%3\" does not end so.")
                        .arg(what, suffixes.join(QStringLiteral(" or ")), path));
    }
}
