#pragma once

#include "bci/ModelFile.h"
#include "common/MetaTypes.h"

#include <QObject>
#include <QStringList>

#include <memory>
#include <vector>

class DataSource;
class ButterworthFilter;
class LearningCSM;

/// A pair at work on a device's stream: trains it from a source, and classifies the montage channels that it knows.
///
/// Everything happens on the thread that owns it, but the training of a pair that trains on a thread.
class LiveClassifier : public QObject
{
    Q_OBJECT
public:
    /// @param trainSource  borrowed; null for a pair that is trained already
    explicit LiveClassifier(bp::ModelFile model, DataSource *trainSource = nullptr, QObject *parent = nullptr);
    ~LiveClassifier() override;

    /// Forgets earlier examples. trained() follows.
    void train();
    /// What a stream's blocks consist of from now on.
    /// @return false when a channel that the pair needs is missing or there are two of its name: nothing is classified
    ///         then
    bool setChannels(const QStringList &names);
    /// @param planar  block over all channels of the stream
    /// @param count   valid leading samples
    void takeSamples(const std::vector<float> &planar, int count);

    const bp::ModelFile &model() const { return m_model; }

signals:
    void trained(bool isGood);
    /// A window has been classified.
    void classified(int label);
    /// A window gave no answer: it held values that are no numbers.
    void notClassified();

private:
    void takeResult();

    bp::ModelFile m_model;
    std::unique_ptr<DataSource> m_stream;
    std::unique_ptr<LearningCSM> m_solver; ///< goes before the pair, whose processor it moves between threads
    std::vector<std::unique_ptr<ButterworthFilter>> m_highPass; ///< one per channel, or none
    std::vector<std::size_t> m_rows; ///< of the stream, in the pair's order; empty: nothing is classified
    std::size_t m_streamChannels = 0;
    std::vector<float> m_block;
};
