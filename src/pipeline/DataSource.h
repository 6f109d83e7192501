#pragma once

#include "common/BPExport.h"
#include "common/MetaTypes.h"

#include <QString>
#include <QThread>

/// Feeds learning with stacks: one segment of samples for every channel, with one class label.
class BIOPROCESSING_EXPORT DataSource : public QThread
{
    Q_OBJECT
public:
    /// How the samples are labelled.
    enum LabelType {
        SampleLabels = 0, ///< labels change anywhere in a continuous recording
        TrialLabels = 1, ///< one trial after another: a window never mixes two of them
        NoLabels = 2 ///< every stack has the label 0
    };

    /// A channel of the stack: an input minus its reference, times a scale.
    struct Channel
    {
        int index = 0; ///< input, counted from 0
        int reference = -1; ///< input that is subtracted; −1 for none
        float scale = 1.0f;
        QString name;
    };

    explicit DataSource(QObject *parent = nullptr);
    ~DataSource() override;

    /// Segment length in seconds.
    double getBufSize() const { return m_bufSize; }
    /// Hz.
    int getFs() const { return m_fs; }
    int getNumChannels() const { return static_cast<int>(m_channels.size()); }
    LabelType getLabelType() const { return m_labelType; }

    /// Starts to send; endOfData() follows the last stack.
    /// @param realTime  at the pace of the recording, or as fast as possible
    virtual void SendData(bool realTime) = 0;

signals:
    void receivedNewStack(vector<vector<double>> stack, int label);
    /// The same stack in floats, for the learning models; sent only when somebody is connected.
    void receivedNewStack(vector<vector<float>> stack, int label);
    void endOfData();

protected:
    /// Emits the stack in both forms.
    void sendStack(const std::vector<std::vector<double>> &stack, int label);
    /// Replaces the inputs of a stack by its channels; without channels the stack stays as it is.
    /// A channel of an input that the stack lacks is all zeros; a reference that it lacks counts as none.
    void doMontage(std::vector<std::vector<double>> &stack) const;

    double m_bufSize = 0.0;
    int m_fs = 0;
    std::vector<Channel> m_channels;
    LabelType m_labelType = SampleLabels;
};
