#include "server/TcpTextSocket.h"

#include "common/BPCommon.h"

#include <QDateTime>
#include <QHostAddress>
#include <QNetworkProxy>
#include <QTcpSocket>
#include <QTimer>

#include <cmath>

namespace {

constexpr qint64 kMaxUnsentBytes = 65536;
constexpr int kSignificantDigits = 7;
constexpr char kFieldSeparator = '\t';
constexpr char kLineEnd = '\n';

} // namespace

TcpTextSocket::TcpTextSocket(const std::atomic<bool> *alphaEnabled, const std::atomic<bool> *betaEnabled,
                             QObject *parent, quint16 alphaPort, quint16 betaPort, int retryMs)
    : QObject(parent)
    , m_lines{Line{QStringLiteral("alpha"), alphaPort, alphaEnabled},
              Line{QStringLiteral("beta"), betaPort, betaEnabled}}
{
    for (Line &line : m_lines) {
        prepareLine(line);
    }
    auto *timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, &TcpTextSocket::slotTryConnect);
    timer->start(retryMs);
}

void TcpTextSocket::sendValue(const QString &rhythm, float value)
{
    for (Line &line : m_lines) {
        if (line.text != rhythm || !line.isWanted() || !std::isfinite(value)
            || line.socket->state() != QAbstractSocket::ConnectedState) {
            continue;
        }
        const bool isFull = line.socket->bytesToWrite() >= kMaxUnsentBytes;
        if (isFull != line.isFull) {
            line.isFull = isFull;
            BPCommon::log(BPCommon::LogOutlet, "TcpTextSocket::sendValue %s the server reads too slowly %i", line.text,
                          isFull);
        }
        if (!isFull) {
            line.socket->write(line.text.toUtf8() + kFieldSeparator
                               + QByteArray::number(QDateTime::currentMSecsSinceEpoch()) + kFieldSeparator
                               + QByteArray::number(static_cast<double>(value), 'g', kSignificantDigits) + kLineEnd);
        }
    }
}

void TcpTextSocket::slotTryConnect()
{
    for (Line &line : m_lines) {
        if (!line.isWanted()) {
            line.socket->abort();
        } else if (line.socket->state() == QAbstractSocket::UnconnectedState) {
            line.socket->connectToHost(QHostAddress(QHostAddress::LocalHost), line.port);
        }
    }
}

void TcpTextSocket::prepareLine(Line &line)
{
    line.socket = new QTcpSocket(this);
    line.socket->setProxy(QNetworkProxy::NoProxy); // an application's proxy must not be asked for its own machine
    connect(line.socket, &QTcpSocket::connected, this, [&line] {
        line.isFull = false;
        enter(line, State::Connected, QStringLiteral("connected"));
    });
    connect(line.socket, &QTcpSocket::disconnected, this,
            [&line] { enter(line, State::Closed, QStringLiteral("disconnected")); });
    connect(line.socket, &QTcpSocket::errorOccurred, this, [&line] {
        if (line.state != State::Connected) { // otherwise the end of the connection follows
            enter(line, State::Refused, line.socket->errorString());
        }
    });
    connect(line.socket, &QTcpSocket::readyRead, line.socket, [&line] { line.socket->readAll(); });
}

void TcpTextSocket::enter(Line &line, State state, const QString &reason)
{
    if (line.state != state) {
        line.state = state;
        BPCommon::log(BPCommon::LogOutlet, "TcpTextSocket %s port %i: %s", line.text, line.port, reason);
    }
}
