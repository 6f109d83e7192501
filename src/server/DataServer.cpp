#include "server/DataServer.h"

#include "common/BPCommon.h"
#include "devices/Amplifier.h"
#include "devices/DeviceManager.h"
#include "montage/Montage.h"
#include "server/ProcessRequest.h"
#include "server/ServerMediator.h"
#include "server/TcpTextSocket.h"
#include "server/handlers/AlgorithmRequests.h"
#include "server/handlers/DeviceRequests.h"
#include "server/handlers/LastValues.h"
#include "server/handlers/MontageFolder.h"
#include "server/handlers/MontageRequests.h"
#include "server/handlers/ProfileRequests.h"
#include "server/handlers/RecordRequests.h"
#include "server/handlers/SampleBuffer.h"
#include "server/handlers/SignalRequests.h"
#include "server/handlers/StateRequests.h"
#include "server/http/BrowserGuard.h"
#include "server/http/HttpReply.h"
#include "server/http/RequestReader.h"

#include <QDateTime>
#include <QScopedValueRollback>
#include <QTcpServer>
#include <QTcpSocket>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

constexpr BPCommon::LogEvent kLog = BPCommon::LogServer;
constexpr std::size_t kHandlers = 21;
constexpr int kReadAttempts = 100;
constexpr int kReadWaitMs = 5;
/// What a client has sent beyond this before it is read stays in the system's buffers.
constexpr qint64 kMaxRequestBytes = qint64{4} * 1024 * 1024;
constexpr float kBufferSeconds = 60.0f;
constexpr float kUnknownRate = 1000.0f; ///< Hz, of a device that does not tell
constexpr float kMaxRate = 1e6f; ///< Hz, that samples are counted by
constexpr int kMaxClosingClients = 64;
/// Of all answers that are still under way.
constexpr qint64 kMaxUnsentBytes = qint64{512} * 1024 * 1024;

/// The handlers that ask the server for something carry what belongs to it.
struct Wish
{
    const char *message;
    void (*act)(DataServer &server, const RequestExchange &exchange);
};

/// Messages that become a signal to the host.
constexpr Wish kWishes[] = {
    {"startDevice", [](DataServer &server, const RequestExchange &e) { emit server.startDevice(e.device, true); }},
    {"removeProfile", [](DataServer &server, const RequestExchange &e) { emit server.removeProfile(e.name); }},
    {"addNewProfile", [](DataServer &server, const RequestExchange &e) { emit server.addNewProfile(e.name, e.type); }},
    {"writeStateFile", [](DataServer &server, const RequestExchange &e) { emit server.writeStateFile(e.state); }},
    {"removeStateFile", [](DataServer &server, const RequestExchange &e) { emit server.removeStateFile(e.state); }},
    {"setProfile", [](DataServer &server, const RequestExchange &e) { emit server.setCurrentProfile(e.name); }},
};

std::size_t channelsOf(const server_state &state)
{
    return state.currentMontage ? state.currentMontage->size() : 0;
}

} // namespace

QPointer<DataServer> DataServer::s_listener;

DataServer::DataServer(server_state &state, QObject *parent)
    : QObject(parent)
    , m_state(state)
    , m_samples(std::make_unique<SampleBuffer>())
    , m_last(std::make_unique<LastValues>())
{
    construct(QHostAddress(QHostAddress::Any), kPort);
}

DataServer::DataServer(server_state &state, const QHostAddress &address, quint16 port, QObject *parent)
    : QObject(parent)
    , m_state(state)
    , m_samples(std::make_unique<SampleBuffer>())
    , m_last(std::make_unique<LastValues>())
{
    construct(address, port);
}

void DataServer::construct(const QHostAddress &address, quint16 port)
{
    BPCommon::log(kLog, "DataServer::DataServer create");
    qRegisterMetaType<AmplifierInfo>("AmplifierInfo");
    qRegisterMetaType<QSharedPointer<Montage>>("QSharedPointer<Montage>");
    qRegisterMetaType<QList<AmplifierInfo>>("QList<AmplifierInfo>");
    qRegisterMetaType<QList<AmplifierInfo>>("QList<AmplifierInfo>&");
    m_state.clientActive = false;
    resetAllBuffers();
    m_guard = std::make_unique<bp::BrowserGuard>();
    m_reader = new bp::RequestReader(
        [this](QTcpSocket *client, const bp::WholeRequest &request) { takeRequest(client, request); }, this);
    prepeareTcpServer(address, port);
    m_textSocket = new TcpTextSocket(&m_textEnabled, &m_textEnabled, this);
    connect(this, &DataServer::setDiscoverDevice, this, &DataServer::setNewDevices);
    s_listener = this;
    DeviceManager::Instance()->setCallBackFunction(&DataServer::takeDevices);
    setAllProcess();
}

DataServer::~DataServer()
{
    if (s_listener == this) {
        DeviceManager::Instance()->setCallBackFunction(nullptr);
    }
}

void DataServer::prepeareTcpServer(const QHostAddress &address, quint16 port)
{
    BPCommon::log(kLog, "DataServer::prepeareTcpServer ");
    m_server = new QTcpServer(this);
    connect(m_server, &QTcpServer::newConnection, this, &DataServer::takeNewConnection);
    m_server->listen(address, port);
}

void DataServer::setAllProcess()
{
    m_handlers.reserve(kHandlers);
    const auto add = [this](auto handler) { m_handlers.push_back(std::move(handler)); };
    add(std::make_unique<RequestGetInfo>(m_state, *m_last));
    add(std::make_unique<RequestGetData>(m_state, *m_samples));
    add(std::make_unique<RequestGetStates>(m_state, *m_last));
    add(std::make_unique<RequestLastState>(m_state, *m_last));
    add(std::make_unique<RequestGetLastRhythmOrState>(m_state, *m_last));
    add(std::make_unique<RequestGetSpectrum>(m_state, *m_last));
    add(std::make_unique<RequestGetLastRhythm>(m_state, *m_last));
    add(std::make_unique<RequestWriteStateFile>(m_state));
    add(std::make_unique<RequestStopStartTraining>(m_state));
    add(std::make_unique<RequestGetHalvinStatus>(m_state));
    add(std::make_unique<RequestSetProfile>(m_state));
    add(std::make_unique<RequestGetProfileList>(m_state));
    add(std::make_unique<RequestStartWriteFile>(m_state));
    add(std::make_unique<RequestGetDiscoverDevice>(m_state, m_devices));
    add(std::make_unique<RequestStartDevice>(m_state, m_devices));
    add(std::make_unique<RequestStopDevice>(m_state));
    add(std::make_unique<RequestMontageEdit>(m_state));
    add(std::make_unique<RequestAddNewProfile>(m_state));
    add(std::make_unique<RequestGetAlgorithms>(m_state));
    add(std::make_unique<RequestRemoveAllRecords>(m_state));
    // Behind the others, and with words that none of theirs occurs in: they take no request from them.
    add(std::make_unique<RequestRecordLabel>(m_state));
}

void DataServer::setWholeRequests(bool on)
{
    m_wholeRequests = on;
    for (const auto &handler : m_handlers) {
        handler->setLengthUnit(on ? bp::LengthIn::Bytes : bp::LengthIn::Utf16Units);
    }
}

void DataServer::setAllowedOrigins(const QStringList &origins)
{
    m_guard->setAllowedOrigins(origins);
}

bool DataServer::isListening() const
{
    return m_server->isListening();
}

quint16 DataServer::serverPort() const
{
    return m_server->serverPort();
}

QString DataServer::listenError() const
{
    return m_server->isListening() ? QString() : m_server->errorString();
}

void DataServer::setMediator(ServerMediator *mediator)
{
    m_mediator = mediator;
    mediator->setServer(this);
    for (const auto &handler : m_handlers) {
        handler->setMediator(mediator);
    }
}

void DataServer::setServerSettings(QSharedPointer<Montage> montage, const AmplifierInfo &device,
                                   int spectrumNormalLength)
{
    m_state.clientActive = false;
    m_state.spectrumNormalLength = static_cast<quint32>(std::max(0, spectrumNormalLength));
    openDevice(device, std::move(montage));
}

void DataServer::openDevice(const AmplifierInfo &device, QSharedPointer<Montage> montage)
{
    m_state.currentDevice = device;
    m_state.currentMontage = std::move(montage);
    resetAllBuffers();
}

void DataServer::setParamList(const std::vector<UnitParams> &params)
{
    m_algorithms = params;
}

void DataServer::updateRhythmList(const std::vector<UnitParams> &params)
{
    QMap<QString, std::vector<float>> kept;
    for (const UnitParams &rhythm : params) {
        const QString name = rhythm.getParamDescriptor();
        const auto known = m_last->rhythms.constFind(name);
        if (known != m_last->rhythms.constEnd()) {
            kept.insert(name, known.value());
        }
    }
    m_last->rhythms = kept;
}

void DataServer::setSpectrumNormalLength(unsigned length)
{
    m_state.spectrumNormalLength = length;
}

void DataServer::setTcpTextFlag(bool enabled)
{
    m_textEnabled.store(enabled);
}

void DataServer::resetAllBuffers()
{
    resetSamples();
    *m_last = LastValues();
}

void DataServer::resetSamples()
{
    const float rate = m_state.currentDevice.getCurrentFreqValue();
    const float known = rate > 0.0f ? std::min(rate, kMaxRate) : kUnknownRate;
    m_samples->reset(channelsOf(m_state), static_cast<std::size_t>(known * kBufferSeconds));
}

void DataServer::appendNewData(int count, const float *samples)
{
    if (!m_state.clientActive || count <= 0 || samples == nullptr || channelsOf(m_state) == 0) {
        return;
    }
    BPCommon::log(kLog, "DataServer::appendNewData %i", count);
    if (m_samples->channelCount() != channelsOf(m_state)) {
        resetSamples(); // the host has put another montage into the state by itself
    }
    m_samples->append(static_cast<std::size_t>(count) / m_samples->channelCount(), samples);
}

void DataServer::appendNewRhythm(const QString &name, unsigned count, const float *values)
{
    if (count == 0 || values == nullptr) {
        return;
    }
    m_last->rhythms[name].assign(values, values + count);
    const float *number = std::find_if(values, values + count, [](float value) { return std::isfinite(value); });
    m_textSocket->sendValue(name, number != values + count ? *number : values[0]);
}

void DataServer::appendNewSpectrum(unsigned count, const float *values)
{
    const auto channels = static_cast<unsigned>(channelsOf(m_state));
    if (channels == 0 || values == nullptr) {
        return;
    }
    m_last->spectrumPoints = count / channels;
    m_last->spectrum.assign(values, values + static_cast<std::size_t>(m_last->spectrumPoints) * channels);
}

void DataServer::setLastState(unsigned state)
{
    m_last->states.push_back({QDateTime::currentMSecsSinceEpoch(), state});
    if (m_last->states.size() > LastValues::kStates) {
        m_last->states.pop_front();
    }
}

unsigned DataServer::getlastState() const
{
    return m_last->states.empty() ? 0 : m_last->states.back().state;
}

void DataServer::notify(Colleague *sender, QString message)
{
    RequestExchange *exchange = ProcessRequest::exchangeOf(sender);
    if (exchange == nullptr) {
        return;
    }
    const QScopedValueRollback<RequestExchange *> wishing(m_wishing, exchange);
    const auto isMessage = [&message](const char *text) { return message == QLatin1String(text); };
    const auto wish = std::find_if(std::begin(kWishes), std::end(kWishes),
                                   [&isMessage](const Wish &candidate) { return isMessage(candidate.message); });
    if (wish != std::end(kWishes)) {
        wish->act(*this, *exchange);
    } else if (isMessage("deviceParametrs")) {
        deviceParametrs(*exchange);
    } else if (isMessage("setDeviceParametrs")) {
        setDeviceParametrs(*exchange);
    } else if (isMessage("startDeviceWithMontage")) {
        startDeviceWithMontage(*exchange);
    } else if (isMessage("setCurrentMontage")) {
        setCurrentMontage(*exchange);
    } else {
        passToModel(sender, *exchange, message);
    }
}

void DataServer::refuse(const QString &reason)
{
    if (m_wishing != nullptr && m_wishing->refusal.isEmpty()) {
        m_wishing->refusal = reason;
    }
}

void DataServer::passToModel(Colleague *sender, RequestExchange &exchange, const QString &message)
{
    const auto isMessage = [&message](const char *text) { return message == QLatin1String(text); };
    const bool isParams = isMessage("updateParam") || isMessage("addNewAlgorithm");
    const bool isNamed = isMessage("addNewAlgorithmByName") || isMessage("removeAlgorithm");
    const bool isTraining = isMessage("startTraining") || isMessage("stopTraining");
    const bool isList = isMessage("getAlgorithms");
    if (m_mediator == nullptr || !(isParams || isNamed || isTraining || isList)) {
        return;
    }
    if (isParams) {
        m_currentParams = exchange.params;
    }
    if (isNamed) {
        m_algorithmName = exchange.name;
    }
    m_mediator->setMessageToHalvinModel(sender, message);
    if (isList) {
        exchange.algorithms = m_algorithms;
    }
}

void DataServer::deviceParametrs(RequestExchange &exchange)
{
    DeviceManager *manager = DeviceManager::Instance();
    if (Amplifier *device = manager->openDevice(exchange.device)) {
        device->getUnitParams(exchange.params);
        manager->releaseDevice(device);
    }
}

void DataServer::setDeviceParametrs(RequestExchange &exchange)
{
    if (m_state.readMode && m_state.currentDevice == exchange.device) {
        exchange.refusal = QStringLiteral("Halvin in state read mode"); // a streaming device reads its parameters
        return;
    }
    DeviceManager *manager = DeviceManager::Instance();
    if (Amplifier *device = manager->openDevice(exchange.device)) {
        device->setUnitParams(exchange.params);
        manager->releaseDevice(device);
    } else {
        exchange.refusal = QStringLiteral("Wrong device name");
    }
}

void DataServer::startDeviceWithMontage(RequestExchange &exchange)
{
    const QSharedPointer<Montage> montage = bp::MontageFolder(m_state.montageFolder).read(exchange.montageName);
    if (!montage) {
        exchange.refusal = QStringLiteral("Cannot open montage file");
        return;
    }
    const AmplifierInfo deviceBefore = m_state.currentDevice;
    const QSharedPointer<Montage> montageBefore = m_state.currentMontage;
    const QString nameBefore = m_montageName;
    m_montageName = bp::MontageFolder(m_state.montageFolder).fileName(exchange.montageName);
    m_state.currentDevice = exchange.device;
    m_state.currentMontage = montage;
    emit startDeviceWithMontage(exchange.device, montage);
    if (!exchange.refusal.isEmpty()) { // a refused command changes nothing
        m_montageName = nameBefore;
        m_state.currentDevice = deviceBefore;
        m_state.currentMontage = montageBefore;
    }
}

void DataServer::setCurrentMontage(RequestExchange &exchange)
{
    const QString nameBefore = m_montageName;
    m_montageName = exchange.montageName;
    emit currentMontageChanged(exchange.montage);
    if (!exchange.refusal.isEmpty()) {
        m_montageName = nameBefore;
    }
}

void DataServer::takeDevices(QList<AmplifierInfo> &devices)
{
    if (s_listener) {
        emit s_listener->setDiscoverDevice(devices);
    }
}

void DataServer::setNewDevices(QList<AmplifierInfo> &in_list)
{
    m_devices = in_list;
}

void DataServer::takeNewConnection()
{
    BPCommon::log(kLog, "DataServer::takeNewConnection");
    while (QTcpSocket *socket = m_server->nextPendingConnection()) {
        connect(socket, &QTcpSocket::disconnected, this, &DataServer::clientDisconnected);
        lookForRequest();
        removeTCPSocket();
        socket->setReadBufferSize(kMaxRequestBytes);
        if (m_wholeRequests) {
            m_reader->add(socket);
            continue;
        }
        m_client = socket;
        connect(socket, &QTcpSocket::readyRead, this, &DataServer::readyReadData);
        if (socket->bytesAvailable() > 0) {
            readyReadData();
        }
    }
}

/// The request of the client that is about to be dropped may be there, and not have been told yet.
void DataServer::lookForRequest()
{
    if (m_client && m_client->bytesAvailable() == 0) {
        m_client->waitForReadyRead(0); // answers it by the way
    }
    if (m_client && m_client->bytesAvailable() > 0) {
        readyReadData();
    }
}

void DataServer::readyReadData()
{
    if (m_client) {
        const QPointer<QTcpSocket> client = m_client;
        dispatch(tryReadData(), client);
        m_client.clear();
        releaseAnsweredClient(client);
    }
}

void DataServer::takeRequest(QTcpSocket *client, const bp::WholeRequest &request)
{
    const QString refusal = m_guard->refusal(request.head, client->localAddress());
    if (!refusal.isEmpty() || !request.refusal.isEmpty()) {
        bp::sendAndClose(client, bp::errorReply(refusal.isEmpty() ? request.refusal : refusal));
    } else if (request.head.line.startsWith("OPTIONS ")) { // asks what is allowed, and wants nothing done
        bp::sendAndClose(client, bp::preflightReply());
    } else {
        dispatch(request.text, client);
    }
    releaseAnsweredClient(client);
}

QString DataServer::tryReadData()
{
    QString text;
    for (int attempt = 0; m_client && attempt < kReadAttempts && text.isEmpty(); ++attempt) {
        const QByteArray bytes = m_client->readAll();
        text = QString::fromUtf8(bytes.constData(), bytes.size()); // a NUL does not end it
        if (text.isEmpty() && !m_client->waitForReadyRead(kReadWaitMs)
            && m_client->state() != QAbstractSocket::ConnectedState) {
            break; // nothing will come any more
        }
    }
    return text;
}

QString DataServer::requestLine(const QString &text)
{
    int end = text.indexOf(QLatin1String("\r\n"));
    if (end < 1) {
        end = text.indexOf(QLatin1Char('\n'));
    }
    return end < 1 ? text : text.left(end);
}

QByteArray DataServer::answer(const QString &requestText)
{
    return dispatch(requestText, nullptr);
}

QByteArray DataServer::dispatch(const QString &text, QTcpSocket *client)
{
    const QString line = requestLine(text);
    const auto handler = std::find_if(m_handlers.cbegin(), m_handlers.cend(),
                                      [&line](const auto &candidate) { return candidate->matchRequest(line); });
    if (handler == m_handlers.cend()) {
        ProcessRequest &any = *m_handlers.front();
        any.sendError(client, QStringLiteral("Unknown commands"));
        return any.lastReply();
    }
    m_state.clientActive = true;
    (*handler)->setClient(client);
    (*handler)->setRequestText(text);
    (*handler)->handleRequest();
    (*handler)->setClient(nullptr);
    return (*handler)->lastReply();
}

void DataServer::clientDisconnected()
{
    BPCommon::log(kLog, "DataServer::clientDisconnected");
    if (auto *socket = qobject_cast<QTcpSocket *>(sender())) {
        m_closing.removeOne(socket);
        socket->close();
        socket->deleteLater();
    }
}

void DataServer::removeTCPSocket()
{
    if (m_client) {
        m_client->disconnect(this);
        m_client->abort();
        m_client->deleteLater();
        m_client.clear();
    }
}

void DataServer::releaseAnsweredClient(QTcpSocket *client)
{
    if (client == nullptr) {
        return;
    }
    // An answer that is still under way is no reason to drop its client when the next one comes.
    disconnect(client, &QTcpSocket::readyRead, this, &DataServer::readyReadData);
    if (client->state() != QAbstractSocket::UnconnectedState) {
        m_closing.append(client);
    }
    limitUnsentAnswers();
}

/// Drops those who have not taken their answers for longest when they become too many or too large.
void DataServer::limitUnsentAnswers()
{
    const auto unsent = [this] {
        return std::accumulate(m_closing.cbegin(), m_closing.cend(), qint64{0},
                               [](qint64 sum, const QTcpSocket *client) { return sum + client->bytesToWrite(); });
    };
    while (m_closing.size() > kMaxClosingClients || (m_closing.size() > 1 && unsent() > kMaxUnsentBytes)) {
        QTcpSocket *oldest = m_closing.takeFirst();
        oldest->abort();
    }
}
