#pragma once

#include "bci/ProcessResult.h"
#include "common/BPCommon.h"
#include "common/BPExport.h"
#include "common/MetaTypes.h"

#include <QObject>
#include <QPointer>

#include <memory>

namespace bp {
class SlidingWindow;
}
class DataSource;
class Filtrator;
class Preprocessor;
class Processor;

/// Gathers blocks of samples in a sliding window and drives each window through preprocessor and processor.
///
/// A block is one row of samples per channel. The window always holds the newest samples, advances by whole steps once
/// it is full, and is full on the block that completes it. Its memory is taken by Initialize().
///
/// All objects given to the constructor are borrowed and may be null or go before the model: what needs them is then
/// left out, with a trace line. One thread: the model's own, on which the sources' signals arrive queued.
/// The processing source is another object than the training source, or processing would go on training.
class BIOPROCESSING_EXPORT SolverModel : public QObject
{
    Q_OBJECT
public:
    /// @param filtrator  its rate is the one at which windows are preprocessed; null for the source's rate
    SolverModel(Filtrator *filtrator, Preprocessor *preprocessor, Processor *processor, DataSource *source,
                QObject *parent = nullptr);
    explicit SolverModel(QObject *parent = nullptr);
    ~SolverModel() override;

    /// Over all channels: 1 GiB.
    static constexpr int kMaxWindowSamples = 1 << 28;

    /// Takes the sampling rate and, when it is longer than window, the segment length of the processing source.
    ///
    /// A length that is negative or not a number counts as 0; a step is at most the window. A window of more than
    /// kMaxWindowSamples, or than there is memory for, is rejected with a trace line. Without a window no block is
    /// processed.
    /// @param window, step   seconds
    /// @param waitFull       only full windows are processed; every block otherwise
    /// @param resetAfterUse  windows don't overlap: each starts empty
    virtual void Initialize(float window, float step, int channels, bool waitFull, bool resetAfterUse);

    /// The processor's current results; a copy. While it trains, those from before.
    ProcessResult GetCurResult() const;
    /// Forgets the window and processes what the processing source sends, in real time.
    void ProcessDataRealTime();

signals:
    /// TrainICA() has ended; the preprocessor knows how.
    void ICATrainComplete();
    /// A window has been through the processor.
    void PassedThrough();

public slots:
    void PreprocessDataBuffer();
    void ProcessDataBuffer(vector<vector<float>> &in_input);
    /// Adds a block. Rows that are shorter than the first one are filled up with zeros, rows that the window lacks are
    /// ignored, and of a block that is longer than the window only the first samples are used.
    /// @return whether the window is full
    bool AchieveData(vector<vector<float>> &in_input);
    /// Empties the window.
    void ResetDataBuffer();
    void TrainICA(DataSource *icadsrc);
    void ICATrained();
    /// For connections by name: a signal that carries a block by value finds only these forms.
    void ProcessDataBuffer(const vector<vector<float>> &in_input);
    bool AchieveData(const vector<vector<float>> &in_input);

protected:
    /// False, after a trace line, when a part is missing or fails. Whatever a part throws ends here.
    bool preprocessWindow();
    /// Whatever a host's preprocessor or processor throws becomes a trace line.
    /// @return whether the step ran through
    template <class Step> bool guarded(const char *where, Step &&step);
    /// Inside a catch block.
    void traceException(const char *where) const;
    void traceFailure(const char *where, const char *reason) const;

    /// A busy processor is on its training thread and is not touched; GetCurResult() gives its results from before.
    bool isProcessorBusy() const { return m_isProcessorBusy; }
    void setProcessorBusy(bool isBusy);

    BPCommon::LogEvent m_logLevel = BPCommon::LogSolverModel;
    QPointer<Processor> m_processor;
    std::unique_ptr<bp::SlidingWindow> m_window;
    bool m_waitFull = false;
    bool m_resetAfterUse = false;
    vector<vector<float>> m_preprocessed; ///< the window that preprocessWindow() left

private:
    QPointer<Filtrator> m_filtrator;
    QPointer<Preprocessor> m_preprocessor;
    QPointer<DataSource> m_source;
    vector<vector<float>> m_resampled; ///< the window at the filter chain's rate
    vector<vector<float>> m_processed;
    bool m_isProcessorBusy = false;
    ProcessResult m_resultsBefore;
};

template <class Step> bool SolverModel::guarded(const char *where, Step &&step)
{
    try {
        step();
        return true;
    } catch (...) {
        traceException(where);
        return false;
    }
}
