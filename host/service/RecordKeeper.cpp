#include "service/RecordKeeper.h"

#include "Console.h"
#include "pipeline/DataCompound.h"
#include "server/server_state.h"
#include "service/FileName.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <filesystem>
#include <utility>

namespace {

constexpr qint64 kCloseWaitMs = 5000;
constexpr unsigned long kClosePollMs = 5;
constexpr int kNoBlockMs = 2000; ///< after which none is waited for: the device has ended

/// Of the labels of a recording that was never closed.
const QString kJournalSuffix = QStringLiteral(".labels");

QString sheetPath(const QString &recordPath)
{
    return recordPath.left(recordPath.size() - 4) + QLatin1String("_rt.xls");
}

/// Replaces what is at the target, in one step.
bool renameOver(const QString &from, const QString &to)
{
    std::error_code error;
    std::filesystem::rename(std::filesystem::path(from.toStdU16String()), std::filesystem::path(to.toStdU16String()),
                            error);
    return !error;
}

} // namespace

RecordKeeper::RecordKeeper(server_state &state, DataCompound &compound, const QString &folder, QObject *parent)
    : QObject(parent)
    , m_state(state)
    , m_compound(compound)
    , m_folder(folder)
{
    connect(&m_compound, &DataCompound::recordError, this, &RecordKeeper::takeError);
    connect(&m_compound, &DataCompound::endWritingAndCloseFile, this, &RecordKeeper::takeEnd);
    connect(&m_compound, &DataCompound::newSampleData, this, &RecordKeeper::takeBlock);
}

QString RecordKeeper::statePath(const QString &folder, int state)
{
    return QStringLiteral("%1/state_%2.edf").arg(folder).arg(state);
}

QString RecordKeeper::start(const QString &deviceName)
{
    if (!QDir().mkpath(m_folder)) {
        return QStringLiteral("Cannot create %1.").arg(m_folder);
    }
    begin({newPath(deviceName), QString(), false}, true, 0);
    return {};
}

QString RecordKeeper::startState(int state, const QString &folder)
{
    if (m_state.writingFile || m_state.writingStateFile) {
        return QStringLiteral("State %1 was not recorded: another file is being written.").arg(state);
    }
    if (!QDir().mkpath(folder)) {
        return QStringLiteral("Cannot create %1.").arg(folder);
    }
    const QString target = statePath(folder, state);
    begin({target + QLatin1String(".partial"), target, false}, false, m_state.stateFileSeconds);
    return {};
}

void RecordKeeper::begin(const Recording &recording, bool rhythms, int seconds)
{
    settle(); // its files are closed, and the next one may have the name of one of them
    m_lastError.clear();
    m_open.push_back(recording);
    updateFlags();
    m_compound.setWriteRemainder(recording.target.isEmpty()); // padding is nothing to learn from
    m_compound.startRecord(recording.path, true, rhythms, seconds);
}

void RecordKeeper::stop()
{
    if (m_open.empty() || m_open.back().isEnding) {
        return;
    }
    m_open.back().isEnding = true;
    updateFlags();
    m_compound.stopRecord();
    if (m_open.empty()) {
        settle(); // no loop runs: everything was done at once
    }
}

QString RecordKeeper::stopAndWait()
{
    if (m_open.empty()) {
        return {};
    }
    stop();
    QElapsedTimer clock;
    clock.start();
    while (isBusy() && clock.elapsed() < kCloseWaitMs) {
        QCoreApplication::sendPostedEvents(&m_compound, QEvent::MetaCall);
        QThread::msleep(isBusy() ? kClosePollMs : 0);
    }
    return m_lastError;
}

QString RecordKeeper::busyStateFolder() const
{
    return m_open.empty() || m_open.back().target.isEmpty() ? QString() : QFileInfo(m_open.back().target).path();
}

QString RecordKeeper::currentPath() const
{
    if (m_open.empty() || m_open.back().isEnding) {
        return {};
    }
    return m_open.back().target.isEmpty() ? m_open.back().path : m_open.back().target;
}

void RecordKeeper::reset()
{
    settle();
    m_open.clear();
    updateFlags();
}

void RecordKeeper::takeError(const QString &reason)
{
    Console::error(reason);
    if (m_lastError.isEmpty()) {
        m_lastError = reason;
    }
    // A spreadsheet that could not be saved comes after the end of its recording, another one may be running by then.
    if (!m_open.empty() && reason.contains(QFileInfo(m_open.back().path).fileName())) {
        stop();
    }
}

void RecordKeeper::takeEnd()
{
    if (m_open.empty()) {
        return;
    }
    m_closing.push_back(m_open.front());
    m_open.pop_front();
    updateFlags();
    QTimer::singleShot(kNoBlockMs, this, &RecordKeeper::settle);
}

void RecordKeeper::takeBlock()
{
    if (!m_closing.empty()) {
        settle();
    }
}

void RecordKeeper::settle()
{
    const std::vector<Recording> settled = std::exchange(m_closing, {});
    for (const Recording &recording : settled) {
        if (!recording.target.isEmpty()) {
            finishState(recording);
        }
        if (recording.isUnwanted) {
            QFile::remove(recording.path);
            QFile::remove(sheetPath(recording.path));
            QFile::remove(recording.path + kJournalSuffix);
        }
    }
    if (!settled.empty() && !isBusy()) {
        emit closed();
    }
}

void RecordKeeper::finishState(const Recording &recording)
{
    if (recording.isEnding) {
        QFile::remove(recording.path);
        Console::error(QStringLiteral("%1 was not recorded to its end and is not kept.").arg(recording.target));
    } else if (renameOver(recording.path, recording.target)) {
        emit stateRecorded();
    } else {
        Console::error(QStringLiteral("Cannot rename %1 to %2.").arg(recording.path, recording.target));
    }
}

void RecordKeeper::updateFlags()
{
    const bool isWriting = !m_open.empty() && !m_open.back().isEnding;
    m_state.writingFile = isWriting && m_open.back().target.isEmpty();
    m_state.writingStateFile = isWriting && !m_open.back().target.isEmpty();
}

QString RecordKeeper::newPath(const QString &deviceName) const
{
    const QString base = QStringLiteral("%1/%2_%3")
                             .arg(m_folder, FileName::readable(deviceName),
                                  QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd_hhmmss")));
    // Files that were asked for a moment ago need not be there yet.
    const auto isTaken = [this](const QString &path) {
        return QFile::exists(path) || QFile::exists(sheetPath(path))
            || std::any_of(m_open.begin(), m_open.end(), [&path](const Recording &open) { return open.path == path; });
    };
    QString path = base + QLatin1String(".edf");
    for (int i = 2; isTaken(path); ++i) {
        path = QStringLiteral("%1_%2.edf").arg(base).arg(i);
    }
    return path;
}

QString RecordKeeper::removeAll()
{
    QStringList kept;
    const auto keep = [&kept](Recording &recording) {
        recording.isUnwanted = recording.isEnding && recording.target.isEmpty();
        kept << recording.path << sheetPath(recording.path) << recording.path + kJournalSuffix;
    };
    std::for_each(m_open.begin(), m_open.end(), keep);
    std::for_each(m_closing.begin(), m_closing.end(), keep);
    const QStringList names{QStringLiteral("*.edf"), QStringLiteral("*_rt.xls"),
                            QStringLiteral("*.edf") + kJournalSuffix};
    const QFileInfoList files = QDir(m_folder).entryInfoList(names, QDir::Files | QDir::Hidden);
    QString left;
    for (const QFileInfo &file : files) {
        const bool isPlayed = !m_playedFile.isEmpty() && file == QFileInfo(m_playedFile);
        if (!isPlayed && !kept.contains(file.filePath()) && !QFile::remove(file.filePath())) {
            left = file.fileName();
        }
    }
    return left.isEmpty() ? QString() : QStringLiteral("Can not remove ") + left;
}

QString RecordKeeper::removeState(int state, const QString &folder)
{
    const QString path = statePath(folder, state);
    return !QFile::exists(path) || QFile::remove(path) ? QString() : QStringLiteral("Cannot remove %1.").arg(path);
}

QList<int> RecordKeeper::recordedStates(const QString &folder)
{
    QList<int> states;
    for (int state = kFirstState; state <= kLastState; ++state) {
        if (QFile::exists(statePath(folder, state))) {
            states << state;
        }
    }
    return states;
}
