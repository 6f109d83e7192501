#pragma once

#include <QList>
#include <QObject>
#include <QString>

#include <deque>
#include <vector>

class DataCompound;
struct server_state;

/// The recordings of an acquisition: files in the record folder, and state files of a set length. One at a time.
///
/// Keeps the writing flags of the service's state. What goes wrong is told on standard error, and by lastError();
/// acquisition goes on.
class RecordKeeper : public QObject
{
    Q_OBJECT
public:
    static constexpr int kFirstState = 1;
    static constexpr int kLastState = 8;

    /// @param state, compound  borrowed; must outlive this object
    RecordKeeper(server_state &state, DataCompound &compound, const QString &folder, QObject *parent = nullptr);

    /// Signals and rhythms of the device, which acquires.
    /// @return empty, or why it did not start
    QString start(const QString &deviceName);
    /// Ends whatever is written. A state file that is not complete is dropped.
    void stop();
    /// As stop(), and waits while the acquiring device's loop closes the files, some seconds at most. Meanwhile the
    /// compound's signals are emitted.
    /// @return what the recording lost or could not do; empty otherwise, and when nothing was written
    QString stopAndWait();
    /// Writes the state file of one state for the set length; what is there is replaced when it is complete.
    QString startState(int state, const QString &folder);
    /// Whether a file is still open; closed() follows.
    bool isBusy() const { return !m_open.empty() || !m_closing.empty(); }
    /// The state folder that is written to; empty when none is.
    QString busyStateFolder() const;
    /// Of what is being written: a recording, or the state file that will be. Empty when nothing is.
    QString currentPath() const;
    /// What the newest recording lost or could not do; empty when there was nothing.
    const QString &lastError() const { return m_lastError; }
    /// Forgets files that a terminated acquisition left open.
    void reset();

    /// Deletes all recordings but the one that is being written, and the file that is played; those that are being
    /// closed go when they are. State files are no recordings.
    QString removeAll();
    void setPlayedFile(const QString &path) { m_playedFile = path; }
    QString removeState(int state, const QString &folder);
    static QString statePath(const QString &folder, int state);
    /// Ascending.
    static QList<int> recordedStates(const QString &folder);

signals:
    void stateRecorded();
    /// Nothing is written any more.
    void closed();

private:
    struct Recording
    {
        QString path;
        QString target; ///< of a state file, which is renamed to it; empty for others
        bool isEnding; ///< was asked to end, or has failed
        bool isUnwanted = false; ///< to be deleted when it is closed
    };

    void begin(const Recording &recording, bool rhythms, int seconds);
    void takeError(const QString &reason);
    void takeEnd();
    void takeBlock();
    void settle();
    void finishState(const Recording &recording);
    void updateFlags();
    QString newPath(const QString &deviceName) const;

    server_state &m_state;
    DataCompound &m_compound;
    QString m_folder;
    QString m_playedFile;
    QString m_lastError;
    std::deque<Recording> m_open; ///< each is answered by one endWritingAndCloseFile(), in their order
    /// Those whose signals are on disk. Their spreadsheets are too when the loop has gone on to the next block.
    std::vector<Recording> m_closing;
};
