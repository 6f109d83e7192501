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
    static const QStringList messages{QStringLiteral("stopDevice"), QStringLiteral("startWritingFlag"),
                                      QStringLiteral("stopWritingFlag"), QStringLiteral("removeRecordFile")};
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
        exchange.refusal = updateAlgorithm(m_server.getCurrParams());
    } else if (message == QLatin1String("addNewAlgorithm")) {
        exchange.refusal = addAlgorithm(m_server.getCurrParams());
    } else if (message == QLatin1String("addNewAlgorithmByName")) {
        exchange.refusal = addAlgorithmByName(m_server.getAlgorhtyhmName(), exchange.descriptor);
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
    m_server.refuse(m_profiles.add(name, type == QLatin1String("bci")));
}

void ModelSide::removeProfile(const QString &name)
{
    const bool isOnly = m_profiles.names().size() == 1; // it stays
    if (!isOnly && m_compound.records().busyStateFolder() == m_profiles.stateFolder(name)) {
        m_compound.records().stop();
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

void ModelSide::setState(int state)
{
    m_server.setLastState(static_cast<unsigned>(state));
    m_compound.setState(state);
}

QString ModelSide::addAlgorithm(const UnitParams &params)
{
    UnitParams known = ParamFactory::makeCustomProperty(params.getName());
    if (known.isEmpty()) {
        return QStringLiteral("Unknown algorithm ") + params.getName();
    }
    std::vector<UnitParams> algorithms = m_profiles.current().algorithms;
    const bool isThere = std::any_of(algorithms.begin(), algorithms.end(), [&params](const UnitParams &set) {
        return set.getName() == params.getName() && set.getParamDescriptor() == params.getParamDescriptor();
    });
    if (isThere) {
        return QStringLiteral("The algorithm is there already: %1 %2")
            .arg(params.getName(), params.getParamDescriptor());
    }
    if (algorithms.size() >= kMaxAlgorithms) {
        return QStringLiteral("There are %1 algorithms already, which is the limit").arg(kMaxAlgorithms);
    }
    UnitParams added = params;
    if (added.getName() == kRhythm && added.getDependName().isEmpty()) {
        added.setDependName(kSpectrum);
    }
    algorithms.push_back(added);
    m_profiles.setAlgorithms(algorithms);
    m_compound.updateAlgorithm(added);
    return {};
}

QString ModelSide::addAlgorithmByName(const QString &type, const QString &descriptor)
{
    UnitParams params = ParamFactory::makeCustomProperty(type);
    if (params.isEmpty()) {
        return QStringLiteral("Unknown algorithm ") + type;
    }
    params.setParamDescriptor(descriptor);
    return addAlgorithm(params);
}

QString ModelSide::updateAlgorithm(const UnitParams &params)
{
    Profile profile = m_profiles.current();
    UnitParams *known = profile.find(params.getName(), params.getParamDescriptor());
    if (known == nullptr) {
        return notFound();
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
