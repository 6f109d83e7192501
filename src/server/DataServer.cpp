#include "server/DataServer.h"

#include "common/BPCommon.h"
#include "devices/Amplifier.h"
#include "devices/DeviceManager.h"
#include "montage/Montage.h"
#include "server/ProcessRequest.h"
#include "server/ServerMediator.h"
#include "server/TcpTextSocket.h"
#include "server/handlers/HandlerList.h"
#include "server/handlers/LastValues.h"
#include "server/handlers/MontageFolder.h"
#include "server/handlers/SampleBuffer.h"
#include "server/http/HttpReply.h"
#include "server/http/HttpServer.h"

#include <QDateTime>
#include <QScopedValueRollback>
#include <QTcpSocket>

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr BPCommon::LogEvent kLog = BPCommon::LogServer;
constexpr float kBufferSeconds = 60.0f;
constexpr float kUnknownRate = 1000.0f; ///< Hz, of a device that gives none
constexpr float kMaxRate = 1e6f; ///< Hz, upper bound for the size of the buffer

std::size_t channelsOf(const server_state &state)
{
    return state.currentMontage ? state.currentMontage->size() : 0;
}

} // namespace

QPointer<DataServer> DataServer::s_listener;

DataServer::DataServer(server_state &state, QObject *parent)
    : DataServer(state, QHostAddress(QHostAddress::Any), kPort, parent)
{
}

DataServer::DataServer(server_state &state, const QHostAddress &address, quint16 port, QObject *parent)
    : QObject(parent)
    , m_state(state)
    , m_http(new bp::HttpServer([this](const QString &request) { return answer(request); }, this))
    , m_samples(std::make_unique<SampleBuffer>())
    , m_last(std::make_unique<LastValues>())
    , m_handlers(bp::createHandlers(state, *m_samples, *m_last, m_devices))
    , m_textSocket(new TcpTextSocket(&m_textEnabled, &m_textEnabled, this))
{
    BPCommon::log(kLog, "DataServer::DataServer create");
    qRegisterMetaType<AmplifierInfo>("AmplifierInfo");
    qRegisterMetaType<QSharedPointer<Montage>>("QSharedPointer<Montage>");
    qRegisterMetaType<QList<AmplifierInfo>>("QList<AmplifierInfo>");
    qRegisterMetaType<QList<AmplifierInfo>>("QList<AmplifierInfo>&");
    m_state.clientActive = false;
    resetAllBuffers();
    BPCommon::log(kLog, "DataServer::prepeareTcpServer ");
    m_http->listen(address, port);
    connect(this, &DataServer::setDiscoverDevice, this, &DataServer::setNewDevices);
    s_listener = this;
    DeviceManager::Instance()->setCallBackFunction([](QList<AmplifierInfo> &devices) {
        if (s_listener) {
            emit s_listener->setDiscoverDevice(devices);
        }
    });
}

DataServer::~DataServer()
{
    if (s_listener == this) {
        DeviceManager::Instance()->setCallBackFunction(nullptr);
    }
}

void DataServer::setWholeRequests(bool on)
{
    m_http->setWholeRequests(on);
    for (const auto &handler : m_handlers) {
        handler->setLengthUnit(on ? bp::LengthIn::Bytes : bp::LengthIn::Utf16Units);
    }
}

void DataServer::setAllowedOrigins(const QStringList &origins)
{
    m_http->setAllowedOrigins(origins);
}

bool DataServer::isListening() const
{
    return m_http->isListening();
}

quint16 DataServer::serverPort() const
{
    return m_http->port();
}

QString DataServer::listenError() const
{
    return m_http->listenError();
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

struct DataServer::Message
{
    Colleague *sender;
    RequestExchange &exchange;
    const QString &text;
};

void DataServer::notify(Colleague *sender, QString message)
{
    using Act = void (*)(DataServer & server, const Message &message);
    static constexpr std::pair<const char *, Act> kActs[] = {
        // signals to the host
        {"startDevice", [](DataServer &s, const Message &m) { emit s.startDevice(m.exchange.device, true); }},
        {"removeProfile", [](DataServer &s, const Message &m) { emit s.removeProfile(m.exchange.name); }},
        {"addNewProfile",
         [](DataServer &s, const Message &m) { emit s.addNewProfile(m.exchange.name, m.exchange.type); }},
        {"writeStateFile", [](DataServer &s, const Message &m) { emit s.writeStateFile(m.exchange.state); }},
        {"removeStateFile", [](DataServer &s, const Message &m) { emit s.removeStateFile(m.exchange.state); }},
        {"setProfile", [](DataServer &s, const Message &m) { emit s.setCurrentProfile(m.exchange.name); }},
        // what the server does itself
        {"deviceParametrs", [](DataServer &, const Message &m) { deviceParametrs(m.exchange); }},
        {"setDeviceParametrs", [](DataServer &s, const Message &m) { s.setDeviceParametrs(m.exchange); }},
        {"startDeviceWithMontage", [](DataServer &s, const Message &m) { s.startDeviceWithMontage(m.exchange); }},
        {"setCurrentMontage", [](DataServer &s, const Message &m) { s.setCurrentMontage(m.exchange); }},
        // what the model does; it reads the values from the server
        {"startTraining", [](DataServer &s, const Message &m) { s.tellModel(m); }},
        {"stopTraining", [](DataServer &s, const Message &m) { s.tellModel(m); }},
        {"getAlgorithms",
         [](DataServer &s, const Message &m) {
             s.tellModel(m);
             m.exchange.algorithms = s.m_algorithms;
         }},
        {"updateParam", [](DataServer &s, const Message &m) { s.tellModelParams(m); }},
        {"addNewAlgorithm", [](DataServer &s, const Message &m) { s.tellModelParams(m); }},
        {"addNewAlgorithmByName", [](DataServer &s, const Message &m) { s.tellModelName(m); }},
        {"removeAlgorithm", [](DataServer &s, const Message &m) { s.tellModelName(m); }},
    };
    RequestExchange *exchange = ProcessRequest::exchangeOf(sender);
    const auto known = std::find_if(std::begin(kActs), std::end(kActs),
                                    [&message](const auto &act) { return message == QLatin1String(act.first); });
    if (exchange != nullptr && known != std::end(kActs)) {
        const QScopedValueRollback<RequestExchange *> current(m_exchange, exchange);
        known->second(*this, {sender, *exchange, message});
    }
}

void DataServer::refuse(const QString &reason)
{
    if (m_exchange != nullptr) {
        m_exchange->refuse(reason);
    }
}

void DataServer::tellModel(const Message &message)
{
    if (m_mediator != nullptr) {
        m_mediator->setMessageToHalvinModel(message.sender, message.text);
    }
}

void DataServer::tellModelParams(const Message &message)
{
    m_currentParams = message.exchange.params;
    tellModel(message);
}

void DataServer::tellModelName(const Message &message)
{
    m_algorithmName = message.exchange.name;
    tellModel(message);
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
        exchange.refuse(QStringLiteral("Halvin in state read mode")); // a streaming device reads its parameters
        return;
    }
    DeviceManager *manager = DeviceManager::Instance();
    if (Amplifier *device = manager->openDevice(exchange.device)) {
        device->setUnitParams(exchange.params);
        manager->releaseDevice(device);
    } else {
        exchange.refuse(QStringLiteral("Wrong device name"));
    }
}

void DataServer::startDeviceWithMontage(RequestExchange &exchange)
{
    const QSharedPointer<Montage> montage = bp::MontageFolder(m_state.montageFolder).read(exchange.montageName);
    if (!montage) {
        exchange.refuse(QStringLiteral("Cannot open montage file"));
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

void DataServer::setNewDevices(QList<AmplifierInfo> &in_list)
{
    m_devices = in_list;
}

void DataServer::takeNewConnection()
{
    m_http->acceptClients();
}

void DataServer::readyReadData()
{
    m_http->answerClient();
}

void DataServer::clientDisconnected()
{
    m_http->forget(qobject_cast<QTcpSocket *>(sender()));
}

QString DataServer::tryReadData()
{
    return m_http->readText();
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
    const QString line = requestLine(requestText);
    const auto handler = std::find_if(m_handlers.cbegin(), m_handlers.cend(),
                                      [&line](const auto &candidate) { return candidate->matchRequest(line); });
    if (handler == m_handlers.cend()) {
        return bp::errorReply(QStringLiteral("Unknown commands"));
    }
    m_state.clientActive = true;
    return (*handler)->answer(Request(requestText));
}
