#include "AcquireSession.h"

#include "Console.h"
#include "devices/Amplifier.h"
#include "montage/Montage.h"
#include "pipeline/DataCompound.h"

#include <QFileInfo>
#include <QTimer>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kCloseTimeoutMs = 10000;
constexpr int kLiveMs = 1000;

} // namespace

AcquireSession::AcquireSession(Amplifier *device, QSharedPointer<Montage> montage, AcquireOptions options,
                               QObject *parent)
    : QObject(parent)
    , m_device(device)
    , m_montage(std::move(montage))
    , m_options(std::move(options))
    , m_live(m_montage->getChannelNames())
    , m_compound(std::make_unique<DataCompound>(device, m_montage))
    , m_frequency(static_cast<double>(device->getFreqValue()))
{
    std::stable_sort(m_options.labels.begin(), m_options.labels.end(),
                     [](const TimedLabel &a, const TimedLabel &b) { return a.seconds < b.seconds; });
    connect(m_compound.get(), &DataCompound::newSampleData, this,
            [this](const std::vector<float> &, int count) { takeData(count); });
    connect(m_compound.get(), &DataCompound::currentDeviceReturnError, this, &AcquireSession::takeDeviceCode);
    connect(m_compound.get(), &DataCompound::recordError, this, &AcquireSession::takeRecordError);
    connect(m_compound.get(), &DataCompound::currentLabel, this, &AcquireSession::takeLabelAnswer);
    connect(m_compound.get(), &DataCompound::endWritingAndCloseFile, this, [this] {
        if (m_stopping) {
            finish();
        }
    });
}

AcquireSession::~AcquireSession() = default;

void AcquireSession::start()
{
    m_clock.start();
    connect(&m_liveTimer, &QTimer::timeout, this, &AcquireSession::showLiveValues);
    m_liveTimer.start(kLiveMs);
    if (!m_options.algorithms.empty()) {
        m_compound->setAlgorithmParams(&m_live, m_options.algorithms);
    }
    if (!m_options.lslName.isEmpty()) {
        m_compound->setLSLStreamParametrs(m_options.lslName, false, QString());
    }
    if (!m_options.recordPath.isEmpty()) {
        m_compound->startRecord(m_options.recordPath, true, !m_options.algorithms.empty(), 0);
        if (!m_compound->isRecording()) {
            finish(); // told by recordError()
            return;
        }
    }
    m_compound->startReadData();
}

void AcquireSession::stop(const QString &reason)
{
    if (m_stopping || m_finished) {
        return;
    }
    m_stopping = true;
    m_reason = reason;
    placeLabels();
    if (m_compound->isRecording()) {
        QTimer::singleShot(kCloseTimeoutMs, this, &AcquireSession::finish);
        m_compound->stopRecord();
    } else {
        finish();
    }
}

void AcquireSession::takeData(int count)
{
    if (m_stopping) {
        return; // acquired after the end that was asked for
    }
    if (m_firstBlockMs < 0) {
        m_firstBlockMs = m_clock.elapsed();
    }
    m_samples += count / static_cast<int>(m_montage->size());
    ++m_blocks;
    placeLabels();
    if (m_options.seconds > 0.0 && seconds() >= m_options.seconds) {
        stop(QStringLiteral("seconds"));
    }
}

void AcquireSession::takeDeviceCode(int code)
{
    if (code == Amplifier::kEndOfData) {
        stop(QStringLiteral("end"));
        return;
    }
    const QString words = m_device->getErrorText(code);
    m_error = QStringLiteral("The device stopped with code %1%2.")
                  .arg(code)
                  .arg(words.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(words));
    stop(QStringLiteral("error"));
}

void AcquireSession::takeRecordError(const QString &reason)
{
    if (m_error.isEmpty()) {
        m_error = reason;
    }
    stop(QStringLiteral("error"));
}

void AcquireSession::takeLabelAnswer(const QString &time, const QString &label)
{
    if (time == QLatin1String("-")) {
        m_error = QStringLiteral("The label \"%1\" could not be written.").arg(label);
    } else {
        ++m_labelsWritten;
    }
}

void AcquireSession::placeLabels()
{
    while (m_nextLabel < m_options.labels.size() && m_options.labels[m_nextLabel].seconds <= seconds()) {
        const TimedLabel &label = m_options.labels[m_nextLabel++];
        m_compound->setLabelToEDFAt(label.text, label.seconds);
    }
}

void AcquireSession::finish()
{
    if (m_finished) {
        return;
    }
    m_finished = true;
    m_liveTimer.stop();
    Console::progress(QString());
    m_compound->stopReadData();
    if (m_error.isEmpty() && m_nextLabel < m_options.labels.size()) {
        m_error = QStringLiteral("The label \"%1\" lies behind the end of the recording and was not written.")
                      .arg(m_options.labels[m_nextLabel].text);
    }
    emit finished();
}

void AcquireSession::showLiveValues()
{
    if (m_stopping) {
        return;
    }
    if (m_options.json && !m_live.isEmpty()) {
        QJsonObject line = m_live.latest();
        line.insert(QStringLiteral("time"), seconds());
        Console::printJsonLine(line);
    }
    Console::progress(QStringLiteral("%1 s  %2").arg(seconds(), 0, 'f', 1).arg(m_live.line()));
}

double AcquireSession::seconds() const
{
    return static_cast<double>(m_samples) / m_frequency;
}

QString AcquireSession::errorText() const
{
    return m_error;
}

QJsonObject AcquireSession::summary() const
{
    QJsonObject object = m_device->getAmplifierInfo().getJsonObject();
    object.insert(QStringLiteral("frequency"), m_frequency);
    object.insert(QStringLiteral("montage_channels"), static_cast<int>(m_montage->size()));
    object.insert(QStringLiteral("samples"), m_samples);
    object.insert(QStringLiteral("seconds"), seconds());
    object.insert(QStringLiteral("blocks"), m_blocks);
    object.insert(QStringLiteral("first_block_ms"), m_firstBlockMs);
    object.insert(QStringLiteral("wall_seconds"), static_cast<double>(m_clock.elapsed()) / 1000.0);
    object.insert(QStringLiteral("ended"), m_reason.isEmpty() ? QStringLiteral("error") : m_reason);
    if (!m_live.isEmpty()) {
        object.insert(QStringLiteral("algorithms"), m_live.summary());
    }
    if (!m_options.recordPath.isEmpty()) {
        object.insert(QStringLiteral("record"),
                      QJsonObject{{QStringLiteral("path"), m_options.recordPath},
                                  {QStringLiteral("bytes"), QFileInfo(m_options.recordPath).size()},
                                  {QStringLiteral("labels"), m_labelsWritten}});
    }
    if (!m_error.isEmpty()) {
        object.insert(QStringLiteral("error"), m_error);
    }
    return object;
}
