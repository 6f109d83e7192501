#include "pipeline/OfflineDataSource.h"

#include "files/EDFReader.h"
#include "files/TextTable.h"

#include <QScopeGuard>

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <random>

namespace {

constexpr unsigned kReadSamples = 1u << 20; ///< per call of the reader
constexpr int kNoLabel = -1;

constexpr double kVirtualSeconds = 10.0;
constexpr double kVirtualAmplitude = 50.0;
constexpr double kVirtualNoise = 10.0;
constexpr double kVirtualRhythmHz = 5.0;
constexpr double kVirtualMaxSamples = 1 << 24; ///< per entry, over all channels
constexpr double kTwoPi = 6.283185307179586;

std::vector<double> readSignal(EDFReader &reader, unsigned channel)
{
    const auto count = static_cast<std::size_t>(std::max(reader.getChannelSampleCount(static_cast<int>(channel)), 0LL));
    std::vector<double> samples;
    samples.reserve(count);
    while (samples.size() < count) {
        const auto part = std::min<std::size_t>(kReadSamples, count - samples.size());
        const auto values =
            reader.getChannelData(channel, static_cast<unsigned>(samples.size()), static_cast<unsigned>(part));
        if (values.empty()) {
            break;
        }
        samples.insert(samples.end(), values.begin(), values.end());
    }
    return samples;
}

} // namespace

OfflineDataSource::OfflineDataSource(int fs, double bufSize, FileType type, QObject *parent)
    : DataSource(parent)
    , m_fileType(type)
    , m_timer(this)
{
    m_fs = fs;
    m_bufSize = bufSize;
    BPCommon::log(m_logLevel, "OfflineDataSource::OfflineDataSource %i %d", fs, bufSize);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &OfflineDataSource::Send);
}

OfflineDataSource::OfflineDataSource(std::vector<QString> files, int fs, double bufSize,
                                     std::vector<DataSource::Channel> channels, FileType type, QObject *parent)
    : OfflineDataSource(fs, bufSize, type, parent)
{
    m_channels = std::move(channels);
    QList<QString> list;
    for (const QString &file : files) {
        list << file;
    }
    QList<fileProperty> properties;
    setFileList(list, properties);
}

OfflineDataSource::~OfflineDataSource()
{
    // The timer goes with this object, so its thread has to end first.
    quit();
    wait();
    m_sendings.load(std::memory_order_acquire);
    BPCommon::log(m_logLevel, "OfflineDataSource::~OfflineDataSource remove");
}

bool OfflineDataSource::setFileList(QList<QString> &files, QList<fileProperty> &properties, int labelKind)
{
    forget();
    if (labelKind < SampleLabels || labelKind > NoLabels) {
        return refuse(QStringLiteral("There is no label kind %1.").arg(labelKind));
    }
    if (!properties.isEmpty() && properties.size() != files.size()) {
        return refuse(QStringLiteral("%1 files come with %2 properties.").arg(files.size()).arg(properties.size()));
    }
    m_labelType = static_cast<LabelType>(labelKind);
    bool isLoaded = false;
    try {
        isLoaded = load(files);
    } catch (const std::bad_alloc &) {
        refuse(QStringLiteral("The files need more memory than there is."));
    }
    if (!isLoaded) {
        forget();
        return false;
    }
    std::vector<int> labels;
    for (const fileProperty &property : properties) {
        if (property.label != kNoLabel) {
            labels.push_back(property.label);
        }
    }
    if (!labels.empty() && labels.size() == m_fileLengths.size()) {
        setLabels(labels);
    }
    m_ready = std::isfinite(segmentSamples()) && segmentSamples() >= 1.0;
    return true;
}

bool OfflineDataSource::load(const QList<QString> &files)
{
    m_errorText.clear();
    for (int i = 0; i < files.size(); ++i) {
        Rows rows;
        double rate = m_fs;
        const bool isRead = m_fileType == EDF ? GetFromEdf(files[i], rows, rate)
            : m_fileType == TXT               ? GetFromTxt(files[i], rows)
                                              : getVirtual(i, rows);
        if (!isRead || !adoptRate(files[i], rate) || !appendFile(files[i], std::move(rows))) {
            return false;
        }
    }
    if (m_data.empty()) {
        return refuse(QStringLiteral("There are no files to load."));
    }
    const char *const done = m_fileType == EDF ? "OfflineDataSource::setFileList Loaded Data from .edf file"
        : m_fileType == TXT                    ? "OfflineDataSource::setFileList Loaded Data from .txt file"
                                               : "OfflineDataSource::setFileList Getting Virtual Data";
    BPCommon::log(m_logLevel, done);
    for (const Channel &channel : m_channels) {
        const int inputs = static_cast<int>(m_data.size());
        if (channel.index < 0 || channel.index >= inputs || channel.reference >= inputs) {
            BPCommon::log(m_logLevel,
                          "OfflineDataSource::setFileList WARNING: channel %s needs inputs that are not there",
                          channel.name);
        }
    }
    return true;
}

bool OfflineDataSource::GetFromEdf(const QString &path, Rows &rows, double &rate)
{
    EDFReader reader(path);
    if (!reader.open()) {
        return refuse(QStringLiteral("%1 cannot be read: %2").arg(path, reader.lastError()));
    }
    const int channels = reader.getChannelCount();
    if (channels <= 0) {
        return refuse(QStringLiteral("%1 contains no signals.").arg(path));
    }
    const float first = reader.getChannelSampleRate(0);
    for (int channel = 1; channel < channels; ++channel) {
        const float other = reader.getChannelSampleRate(channel);
        if (std::fabs(other - first) > 1e-3f * first) {
            return refuse(QStringLiteral("%1: signals \"%2\" and \"%3\" have different sampling rates, %4 and %5 Hz.")
                              .arg(path, reader.getChannelName(0), reader.getChannelName(channel))
                              .arg(static_cast<double>(first))
                              .arg(static_cast<double>(other)));
        }
    }
    rate = static_cast<double>(first);
    for (int channel = 0; channel < channels; ++channel) {
        rows.push_back(readSignal(reader, static_cast<unsigned>(channel)));
    }
    return true;
}

bool OfflineDataSource::GetFromTxt(const QString &path, Rows &rows)
{
    QString error;
    return bp::readTextTable(path, rows, error) || refuse(error);
}

bool OfflineDataSource::getVirtual(int entry, Rows &rows)
{
    double inputs = 1.0;
    for (const Channel &channel : m_channels) {
        inputs = std::max({inputs, channel.index + 1.0, channel.reference + 1.0});
    }
    const double length = kVirtualSeconds * m_fs;
    if (length < 1.0 || length * inputs > kVirtualMaxSamples) {
        return refuse(QStringLiteral("There is no virtual data of %1 channels at %2 Hz.").arg(inputs).arg(m_fs));
    }
    std::mt19937 generator(static_cast<std::mt19937::result_type>(entry) + 1u);
    rows.assign(static_cast<std::size_t>(inputs), std::vector<double>(static_cast<std::size_t>(length)));
    const double step = kTwoPi * kVirtualRhythmHz * (entry + 1) / m_fs;
    for (auto &row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            const double unit = static_cast<double>(generator()) / static_cast<double>(std::mt19937::max());
            row[i] = kVirtualAmplitude * std::sin(step * static_cast<double>(i)) + kVirtualNoise * (2.0 * unit - 1.0);
        }
    }
    return true;
}

bool OfflineDataSource::adoptRate(const QString &path, double rate)
{
    const double rounded = std::round(rate);
    if (!(rounded >= 1.0 && rounded <= std::numeric_limits<int>::max())) {
        return refuse(QStringLiteral("%1: a sampling rate of %2 Hz cannot be learnt from.").arg(path).arg(rate));
    }
    const int fs = static_cast<int>(rounded);
    if (fs == m_fs) {
        return true;
    }
    if (!m_data.empty()) {
        return refuse(QStringLiteral("%1 has another sampling rate, %2 Hz, than the files before it, %3 Hz.")
                          .arg(path)
                          .arg(rate)
                          .arg(m_fs));
    }
    BPCommon::log(m_logLevel, "OfflineDataSource::GetFromEdf WARNING: Fs changed to %d from %i", rate, m_fs);
    BPCommon::log(m_logLevel, "OfflineDataSource::GetFromEdf Do resampling if another SamplingRate is required");
    m_fs = fs;
    return true;
}

bool OfflineDataSource::appendFile(const QString &path, Rows &&rows)
{
    if (!m_data.empty() && rows.size() != m_data.size()) {
        const QString reason = QStringLiteral("%1 has %2 channels and the files before it %3.")
                                   .arg(path)
                                   .arg(rows.size())
                                   .arg(m_data.size());
        if (m_fileType != EDF) {
            return refuse(reason);
        }
        m_errorText = reason;
        BPCommon::log(m_logLevel, "OfflineDataSource::GetFromEdf WARNING: Edfs have different amounts of channels");
        return false;
    }
    const std::size_t length = std::min_element(rows.begin(), rows.end(), [](const auto &a, const auto &b) {
                                   return a.size() < b.size();
                               })->size();
    if (length == 0) {
        return refuse(QStringLiteral("%1 contains no samples.").arg(path));
    }
    for (auto &row : rows) {
        row.resize(length);
    }
    m_fileLengths.push_back(length);
    if (m_data.empty()) {
        m_data = std::move(rows);
        return true;
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        m_data[i].insert(m_data[i].end(), rows[i].begin(), rows[i].end());
    }
    return true;
}

bool OfflineDataSource::refuse(const QString &reason)
{
    m_errorText = reason;
    BPCommon::log(m_logLevel, "OfflineDataSource::setFileList %s", reason);
    return false;
}

void OfflineDataSource::forget()
{
    m_ready = false;
    m_timer.stop();
    m_data.clear();
    m_fileLengths.clear();
    m_labels.clear();
    rewind();
}

bool OfflineDataSource::setLabels(std::vector<int> &labels)
{
    m_labels.clear();
    if (labels.size() != m_fileLengths.size()) {
        BPCommon::log(m_logLevel,
                      "OfflineDataSource::setLabels Number of labels must be equal to number of files in this call");
        return false;
    }
    for (std::size_t i = 0; i < labels.size(); ++i) {
        m_labels.insert(m_labels.end(), m_fileLengths[i], labels[i]);
    }
    return true;
}

bool OfflineDataSource::setLabels(std::vector<std::vector<int>> &labels)
{
    m_labels.clear();
    if (labels.size() != m_fileLengths.size()) {
        BPCommon::log(
            m_logLevel,
            "OfflineDataSource::setLabels Number of label packs must be equal to number of files in this call");
        return false;
    }
    const auto fits = [](const std::vector<int> &pack, std::size_t length) { return pack.size() == length; };
    if (!std::equal(labels.begin(), labels.end(), m_fileLengths.begin(), fits)) {
        BPCommon::log(m_logLevel,
                      "OfflineDataSource::setLabels Number of labels for each source must be equal to number of "
                      "samples in each source");
        return false;
    }
    for (const auto &pack : labels) {
        m_labels.insert(m_labels.end(), pack.begin(), pack.end());
    }
    return true;
}

int OfflineDataSource::getChannelsCount() const
{
    return m_channels.empty() ? static_cast<int>(m_data.size()) : getNumChannels();
}

qint64 OfflineDataSource::getSampleCount() const
{
    return m_data.empty() ? 0 : static_cast<qint64>(m_data.front().size());
}

void OfflineDataSource::sendFromOwner(bool realTime)
{
    SendData(realTime);
}

void OfflineDataSource::SendData(bool realTime)
{
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(this, "sendFromOwner", Qt::QueuedConnection, Q_ARG(bool, realTime));
        return;
    }
    BPCommon::log(m_logLevel, "OfflineDataSource::SendData Offline source started");
    if (!m_ready) {
        BPCommon::log(m_logLevel, "OfflineDataSource::SendData Offline source not ready!");
        return;
    }
    rewind();
    const double interval = std::min(m_bufSize * 1000.0, static_cast<double>(std::numeric_limits<int>::max()));
    m_timer.setInterval(realTime ? static_cast<int>(interval) : 1);
    // A thread that ends mid-run must not leave the timer running for another thread to destroy.
    connect(QThread::currentThread(), &QThread::finished, &m_timer, &QTimer::stop,
            static_cast<Qt::ConnectionType>(Qt::DirectConnection | Qt::UniqueConnection));
    m_timer.start();
}

void OfflineDataSource::Send()
{
    const auto published = qScopeGuard([this] { m_sendings.fetch_add(1, std::memory_order_release); });
    if (!m_ready) {
        return;
    }
    BPCommon::log(m_logLevel, "OfflineDataSource::Send %i %d %i", m_stackCount, m_bufSize, m_fs);
    const auto [from, to] = nextSegment();
    m_stack.clear();
    for (const auto &row : m_data) {
        // Kept: a last segment that ends exactly with the recording isn't sent either, so 250 samples give one of 125.
        if (to >= static_cast<double>(row.size()) + (m_isWithinFiles ? 1.0 : 0.0)) {
            m_timer.stop();
            emit endOfData();
            rewind();
            BPCommon::log(m_logLevel, "OfflineDataSource::Send Finished Procesing");
            return;
        }
        m_stack.emplace_back(row.begin() + static_cast<std::ptrdiff_t>(from),
                             row.begin() + static_cast<std::ptrdiff_t>(to));
    }
    const int label =
        m_labelType < NoLabels ? segmentLabel(static_cast<std::size_t>(from), static_cast<std::size_t>(to)) : 0;
    BPCommon::log(m_logLevel, "OfflineDataSource::Send emitting... %i", label);
    doMontage(m_stack);
    sendStack(m_stack, label);
    ++m_stackCount;
}

OfflineDataSource::Segment OfflineDataSource::nextSegment()
{
    if (m_isWithinFiles) {
        return nextWithinFile();
    }
    const double from = std::floor(m_stackCount * m_bufSize * m_fs);
    return {from, std::floor(segmentSamples() + from)};
}

/// Beyond the recording's end when there is none.
OfflineDataSource::Segment OfflineDataSource::nextWithinFile()
{
    for (; m_file < m_fileLengths.size(); m_fileStart += m_fileLengths[m_file++], m_fileStackCount = 0) {
        const double from = std::floor(m_fileStackCount * m_bufSize * m_fs);
        const double to = std::floor(segmentSamples() + from);
        if (to <= static_cast<double>(m_fileLengths[m_file])) {
            ++m_fileStackCount;
            const auto start = static_cast<double>(m_fileStart);
            return {start + from, start + to};
        }
    }
    const auto end = static_cast<double>(m_fileStart) + 1.0;
    return {end, end};
}

void OfflineDataSource::rewind()
{
    m_stackCount = 0;
    m_file = 0;
    m_fileStart = 0;
    m_fileStackCount = 0;
}

/// The label of the longest run; of the first one among equally long ones.
int OfflineDataSource::segmentLabel(std::size_t from, std::size_t to) const
{
    int label = kNoLabel;
    std::size_t longest = 0;
    std::size_t run = 0;
    for (std::size_t i = from; i < std::min(to, m_labels.size()); ++i) {
        run = i > from && m_labels[i] == m_labels[i - 1] ? run + 1 : 1;
        if (run > longest) {
            longest = run;
            label = m_labels[i];
        }
    }
    return label;
}
