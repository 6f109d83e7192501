#pragma once

#include "common/BPCommon.h"
#include "common/BPExport.h"
#include "common/MetaTypes.h"

#include <QJsonObject>
#include <QObject>
#include <QPointer>

class DataSource;

/// Turns a window of raw samples into a window of conditioned signals or features. A block is one row of samples per
/// channel.
///
/// Lives on the thread of the solver model that drives it.
class BIOPROCESSING_EXPORT Preprocessor : public QObject
{
    Q_OBJECT
public:
    explicit Preprocessor(QObject *parent = nullptr);
    ~Preprocessor() override;

    /// @param in, out  borrowed; out is overwritten, rows and all, and keeps its memory from window to window. The base
    ///                 leaves it alone.
    virtual void doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out);
    /// What makes this preprocessor again: its settings, and its ICA matrix where it has one.
    virtual QJsonObject model() const;
    /// Takes over what model() gave. False, with the reason as one sentence, when that was another kind of
    /// preprocessor; nothing is changed then.
    virtual bool setModel(const QJsonObject &model, QString &reason);

    /// Hz.
    void setFs(int fs);
    int getFs() const { return m_fs; }

    /// An unmixing matrix, one row per component.
    void setICA(const vector<vector<float>> &ica);
    bool isTrainedICA() const { return m_isTrainedICA; }
    /// Starts the source, gathers everything that it sends and computes the matrix at its end: ICACalculated() follows.
    /// Then the source is let go. Called again before that end, it forgets what it has and begins anew.
    /// @param source  borrowed; null is traced
    void TrainICA(DataSource *source);

signals:
    /// ICA training has ended; isTrainedICA() tells how.
    void ICACalculated();

public slots:
    void CollectICABuffer(vector<vector<float>> &in_input);
    void CalcICA();
    /// For connections by name: a signal that carries a block by value finds only this form.
    void CollectICABuffer(const vector<vector<float>> &in_input);

protected:
    BPCommon::LogEvent m_logLevel = BPCommon::LogProcessor;
    int m_fs = 0;
    bool m_isTrainedICA = false;
    vector<vector<float>> m_ica; ///< components × channels

private:
    void releaseIcaSource();

    QPointer<DataSource> m_icaSource; ///< while it sends
    unsigned m_icaRun = 0;
    vector<vector<float>> m_icaBuffer;
};
