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

    /// The base class leaves out unchanged.
    /// @param in, out  borrowed; out is replaced, its number of rows included, and its memory is reused
    virtual void doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out);
    /// The settings and the ICA matrix, if there is one, for setModel().
    virtual QJsonObject model() const;
    /// Restores what model() returned.
    /// @param reason  one sentence when the result is false
    /// @return false, and nothing is changed, when the model is of another kind of preprocessor
    virtual bool setModel(const QJsonObject &model, QString &reason);

    /// Hz.
    void setFs(int fs);
    int getFs() const { return m_fs; }

    /// An unmixing matrix, one row per component.
    void setICA(const vector<vector<float>> &ica);
    bool isTrainedICA() const { return m_isTrainedICA; }
    /// Starts the source, collects everything that it sends and computes the matrix at the end of its data. Then it
    /// disconnects from the source and emits ICACalculated(). A call before that end starts again from nothing.
    /// @param source  borrowed; null only writes a trace line
    void TrainICA(DataSource *source);

signals:
    /// ICA training has ended; isTrainedICA() says whether there is a matrix.
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
