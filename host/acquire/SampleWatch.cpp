#include "acquire/SampleWatch.h"

#include "Console.h"

namespace {

constexpr int kLookMs = 500;
constexpr qint64 kSilenceMs = 3000;

} // namespace

SampleWatch::SampleWatch(QObject *parent)
    : QObject(parent)
{
    connect(&m_timer, &QTimer::timeout, this, &SampleWatch::look);
}

void SampleWatch::start()
{
    m_sinceBlock.start();
    m_timer.start(kLookMs);
}

void SampleWatch::stop()
{
    m_timer.stop();
}

void SampleWatch::takeBlock()
{
    if (m_isSilent) {
        m_isSilent = false;
        Console::error(QStringLiteral("Samples come again, after %1 s.").arg(m_sinceBlock.elapsed() / 1000));
    }
    m_sinceBlock.start();
}

void SampleWatch::look()
{
    if (!m_isSilent && m_sinceBlock.elapsed() >= kSilenceMs) {
        m_isSilent = true;
        Console::error(QStringLiteral("No samples have come for %1 s: look after the device.").arg(kSilenceMs / 1000));
    }
}
