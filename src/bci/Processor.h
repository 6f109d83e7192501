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
/// LearningCSM moves a processor to a training thread. Only functions whose documentation says so run there; the model
/// calls all others directly on its own thread, one at a time.
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
    /// The trained classifier, for setModel(); empty while there is none.
    virtual QJsonObject model() const;
    /// Restores the classifier that model() returned.
    /// @param reason  one sentence when the result is false
    /// @return false, and nothing is changed, when the model is of another kind or damaged
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
    /// For a window without an answer: clears out, and removes these results of the window before.
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
