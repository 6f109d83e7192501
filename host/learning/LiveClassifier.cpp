#include "learning/LiveClassifier.h"

#include "bci/LearningCSM.h"
#include "bci/Preprocessor.h"
#include "bci/Processor.h"
#include "filters/ButterworthFilter.h"
#include "learning/Recording.h"
#include "pipeline/DataSource.h"

#include <cmath>

namespace {

/// The rate of a stream whose samples come by other ways.
class Stream : public DataSource
{
public:
    explicit Stream(int rate) { m_fs = rate; }
    void SendData(bool) override { }
};

} // namespace

LiveClassifier::LiveClassifier(bp::ModelFile model, DataSource *trainSource, QObject *parent)
    : QObject(parent)
    , m_model(std::move(model))
    , m_stream(std::make_unique<Stream>(m_model.rate))
    , m_solver(std::make_unique<LearningCSM>(m_model.pair.preprocessor.get(), m_model.pair.processor.get(), trainSource,
                                             m_stream.get()))
{
    const int channels = m_model.channels.size();
    m_solver->Initialize(static_cast<float>(m_model.window), static_cast<float>(m_model.step), channels, true, false);
    m_solver->setChannelsCount(channels);
    m_solver->setLabelsInArrivalOrder(true);
    for (int i = 0; m_model.highPass > 0.0 && i < channels; ++i) {
        m_highPass.push_back(makeHighPass(m_model.rate, m_model.highPass));
    }
    connect(m_solver.get(), &LearningCSM::onTrainComplete, this, &LiveClassifier::trained);
    connect(m_solver.get(), &LearningCSM::PassedThrough, this, &LiveClassifier::takeResult);
}

LiveClassifier::~LiveClassifier() = default;

void LiveClassifier::train()
{
    m_solver->ReTrainFast();
}

bool LiveClassifier::setChannels(const QStringList &names)
{
    m_rows.clear();
    m_streamChannels = static_cast<std::size_t>(names.size());
    m_solver->ResetDataBuffer();
    for (const QString &name : qAsConst(m_model.channels)) {
        const int row = names.indexOf(name);
        if (names.count(name) != 1) {
            m_rows.clear();
            return false;
        }
        m_rows.push_back(static_cast<std::size_t>(row));
    }
    return true;
}

void LiveClassifier::takeSamples(const std::vector<float> &planar, int count)
{
    if (m_rows.empty() || count <= 0 || planar.size() < static_cast<std::size_t>(count)) {
        return;
    }
    const std::size_t samples = static_cast<std::size_t>(count) / m_streamChannels;
    m_block.clear();
    for (const std::size_t row : m_rows) {
        const auto begin = planar.begin() + static_cast<std::ptrdiff_t>(row * samples);
        m_block.insert(m_block.end(), begin, begin + static_cast<std::ptrdiff_t>(samples));
    }
    for (std::size_t i = 0; i < m_highPass.size(); ++i) {
        float *channel = m_block.data() + i * samples;
        m_highPass[i]->Process(channel, static_cast<int>(samples));
        if (samples > 0 && !std::isfinite(channel[samples - 1])) { // or it would never be a number again
            m_highPass[i]->Reset();
        }
    }
    m_solver->sendSamples(&m_block, static_cast<int>(m_block.size()));
}

void LiveClassifier::takeResult()
{
    const ProcessResult results = m_solver->GetCurResult();
    const auto found = results.constFind(m_model.pair.resultName);
    if (found != results.constEnd()) {
        emit classified(static_cast<int>(std::lround(found.value())));
    } else {
        emit notClassified();
    }
}
