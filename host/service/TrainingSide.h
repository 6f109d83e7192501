#pragma once

#include <QList>
#include <QObject>
#include <QString>

/// Learns to tell mental states from the state files of a profile.
class TrainingSide : public QObject
{
    Q_OBJECT
public:
    explicit TrainingSide(QObject *parent = nullptr);

    /// @param folder  holds "state_N.edf" for each of the states
    /// @return empty when training has started, and finished() will follow; otherwise the refusal
    QString start(const QString &folder, const QList<int> &states);
    /// Does nothing while none runs.
    void stop();

signals:
    /// @param error  one sentence; empty on success
    void finished(const QString &error);
};
