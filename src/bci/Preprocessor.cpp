#include "bci/Preprocessor.h"

#include "bci/DimReduction.h"
#include "common/ExceptionText.h"
#include "pipeline/DataSource.h"

Preprocessor::Preprocessor(QObject *parent)
    : QObject(parent)
{
    bp::registerMetaTypes();
    BPCommon::log(m_logLevel, "Preprocessor::Preprocessor created");
}

Preprocessor::~Preprocessor() = default;

void Preprocessor::doPreprocess(vector<vector<float>> *, vector<vector<float>> *)
{
    BPCommon::log(m_logLevel, "Preprocessor::doPreprocess");
}

QJsonObject Preprocessor::model() const
{
    return {};
}

bool Preprocessor::setModel(const QJsonObject &, QString &reason)
{
    reason = QStringLiteral("This preprocessor has no model to restore.");
    return false;
}

void Preprocessor::setFs(int fs)
{
    BPCommon::log(m_logLevel, "Preprocessor::setFs %i", fs);
    m_fs = fs;
}

void Preprocessor::setICA(const vector<vector<float>> &ica)
{
    BPCommon::log(m_logLevel, "Preprocessor::setICA %i", ica.size());
    m_ica = ica;
    m_isTrainedICA = true;
}

void Preprocessor::TrainICA(DataSource *source)
{
    if (source == nullptr) {
        BPCommon::log(m_logLevel, "Preprocessor::TrainICA There is no source");
        return;
    }
    m_icaBuffer.clear();
    releaseIcaSource();
    m_icaSource = source;
    // Blocks of an earlier run may still be in the event queue; they are ignored.
    const unsigned run = m_icaRun;
    connect(
        source, qOverload<vector<vector<float>>, int>(&DataSource::receivedNewStack), this,
        [this, run](const vector<vector<float>> &stack) {
            if (run == m_icaRun) {
                CollectICABuffer(stack);
            }
        },
        Qt::QueuedConnection);
    connect(
        source, &DataSource::endOfData, this,
        [this, run] {
            if (run == m_icaRun) {
                CalcICA();
            }
        },
        Qt::QueuedConnection);
    source->SendData(false);
}

void Preprocessor::releaseIcaSource()
{
    ++m_icaRun;
    if (m_icaSource != nullptr) {
        disconnect(m_icaSource, nullptr, this, nullptr);
        m_icaSource = nullptr;
    }
}

void Preprocessor::CollectICABuffer(vector<vector<float>> &in_input)
{
    CollectICABuffer(static_cast<const vector<vector<float>> &>(in_input));
}

void Preprocessor::CollectICABuffer(const vector<vector<float>> &in_input)
{
    BPCommon::log(m_logLevel, "Preprocessor::CollectICABuffer %i", in_input.size());
    if (m_icaBuffer.size() < in_input.size()) {
        m_icaBuffer.resize(in_input.size());
    }
    for (std::size_t row = 0; row < in_input.size(); ++row) {
        m_icaBuffer[row].insert(m_icaBuffer[row].end(), in_input[row].begin(), in_input[row].end());
    }
}

void Preprocessor::CalcICA()
{
    BPCommon::log(m_logLevel, "Preprocessor::CalcICA SolverModel: Training ICA: %i channels", m_icaBuffer.size());
    releaseIcaSource();
    vector<vector<float>> matrix;
    try {
        DimReduction::TrainICA(m_icaBuffer, matrix, -1);
    } catch (...) { // the eigenvectors throw a text
        BPCommon::log(m_logLevel, "Preprocessor::CalcICA %s", bp::exceptionText());
        matrix.clear();
    }
    if (!matrix.empty() && matrix.size() == m_icaBuffer.size()) {
        BPCommon::log(m_logLevel, "Preprocessor::CalcICA ICA successfully trained!");
        m_ica = std::move(matrix);
        m_isTrainedICA = true;
    } else {
        BPCommon::log(m_logLevel,
                      "Preprocessor::CalcICA WARNING! ICA was not trained. Processing goes on common signal");
    }
    m_icaBuffer.clear();
    emit ICACalculated();
}
