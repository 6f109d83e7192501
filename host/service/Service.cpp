#include "service/Service.h"

#include "acquire/DeviceFinder.h"
#include "commands/Refusal.h"
#include "devices/DeviceManager.h"
#include "montage/Montage.h"
#include "server/DataServer.h"

#include <QDir>
#include <QTcpServer>
#include <QTimer>

namespace {

constexpr int kSearchTimeoutMs = 5000;
constexpr int kCloseTimeoutMs = 10000;
constexpr quint16 kPrivilegedPorts = 1024; ///< the ports below

/// Why a port cannot be listened on, and what helps.
QString listenRefusal(const QHostAddress &address, quint16 port, const QString &systemText)
{
    QTcpServer probe;
    probe.listen(address, port);
    const QString place = QStringLiteral("%1:%2").arg(address.toString()).arg(port);
    switch (probe.serverError()) {
    case QAbstractSocket::SocketAccessError:
        return port < kPrivilegedPorts
            ? QStringLiteral("Cannot listen on %1: ports below 1024 need a privilege on this system (administrator, or "
                             "the right to bind them); choose another, --port 3360 for example.")
                  .arg(place)
            : QStringLiteral("Cannot listen on %1: the system does not allow it.").arg(place);
    case QAbstractSocket::AddressInUseError:
        return QStringLiteral("Cannot listen on %1: another program uses this port; choose another with --port.")
            .arg(place);
    case QAbstractSocket::SocketAddressNotAvailableError:
        return QStringLiteral("Cannot listen on %1: this computer has no such address.").arg(place);
    default:
        return QStringLiteral("Cannot listen on %1: %2.").arg(place, systemText);
    }
}

} // namespace

Service::Service(const ServiceOptions &options, QObject *parent)
    : QObject(parent)
    , m_options(options)
{
    prepareFolder();
    m_profiles = std::make_unique<ProfileStore>(m_options.dataFolder);
    m_state.stateFileSeconds = m_options.stateSeconds;
    preparePlayback();
    listen();
    m_compound = std::make_unique<CompoundSide>(m_state, *m_server, m_options.dataFolder + QLatin1String("/records"));
    m_compound->setStreamName(m_options.lslName);
    m_compound->records().setPlayedFile(m_options.playbackFile);
    m_compound->setPlayed(m_played);
    m_model = std::make_unique<ModelSide>(m_state, *m_server, *m_compound, m_mediator, *m_profiles);
    m_mediator.setCompound(m_compound.get());
    m_mediator.setHalvinModel(m_model.get());
    m_server->setMediator(&m_mediator);

    CompoundSide *compound = m_compound.get();
    connect(m_server.get(), &DataServer::startDevice, compound,
            [compound](const AmplifierInfo &info, bool) { compound->start(info, {}); });
    connect(m_server.get(), qOverload<AmplifierInfo, QSharedPointer<Montage>>(&DataServer::startDeviceWithMontage),
            compound, &CompoundSide::start);
    connect(m_server.get(), &DataServer::currentMontageChanged, compound, &CompoundSide::changeMontage);
    connect(compound, &CompoundSide::acquiringChanged, this, &Service::setSearchEnabled);
    searchDevices();
}

Service::~Service()
{
    DeviceManager::Instance()->stopSearchThread();
}

quint16 Service::port() const
{
    return m_server->serverPort();
}

void Service::prepareFolder()
{
    m_state.montageFolder = m_options.dataFolder + QLatin1String("/montages");
    for (const QString &folder : {m_options.dataFolder, m_state.montageFolder}) {
        if (!QDir().mkpath(folder)) {
            refuse(QStringLiteral("Cannot create the folder %1; choose another with --data.").arg(folder));
        }
    }
    m_lock = std::make_unique<QLockFile>(m_options.dataFolder + QLatin1String("/service.lock"));
    m_lock->setStaleLockTime(0); // held as long as its process lives
    if (!m_lock->tryLock()) {
        refuse(m_lock->error() == QLockFile::LockFailedError
                   ? QStringLiteral("Another service uses the folder %1; choose another with --data.")
                         .arg(m_options.dataFolder)
                   : QStringLiteral("Cannot write into the folder %1; choose another with --data.")
                         .arg(m_options.dataFolder));
    }
}

void Service::listen()
{
    m_server = std::make_unique<DataServer>(m_state, m_options.address, m_options.port);
    if (!m_server->isListening()) {
        refuse(listenRefusal(m_options.address, m_options.port, m_server->listenError()));
    }
    m_server->setWholeRequests(true);
    m_server->setAllowedOrigins(m_options.allowedOrigins);
    m_server->setTcpTextFlag(m_options.textSockets);
}

/// Gives the device its recording before anybody hears of the device.
void Service::preparePlayback()
{
    if (m_options.playbackFile.isEmpty()) {
        return;
    }
    DeviceFinder finder;
    finder.search();
    Amplifier *device = finder.open(QStringLiteral("Playback"));
    if (device == nullptr) {
        refuse(QStringLiteral("The playback device is missing: its plug-in is to lie beside the program, in "
                              "HalvinDevices."));
    }
    m_played.open(*device, m_options.playbackFile);
}

void Service::searchDevices()
{
    DeviceManager *manager = DeviceManager::Instance();
    connect(manager, &DeviceManager::searchCompleted, this, &Service::takeSearched);
    QTimer::singleShot(kSearchTimeoutMs, this, &Service::takeSearched);
    manager->setDeviceSearchEnabled(true);
    manager->startSearchThread();
}

void Service::takeSearched()
{
    if (!m_ready) {
        m_ready = true;
        emit ready();
    }
}

/// Some devices do not like to be looked for while they acquire.
void Service::setSearchEnabled(bool acquiring)
{
    DeviceManager::Instance()->setDeviceSearchEnabled(m_options.searchWhileAcquiring || !acquiring);
}

void Service::stop()
{
    if (m_stopping) {
        return;
    }
    m_stopping = true;
    m_compound->stop();
    if (!m_compound->records().isBusy()) {
        emit stopped();
        return;
    }
    connect(&m_compound->records(), &RecordKeeper::closed, this, &Service::stopped);
    QTimer::singleShot(kCloseTimeoutMs, this, &Service::stopped);
}
