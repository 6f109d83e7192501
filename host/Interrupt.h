#pragma once

#include <QObject>
#include <QTimer>

/// Turns what asks a program to end into a signal on the event loop, so that a recording is closed before it does:
/// SIGINT, SIGTERM, SIGHUP (unless the program was started to ignore it), and a standard output that takes no more.
///
/// A second signal is answered with a sentence on standard error, a third ends the program at once. One object at a
/// time.
class Interrupt : public QObject
{
    Q_OBJECT
public:
    explicit Interrupt(QObject *parent = nullptr);
    ~Interrupt() override;

    /// Makes writing to a closed pipe an error instead of the program's end; to be called once at the start.
    static void ignoreClosedPipes();

signals:
    /// Once.
    void interrupted();

private:
    void poll();

    QTimer m_poll;
    bool m_isTold = false;
    bool m_isWarned = false;
};
