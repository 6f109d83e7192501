#pragma once

#include "algorithms/UnitParams.h"
#include "common/BPExport.h"
#include "devices/AmplifierInfo.h"
#include "server/Colleague.h"
#include "server/server_state.h"

#include <QHostAddress>
#include <QJsonArray>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSharedPointer>
#include <QString>
#include <QStringList>

#include <atomic>
#include <memory>
#include <vector>

class Montage;
class ProcessRequest;
class ServerMediator;
class TcpTextSocket;
struct RequestExchange;
class SampleBuffer;
struct LastValues;

namespace bp {
class HttpServer;
} // namespace bp

/// The local command service: one HTTP request per connection, answered by the handler whose command word occurs in the
/// request line.
///
/// One client at a time: a newer connection drops one that has sent nothing yet. setWholeRequests() changes that. Lives
/// on the host's thread, which needs an event loop and calls everything here. When there are several servers, only the
/// newest one receives the list of discovered devices.
class BIOPROCESSING_EXPORT DataServer : public QObject, public Colleague
{
    Q_OBJECT
public:
    static constexpr quint16 kPort = 336;

    /// Listens on all interfaces, port 336.
    /// @param state  the host's; must outlive the server
    explicit DataServer(server_state &state, QObject *parent = nullptr);
    /// @param port  0 for any free one
    DataServer(server_state &state, const QHostAddress &address, quint16 port, QObject *parent = nullptr);
    ~DataServer() override;

    bool isListening() const;
    /// 0 while not listening.
    quint16 serverPort() const;
    /// The system's error message while it does not listen; empty while it does.
    QString listenError() const;

    /// How requests are read. Off (the default): one client at a time; what one read returns is its request, a body
    /// that comes later is ignored, and every client is answered. On: many clients at a time; each request is read to
    /// the end of the announced body (see bp::RequestReader), answers announce their length in bytes instead of UTF-16
    /// units, and requests of web pages are rejected (see bp::BrowserGuard). Applies to connections from now on.
    void setWholeRequests(bool on);
    /// Origins of web pages that may use the service while whole requests are read; "*" for all.
    void setAllowedOrigins(const QStringList &origins);

    /// @param mediator  borrowed
    void setMediator(ServerMediator *mediator);
    /// Settings of an acquisition that begins. Clears all data; samples are stored again from the next command on.
    void setServerSettings(QSharedPointer<Montage> montage, const AmplifierInfo &device, int spectrumNormalLength);
    /// Device and montage have changed: clears the data of the earlier ones.
    void openDevice(const AmplifierInfo &device, QSharedPointer<Montage> montage);
    /// The algorithms that "getalgorithms" shows. The model calls it when it is sent "getAlgorithms".
    void setParamList(const std::vector<UnitParams> &params);
    /// The rhythms that are calculated from now on, by their descriptors; clears the values of others.
    void updateRhythmList(const std::vector<UnitParams> &params);
    /// The parameters of the last "updateParam" or "addNewAlgorithm".
    UnitParams getCurrParams() const { return m_currentParams; }
    /// The algorithm of the last "addNewAlgorithmByName" or "removeAlgorithm".
    QString getAlgorhtyhmName() const { return m_algorithmName; }
    QString getMontageName() const { return m_montageName; }
    void setSpectrumNormalLength(unsigned length);
    /// Sends the alpha and beta values to the text sockets too.
    void setTcpTextFlag(bool enabled);
    void resetAllBuffers();

    /// @param count   valid leading samples of a planar block over the channels of the current montage. Ignored while
    ///                no client has been active.
    void appendNewData(int count, const float *samples);
    /// @param values  NaN for a channel without a value; the first other value goes to the text socket
    void appendNewRhythm(const QString &name, unsigned count, const float *values);
    /// @param count  channels × points
    void appendNewSpectrum(unsigned count, const float *values);
    void setLastState(unsigned state);
    unsigned getlastState() const;

    void notify(Colleague *sender, QString message) override;

    /// Rejects the request whose signal is being emitted or whose message is being handled: the client gets the reason
    /// as the error. For slots that are connected directly, and for the model. The first reason counts. Does nothing at
    /// other times, or with an empty reason.
    void refuse(const QString &reason);

    /// The request whose signal is being emitted or whose message is being handled; null at other times.
    const RequestExchange *currentExchange() const { return m_exchange; }

    /// The bytes that a request is answered with, as if it had come over a connection.
    QByteArray answer(const QString &requestText);

    /// The text of one read of the client, which is waited for half a second at most; empty without a client.
    QString tryReadData();
    /// The first line, or the whole text when it has no line break behind its first character.
    static QString requestLine(const QString &text);

signals:
    void removeProfile(QString in_name);
    void addNewProfile(QString in_name, QString in_type);
    void writeStateFile(int in_state);
    void removeStateFile(int in_state);
    void setCurrentProfile(QString in_name);
    void startDeviceWithMontage(AmplifierInfo info, QSharedPointer<Montage> in_Montage);
    void startDevice(AmplifierInfo info, bool autoMontage);
    void setDiscoverDevice(QList<AmplifierInfo> &in_list);
    /// A client chose the montage, by the name of its file or by a description.
    void currentMontageChanged(QSharedPointer<Montage> montage);

public slots:
    void readyReadData();
    void takeNewConnection();
    void clientDisconnected();
    void setNewDevices(QList<AmplifierInfo> &in_list);

private:
    void resetSamples();

    struct Message;
    void tellModel(const Message &message);
    void tellModelParams(const Message &message);
    void tellModelName(const Message &message);
    static void deviceParametrs(RequestExchange &exchange);
    void setDeviceParametrs(RequestExchange &exchange);
    void startDeviceWithMontage(RequestExchange &exchange);
    void setCurrentMontage(RequestExchange &exchange);

    static QPointer<DataServer> s_listener; ///< receives the list of discovered devices

    server_state &m_state;
    bp::HttpServer *m_http; ///< child
    ServerMediator *m_mediator = nullptr;
    RequestExchange *m_exchange = nullptr; ///< see currentExchange()
    std::unique_ptr<SampleBuffer> m_samples;
    std::unique_ptr<LastValues> m_last;
    QList<AmplifierInfo> m_devices; ///< as last discovered
    std::vector<std::unique_ptr<ProcessRequest>> m_handlers; ///< in the order in which they are asked
    std::vector<UnitParams> m_algorithms;
    QString m_algorithmName;
    UnitParams m_currentParams;
    QString m_montageName;
    std::atomic<bool> m_textEnabled{false};
    TcpTextSocket *m_textSocket; ///< child
};
