#pragma once

#include "algorithms/UnitParams.h"
#include "common/BPExport.h"
#include "common/MetaTypes.h"

#include <QObject>
#include <QPointer>
#include <QSharedPointer>

#include <utility>
#include <vector>

class AmplifierInfo;
class Montage;

/// Base of the online algorithms: takes blocks, publishes results with getData, listens to other algorithms.
///
/// Lives on the thread that processes blocks, and nothing here may be called from another; QObjects inside a concrete
/// algorithm must be its children, so that they live there too. An algorithm is complete when it is constructed: the
/// concrete constructor reads the parameters itself (a virtual call from here would not reach it), after
/// fillPropertyList() when it was given an empty set. Later changes arrive through setParam().
class BIOPROCESSING_EXPORT CustomAlgorithm : public QObject
{
    Q_OBJECT
public:
    /// @param montage what the blocks were computed with; may be null until the pipeline has one
    /// @param info    kept by reference: it must outlive the algorithm, and changes to it are seen
    CustomAlgorithm(const UnitParams &params, const QSharedPointer<Montage> &montage, const AmplifierInfo &info);
    ~CustomAlgorithm() override;

    /// Whether the algorithm wants blocks without the channel filters (montage applied) instead of the filtered ones.
    virtual bool isNeedRawData() const { return false; }
    /// Forgets what was gathered from the signal so far.
    virtual void resetAlgorithm();
    /// Consumes a planar block.
    /// @param count      from acquisition the samples per channel (the block may be longer than what is valid, see
    ///                   DataReader::newData), from a sender the channel count it published
    /// @param fromSender false for acquisition data, true for the results of another algorithm; inputParams() and
    ///                   inputType() then tell whose and what
    virtual void appendData(unsigned int count, const std::vector<float> &data, bool fromSender) = 0;

    const QString &getAlgorithmName() const { return m_params.getName(); }
    const QString &getAlgorithmDescriptor() const { return m_params.getParamDescriptor(); }
    /// Name of the algorithm that feeds this one, or several rhythm names separated by ";"; empty for none.
    const QString &getAlgorithmDepend() const { return m_params.getDependName(); }
    void getAlgorithmParams(UnitParams &params) const { params = m_params; }
    /// Replaces the parameters and has the algorithm re-read them.
    void setParam(const UnitParams &params);
    /// Replaces the montage: the parameters are re-read, what was gathered is forgotten.
    void setMontage(const QSharedPointer<Montage> &montage);

    /// Whether the algorithm is in the configured list; the container deletes it otherwise. True at first.
    bool isPresent() const { return m_present; }
    void setPresent(bool present) { m_present = present; }
    /// Whether getData is connected to the container's receiver.
    bool getDataSigned() const { return m_dataSigned; }
    void setDataSigned(bool isSigned) { m_dataSigned = isSigned; }

    /// Connects a sender's getData to takeData and remembers it as the sender; null, the present sender and the
    /// algorithm itself change nothing. Senders set before stay connected until clearSenders(), so that several can be
    /// set in turn.
    void setSenderAlgorithm(CustomAlgorithm *sender);
    /// The sender set last; null when there is none or it was deleted.
    CustomAlgorithm *getSenderAlgorithm() const { return m_sender; }
    /// Connects without remembering: the link stays until one of the two is deleted, also where setSenderAlgorithm()
    /// had made it before. Null and itself change nothing; however often two algorithms are linked, each result arrives
    /// once.
    void setSigner(CustomAlgorithm *sender);
    /// Ends every link made by setSenderAlgorithm(). The container does so before it links anew.
    void clearSenders();

signals:
    /// A result.
    /// @param in_type_data kind of data ("raw" or empty, for example)
    /// @param in_params    the sender's parameters; its name and descriptor tell who it is
    /// @param in_channels  channels in the block
    void getData(const QString &in_type_data, const UnitParams &in_params, unsigned int in_channels,
                 const vector<float> &in_data);

public slots:
    /// Takes another algorithm's result: remembers whose and what, then appendData() with fromSender set. A result that
    /// comes back to an algorithm while it is still taking one (algorithms that feed each other in a ring) is dropped.
    void takeData(const QString &in_type_data, const UnitParams &in_params, unsigned int in_channels,
                  const vector<float> &in_data);

protected:
    /// Re-reads m_params; called after every change of them, never by the base's constructor.
    virtual void updateAlgorithm();
    /// Builds the algorithm's parameter list in m_params, from its defaults.
    virtual void fillPropertyList() = 0;

    const QSharedPointer<Montage> &montage() const { return m_montage; }
    const AmplifierInfo &amplifierInfo() const { return m_info; }
    /// Parameters and type of the result that was received last.
    const UnitParams &inputParams() const { return m_inputParams; }
    const QString &inputType() const { return m_inputType; }

    UnitParams m_params;

private:
    QMetaObject::Connection connectFrom(CustomAlgorithm *sender);

    QSharedPointer<Montage> m_montage;
    const AmplifierInfo &m_info;
    UnitParams m_inputParams;
    QString m_inputType;
    QPointer<CustomAlgorithm> m_sender;
    /// The sender, which may be gone, and the connection that setSenderAlgorithm() made.
    using SenderLink = std::pair<const CustomAlgorithm *, QMetaObject::Connection>;
    std::vector<SenderLink> m_senderLinks;
    bool m_present = true;
    bool m_dataSigned = false;
    bool m_taking = false;
    bool m_ringReported = false;
};
