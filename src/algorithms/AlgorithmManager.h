#pragma once

#include "algorithms/UnitParams.h"
#include "common/BPExport.h"
#include "devices/AmplifierInfo.h"

#include <QObject>
#include <QPointer>
#include <QSharedPointer>

#include <atomic>
#include <memory>
#include <vector>

class CustomAlgorithm;
class Montage;

namespace bp {
template <class T> class HandoverQueue;
}

/// The container of an acquisition chain's algorithms: creates them from parameter sets, links those that feed each
/// other, gives them the blocks and connects their results to a receiver.
///
/// Belongs to the thread that processes blocks, which calls everything here; only updateAlgorithm() may be called from
/// any thread. While nothing is processed another thread may configure the container in its place, one at a time:
/// algorithms that it creates are moved to the container's thread, and they follow the container to a new one. Nothing
/// here may be called from within processData(), which a receiver on the same thread could do.
class BIOPROCESSING_EXPORT AlgorithmManager : public QObject
{
    Q_OBJECT
public:
    /// Makes an algorithm, which the caller then owns. The device description outlives it. Called on the thread that
    /// configures a container; returning null creates nothing.
    using Creator = CustomAlgorithm *(*)(const UnitParams &params, const QSharedPointer<Montage> &montage,
                                         const AmplifierInfo &info);
    /// Adds an algorithm type of the host's for all containers, for the rest of the process; a name that is there
    /// already, the library's own too, is replaced for what is created from then on. Names are compared with case. Any
    /// thread.
    static void registerAlgorithm(const QString &name, Creator creator);

    explicit AlgorithmManager(QObject *parent = nullptr);
    /// Deletes the algorithms.
    ~AlgorithmManager() override;

    /// Device description and montage for the algorithms; those that are there already get them too.
    void setMontage(const AmplifierInfo &info, const QSharedPointer<Montage> &montage);

    /// Makes the algorithms those of this list: changes the parameters of what is there (same name and descriptor),
    /// creates what is missing, and leaves to the next updateProperties() to delete the others.
    /// @param receiver not owned, may be null; its slot takeAlgorithmData(QString,UnitParams,uint,vector<float>)
    ///                 receives every result. A receiver without this slot is logged and treated as null.
    void setAlgorithmParams(QObject *receiver, const std::vector<UnitParams> &params);
    /// The list that was set last.
    const std::vector<UnitParams> &configuredParams() const { return m_configured; }
    /// Adds an algorithm and owns it from then on; null and one that was added before are ignored. It must live on the
    /// calling thread or on the container's. A configured list that does not name it removes it again.
    void addAlgorithm(CustomAlgorithm *algorithm);

    /// The first with this name and descriptor; null when there is none.
    CustomAlgorithm *findAlgorithm(const QString &name, const QString &descriptor) const;
    /// All with this name, in the order of their creation.
    std::vector<CustomAlgorithm *> findAlgorithms(const QString &name) const;

    /// Resets the algorithms of these sets: data gathered so far is lost, parameters stay.
    void resetAlgorithm(const std::vector<UnitParams> &params);
    /// Hands over parameters for the next updateProperties(). Any thread; nothing is lost, and the sets of one thread
    /// are applied in their order.
    void updateAlgorithm(const std::vector<UnitParams> &params);
    void updateAlgorithm(const UnitParams &params);
    /// Between blocks: deletes what is no longer configured, applies the parameters handed over, creates what they name
    /// and is not there.
    void updateProperties();

    /// Gives a block to every algorithm. Allocates nothing by itself, apart from an enabled trace.
    /// @param count    samples per channel; 0 does nothing
    /// @param raw      planar block without channel filters, for the algorithms that ask for it
    /// @param filtered planar block for the others
    /// @return milliseconds it took
    int processData(unsigned int count, const std::vector<float> &raw, const std::vector<float> &filtered);

    /// Keeps the algorithms on the container's thread when it moves.
    bool event(QEvent *event) override;

private:
    CustomAlgorithm *applyParams(const UnitParams &params);
    CustomAlgorithm *createAlgorithm(const UnitParams &params) const;
    void append(CustomAlgorithm *algorithm);
    void setReceiver(QObject *receiver);
    void connectReceiver(CustomAlgorithm *algorithm) const;
    void linkAlgorithms();
    void linkAlgorithm(CustomAlgorithm *algorithm) const;
    void removeAbsentAlgorithms();
    void applyPendingParams();

    AmplifierInfo m_info; ///< before the algorithms, which refer to it
    QSharedPointer<Montage> m_montage;
    QPointer<QObject> m_receiver;
    std::vector<UnitParams> m_configured;
    std::vector<std::unique_ptr<CustomAlgorithm>> m_algorithms; ///< in the order of their creation
    std::unique_ptr<bp::HandoverQueue<UnitParams>> m_pendingParams;
    std::atomic<int> m_pendingCount{0}; ///< sets handed over and not yet applied, at least what the queue holds
    std::atomic<bool> m_removalPending{false};
};
