#include "acquire/AcquireSession.h"

#include "Console.h"
#include "devices/Amplifier.h"
#include "files/EDFReader.h"
#include "montage/Montage.h"
#include "pipeline/DataCompound.h"

#include <QFileInfo>
#include <QTimer>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kCloseTimeoutMs = 10000;
constexpr int kLiveMs = 1000;
constexpr float kLargestRecorded = 32767.0f; ///< µV

} // namespace

AcquireSession::AcquireSession(Amplifier *device, QSharedPointer<Montage> montage, AcquireOptions options,
                               QObject *parent)
    : QObject(parent)
    , m_device(device)
    , m_montage(std::move(montage))
    , m_options(std::move(options))
    , m_live(m_montage->getChannelNames(), m_options.algorithms)
    , m_compound(std::make_unique<DataCompound>(device, m_montage))
    , m_frequency(static_cast<double>(device->getFreqValue()))
{
    std::stable_sort(m_options.labels.begin(), m_options.labels.end(),
                     [](const TimedLabel &a, const TimedLabel &b) { return a.seconds < b.seconds; });
    connect(m_compound.get(), &DataCompound::newSampleData, this,
            [this](const std::vector<float> &data, int count) { takeData(data, count); });
    connect(m_compound.get(), &DataCompound::currentDeviceReturnError, this, &AcquireSession::takeDeviceCode);
    connect(m_compound.get(), &DataCompound::recordError, this, &AcquireSession::takeRecordError);
    connect(m_compound.get(), &DataCompound::signalLabel, this, &AcquireSession::showLabel);
    connect(m_compound.get(), &DataCompound::samplesMissed, this, [this](qint64 samples) {
        m_samples += samples; // time has passed
        Console::error(
            QStringLiteral("This program came too late to %1 samples per channel: they are missing in what it "
                           "shows, and in no recording.")
                .arg(samples));
    });
    connect(m_compound.get(), &DataCompound::recordNotice, this, [](const QString &notice) { Console::error(notice); });
    connect(m_compound.get(), &DataCompound::currentLabel, this, &AcquireSession::takeLabelAnswer);
    connect(m_compound.get(), &DataCompound::endWritingAndCloseFile, this, [this] {
        if (m_stopping) {
            finish();
        }
    });
}

AcquireSession::~AcquireSession() = default;

QString AcquireSession::rhythmPath(const QString &record)
{
    const QString suffix = QStringLiteral("_rt.xls");
    return (record.indexOf(QLatin1String(".edf")) > 0 ? record.chopped(4) : record) + suffix; // as XLSWriter does
}

void AcquireSession::start()
{
    m_clock.start();
    connect(&m_liveTimer, &QTimer::timeout, this, &AcquireSession::showLiveValues);
    m_liveTimer.start(kLiveMs);
    m_watch.start();
    if (!m_options.algorithms.empty()) {
        m_compound->setAlgorithmParams(&m_live, m_options.algorithms);
    }
    if (!m_options.lslName.isEmpty()) {
        m_compound->setLSLStreamParametrs(m_options.lslName, false, QString());
    }
    if (m_options.played.start.isValid()) {
        m_options.played.giveTo(*m_compound);
    }
    if (!m_options.recordPath.isEmpty()) {
        prepareRecord();
        m_compound->startRecord(m_options.recordPath, true, recordsRhythms(), 0);
        if (!m_compound->isRecording()) {
            finish(); // told by recordError()
            return;
        }
    }
    m_compound->startReadData();
}

void AcquireSession::prepareRecord()
{
    m_clipped.resize(m_montage->size());
    m_compound->setWriteRemainder(true);
    m_compound->setSignalClock(m_options.isPaced);
    m_compound->setRecordStartTime(m_options.recordStart);
    if (m_options.patient && !m_options.played.start.isValid()) {
        m_compound->setPatientInfo(*m_options.patient);
    }
}

/// Whether there is anything for the spreadsheet.
bool AcquireSession::recordsRhythms() const
{
    return std::any_of(m_options.algorithms.begin(), m_options.algorithms.end(), [](const UnitParams &params) {
        return params.getName() == QLatin1String("SpectrumNorm") || params.getName() == QLatin1String("Math");
    });
}

void AcquireSession::stop(const QString &reason)
{
    if (m_stopping || m_finished) {
        return;
    }
    placeLabels();
    m_stopping = true;
    m_reason = reason;
    m_watch.stop();
    if (m_compound->isRecording()) {
        Console::progress(QStringLiteral("closing %1 …").arg(m_options.recordPath));
        QTimer::singleShot(kCloseTimeoutMs, this, &AcquireSession::giveUpClosing);
        // The rhythms first: what they say comes before the end of the recording, for which finish() waits.
        m_compound->setStartWriteDataFlag(true, false);
        m_compound->stopRecord();
    } else {
        finish();
    }
}

void AcquireSession::giveUpClosing()
{
    if (!m_finished) {
        takeRecordError(QStringLiteral("%1 could not be closed within %2 s, since the device or the disk does not "
                                       "answer: if it stays so, \"bioprocessing repair\" makes a sound copy.")
                            .arg(m_options.recordPath)
                            .arg(kCloseTimeoutMs / 1000));
        finish();
    }
}

void AcquireSession::takeData(const std::vector<float> &data, int count)
{
    m_watch.takeBlock();
    if (m_stopping) {
        return; // acquired after the end that was asked for
    }
    if (m_firstBlockMs < 0) {
        m_firstBlockMs = m_clock.elapsed();
    }
    const int samples = count / static_cast<int>(m_montage->size());
    m_samples += samples;
    ++m_blocks;
    countClipped(data, static_cast<std::size_t>(samples));
    placeLabels();
    if (m_options.seconds > 0.0 && seconds() >= m_options.seconds) {
        stop(QStringLiteral("seconds"));
    }
}

void AcquireSession::countClipped(const std::vector<float> &data, std::size_t samples)
{
    auto first = data.begin();
    for (qint64 &clipped : m_clipped) {
        const auto end = first + static_cast<std::ptrdiff_t>(samples);
        clipped += std::count_if(first, end, [](float x) { return std::fabs(x) > kLargestRecorded; });
        first = end;
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
    (reason.contains(rhythmPath(m_options.recordPath)) ? m_rhythmsFailed : m_recordFailed) = true;
    if (m_error.isEmpty()) {
        m_error = reason;
    } else if (reason != m_error) {
        Console::error(reason);
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
    if (m_stopping) {
        return;
    }
    while (m_nextLabel < m_options.labels.size() && m_options.labels[m_nextLabel].seconds <= seconds()) {
        const TimedLabel &label = m_options.labels[m_nextLabel++];
        showLabel(label.seconds, label.text);
        if (!m_options.recordPath.isEmpty()) {
            // A recording has a whole number of samples per second; the label stays with its sample.
            m_compound->setLabelToEDFAt(label.text,
                                        label.seconds * m_frequency / std::max(1.0, std::floor(m_frequency)));
        }
    }
}

void AcquireSession::showLabel(double seconds, const QString &text) const
{
    if (m_options.json && !m_live.isEmpty()) {
        Console::printJsonLine({{QStringLiteral("label"), text}, {QStringLiteral("time"), seconds}});
    }
}

void AcquireSession::finish()
{
    if (m_finished) {
        return;
    }
    m_finished = true;
    m_liveTimer.stop();
    m_watch.stop();
    Console::progress(QString());
    m_compound->stopReadData();
    checkRecording();
    if (m_error.isEmpty() && m_nextLabel < m_options.labels.size()) {
        m_error = QStringLiteral("The label \"%1\" lies behind the end of the recording and was not written.")
                      .arg(m_options.labels[m_nextLabel].text);
    }
    emit finished();
}

/// A recording that nobody can read was not made, whatever else was said of it.
void AcquireSession::checkRecording()
{
    if (m_options.recordPath.isEmpty() || m_recordFailed) {
        return;
    }
    const EDFInfo info = EDFReader::fileInfo(m_options.recordPath);
    if (!info.valid) {
        m_recordFailed = true;
        m_error = m_error.isEmpty() ? QStringLiteral("There is no sound recording: %1").arg(info.error) : m_error;
    }
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
    if (!m_options.algorithms.empty()) {
        object.insert(QStringLiteral("algorithms"), m_live.summary());
    }
    if (!m_options.recordPath.isEmpty()) {
        object.insert(QStringLiteral("record"), recordSummary());
    }
    if (!m_error.isEmpty()) {
        object.insert(QStringLiteral("error"), m_error);
    }
    return object;
}

QJsonObject AcquireSession::recordSummary() const
{
    QJsonObject record{{QStringLiteral("path"), m_options.recordPath},
                       {QStringLiteral("complete"), !m_recordFailed},
                       {QStringLiteral("bytes"), QFileInfo(m_options.recordPath).size()},
                       {QStringLiteral("labels"), m_labelsWritten},
                       {QStringLiteral("padded_seconds"), m_compound->paddedSeconds()}};
    if (recordsRhythms() && !m_rhythmsFailed && QFileInfo::exists(rhythmPath(m_options.recordPath))) {
        record.insert(QStringLiteral("rhythms"), rhythmPath(m_options.recordPath));
    }
    QJsonObject clipped;
    for (std::size_t i = 0; i < m_clipped.size(); ++i) {
        if (m_clipped[i] > 0) {
            clipped.insert(m_montage->getChannelNames().at(static_cast<int>(i)), m_clipped[i]);
        }
    }
    if (!clipped.isEmpty()) {
        record.insert(QStringLiteral("clipped_samples"), clipped);
    }
    return record;
}
