#include "bci/SolverModel.h"

#include "bci/Preprocessor.h"
#include "bci/Processor.h"
#include "bci/model/SlidingWindow.h"
#include "common/ExceptionText.h"
#include "filters/Filtrator.h"
#include "pipeline/DataSource.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int kResampleHalfWidth = 10;

float usableSeconds(double seconds)
{
    return std::isfinite(seconds) && seconds > 0.0 ? static_cast<float>(seconds) : 0.0f;
}

} // namespace

SolverModel::SolverModel(Filtrator *filtrator, Preprocessor *preprocessor, Processor *processor, DataSource *source,
                         QObject *parent)
    : QObject(parent)
    , m_processor(processor)
    , m_window(std::make_unique<bp::SlidingWindow>())
    , m_filtrator(filtrator)
    , m_preprocessor(preprocessor)
    , m_source(source)
{
    bp::registerMetaTypes();
    BPCommon::log(m_logLevel, "SolverModel::SolverModel created");
}

SolverModel::SolverModel(QObject *parent)
    : QObject(parent)
    , m_window(std::make_unique<bp::SlidingWindow>())
{
    bp::registerMetaTypes();
    BPCommon::log(m_logLevel, "SolverModel::SolverModel created ParamFree");
}

SolverModel::~SolverModel() = default;

void SolverModel::Initialize(float window, float step, int channels, bool waitFull, bool resetAfterUse)
{
    // Compatibility: hosts know the line with %d for the lengths in seconds; they are printed as numbers all the same.
    BPCommon::log(m_logLevel, "SolverModel::Initialize %d %d %i %i %i", static_cast<double>(window),
                  static_cast<double>(step), channels, waitFull, resetAfterUse);
    float seconds = usableSeconds(static_cast<double>(window));
    int fs = 0;
    if (m_source != nullptr) {
        seconds = std::max(seconds, usableSeconds(m_source->getBufSize()));
        fs = std::max(m_source->getFs(), 0);
    } else {
        traceFailure("SolverModel::Initialize", "There is no processing source");
    }
    m_waitFull = waitFull;
    m_resetAfterUse = resetAfterUse;
    if (!m_window->allocate(seconds, usableSeconds(static_cast<double>(step)), fs, channels, kMaxWindowSamples)) {
        traceFailure("SolverModel::Initialize", "The window is too big");
    }
    if (m_preprocessor != nullptr) {
        m_preprocessor->setFs(fs);
    }
    if (m_processor != nullptr && !m_isProcessorBusy) {
        m_processor->setFs(fs);
    }
}

bool SolverModel::AchieveData(vector<vector<float>> &in_input)
{
    return AchieveData(static_cast<const vector<vector<float>> &>(in_input));
}

bool SolverModel::AchieveData(const vector<vector<float>> &in_input)
{
    BPCommon::log(m_logLevel, "SolverModel::AchieveData %i", in_input.size());
    if (in_input.empty() || in_input.front().empty() || m_window->samples() <= 0) {
        return false;
    }
    m_window->makeRoom();
    const auto blockSamples = static_cast<qint64>(in_input.front().size());
    BPCommon::log(m_logLevel, "SolverModel::AchieveData %i %i %i", m_window->fill(), blockSamples,
                  m_window->fill() + blockSamples);
    if (blockSamples > m_window->samples()) {
        BPCommon::log(m_logLevel, "SolverModel::AchieveData So big data");
    }
    return m_window->append(in_input);
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
        vector<vector<float>> *window = &m_window->rows();
        if (m_filtrator != nullptr && m_filtrator->getFs() != m_window->fs()) {
            m_filtrator->resample(*window, m_resampled, m_window->fs(), kResampleHalfWidth);
            window = &m_resampled;
        }
        m_preprocessor->doPreprocess(window, &m_preprocessed);
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
    if ((!isFull && m_waitFull) || m_window->samples() <= 0) {
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
    m_window->clear();
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

void SolverModel::setProcessorBusy(bool isBusy)
{
    if (isBusy && m_processor != nullptr) {
        m_resultsBefore = m_processor->getResults();
    }
    m_isProcessorBusy = isBusy;
}

void SolverModel::traceException(const char *where) const
{
    BPCommon::log(m_logLevel, "%s %s", where, bp::exceptionText());
}

void SolverModel::traceFailure(const char *where, const char *reason) const
{
    BPCommon::log(m_logLevel, "%s %s", where, reason);
}
