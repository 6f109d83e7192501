#pragma once

#include "bci/ProcessResult.h"
#include "common/BPCommon.h"
#include "common/BPExport.h"
#include "common/MetaTypes.h"

#include <QJsonObject>
#include <QObject>
#include <QStringList>

class QThread;

/// Collects labelled examples, builds a classifier from them, checks it and classifies windows.
///
/// LearningCSM moves a processor to a training thread; only what a processor documents runs there, everything else is
/// called directly by the model on its own thread, one call at a time.
class BIOPROCESSING_EXPORT Processor : public QObject
{
    Q_OBJECT
public:
    explicit Processor(QObject *parent = nullptr);
    ~Processor() override;

    /// The examples are complete: builds the classifier, or starts the training thread for it.
    virtual void postTrain();
    /// Whether the classifier is good enough.
    virtual bool doValidate();
    /// Adds an example: a preprocessed window and its class.
    virtual void preTrain(vector<vector<float>> &window, int label);
    virtual void preTrain(vector<vector<float>> &window);
    /// Classifies a preprocessed window.
    /// @param in, out  borrowed; out is overwritten
    virtual void passThrough(vector<vector<float>> *in, vector<vector<float>> *out);
    /// What makes the trained classifier again; empty while there is none.
    virtual QJsonObject model() const;
    /// Takes over what model() gave. False, with the reason as one sentence, when that is of another kind or damaged;
    /// nothing is changed then.
    virtual bool setModel(const QJsonObject &model, QString &reason);

    /// Hz.
    void setFs(int fs);
    int getFs() const { return m_fs; }
    /// @param thread  borrowed; null trains synchronously
    void setQThread(QThread *thread);
    /// Forgets labels, examples and results.
    void ResetTrainData();
    const ProcessResult &getResults() const { return m_results; }

signals:
    /// The current results after a window; a copy.
    void newResults(ProcessResult result);

protected:
    /// Emits newResults() with the current results: the last step of every passThrough() that changes them.
    void publishResults();
    /// For a window that gives no answer: no rows, and what these results said of the window before is taken back.
    void withdraw(const QStringList &results, vector<vector<float>> *out);
    /// The labels of the examples, ascending, each once.
    void getUniqueLabels(std::vector<int> &labels) const;

    BPCommon::LogEvent m_logLevel = BPCommon::LogProcessor;
    ProcessResult m_results;
    int m_fs = 0;
    QThread *m_thread = nullptr;
    std::vector<int> m_labels; ///< one per example
    std::vector<std::vector<float>> m_examples; ///< one row per example
};
