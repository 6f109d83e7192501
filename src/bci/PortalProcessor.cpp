#include "bci/PortalProcessor.h"

#include "bci/DimReduction.h"
#include "bci/model/ModelJson.h"
#include "bci/model/PortalModel.h"
#include "bci/numerics/FiniteRow.h"
#include "bci/utilities.h"
#include "common/ExceptionText.h"
#include "common/HalvinException.h"

#include <QThread>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <numeric>

namespace {

constexpr float kNoLimit = -1.0f;
/// Deviations below this part of the mean are rounding errors of a feature that does not vary.
constexpr float kLeastDeviation = 1.0e-6f;

/// Features that vary enough to be compared keep their deviation, the others get 0, and so do the examples.
void dropConstantFeatures(const std::vector<float> &means, std::vector<float> &deviations,
                          std::vector<std::vector<float>> &normalised)
{
    for (std::size_t i = 0; i < means.size(); ++i) {
        if (std::isfinite(deviations[i]) && deviations[i] > std::abs(means[i]) * kLeastDeviation) {
            continue;
        }
        deviations[i] = 0.0f;
        for (std::vector<float> &row : normalised) {
            row[i] = 0.0f;
        }
    }
}

} // namespace

struct PortalProcessor::Examples
{
    std::vector<std::vector<float>> rows; ///< normalised in the course of the training
    std::vector<int> labels;
};

PortalProcessor::PortalProcessor(int neighbours, float minimumRate, int components, float artefactLimit, int channels,
                                 PortalPreprocessor::PortalMode mode, QObject *parent)
    : Processor(parent)
    , m_neighbours(std::max(neighbours, 1))
    , m_minimumRate(minimumRate)
    , m_components(components)
    , m_artefactLimit(artefactLimit)
    , m_channels(std::max(channels, 1))
    , m_mode(mode)
{
    qRegisterMetaType<PortalPreprocessor::PortalMode>("PortalMode");
    BPCommon::log(m_logLevel, "PortalProcessor::PortalProcessor %i %d %i %d %i", neighbours, minimumRate, components,
                  artefactLimit, channels);
}

PortalProcessor::~PortalProcessor() = default;

void PortalProcessor::preTrain(vector<vector<float>> &window, int label)
{
    if (isThreadRunning() || window.empty() || !bp::isFinite(window.front())) {
        BPCommon::log(m_logLevel, "PortalProcessor::preTrain an example of class %i was not taken", label);
        return;
    }
    m_labels.push_back(label);
    m_examples.push_back(window.front());
}

void PortalProcessor::postTrain()
{
    if (isThreadRunning()) {
        BPCommon::log(m_logLevel, "PortalProcessor::postTrain the training before is still running");
        return;
    }
    m_training = std::make_unique<Examples>(Examples{m_examples, m_labels});
    runningThread(true);
    if (!m_thread) {
        runSlot();
        return;
    }
    if (m_thread->isRunning()) { // on its way out of the training before
        m_thread->quit();
        m_thread->wait();
    }
    m_thread->start(QThread::InheritPriority);
}

bool PortalProcessor::doValidate()
{
    BPCommon::log(m_logLevel, "PortalProcessor::doValidate");
    if (isThreadRunning() || !m_model) {
        return false;
    }
    const bp::NearestRows &rows = m_model->rows;
    std::vector<int> counts(m_model->labels.size());
    std::vector<int> correct(m_model->labels.size());
    for (std::size_t i = 0; i < rows.rowCount(); ++i) {
        m_features.assign(rows.row(i), rows.row(i) + rows.width());
        const std::size_t expected = rows.classOf(i);
        ++counts[expected];
        correct[expected] += getWinner(m_features) == m_model->labels[expected] ? 1 : 0;
    }
    bool isValid = true;
    for (std::size_t c = 0; c < counts.size(); ++c) {
        const float rate = static_cast<float>(correct[c]) / static_cast<float>(std::max(counts[c], 1));
        m_results[QStringLiteral("rate_%1").arg(c)] = rate;
        isValid = isValid && rate >= m_minimumRate;
    }
    return isValid;
}

void PortalProcessor::passThrough(vector<vector<float>> *in, vector<vector<float>> *out)
{
    if (isThreadRunning()) {
        BPCommon::log(m_logLevel, "PortalProcessor::passThrough the training is still running");
        out->clear();
        return;
    }
    const std::size_t count = in->empty() ? 0 : in->front().size();
    const std::size_t expected = m_model ? m_model->means.size() : 0;
    if (count == 0 || count != expected || !bp::isFinite(in->front())) {
        BPCommon::log(m_logLevel, "PortalProcessor::passThrough %i features, the model takes %i finite ones", count,
                      expected);
        withdraw({QStringLiteral("Class")}, out);
        return;
    }
    m_model->place(in->front(), m_normalised, m_features);
    const auto winner = static_cast<float>(getWinner(m_features));
    out->resize(1);
    out->front().assign(1, winner);
    m_results[QStringLiteral("Class")] = winner;
    publishResults();
}

QJsonObject PortalProcessor::model() const
{
    if (isThreadRunning() || !m_model) {
        return {};
    }
    QJsonObject model = bp::header(QStringLiteral("PortalProcessor"));
    model.insert(QStringLiteral("fs"), m_fs);
    model.insert(QStringLiteral("mode"), m_mode);
    model.insert(QStringLiteral("neighbours"), m_neighbours);
    m_model->write(model);
    return model;
}

bool PortalProcessor::setModel(const QJsonObject &model, QString &reason)
{
    const QString kind = QStringLiteral("PortalProcessor");
    if (isThreadRunning()) {
        reason = QStringLiteral("The processor is being trained.");
        return false;
    }
    if (!bp::checkHeader(model, kind, reason)) {
        return false;
    }
    int fs = 0;
    int mode = 0;
    int neighbours = 0;
    if (!bp::toInt(model.value(QStringLiteral("fs")), fs)) {
        return bp::damaged(kind, "fs", reason);
    }
    if (!bp::toInt(model.value(QStringLiteral("mode")), mode)
        || (mode != PortalPreprocessor::Spectral && mode != PortalPreprocessor::Components)) {
        return bp::damaged(kind, "mode", reason);
    }
    if (!bp::toInt(model.value(QStringLiteral("neighbours")), neighbours) || neighbours < 1) {
        return bp::damaged(kind, "neighbours", reason);
    }
    auto found = std::make_unique<bp::PortalModel>();
    const char *key = nullptr;
    if (!found->read(model, key)) {
        return bp::damaged(kind, key, reason);
    }
    if (found->projection.empty() != (mode == PortalPreprocessor::Spectral)) {
        return bp::damaged(kind, "projection", reason);
    }
    setFs(fs);
    m_mode = static_cast<PortalPreprocessor::PortalMode>(mode);
    m_neighbours = neighbours;
    m_model = std::move(found);
    return true;
}

void PortalProcessor::runningThread(bool in_running)
{
    BPCommon::log(m_logLevel, "PortalProcessor::runningThread %i", in_running);
    m_isThreadRunning.store(in_running, std::memory_order_release);
    emit runningChanged(in_running);
}

void PortalProcessor::runSlot()
{
    BPCommon::log(m_logLevel, "PortalProcessor::runSlot started");
    auto model = std::make_unique<bp::PortalModel>();
    bool result = false;
    try {
        result = train(*model);
    } catch (...) {
        BPCommon::log(m_logLevel, "PortalProcessor::runSlot unknoun error");
        BPCommon::log(m_logLevel, "PortalProcessor::runSlot reason: %s", bp::exceptionText());
    }
    m_training.reset();
    m_model = result ? std::move(model) : nullptr;
    runningThread(false);
    BPCommon::log(m_logLevel, "PortalProcessor::runSlot end %i", result);
    emit getTrainProcessResult(result);
    emit finishThread();
}

/// @param features  of the space that the model's rows are in
int PortalProcessor::getWinner(const std::vector<float> &features)
{
    BPCommon::log(m_logLevel, "PortalProcessor::getWinner %i", features.size());
    const std::size_t winner = m_model->rows.winner(features.data(), static_cast<std::size_t>(m_neighbours));
    const bp::NearestRows::Vote &vote = m_model->rows.votes()[winner];
    BPCommon::log(m_logLevel, "PortalProcessor::getWinner votes : %i, mean distance : %f", vote.count,
                  vote.meanDistance);
    BPCommon::log(m_logLevel, "PortalProcessor::getWinner winner : %i", m_model->labels[winner]);
    return m_model->labels[winner];
}

/// Whether no channel of a normalised example has an artefact.
bool PortalProcessor::isTrainFeaturesCorrect(const std::vector<float> &features) const
{
    for (int channel = 0; channel < m_channels; ++channel) {
        const std::size_t first =
            features.size() / static_cast<std::size_t>(m_channels) * static_cast<unsigned>(channel);
        if (!checkChannelFeatures(static_cast<unsigned int>(channel), features.data() + first)) {
            return false;
        }
    }
    return true;
}

/// Artefacts add amplitude, so that only the upper side is tested.
/// @param features  the channel's, normalised
bool PortalProcessor::checkChannelFeatures(unsigned int channel, const float *features) const
{
    const std::size_t count = m_training->rows.front().size() / static_cast<std::size_t>(m_channels);
    const double mean = std::accumulate(features, features + count, 0.0) / static_cast<double>(count);
    if (mean <= static_cast<double>(m_artefactLimit)) {
        return true;
    }
    BPCommon::log(m_logLevel, "PortalProcessor::checkChannelFeatures artefact in channel %i : %f", channel, mean);
    return false;
}

bool PortalProcessor::train(bp::PortalModel &model)
{
    checkExamples();
    model.labels = m_training->labels;
    std::sort(model.labels.begin(), model.labels.end());
    model.labels.erase(std::unique(model.labels.begin(), model.labels.end()), model.labels.end());
    normaliseExamples(model);
    BPCommon::log(m_logLevel, "PortalProcessor::runSlot Started training Portal");
    if (!trainComponents(model)) {
        BPCommon::log(m_logLevel, "PortalProcessor::runSlot Bad PCA");
        return false;
    }
    BPCommon::log(m_logLevel, "PortalProcessor::runSlot Finished training PCA %i", true);
    std::vector<std::size_t> classes;
    for (const int label : m_training->labels) {
        const auto found = std::lower_bound(model.labels.begin(), model.labels.end(), label);
        classes.push_back(static_cast<std::size_t>(std::distance(model.labels.begin(), found)));
    }
    if (m_mode == PortalPreprocessor::Components) {
        std::vector<float> coordinates;
        for (std::vector<float> &row : m_training->rows) {
            model.project(row, coordinates);
            row = coordinates;
        }
    } else {
        model.projection.clear();
    }
    model.rows.assign(m_training->rows, classes, model.labels.size());
    return true;
}

/// At least two classes of rows of one length, of finite numbers, that the channels share evenly.
void PortalProcessor::checkExamples() const
{
    const auto isSound = [this](const std::vector<float> &row) {
        return !row.empty() && row.size() == m_training->rows.front().size()
            && row.size() % static_cast<std::size_t>(m_channels) == 0 && bp::isFinite(row);
    };
    const std::vector<int> &labels = m_training->labels;
    if (std::adjacent_find(labels.begin(), labels.end(), std::not_equal_to<>()) == labels.end()
        || m_training->rows.size() != labels.size()
        || !std::all_of(m_training->rows.begin(), m_training->rows.end(), isSound)) {
        throw HalvinException("DPortalProcessor::runSlot", 1);
    }
}

void PortalProcessor::normaliseExamples(bp::PortalModel &model)
{
    std::vector<std::vector<float>> normalised;
    const auto normalise = [&] {
        utilities::normFeatures(m_training->rows, model.means, model.deviations, normalised, kNoLimit);
        dropConstantFeatures(model.means, model.deviations, normalised);
    };
    normalise();
    if (m_artefactLimit > 0.0f && leaveArtefactsOut(normalised)) {
        normalise();
    }
    m_training->rows = std::move(normalised);
}

/// @return whether there were any
bool PortalProcessor::leaveArtefactsOut(const std::vector<std::vector<float>> &normalised)
{
    Examples kept;
    for (std::size_t i = 0; i < normalised.size(); ++i) {
        if (isTrainFeaturesCorrect(normalised[i])) {
            kept.rows.push_back(m_training->rows[i]);
            kept.labels.push_back(m_training->labels[i]);
        }
    }
    if (kept.rows.size() == normalised.size()) {
        return false;
    }
    *m_training = std::move(kept);
    return true;
}

/// The components of every class, one class after another. False when one of them has none.
bool PortalProcessor::trainComponents(bp::PortalModel &model) const
{
    for (const int label : model.labels) {
        std::vector<std::vector<float>> rows;
        for (std::size_t i = 0; i < m_training->rows.size(); ++i) {
            if (m_training->labels[i] == label) {
                rows.push_back(m_training->rows[i]);
            }
        }
        std::vector<std::vector<float>> components;
        if (!DimReduction::TrainPCA(rows, components, m_components - 1)) {
            return false;
        }
        model.projection.insert(model.projection.end(), components.begin(), components.end());
    }
    return true;
}
