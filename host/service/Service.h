#pragma once

#include "acquire/PlayedRecording.h"
#include "server/ServerMediator.h"
#include "server/server_state.h"
#include "service/CompoundSide.h"
#include "service/ModelSide.h"
#include "service/ProfileStore.h"

#include <QHostAddress>
#include <QLockFile>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

class DataServer;

struct ServiceOptions
{
    QHostAddress address = QHostAddress::LocalHost;
    quint16 port = 336; ///< 0: any free one
    QString dataFolder; ///< made when it is missing; one service at a time uses it
    int stateSeconds = 10; ///< length of a state file
    bool searchWhileAcquiring = false;
    QString playbackFile; ///< a recording that the device "Playback" plays; empty for none
    QString lslName; ///< of the outlet through which every acquisition is streamed; empty for none
    bool textSockets = false; ///< send the alpha and beta values to the text sockets
    QStringList allowedOrigins; ///< of web pages that may use the service; "*" for all
};

/// The command service with everything behind it: discovery, a device, profiles, recordings, training.
class Service : public QObject
{
    Q_OBJECT
public:
    /// Listens at once. Throws a Refusal when it cannot, or when the data folder cannot be used.
    explicit Service(const ServiceOptions &options, QObject *parent = nullptr);
    ~Service() override;

    quint16 port() const;

    /// Closes a recording and ends acquisition; stopped() follows.
    void stop();

signals:
    /// The devices that are present have been found.
    void ready();
    void stopped();

private:
    void prepareFolder();
    void preparePlayback();
    void listen();
    void searchDevices();
    void takeSearched();
    void setSearchEnabled(bool acquiring);

    ServiceOptions m_options;
    std::unique_ptr<QLockFile> m_lock;
    server_state m_state;
    PlayedRecording m_played;
    ServerMediator m_mediator;
    std::unique_ptr<ProfileStore> m_profiles;
    std::unique_ptr<DataServer> m_server;
    std::unique_ptr<CompoundSide> m_compound;
    std::unique_ptr<ModelSide> m_model;
    bool m_ready = false;
    bool m_stopping = false;
};
