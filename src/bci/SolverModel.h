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
/// it is full, and is full on the block that completes it. Initialize() allocates its memory.
///
/// The model borrows all objects given to its constructor. They may be null or be deleted before the model: a step that
/// needs a missing object writes a trace line and does nothing. The model uses one thread, its own; the signals of the
/// sources arrive there queued. The processing source must not be the training source: its blocks would train as well.
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

    /// Empties the window and sets its size. The processing source gives the sampling rate and, if that is longer than
    /// the given window, its segment length.
    ///
    /// A negative or NaN length counts as 0; a step is at most the window. A window of more than kMaxWindowSamples, or
    /// of more than the free memory, is rejected with a trace line. Without a window no block is processed.
    /// @param window, step   seconds
    /// @param waitFull       process full windows only; otherwise the window is processed after every block
    /// @param resetAfterUse  empty the window after it was processed, so that windows don't overlap
    virtual void Initialize(float window, float step, int channels, bool waitFull, bool resetAfterUse);

    /// A copy of the processor's current results; while it trains, of those from before the training.
    ProcessResult GetCurResult() const;
    /// Empties the window, then processes what the processing source sends at the pace of the recording.
    void ProcessDataRealTime();

signals:
    /// TrainICA() has ended; Preprocessor::isTrainedICA() says whether there is a matrix.
    void ICATrainComplete();
    /// A window has been through the processor.
    void PassedThrough();

public slots:
    void PreprocessDataBuffer();
    void ProcessDataBuffer(vector<vector<float>> &in_input);
    /// Adds a block. Rows shorter than the first one are filled up with zeros, rows beyond the window's channels are
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
    /// Runs the preprocessor on the window. Catches what it throws.
    /// @return false, after a trace line, when there is no preprocessor or it failed
    bool preprocessWindow();
    /// Runs a step of a host's preprocessor or processor; an exception becomes a trace line.
    /// @return whether the step ended without an exception
    template <class Step> bool guarded(const char *where, Step &&step);
    /// To be called inside a catch block.
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
