#pragma once

#include "server/Colleague.h"
#include "service/ProfileStore.h"
#include "service/TrainingSide.h"

#include <QObject>

class CompoundSide;
class DataServer;
class ServerMediator;
struct RequestExchange;
struct server_state;

/// The algorithm side of the service: profiles, the algorithms of the current one, mental states and training. Passes
/// on to the acquisition side what belongs there.
class ModelSide : public QObject, public Colleague
{
    Q_OBJECT
public:
    static constexpr std::size_t kMaxAlgorithms = 64;

    /// All borrowed; must outlive this object.
    ModelSide(server_state &state, DataServer &server, CompoundSide &compound, ServerMediator &mediator,
              ProfileStore &profiles, QObject *parent = nullptr);

    void notify(Colleague *sender, QString message) override;

    void addProfile(const QString &name, const QString &type);
    void removeProfile(const QString &name);
    void selectProfile(const QString &name);
    void writeState(int state);
    void removeState(int state);

private:
    void perform(RequestExchange &exchange, const QString &message);
    void takeProfile();
    void listStates();
    QString stateFolder() const;
    QString checkProfiles(const QString &name) const;
    QString extend(std::vector<UnitParams> &algorithms, const UnitParams &params) const;
    QString addAlgorithm(const UnitParams &params);
    QString addAlgorithmByName(const RequestExchange &exchange);
    QString checkAlgorithms(const RequestExchange &exchange) const;
    QString valuesRefusal(const RequestExchange &exchange, const UnitParams &params) const;
    QString updateAlgorithm(const RequestExchange &exchange, const UnitParams &params);
    QString removeAlgorithm(const QString &type, const QString &descriptor);
    void setState(int state);
    void takeModel();

    server_state &m_state;
    DataServer &m_server;
    CompoundSide &m_compound;
    ServerMediator &m_mediator;
    ProfileStore &m_profiles;
    TrainingSide m_training;
};
