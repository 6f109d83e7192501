#include "server/HalvinHTTPQtClient.h"

#include "common/BPCommon.h"

#include <QNetworkProxy>
#include <QTcpSocket>

namespace {

constexpr int kTimeoutMs = 2000;
/// For the end of a large answer, see readyReadData().
constexpr int kRestTimeoutMs = 100;

// The host header is fixed, and so are the blank before the colon, the missing blank line of the short form and the cut
// "text/j": services in the field know the requests by these bytes.
constexpr char kHost[] = " HTTP/1.1\r\nHost: 127.0.0.1:336\r\n";
constexpr char kAccept[] = "Connection: keep-alive\r\nAccept: application/json, text/j\r\n";

} // namespace

HalvinHTTPQtClient::HalvinHTTPQtClient(const QString &host, unsigned long long port, QObject *parent)
    : QObject(parent)
    , m_port(port)
    , m_host(host)
{
    qRegisterMetaType<HalvinRespPacket>("HalvinRespPacket");
}

HalvinHTTPQtClient::~HalvinHTTPQtClient()
{
    if (m_socket != nullptr) {
        m_socket->disconnect(this);
    }
}

bool HalvinHTTPQtClient::makeGetInfo()
{
    return get(request_get_info, "getinfo");
}

bool HalvinHTTPQtClient::makeGetData()
{
    return get(request_get_data, "getdata");
}

bool HalvinHTTPQtClient::makeGetStates()
{
    return get(request_get_states, "getstates");
}

bool HalvinHTTPQtClient::makeGetLastState()
{
    return get(request_get_last_state, "getlaststate");
}

bool HalvinHTTPQtClient::makeGetSpectrum()
{
    return get(request_get_spectrum, "getspectrum");
}

bool HalvinHTTPQtClient::makeGetLastRithm()
{
    return get(request_get_last_rhythm, "getlastrhythm");
}

bool HalvinHTTPQtClient::makeSetWriteStateFile(int state)
{
    return get(request_write_state_file, "writestatefile/" + QByteArray::number(state));
}

bool HalvinHTTPQtClient::makeSetRemoveStateFile(int state)
{
    return get(request_remove_state_file, "removestatefile/" + QByteArray::number(state));
}

bool HalvinHTTPQtClient::makeGetHalvinStatus()
{
    return get(request_get_halvin_status, "gethalvinstatus");
}

bool HalvinHTTPQtClient::makeGetProfilesList()
{
    return get(request_get_profile_list, "getprofilelist");
}

bool HalvinHTTPQtClient::makeStartWriteFile()
{
    return get(request_start_write_file, "startwritefile");
}

bool HalvinHTTPQtClient::makeStopWriteFile()
{
    return get(request_stop_write_file, "stopwritefile");
}

bool HalvinHTTPQtClient::makeDiscoverDevice()
{
    return get(request_discover_devices, "discoverdevices");
}

bool HalvinHTTPQtClient::makeStopDevice()
{
    return get(request_stop_device, "stopdevice");
}

bool HalvinHTTPQtClient::makeGetMontageList()
{
    return get(request_get_montage_list, "getmontagelist");
}

bool HalvinHTTPQtClient::makeGetAlgorhythmList()
{
    return get(request_get_algorithms, "getalgorithms");
}

bool HalvinHTTPQtClient::makeRemoveAllRecords()
{
    return get(request_remove_all_records, "removeallrecords");
}

bool HalvinHTTPQtClient::makeSetCurrentProfile(const QString &json)
{
    return post(request_set_current_profile, "setcurrentprofile", json);
}

bool HalvinHTTPQtClient::makeGetDeviceParams(const QString &json)
{
    return post(request_get_device_parametrs, "getdeviceparametrs", json);
}

bool HalvinHTTPQtClient::makeSetDeviceParams(const QString &json)
{
    return post(request_set_device_parametrs, "setdeviceparametrs", json);
}

bool HalvinHTTPQtClient::makeStartDevice(const QString &json)
{
    return post(request_start_device, "startdevice", json);
}

bool HalvinHTTPQtClient::makeGetMontageInfo(const QString &json)
{
    return post(request_get_montage_info, "getmontageinfo", json);
}

bool HalvinHTTPQtClient::makeSetMontageInfo(const QString &json)
{
    return post(request_set_montage_name, "setmontagename", json);
}

bool HalvinHTTPQtClient::makeAddNewProfile(const QString &json)
{
    return post(request_add_new_profile, "addnewprofile", json);
}

bool HalvinHTTPQtClient::makeRemoveProfile(const QString &json)
{
    return post(request_remove_profile, "removeprofile", json);
}

bool HalvinHTTPQtClient::makeSetAlgorhythmParam(const QString &json)
{
    return post(request_set_algorithm_params, "setalgorithmparams", json);
}

bool HalvinHTTPQtClient::makeRemoveAlgorhythms(const QString &json)
{
    return post(request_remove_algorithm, "removealgorithm", json);
}

bool HalvinHTTPQtClient::makeAddNewAlgorhythm(const QString &json)
{
    return post(request_add_new_algorithm, "addnewalgorithm", json);
}

bool HalvinHTTPQtClient::makeAddNewAlgorhythmParam(const QString &json)
{
    return post(request_get_algorithm_params, "getalgorithmparams", json);
}

bool HalvinHTTPQtClient::makeSetCurrentState(const QString &json)
{
    return post(request_set_state, "setstate", json);
}

bool HalvinHTTPQtClient::get(request_type type, const char *command)
{
    m_requestType = type;
    return sendGetRequest(command);
}

bool HalvinHTTPQtClient::post(request_type type, const char *command, const QString &body)
{
    m_requestType = type;
    QByteArray request;
    return sendGetRequestWithContent(command, body, request);
}

bool HalvinHTTPQtClient::sendGetRequest(const char *command)
{
    QByteArray request;
    setRequestString(command, request);
    return connectToHost(request);
}

bool HalvinHTTPQtClient::sendGetRequestWithContent(const char *command, const QString &body, QByteArray &out)
{
    out = QByteArray("POST /") + command + kHost + "Content-Length : " + QByteArray::number(body.size()) + "\r\n"
        + kAccept + "\r\n" + body.toUtf8();
    return connectToHost(out);
}

void HalvinHTTPQtClient::setRequestString(const char *command, QByteArray &out)
{
    out = QByteArray("GET /") + command + kHost + kAccept;
}

bool HalvinHTTPQtClient::prepeareSocket()
{
    if (m_socket != nullptr) {
        giveUp();
        m_socket->deleteLater();
    }
    m_socket = new QTcpSocket(this);
    m_socket->setProxy(QNetworkProxy::NoProxy);
    m_isAnswered = false;
    m_expected = 0;
    m_received = 0;
    m_response.clear();
    return m_port > 0 && m_port <= 65535;
}

bool HalvinHTTPQtClient::connectToHost(const QByteArray &request)
{
    m_requestText = QString::fromUtf8(request);
    if (!prepeareSocket()) {
        return false;
    }
    QTcpSocket *socket = m_socket;
    socket->connectToHost(m_host, static_cast<quint16>(m_port), QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
    connect(socket, &QTcpSocket::readyRead, this, &HalvinHTTPQtClient::readyReadData);
    connect(socket, &QTcpSocket::disconnected, this, &HalvinHTTPQtClient::finishAtDisconnection);
    const qint64 written = socket->write(request);
    // A quick answer may come with the first wait, and its receiver may already send the next request.
    const auto isAnswered = [this, socket] { return m_isAnswered || m_socket != socket; };
    const bool isInTime =
        socket->waitForBytesWritten(kTimeoutMs) && (isAnswered() || socket->waitForReadyRead(kTimeoutMs));
    if (!isInTime && !isAnswered()) {
        BPCommon::log(BPCommon::LogClient, "HalvinHTTPQtClient::connectToHost %s", socket->errorString());
        giveUp();
    }
    return isInTime && written == request.size();
}

/// Closes the connection, so that the service does not answer a client that no longer waits.
void HalvinHTTPQtClient::giveUp()
{
    m_socket->disconnect(this);
    m_socket->abort();
}

void HalvinHTTPQtClient::readyReadData()
{
    const QString chunk = m_socket != nullptr ? QString::fromUtf8(m_socket->readAll()) : QString();
    if (chunk.isEmpty()) {
        return;
    }
    if (!m_requestText.contains(QLatin1String("getdata"))) {
        endConnection(chunk);
        return;
    }
    if (m_expected == 0) {
        m_response.clear();
        getContentLength(chunk);
    }
    m_received += chunk.size();
    m_response += chunk;
    // The header counts too, so an answer may count as complete while its last characters are still being sent.
    if (m_expected > 0 && m_received >= m_expected) {
        readRestOfData();
        endConnection(m_response);
    }
}

void HalvinHTTPQtClient::readRestOfData()
{
    disconnect(m_socket, &QTcpSocket::readyRead, this, &HalvinHTTPQtClient::readyReadData);
    while (HalvinRespPacket::getContent(m_response).size() < m_expected && m_socket->waitForReadyRead(kRestTimeoutMs)) {
        m_response += QString::fromUtf8(m_socket->readAll());
    }
}

void HalvinHTTPQtClient::getContentLength(const QString &text)
{
    const QLatin1String word("Content-Length");
    const int at = text.indexOf(word);
    const int lineEnd = text.indexOf(QLatin1String("\r\n"), at + word.size());
    if (at > 0 && lineEnd > 0) {
        const QStringRef field = text.midRef(at, lineEnd - at);
        m_expected = field.mid(field.indexOf(QLatin1Char(':')) + 1).trimmed().toInt();
    }
}

void HalvinHTTPQtClient::finishAtDisconnection()
{
    if (!m_response.isEmpty()) {
        endConnection(m_response);
    }
}

void HalvinHTTPQtClient::endConnection(const QString &response)
{
    const QString text = response;
    if (m_socket != nullptr) {
        m_socket->disconnect(this);
        m_socket->disconnectFromHost();
    }
    m_isAnswered = true;
    m_response.clear();
    m_expected = 0;
    m_received = 0;
    emit takePacket(HalvinRespPacket(m_requestType, text));
    emit takeNewData(m_requestText, text);
}
