#pragma once

#include "common/BPExport.h"

#include <QObject>
#include <QString>

#include <array>
#include <atomic>

class QTcpSocket;

/// Sends the alpha and beta rhythm values as text lines to two TCP servers on this machine.
///
/// alpha goes to 127.0.0.1 port 3361, beta to port 3362. One line for each value: "alpha", tab, milliseconds since the
/// epoch, tab, value (seven significant digits, decimal point), line feed.
///
/// A socket that is not connected is tried again at every tick of the timer, one whose flag is off is closed at the
/// next tick; values meanwhile are lost, not kept. Nothing waits: a server that leaves 64 KiB unread loses the values
/// after. Each change of a connection's state is traced once. Lives on a thread with an event loop, which alone may
/// call it.
class BIOPROCESSING_EXPORT TcpTextSocket : public QObject
{
    Q_OBJECT
public:
    static constexpr quint16 kAlphaPort = 3361;
    static constexpr quint16 kBetaPort = 3362;
    static constexpr int kRetryMs = 1000;

    /// @param alphaEnabled, betaEnabled  whether the value is wanted: borrowed, must outlive the object, may be set
    /// from
    ///                                   any thread; null is always wanted
    explicit TcpTextSocket(const std::atomic<bool> *alphaEnabled = nullptr,
                           const std::atomic<bool> *betaEnabled = nullptr, QObject *parent = nullptr,
                           quint16 alphaPort = kAlphaPort, quint16 betaPort = kBetaPort, int retryMs = kRetryMs);

public slots:
    /// @param rhythm  "alpha" or "beta"; others are ignored, and so are values that are not finite
    void sendValue(const QString &rhythm, float value);
    /// Starts connecting what should be connected and is not.
    void slotTryConnect();

private:
    enum class State { Closed, Connected, Refused };

    struct Line
    {
        QString text;
        quint16 port = 0;
        const std::atomic<bool> *enabled = nullptr;
        QTcpSocket *socket = nullptr; ///< child of this object
        State state = State::Closed; ///< as last traced
        bool isFull = false;

        bool isWanted() const { return enabled == nullptr || enabled->load(std::memory_order_relaxed); }
    };

    void prepareLine(Line &line);
    static void enter(Line &line, State state, const QString &reason);

    std::array<Line, 2> m_lines;
};
