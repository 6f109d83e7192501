#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

/// Tells on standard error, once each, when a device gives no samples for some seconds and when they come again.
class SampleWatch : public QObject
{
    Q_OBJECT
public:
    explicit SampleWatch(QObject *parent = nullptr);

    void start();
    void stop();
    /// To be called for every block.
    void takeBlock();

private:
    void look();

    QTimer m_timer;
    QElapsedTimer m_sinceBlock;
    bool m_isSilent = false; ///< which was told
};
