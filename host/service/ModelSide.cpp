#include "service/ModelSide.h"

#include "Console.h"
#include "algorithms/ParamFactory.h"
#include "server/DataServer.h"
#include "server/ProcessRequest.h"
#include "server/ServerMediator.h"
#include "service/CompoundSide.h"

#include <algorithm>

namespace {

const QString kSpectrum = QStringLiteral("SpectrumOnline");
const QString kRhythm = QStringLiteral("DependSpectrumNorm");

bool isForCompound(const QString &message)
{
    static const QStringList messages{QStringLiteral("stopDevice"),      QStringLiteral("startWritingFlag"),
                                      QStringLiteral("stopWritingFlag"), QStringLiteral("removeRecordFile"),
                                      QStringLiteral("writeLabel"),      QStringLiteral("getRecordFile")};
    return messages.contains(message);
}

QString notFound()
{
    return QStringLiteral("Algorythm is not found");
}

} // namespace

ModelSide::ModelSide(server_state &state, DataServer &server, CompoundSide &compound, ServerMediator &mediator,
                     ProfileStore &profiles, QObject *parent)
    : QObject(parent)
    , m_state(state)
    , m_server(server)
    , m_compound(compound)
    , m_mediator(mediator)
    , m_profiles(profiles)
{
    connect(&m_server, &DataServer::addNewProfile, this, &ModelSide::addProfile);
    connect(&m_server, &DataServer::removeProfile, this, &ModelSide::removeProfile);
    connect(&m_server, &DataServer::setCurrentProfile, this, &ModelSide::selectProfile);
    connect(&m_server, &DataServer::writeStateFile, this, &ModelSide::writeState);
    connect(&m_server, &DataServer::removeStateFile, this, &ModelSide::removeState);
    connect(&m_compound.records(), &RecordKeeper::stateRecorded, this, &ModelSide::listStates);
    connect(&m_training, &TrainingSide::finished, this, [](const QString &error) {
        if (!error.isEmpty()) {
            Console::error(error);
        }
    });
    connect(&m_training, &TrainingSide::stateFound, this, &ModelSide::setState);
    connect(&m_training, &TrainingSide::modelChanged, this, &ModelSide::takeModel);
    connect(&m_compound, &CompoundSide::streamChanged, &m_training, &TrainingSide::setStream);
    connect(&m_compound, &CompoundSide::samplesTaken, &m_training, &TrainingSide::takeSamples);
    takeProfile();
}

void ModelSide::notify(Colleague *sender, QString message)
{
    if (isForCompound(message)) {
        m_mediator.setMessageToCompound(sender, message);
    } else if (RequestExchange *exchange = ProcessRequest::exchangeOf(sender)) {
        perform(*exchange, message);
    }
}

void ModelSide::perform(RequestExchange &exchange, const QString &message)
{
    if (message == QLatin1String("getProfileList")) {
        exchange.profiles = m_profiles.names();
    } else if (message == QLatin1String("getAlgorithms")) {
        m_server.setParamList(m_profiles.current().algorithms);
    } else if (message == QLatin1String("updateParam")) {
        exchange.refusal = updateAlgorithm(exchange, m_server.getCurrParams());
    } else if (message == QLatin1String("addNewAlgorithm")) {
        const UnitParams params = m_server.getCurrParams();
        const bool isKnown = !ParamFactory::makeCustomProperty(params.getName()).isEmpty();
        exchange.refusal = isKnown ? valuesRefusal(exchange, params) : QString();
        if (exchange.refusal.isEmpty()) {
            exchange.refusal = addAlgorithm(params);
        }
    } else if (message == QLatin1String("addNewAlgorithmByName")) {
        exchange.refusal = addAlgorithmByName(exchange);
    } else if (message == QLatin1String("removeAlgorithm")) {
        exchange.refusal = removeAlgorithm(m_server.getAlgorhtyhmName(), exchange.descriptor);
    } else if (message == QLatin1String("setState")) {
        setState(exchange.state);
    } else if (message == QLatin1String("startTraining")) {
        exchange.refusal = m_training.start(stateFolder(), m_state.recordedStates);
    } else if (message == QLatin1String("stopTraining")) {
        m_training.stop();
    }
}

void ModelSide::addProfile(const QString &name, const QString &type)
{
    const QString reason = checkProfiles(name);
    m_server.refuse(reason.isEmpty() ? m_profiles.add(name, type == QLatin1String("bci")) : reason);
}

/// Of the first profile of a list all others too, so that none is added when one of them cannot be.
QString ModelSide::checkProfiles(const QString &name) const
{
    const RequestExchange *exchange = m_server.currentExchange();
    if (exchange == nullptr || exchange->list.isEmpty()) {
        return m_profiles.check({name});
    }
    QStringList names;
    if (exchange->listIndex == 0) {
        for (const RequestExchange::Entry &entry : exchange->list) {
            names << entry.name;
        }
    }
    return m_profiles.check(names);
}

void ModelSide::removeProfile(const QString &name)
{
    const bool isOnly = m_profiles.names().size() == 1; // it stays
    if (!isOnly && m_compound.records().busyStateFolder() == m_profiles.stateFolder(name)) {
        m_compound.records().stopAndWait(); // into a folder that is still there
    }
    m_server.refuse(m_profiles.remove(name));
    if (m_profiles.current().name != m_state.currentProfile) {
        takeProfile();
    }
}

void ModelSide::selectProfile(const QString &name)
{
    m_server.refuse(m_profiles.select(name));
    takeProfile();
}

void ModelSide::takeProfile()
{
    const Profile &profile = m_profiles.current();
    m_state.currentProfile = profile.name;
    m_state.bciMode = profile.isBci;
    m_training.open(profile.isBci ? stateFolder() : QString());
    m_compound.setAlgorithms(profile.algorithms);
    listStates();
}

QString ModelSide::stateFolder() const
{
    return m_profiles.stateFolder(m_profiles.current().name);
}

void ModelSide::listStates()
{
    m_state.recordedStates = RecordKeeper::recordedStates(stateFolder());
}

void ModelSide::writeState(int state)
{
    m_server.refuse(m_state.readMode ? m_compound.records().startState(state, stateFolder())
                                     : QStringLiteral("State %1 was not recorded: no device is acquiring.").arg(state));
}

void ModelSide::removeState(int state)
{
    m_server.refuse(m_compound.records().removeState(state, stateFolder()));
    listStates();
}

/// A model knows its own states only; without one every state that can be recorded counts.
void ModelSide::takeModel()
{
    const int highest = m_training.highestState();
    m_state.processorStates = highest > 0 ? highest : RecordKeeper::kLastState;
}

void ModelSide::setState(int state)
{
    m_server.setLastState(static_cast<unsigned>(state));
    m_compound.setState(state);
}

/// Appends an algorithm to a list, as a profile holds it; empty, or why that cannot be.
QString ModelSide::extend(std::vector<UnitParams> &algorithms, const UnitParams &params) const
{
    const QString &type = params.getName();
    if (ParamFactory::makeCustomProperty(type).isEmpty()) {
        return QStringLiteral("Unknown algorithm ") + type;
    }
    UnitParams added = params;
    if (added.getParamDescriptor().isEmpty() && type != kSpectrum) {
        added.setParamDescriptor(Profile::freeDescriptor(type, algorithms));
    }
    const bool isThere = std::any_of(algorithms.begin(), algorithms.end(), [&added](const UnitParams &set) {
        return set.getName() == added.getName() && set.getParamDescriptor() == added.getParamDescriptor();
    });
    if (isThere) {
        return QStringLiteral("The algorithm is there already: %1 %2").arg(type, added.getParamDescriptor());
    }
    if (algorithms.size() >= kMaxAlgorithms) {
        return QStringLiteral("There are %1 algorithms already, which is the limit").arg(kMaxAlgorithms);
    }
    if (type == kRhythm && added.getDependName().isEmpty()) {
        added.setDependName(kSpectrum);
    }
    algorithms.push_back(added);
    return {};
}

QString ModelSide::addAlgorithm(const UnitParams &params)
{
    std::vector<UnitParams> algorithms = m_profiles.current().algorithms;
    const QString reason = extend(algorithms, params);
    if (reason.isEmpty()) {
        m_profiles.setAlgorithms(algorithms);
        m_compound.updateAlgorithm(algorithms.back());
    }
    return reason;
}

QString ModelSide::addAlgorithmByName(const RequestExchange &exchange)
{
    const QString reason = exchange.listIndex == 0 ? checkAlgorithms(exchange) : QString();
    UnitParams params = ParamFactory::makeCustomProperty(m_server.getAlgorhtyhmName());
    params.setParamName(m_server.getAlgorhtyhmName());
    params.setParamDescriptor(exchange.descriptor);
    return reason.isEmpty() ? addAlgorithm(params) : reason;
}

/// Whether all of a list can be added.
QString ModelSide::checkAlgorithms(const RequestExchange &exchange) const
{
    std::vector<UnitParams> algorithms = m_profiles.current().algorithms;
    for (const RequestExchange::Entry &entry : exchange.list) {
        UnitParams params;
        params.setParamName(entry.name);
        params.setParamDescriptor(entry.descriptor);
        const QString reason = extend(algorithms, params);
        if (!reason.isEmpty()) {
            return reason;
        }
    }
    return {};
}

QString ModelSide::valuesRefusal(const RequestExchange &exchange, const UnitParams &params) const
{
    return exchange.valuesProblem.isEmpty() ? m_compound.channelRefusal(params) : exchange.valuesProblem;
}

QString ModelSide::updateAlgorithm(const RequestExchange &exchange, const UnitParams &params)
{
    Profile profile = m_profiles.current();
    UnitParams *known = profile.find(params.getName(), params.getParamDescriptor());
    const QString reason = known != nullptr ? valuesRefusal(exchange, params) : notFound();
    if (!reason.isEmpty()) {
        return reason;
    }
    *known = params;
    m_profiles.setAlgorithms(profile.algorithms);
    m_compound.updateAlgorithm(params);
    return {};
}

QString ModelSide::removeAlgorithm(const QString &type, const QString &descriptor)
{
    Profile profile = m_profiles.current();
    const UnitParams *known = profile.find(type, descriptor);
    if (known == nullptr) {
        return notFound();
    }
    profile.algorithms.erase(profile.algorithms.begin() + (known - profile.algorithms.data()));
    m_profiles.setAlgorithms(profile.algorithms);
    m_compound.setAlgorithms(profile.algorithms);
    return {};
}
