#include "bci/SolverModel.h"

#include "bci/Preprocessor.h"
#include "bci/Processor.h"
#include "common/ExceptionText.h"
#include "filters/Filtrator.h"
#include "pipeline/DataSource.h"

#include <algorithm>
#include <cmath>
#include <exception>

namespace {

constexpr int kMaxChannels = 1 << 20;
constexpr int kResampleHalfWidth = 10;

float usableSeconds(double seconds)
{
    return std::isfinite(seconds) && seconds > 0.0 ? static_cast<float>(seconds) : 0.0f;
}

/// Truncated towards zero; one more than any window may have when there are too many.
int samplesIn(float seconds, int fs)
{
    const float samples = static_cast<float>(fs) * seconds;
    return samples <= static_cast<float>(SolverModel::kMaxWindowSamples) ? static_cast<int>(samples)
                                                                         : SolverModel::kMaxWindowSamples + 1;
}

} // namespace

SolverModel::SolverModel(Filtrator *filtrator, Preprocessor *preprocessor, Processor *processor, DataSource *source,
                         QObject *parent)
    : QObject(parent)
    , m_filtrator(filtrator)
    , m_preprocessor(preprocessor)
    , m_processor(processor)
    , m_source(source)
{
    bp::registerMetaTypes();
    BPCommon::log(m_logLevel, "SolverModel::SolverModel created");
}

SolverModel::SolverModel(QObject *parent)
    : QObject(parent)
{
    bp::registerMetaTypes();
    BPCommon::log(m_logLevel, "SolverModel::SolverModel created ParamFree");
}

SolverModel::~SolverModel() = default;

void SolverModel::Initialize(float window, float step, int channels, bool waitFull, bool resetAfterUse)
{
    // Lengths in seconds under %d: how the line has always looked; the console renders them as numbers.
    BPCommon::log(m_logLevel, "SolverModel::Initialize %d %d %i %i %i", static_cast<double>(window),
                  static_cast<double>(step), channels, waitFull, resetAfterUse);
    m_windowSeconds = usableSeconds(static_cast<double>(window));
    m_fs = 0;
    if (m_source != nullptr) {
        m_windowSeconds = std::max(m_windowSeconds, usableSeconds(m_source->getBufSize()));
        m_fs = std::max(m_source->getFs(), 0);
    } else {
        traceFailure("SolverModel::Initialize", "There is no processing source");
    }
    m_waitFull = waitFull;
    m_resetAfterUse = resetAfterUse;
    m_channels = std::max(channels, 0);
    m_fill = 0;
    m_windowSamples = samplesIn(m_windowSeconds, m_fs);
    m_stepSamples = std::min(samplesIn(usableSeconds(static_cast<double>(step)), m_fs), m_windowSamples);
    allocateWindow();
    if (m_preprocessor != nullptr) {
        m_preprocessor->setFs(m_fs);
    }
    if (m_processor != nullptr && !m_isProcessorBusy) {
        m_processor->setFs(m_fs);
    }
}

void SolverModel::allocateWindow()
{
    m_window = vector<vector<float>>();
    const qint64 samples = static_cast<qint64>(m_windowSamples) * std::max(m_channels, 1);
    bool isAllocated = samples <= kMaxWindowSamples && m_channels <= kMaxChannels;
    try {
        m_window.resize(isAllocated ? static_cast<std::size_t>(m_channels) : 0);
        for (std::vector<float> &row : m_window) {
            row.resize(static_cast<std::size_t>(m_windowSamples));
        }
    } catch (const std::exception &) { // memory
        isAllocated = false;
    }
    if (!isAllocated) {
        traceFailure("SolverModel::Initialize", "The window is too big");
        m_window = vector<vector<float>>();
        m_windowSamples = 0;
        m_stepSamples = 0;
    }
}

void SolverModel::dropOldestStep()
{
    m_fill -= m_stepSamples;
    for (auto &row : m_window) {
        std::rotate(row.begin(), row.begin() + m_stepSamples, row.end());
    }
}

bool SolverModel::AchieveData(vector<vector<float>> &in_input)
{
    return AchieveData(static_cast<const vector<vector<float>> &>(in_input));
}

bool SolverModel::AchieveData(const vector<vector<float>> &in_input)
{
    BPCommon::log(m_logLevel, "SolverModel::AchieveData %i", in_input.size());
    if (in_input.empty() || in_input.front().empty() || m_windowSamples <= 0) {
        return false;
    }
    if (m_fill >= m_windowSamples) {
        dropOldestStep();
    }
    const auto blockSamples = in_input.front().size();
    const qint64 newFill = m_fill + static_cast<qint64>(blockSamples);
    BPCommon::log(m_logLevel, "SolverModel::AchieveData %i %i %i", m_fill, blockSamples, newFill);

    const bool isFull = newFill >= m_windowSamples;
    const bool isTooBig = blockSamples > static_cast<std::size_t>(m_windowSamples);
    const int count = isTooBig ? m_windowSamples : static_cast<int>(blockSamples);
    const int overflow = isFull && !isTooBig ? static_cast<int>(newFill - m_windowSamples) : 0;
    if (isTooBig) {
        BPCommon::log(m_logLevel, "SolverModel::AchieveData So big data");
    }
    const int target = isFull ? m_windowSamples - count : m_fill;
    for (std::size_t i = 0; i < std::min(in_input.size(), m_window.size()); ++i) {
        auto &row = m_window[i];
        std::rotate(row.begin(), row.begin() + overflow, row.end());
        const int given = static_cast<int>(std::min(in_input[i].size(), static_cast<std::size_t>(count)));
        const auto end = std::copy_n(in_input[i].begin(), given, row.begin() + target);
        std::fill_n(end, count - given, 0.0f);
    }
    m_fill = isFull ? m_windowSamples : m_fill + count;
    return isFull;
}

void SolverModel::PreprocessDataBuffer()
{
    preprocessWindow();
}

bool SolverModel::preprocessWindow()
{
    if (m_preprocessor == nullptr) {
        traceFailure("SolverModel::PreprocessDataBuffer", "There is no preprocessor");
        return false;
    }
    return guarded("SolverModel::PreprocessDataBuffer", [this] {
        if (m_filtrator != nullptr && m_filtrator->getFs() != m_fs) {
            m_filtrator->resample(m_window, m_resampled, m_fs, kResampleHalfWidth);
            m_preprocessor->doPreprocess(&m_resampled, &m_preprocessed);
        } else {
            m_preprocessor->doPreprocess(&m_window, &m_preprocessed);
        }
    });
}

void SolverModel::ProcessDataBuffer(vector<vector<float>> &in_input)
{
    ProcessDataBuffer(static_cast<const vector<vector<float>> &>(in_input));
}

void SolverModel::ProcessDataBuffer(const vector<vector<float>> &in_input)
{
    BPCommon::log(m_logLevel, "SolverModel::ProcessDataBuffer %i", in_input.size());
    const bool isFull = AchieveData(in_input);
    if ((!isFull && m_waitFull) || m_windowSamples <= 0) {
        return;
    }
    if (m_processor == nullptr) {
        traceFailure("SolverModel::ProcessDataBuffer", "There is no processor");
    } else if (m_isProcessorBusy) {
        traceFailure("SolverModel::ProcessDataBuffer", "The processor is training, window left out");
    } else if (preprocessWindow() && guarded("SolverModel::ProcessDataBuffer", [this] {
                   m_processor->passThrough(&m_preprocessed, &m_processed);
               })) {
        emit PassedThrough();
    }
    if (m_resetAfterUse) {
        ResetDataBuffer();
    }
}

void SolverModel::ResetDataBuffer()
{
    m_fill = 0;
    for (auto &row : m_window) {
        std::fill(row.begin(), row.end(), 0.0f);
    }
}

void SolverModel::ProcessDataRealTime()
{
    ResetDataBuffer();
    if (m_source == nullptr) {
        traceFailure("SolverModel::ProcessDataRealTime", "There is no processing source");
        return;
    }
    connect(m_source.data(), qOverload<vector<vector<float>>, int>(&DataSource::receivedNewStack), this,
            qOverload<const vector<vector<float>> &>(&SolverModel::ProcessDataBuffer),
            static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection));
    m_source->SendData(true);
}

void SolverModel::TrainICA(DataSource *icadsrc)
{
    if (m_preprocessor == nullptr || icadsrc == nullptr) {
        traceFailure("SolverModel::TrainICA", "There is no preprocessor or no source");
        return;
    }
    connect(m_preprocessor.data(), &Preprocessor::ICACalculated, this, &SolverModel::ICATrained,
            static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection));
    m_preprocessor->TrainICA(icadsrc);
}

void SolverModel::ICATrained()
{
    BPCommon::log(m_logLevel, "SolverModel::ICATrained");
    emit ICATrainComplete();
}

ProcessResult SolverModel::GetCurResult() const
{
    if (m_isProcessorBusy) {
        return m_resultsBefore;
    }
    return m_processor == nullptr ? ProcessResult() : m_processor->getResults();
}

void SolverModel::traceException(const char *where) const
{
    BPCommon::log(m_logLevel, "%s %s", where, bp::exceptionText());
}

void SolverModel::traceFailure(const char *where, const char *reason) const
{
    BPCommon::log(m_logLevel, "%s %s", where, reason);
}
