#include "algorithms/AlgorithmManager.h"

#include "common/detail/HandoverQueue.h"

#include "algorithms/AsymmetryCoeff.h"
#include "algorithms/CustomAlgorithm.h"
#include "algorithms/DependSpectrumNorm.h"
#include "algorithms/ElectroCardiogram.h"
#include "algorithms/MathAlgorithm.h"
#include "algorithms/SpectrumNorm.h"
#include "algorithms/SpectrumOnline.h"
#include "common/BPCommon.h"

#include <QDateTime>
#include <QEvent>

#include <algorithm>
#include <array>

namespace {

struct NamedCreator
{
    const char *name;
    AlgorithmManager::Creator create;
};

template <class Algorithm>
CustomAlgorithm *create(const UnitParams &params, const QSharedPointer<Montage> &montage, const AmplifierInfo &info)
{
    return new Algorithm(params, montage, info);
}

/// The library's own algorithms.
constexpr std::array<NamedCreator, 6> kOwnAlgorithms{{
    {"AsymmetryCoeff", create<AsymmetryCoeff>},
    {"DependSpectrumNorm", create<DependSpectrumNorm>},
    {"ElectroCardiogram", create<ElectroCardiogram>},
    {"Math", create<MathAlgorithm>},
    {"SpectrumNorm", create<SpectrumNorm>},
    {"SpectrumOnline", create<SpectrumOnline>},
}};

/// A type that a host registered. Entries are only ever added in front, so that reading needs no lock, and live as long
/// as the process.
struct RegisteredCreator
{
    QString name;
    AlgorithmManager::Creator create;
    RegisteredCreator *older;
};

std::atomic<RegisteredCreator *> newestRegistered{nullptr};

AlgorithmManager::Creator findCreator(const QString &name)
{
    for (const RegisteredCreator *entry = newestRegistered.load(); entry != nullptr; entry = entry->older) {
        if (entry->name == name) {
            return entry->create;
        }
    }
    for (const NamedCreator &entry : kOwnAlgorithms) {
        if (name == QLatin1String(entry.name)) {
            return entry.create;
        }
    }
    return nullptr;
}

// By name, as SIGNAL and SLOT write it: any object with the slot can be the receiver.
constexpr const char *kResultSignal = "2getData(QString,UnitParams,uint,vector<float>)";
constexpr const char *kResultSlot = "1takeAlgorithmData(QString,UnitParams,uint,vector<float>)";

bool hasResultSlot(const QObject *receiver)
{
    return receiver->metaObject()->indexOfSlot(kResultSlot + 1) >= 0;
}

} // namespace

void AlgorithmManager::registerAlgorithm(const QString &name, Creator creator)
{
    auto *entry = new RegisteredCreator{name, creator, newestRegistered.load()};
    while (!newestRegistered.compare_exchange_weak(entry->older, entry)) { }
}

AlgorithmManager::AlgorithmManager(QObject *parent)
    : QObject(parent)
    , m_pendingParams(std::make_unique<bp::HandoverQueue<UnitParams>>())
{
    BPCommon::log(BPCommon::LogAlgorithm, "AlgorithmManager::AlgorithmManager created");
}

AlgorithmManager::~AlgorithmManager()
{
    BPCommon::log(BPCommon::LogAlgorithm, "~AlgorithmManager::AlgorithmManager");
    m_algorithms.clear();
}

void AlgorithmManager::setMontage(const AmplifierInfo &info, const QSharedPointer<Montage> &montage)
{
    m_info = info;
    m_montage = montage;
    for (const auto &algorithm : m_algorithms) {
        algorithm->setMontage(montage);
    }
}

void AlgorithmManager::setAlgorithmParams(QObject *receiver, const std::vector<UnitParams> &params)
{
    setReceiver(receiver);
    for (const auto &algorithm : m_algorithms) {
        algorithm->setPresent(false);
    }
    m_configured = params;
    for (const UnitParams &set : params) {
        if (CustomAlgorithm *algorithm = applyParams(set)) {
            algorithm->setPresent(true);
        }
    }
    linkAlgorithms();
    m_removalPending.store(true);
}

void AlgorithmManager::addAlgorithm(CustomAlgorithm *algorithm)
{
    const auto isSame = [algorithm](const auto &known) { return known.get() == algorithm; };
    if (algorithm == nullptr || std::any_of(m_algorithms.cbegin(), m_algorithms.cend(), isSame)) {
        return;
    }
    append(algorithm);
    linkAlgorithms();
}

CustomAlgorithm *AlgorithmManager::findAlgorithm(const QString &name, const QString &descriptor) const
{
    const auto found = std::find_if(m_algorithms.cbegin(), m_algorithms.cend(), [&](const auto &algorithm) {
        return algorithm->getAlgorithmName() == name && algorithm->getAlgorithmDescriptor() == descriptor;
    });
    return found != m_algorithms.cend() ? found->get() : nullptr;
}

std::vector<CustomAlgorithm *> AlgorithmManager::findAlgorithms(const QString &name) const
{
    std::vector<CustomAlgorithm *> found;
    for (const auto &algorithm : m_algorithms) {
        if (algorithm->getAlgorithmName() == name) {
            found.push_back(algorithm.get());
        }
    }
    return found;
}

void AlgorithmManager::resetAlgorithm(const std::vector<UnitParams> &params)
{
    for (const UnitParams &set : params) {
        if (CustomAlgorithm *algorithm = findAlgorithm(set.getName(), set.getParamDescriptor())) {
            algorithm->resetAlgorithm();
        }
    }
}

void AlgorithmManager::updateAlgorithm(const std::vector<UnitParams> &params)
{
    const int added = static_cast<int>(params.size());
    const int pending = m_pendingCount.fetch_add(added) + added;
    for (const UnitParams &set : params) {
        m_pendingParams->push(set);
    }
    BPCommon::log(BPCommon::LogAlgorithm, "AlgorithmManager::updateAlgorithm %i", pending);
}

void AlgorithmManager::updateAlgorithm(const UnitParams &params)
{
    updateAlgorithm(std::vector<UnitParams>{params});
}

void AlgorithmManager::updateProperties()
{
    if (m_removalPending.exchange(false)) {
        removeAbsentAlgorithms();
        BPCommon::log(BPCommon::LogAlgorithm, "AlgorithmManager::updateProperties remove_algorithm");
    }
    if (m_pendingCount.load() > 0) {
        applyPendingParams();
    }
}

int AlgorithmManager::processData(unsigned int count, const std::vector<float> &raw, const std::vector<float> &filtered)
{
    if (count == 0) {
        return 0;
    }
    const qint64 start = QDateTime::currentMSecsSinceEpoch();
    BPCommon::log(BPCommon::LogAlgorithm, "AlgorithmManager::processData algorithms %i", m_algorithms.size());
    for (const auto &algorithm : m_algorithms) {
        if (!algorithm->getDataSigned()) {
            connectReceiver(algorithm.get());
        }
        algorithm->appendData(count, algorithm->isNeedRawData() ? raw : filtered, false);
    }
    // At least 0: the clock may have been set back meanwhile.
    return static_cast<int>(std::max<qint64>(0, QDateTime::currentMSecsSinceEpoch() - start));
}

bool AlgorithmManager::event(QEvent *event)
{
    if (event->type() == QEvent::ThreadChange) {
        // Children move along; an algorithm left behind would get the results of the others on its old thread.
        for (const auto &algorithm : m_algorithms) {
            algorithm->setParent(this);
        }
    }
    return QObject::event(event);
}

/// The algorithm that the set names, changed or created; null for a set that creates nothing.
CustomAlgorithm *AlgorithmManager::applyParams(const UnitParams &params)
{
    CustomAlgorithm *algorithm = findAlgorithm(params.getName(), params.getParamDescriptor());
    if (algorithm != nullptr) {
        algorithm->setParam(params);
    } else if ((algorithm = createAlgorithm(params)) != nullptr) {
        append(algorithm);
    }
    return algorithm;
}

CustomAlgorithm *AlgorithmManager::createAlgorithm(const UnitParams &params) const
{
    const Creator create = findCreator(params.getName());
    CustomAlgorithm *algorithm = create != nullptr ? create(params, m_montage, m_info) : nullptr;
    if (algorithm == nullptr) {
        BPCommon::log(BPCommon::LogAlgorithm, "AlgorithmManager::createAlgorithm no algorithm %s", params.getName());
    }
    return algorithm;
}

void AlgorithmManager::append(CustomAlgorithm *algorithm)
{
    if (algorithm->thread() != thread()) {
        algorithm->moveToThread(thread());
    }
    algorithm->setDataSigned(false);
    connectReceiver(algorithm);
    m_algorithms.emplace_back(algorithm);
}

void AlgorithmManager::setReceiver(QObject *receiver)
{
    if (receiver != nullptr && !hasResultSlot(receiver)) {
        BPCommon::log(BPCommon::LogAlgorithm, "AlgorithmManager::setAlgorithmParams the receiver %s has no slot %s",
                      receiver->metaObject()->className(), kResultSlot + 1);
        receiver = nullptr;
    }
    if (receiver == m_receiver) {
        return;
    }
    for (const auto &algorithm : m_algorithms) {
        if (m_receiver != nullptr) {
            disconnect(algorithm.get(), kResultSignal, m_receiver, kResultSlot);
        }
        algorithm->setDataSigned(false);
    }
    m_receiver = receiver;
    for (const auto &algorithm : m_algorithms) {
        connectReceiver(algorithm.get());
    }
}

void AlgorithmManager::connectReceiver(CustomAlgorithm *algorithm) const
{
    if (m_receiver != nullptr) {
        connect(algorithm, kResultSignal, m_receiver, kResultSlot, Qt::UniqueConnection);
        algorithm->setDataSigned(true);
    }
}

void AlgorithmManager::linkAlgorithms()
{
    for (const auto &algorithm : m_algorithms) {
        algorithm->clearSenders(); // a changed depend name must not leave the sender before connected
        linkAlgorithm(algorithm.get());
    }
}

void AlgorithmManager::linkAlgorithm(CustomAlgorithm *algorithm) const
{
    const QString depend = algorithm->getAlgorithmDepend();
    if (!depend.contains(QLatin1Char(';'))) {
        if (!depend.isEmpty()) {
            algorithm->setSenderAlgorithm(findAlgorithm(depend, QString()));
        }
        return;
    }
    const QStringList rhythms = depend.split(QLatin1Char(';'), Qt::SkipEmptyParts);
    for (const QString &rhythm : rhythms) {
        CustomAlgorithm *sender = findAlgorithm(QStringLiteral("SpectrumNorm"), rhythm);
        algorithm->setSenderAlgorithm(sender != nullptr ? sender : findAlgorithm(QStringLiteral("Math"), rhythm));
    }
}

void AlgorithmManager::removeAbsentAlgorithms()
{
    const auto absent = std::remove_if(m_algorithms.begin(), m_algorithms.end(),
                                       [](const auto &algorithm) { return !algorithm->isPresent(); });
    if (absent != m_algorithms.end()) {
        m_algorithms.erase(absent, m_algorithms.end());
        linkAlgorithms();
    }
}

void AlgorithmManager::applyPendingParams()
{
    const std::vector<UnitParams> pending = m_pendingParams->takeAll();
    if (pending.empty()) {
        return; // counted, but not yet handed over
    }
    m_pendingCount.fetch_sub(static_cast<int>(pending.size()));
    for (const UnitParams &params : pending) {
        applyParams(params);
    }
    linkAlgorithms();
    BPCommon::log(BPCommon::LogAlgorithm, "AlgorithmManager::updateProperties update_algorithm");
}
