#pragma once

#include "common/BPExport.h"
#include "server/HalvinRespPacket.h"

#include <QByteArray>
#include <QObject>
#include <QString>

class QTcpSocket;

/// Client of the command service: one method per command, one connection per request, one request at a time.
///
/// Each method sends its request and waits until it is written and an answer begins, two seconds at most for each; the
/// answer comes through the signals, most often before the method returns. A large "getdata" answer needs the event
/// loop of the client's thread. A method returns false, and nothing is emitted, when the service cannot be reached or
/// does not answer in time; the connection is closed then.
class BIOPROCESSING_EXPORT HalvinHTTPQtClient : public QObject
{
    Q_OBJECT
public:
    HalvinHTTPQtClient(const QString &host, unsigned long long port, QObject *parent = nullptr);
    ~HalvinHTTPQtClient() override;

    bool makeGetInfo();
    bool makeGetData();
    bool makeGetStates();
    bool makeGetLastState();
    bool makeGetSpectrum();
    bool makeGetLastRithm();
    /// @param state  1 to 8
    bool makeSetWriteStateFile(int state);
    bool makeSetRemoveStateFile(int state);
    bool makeGetHalvinStatus();
    bool makeGetProfilesList();
    bool makeStartWriteFile();
    bool makeStopWriteFile();
    bool makeDiscoverDevice();
    bool makeStopDevice();
    bool makeGetMontageList();
    bool makeGetAlgorhythmList();
    bool makeRemoveAllRecords();

    /// These send a JSON body.
    bool makeSetCurrentProfile(const QString &json);
    bool makeGetDeviceParams(const QString &json);
    bool makeSetDeviceParams(const QString &json);
    bool makeStartDevice(const QString &json);
    bool makeGetMontageInfo(const QString &json);
    bool makeSetMontageInfo(const QString &json);
    bool makeAddNewProfile(const QString &json);
    bool makeRemoveProfile(const QString &json);
    bool makeSetAlgorhythmParam(const QString &json);
    bool makeRemoveAlgorhythms(const QString &json);
    bool makeAddNewAlgorhythm(const QString &json);
    /// Compatibility: sends "getalgorithmparams" in spite of its name, because programs in the field call it so.
    bool makeAddNewAlgorhythmParam(const QString &json);
    bool makeSetCurrentState(const QString &json);

    /// Sends a request as it stands.
    bool connectToHost(const QByteArray &request);
    /// Sends a command without a body.
    bool sendGetRequest(const char *command);
    /// Sends a command with a body.
    /// @param out  gets the request
    bool sendGetRequestWithContent(const char *command, const QString &body, QByteArray &out);

    // The steps of a request and its answer; the methods above call them.

    /// Drops the earlier connection and its answer, and makes a new socket.
    /// @return false when the port is invalid
    bool prepeareSocket();
    /// The bytes of a request without a body.
    static void setRequestString(const char *command, QByteArray &out);
    /// Reads the length that an answer announces.
    void getContentLength(const QString &text);
    /// Ends the connection and emits the answer.
    void endConnection(const QString &response);

signals:
    void takePacket(HalvinRespPacket in_packet);
    void takeNewData(QString in_req, QString in_resp);

public slots:
    void readyReadData();

private:
    bool get(request_type type, const char *command);
    bool post(request_type type, const char *command, const QString &body);
    void readRestOfData();
    void finishAtDisconnection();
    void giveUp();

    quint64 m_port;
    QString m_host;
    QString m_requestText;
    int m_expected = 0; ///< length of the body that a "getdata" answer announced; 0 for none
    int m_received = 0; ///< characters of that answer so far, with its header
    QString m_response;
    request_type m_requestType = request_none;
    bool m_isAnswered = false; ///< the last request
    QTcpSocket *m_socket = nullptr; ///< child
};
