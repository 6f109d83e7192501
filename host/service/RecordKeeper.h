#pragma once

#include <QList>
#include <QObject>
#include <QString>

#include <deque>

class DataCompound;
struct server_state;

/// The recordings of an acquisition: files in the record folder, and state files of a set length. One at a time.
///
/// Keeps the writing flags of the service's state. What goes wrong is told on standard error; acquisition goes on.
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
    /// Writes the state file of one state for the set length; what is there is replaced when it is complete.
    QString startState(int state, const QString &folder);
    /// Whether a file is still open; closed() follows.
    bool isBusy() const { return !m_open.empty(); }
    /// The state folder that is written to; empty when none is.
    QString busyStateFolder() const;
    /// Forgets files that a terminated acquisition left open.
    void reset();

    /// Deletes all recordings but the one that is being written. State files are no recordings.
    QString removeAll();
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
    };

    void begin(const Recording &recording, bool rhythms, int seconds);
    void takeError(const QString &reason);
    void takeEnd();
    void finishState(const Recording &recording);
    void updateFlags();
    QString newPath(const QString &deviceName) const;

    server_state &m_state;
    DataCompound &m_compound;
    QString m_folder;
    std::deque<Recording> m_open; ///< each is answered by one endWritingAndCloseFile(), in their order
};
