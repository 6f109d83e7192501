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
///   and sends its result from there. Until the result is taken the processor is not touched: samples leave no results,
///   and a new training run is refused with a trace line.
/// - Any other processor trains inside postTrain(), on the model's thread; its doValidate() is the result.
/// - A postTrain() or runSlot() that throws, whatever it throws, is a failed run; so is one without a processor.
///
/// The processor must not go before the model while it trains. It comes back to the model's thread with the model's
/// destruction, which waits for a runSlot() that is at work.
class BIOPROCESSING_EXPORT LearningCSM : public ClassificationSM
{
    Q_OBJECT
public:
    /// @param processor      without parent, on the calling thread: it is moved to the training thread. One that cannot
    ///                       be moved trains on its own thread.
    /// @param trainSource    connected at once, queued: it may live on any thread
    /// @param processSource  gives the sampling rate too
    LearningCSM(Preprocessor *preprocessor, Processor *processor, DataSource *trainSource, DataSource *processSource,
                QObject *parent = nullptr);
    /// A model without parts; it can do nothing but be asked.
    explicit LearningCSM(QObject *parent = nullptr);
    ~LearningCSM() override;

    void Initialize(float window, float step, int channels, bool waitFull, bool resetAfterUse) override;

    /// Adds the examples of the training source to those there are; as fast as it can send.
    void TrainFast();
    /// The same at the pace of the recording.
    void TrainRealTime();
    /// Forgets the examples and results first.
    void ReTrainFast();
    void ReTrainRealTime();
    /// Always false: kept for hosts that ask. onTrainComplete() tells the end of a run.
    bool isTrain() const { return m_isTrain; }

    /// How a training window gets its label where labels change.
    ///
    /// Off, the default: the median of a history that is kept sorted, so that each block takes the place of the
    /// smallest label instead of the oldest one, and a class that comes after a larger label may never be learned.
    /// Compatibility: trained hosts depend on it. On: the history holds the blocks of the window in the order of their
    /// arrival and begins anew with every training run and trial, as the window does then, and of two labels in the
    /// middle the smaller one counts, so that every window has a label that its blocks had.
    void setLabelsInArrivalOrder(bool on) { m_isArrivalOrder = on; }

    /// Rows of what sendSamples() takes apart.
    void setChannelsCount(int channels);
    /// Processes samples of all channels, one channel after another. What doesn't divide by the channels is dropped.
    /// @param samples  borrowed, at least count long; only those that it has are used
    void sendSamples(std::vector<float> *samples, int count);

signals:
    /// The training run has ended, with a classifier that is good enough or without.
    void onTrainComplete(bool result);

public slots:
    void _validate();
    void _takeTrainResult(bool in_result);
    void _trainDataBuffer(vector<vector<double>> input, int labelInput);

protected:
    /// Takes a flat vector apart into one row per channel.
    /// @return false, after a trace line, when nothing can be taken apart
    bool fillDataVector(vector<vector<float>> &out, const std::vector<float> *samples, int count);
    void prepeareThread(Processor *processor);
    /// Makes the label history as long as a window has blocks; it never shrinks.
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
