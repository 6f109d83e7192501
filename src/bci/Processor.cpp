#include "bci/Processor.h"

#include <algorithm>

Processor::Processor(QObject *parent)
    : QObject(parent)
{
    bp::registerMetaTypes();
    // Qt 5 adds the converter to an associative-iterable view together with the type.
    qRegisterMetaType<ProcessResult>("ProcessResult");
    BPCommon::log(m_logLevel, "Processor::Processor created");
}

Processor::~Processor() = default;

void Processor::postTrain()
{
}

bool Processor::doValidate()
{
    return true;
}

void Processor::preTrain(vector<vector<float>> &, int)
{
}

void Processor::preTrain(vector<vector<float>> &)
{
}

void Processor::passThrough(vector<vector<float>> *, vector<vector<float>> *)
{
}

QJsonObject Processor::model() const
{
    return {};
}

bool Processor::setModel(const QJsonObject &, QString &reason)
{
    reason = QStringLiteral("This processor has no model to restore.");
    return false;
}

void Processor::setFs(int fs)
{
    BPCommon::log(m_logLevel, "Processor::setFs %i", fs);
    m_fs = fs;
}

void Processor::setQThread(QThread *thread)
{
    BPCommon::log(m_logLevel, "Processor::setQThread");
    m_thread = thread;
}

void Processor::ResetTrainData()
{
    m_labels.clear();
    m_examples.clear();
    m_results.clear();
}

void Processor::publishResults()
{
    emit newResults(m_results);
}

void Processor::withdraw(const QStringList &results, vector<vector<float>> *out)
{
    for (const QString &name : results) {
        m_results.remove(name);
    }
    out->clear();
}

void Processor::getUniqueLabels(std::vector<int> &labels) const
{
    labels = m_labels;
    std::sort(labels.begin(), labels.end());
    labels.erase(std::unique(labels.begin(), labels.end()), labels.end());
}
