#pragma once

#include "bci/ClassificationSM.h"

#include <optional>
#include <vector>

class QThread;

/// A classification model with a supervised training run.
///
/// Training: every block of the training source goes into the window, and every window becomes an example, labelled
/// with the median of the labels of the last blocks. At the end of the data the processor's postTrain() runs.
/// onTrainComplete() follows every end of data:
/// - A processor with runSlot(), finishThread() and getTrainProcessResult(bool) trains on the model's training thread
///   and sends its result from there. Until the result arrives, the model does not use the processor: samples give no
///   results, and a new training run is rejected with a trace line.
/// - Any other processor trains inside postTrain(), on the model's thread; its doValidate() is the result.
/// - The run has failed if postTrain() or runSlot() throws anything, or if there is no processor.
///
/// The processor must not be deleted while it trains. The destructor of the model waits for a running runSlot() and
/// moves the processor back to the model's thread.
class BIOPROCESSING_EXPORT LearningCSM : public ClassificationSM
{
    Q_OBJECT
public:
    /// @param processor      is moved to the training thread if it has no parent and lives on the calling thread;
    ///                       otherwise it trains on the thread where it is
    /// @param trainSource    is connected at once with queued connections, so that it may live on any thread
    /// @param processSource  gives the sampling rate, too
    LearningCSM(Preprocessor *preprocessor, Processor *processor, DataSource *trainSource, DataSource *processSource,
                QObject *parent = nullptr);
    /// A model without preprocessor, processor and sources, which cannot train or process anything.
    explicit LearningCSM(QObject *parent = nullptr);
    ~LearningCSM() override;

    void Initialize(float window, float step, int channels, bool waitFull, bool resetAfterUse) override;

    /// Adds the examples of the training source to the present ones, as fast as the source can send.
    void TrainFast();
    /// As TrainFast(), at the pace of the recording.
    void TrainRealTime();
    /// As TrainFast(), after it has deleted the present examples and results.
    void ReTrainFast();
    void ReTrainRealTime();
    /// Compatibility: always false, for hosts that call it. onTrainComplete() reports the end of a run.
    bool isTrain() const { return m_isTrain; }

    /// How a training window gets its label where labels change.
    ///
    /// Off, the default: the label is the median of a history that stays sorted. Each block replaces the smallest label
    /// instead of the oldest one, so that a class that comes after a larger label may never be learned. Compatibility:
    /// hosts that were trained this way depend on it.
    /// On: the history has the labels of the window's blocks in the order of their arrival. The history and the window
    /// start empty with every training run and trial. Of two labels in the middle the smaller one counts, so that every
    /// window has a label that one of its blocks had.
    void setLabelsInArrivalOrder(bool on) { m_isArrivalOrder = on; }

    /// Number of channels in the vectors given to sendSamples().
    void setChannelsCount(int channels);
    /// Processes a block: all samples of the first channel, then those of the second, and so on. Samples that remain
    /// when count is divided by the channels are ignored.
    /// @param samples  borrowed, at least count long; of a shorter vector all samples are used
    void sendSamples(std::vector<float> *samples, int count);

signals:
    /// The training run has ended.
    /// @param result  whether there is a classifier that is good enough
    void onTrainComplete(bool result);

public slots:
    void _validate();
    void _takeTrainResult(bool in_result);
    void _trainDataBuffer(vector<vector<double>> input, int labelInput);

protected:
    /// Splits a flat vector into one row per channel.
    /// @return false, after a trace line, without channels or samples
    bool fillDataVector(vector<vector<float>> &out, const std::vector<float> *samples, int count);
    void prepeareThread(Processor *processor);
    /// Makes the label history as long as a window has blocks. In the default order it never shrinks.
    void resizeInternalBuff(unsigned int blockSamples);

private:
    void startTraining(bool realTime, bool forget, const char *again, const char *plain);
    bool isNewTrial(int label) const;
    int pushLabel(int label, bool isStart);
    int pushSorted(int label);
    int pushInOrder(int label, bool isStart);
    void stopThread();

    bool m_isTrain = false;
    int m_sampleChannels = 0;
    bool m_isArrivalOrder = false;
    std::vector<float> m_labelHistory; ///< ascending, or in the order of arrival
    std::vector<float> m_sortedLabels; ///< work memory
    std::optional<int> m_newestLabel; ///< of the block before
    vector<vector<float>> m_trainBlock;
    vector<vector<float>> m_sampleBlock;
    QThread *m_thread = nullptr; ///< owned
    QPointer<DataSource> m_trainSource;
};
