#pragma once

#include "bci/PortalPreprocessor.h"
#include "bci/Processor.h"

#include <atomic>
#include <memory>

namespace bp {
struct PortalModel;
}

/// Distinguishes any number of classes by the votes of the nearest training examples, after Cover and Hart, Nearest
/// neighbor pattern classification, IEEE Trans. Inf. Theory 13 (1967).
///
/// Features are normalised over the training examples, (x − mean) ÷ deviation; a window is normalised with the same
/// means and deviations. A feature that does not vary over the examples (a deviation of less than a millionth of its
/// mean) is set to 0, as it has no information. The training looks for the principal components of every class; without
/// them (fewer than three examples of a class, or all of them alike) it fails. In mode Components, windows and examples
/// are compared by their coordinates along the components of all classes, one class after another; in mode Spectral
/// the components are only that check. A training that fails leaves the processor untrained.
///
/// postTrain() trains on the thread that was set, or at once without one. Either way getTrainProcessResult() and then
/// finishThread() follow. While it trains (isThreadRunning()), the model, the examples and the results don't change:
/// windows are not classified, examples are ignored, validation is false.
///
/// Results: "Class", the label of the last window; "rate_0", "rate_1", …, 0 … 1, the share of each class's examples
/// (labels ascending) that the last validation classified correctly.
class BIOPROCESSING_EXPORT PortalProcessor : public Processor
{
    Q_OBJECT
public:
    /// @param neighbours     number of examples that vote, at least 1
    /// @param minimumRate    0 … 1, the least rate of every class for a valid classifier
    /// @param components     principal components per class, at least 2; one fewer is kept. 0 keeps all
    /// @param artefactLimit  in standard deviations: the training ignores an example if the features of one of its
    ///                       channels lie on average farther above the mean; −1 ignores none
    /// @param channels       of a window, into which its features are divided evenly; 0 or 1: all are one channel
    PortalProcessor(int neighbours, float minimumRate, int components, float artefactLimit, int channels,
                    PortalPreprocessor::PortalMode mode, QObject *parent = nullptr);
    ~PortalProcessor() override;

    bool isThreadRunning() const { return m_isThreadRunning.load(std::memory_order_acquire); }

    using Processor::preTrain;
    /// Ignores an example with an invalid number, with a trace line.
    void preTrain(vector<vector<float>> &window, int label) override;
    void postTrain() override;
    bool doValidate() override;
    /// A window that does not fit the model, holds an invalid number, or comes before the training leaves a trace line,
    /// no rows and no "Class"; one that comes while it trains leaves the results as they are.
    /// @param out  gets one row of one value, the label
    void passThrough(vector<vector<float>> *in, vector<vector<float>> *out) override;
    /// The normalised examples are part of it, so that a classifier which was read can be validated.
    QJsonObject model() const override;
    /// Takes over the mode and the number of neighbours, too.
    bool setModel(const QJsonObject &model, QString &reason) override;

signals:
    /// The training has ended, after getTrainProcessResult().
    void finishThread();
    void runningChanged(bool running);
    /// Whether the training succeeded. From the training thread.
    void getTrainProcessResult(bool result);

public slots:
    /// Stores the flag that isThreadRunning() gives. Any thread.
    void runningThread(bool in_running);

protected slots:
    /// Trains with the examples that postTrain() copied. Runs on the training thread.
    void runSlot();

private:
    struct Examples;

    int getWinner(const std::vector<float> &features);
    bool isTrainFeaturesCorrect(const std::vector<float> &features) const;
    bool checkChannelFeatures(unsigned int channel, const float *features) const;

    bool train(bp::PortalModel &model);
    void checkExamples() const;
    void normaliseExamples(bp::PortalModel &model);
    bool leaveArtefactsOut(const std::vector<std::vector<float>> &normalised);
    bool trainComponents(bp::PortalModel &model) const;

    int m_neighbours;
    float m_minimumRate;
    int m_components;
    float m_artefactLimit; ///< standard deviations
    int m_channels;
    PortalPreprocessor::PortalMode m_mode;
    std::atomic<bool> m_isThreadRunning{false};
    std::unique_ptr<Examples> m_training; ///< copies, as the examples may be deleted meanwhile
    std::unique_ptr<bp::PortalModel> m_model; ///< null before training
    std::vector<float> m_normalised; ///< the present window
    std::vector<float> m_features; ///< the same where the model's rows are
};
