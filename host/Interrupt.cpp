#include "Interrupt.h"

#include "Console.h"

#include <csignal>
#include <cstdlib>

namespace {

constexpr int kPollMs = 50;

// What the platform has.
constexpr int kEnding[]{SIGINT, SIGTERM,
#ifdef SIGHUP
                        SIGHUP
#endif
};

volatile std::sig_atomic_t s_signalled = 0;

/// A handler may do no more than this, on every platform.
void take(int signalNumber)
{
    s_signalled = s_signalled + 1;
    if (s_signalled > 2) {
        std::_Exit(128 + signalNumber); // what shells show for a program that a signal ended
    }
    std::signal(signalNumber, take);
}

void handle(int signalNumber, void (*handler)(int))
{
    const auto before = std::signal(signalNumber, handler);
#ifdef SIGHUP
    if (signalNumber == SIGHUP && before == SIG_IGN) {
        std::signal(signalNumber, SIG_IGN); // as the program was started (nohup)
    }
#else
    static_cast<void>(before);
#endif
}

} // namespace

Interrupt::Interrupt(QObject *parent)
    : QObject(parent)
{
    s_signalled = 0;
    for (const int signalNumber : kEnding) {
        handle(signalNumber, take);
    }
    connect(&m_poll, &QTimer::timeout, this, &Interrupt::poll);
    m_poll.start(kPollMs);
}

Interrupt::~Interrupt()
{
    for (const int signalNumber : kEnding) {
        handle(signalNumber, SIG_DFL);
    }
}

void Interrupt::ignoreClosedPipes()
{
#ifdef SIGPIPE
    std::signal(SIGPIPE, SIG_IGN);
#endif
}

void Interrupt::poll()
{
    if (!m_isTold && (s_signalled != 0 || Console::isOutputLost())) {
        m_isTold = true;
        emit interrupted();
    }
    if (!m_isWarned && s_signalled > 1) {
        m_isWarned = true;
        Console::error(QStringLiteral("It is ending, and closes its files first; once more ends it at once, and a "
                                      "recording then needs \"bioprocessing repair\"."));
    }
}
