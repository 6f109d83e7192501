#pragma once

#include <QObject>
#include <QTimer>

/// Turns SIGINT and SIGTERM into a signal on the event loop, so that a recording is closed before the program ends.
/// A second one ends the program at once. One object at a time.
class Interrupt : public QObject
{
    Q_OBJECT
public:
    explicit Interrupt(QObject *parent = nullptr);
    ~Interrupt() override;

signals:
    void interrupted();

private:
    void poll();

    QTimer m_poll;
};
