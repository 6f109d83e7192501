#include "Interrupt.h"

#include <csignal>

namespace {

constexpr int kPollMs = 50;

volatile std::sig_atomic_t s_signalled = 0;

void take(int signalNumber)
{
    s_signalled = 1;
    std::signal(signalNumber, SIG_DFL);
}

} // namespace

Interrupt::Interrupt(QObject *parent)
    : QObject(parent)
{
    s_signalled = 0;
    std::signal(SIGINT, take);
    std::signal(SIGTERM, take);
    // A handler may do no more than set a flag, on every platform.
    connect(&m_poll, &QTimer::timeout, this, &Interrupt::poll);
    m_poll.start(kPollMs);
}

Interrupt::~Interrupt()
{
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

void Interrupt::poll()
{
    if (s_signalled != 0) {
        m_poll.stop();
        emit interrupted();
    }
}
