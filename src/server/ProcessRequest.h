#pragma once

#include "common/BPExport.h"
#include "server/Colleague.h"
#include "server/RequestExchange.h"
#include "server/server_state.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QPointer>
#include <QString>

#include <vector>

class QTcpSocket;
class ServerMediator;

namespace bp {

/// What a length is announced in. They differ for texts beyond ASCII. Clients in the field compare units; a client that
/// goes by the standard loses the end of a text unless bytes are announced.
enum class LengthIn { Utf16Units, Bytes };

} // namespace bp

/// Base of the request handlers: finds the command word in a request line, checks what the command asks of the server's
/// state (see CommandTable.h), and answers once.
///
/// A handler is used for one request after another, on the server's thread.
class BIOPROCESSING_EXPORT ProcessRequest : public Colleague
{
public:
    using Operation = void (ProcessRequest::*)();
    /// A command word and what answers it.
    struct Command
    {
        QString word;
        Operation operation;
    };

    ProcessRequest(server_state &state, std::vector<Command> commands);
    ~ProcessRequest() override;

    void notify(Colleague *sender, QString message) override;
    /// Whether one of the command words occurs in the line, in the order of the list; remembers the first.
    virtual bool matchRequest(const QString &requestLine);
    /// Answers the matched command.
    virtual void handleRequest();

    void setMediator(ServerMediator *mediator) { m_mediator = mediator; }
    /// @param client  borrowed; null only keeps the answer for lastReply()
    void setClient(QTcpSocket *client);
    void setRequestText(const QString &text) { m_text = text; }
    /// Of the answers; UTF-16 units unless set.
    void setLengthUnit(bp::LengthIn unit) { m_lengthUnit = unit; }
    /// The bytes of the last answer.
    const QByteArray &lastReply() const { return m_reply; }

    RequestExchange &exchange() { return m_exchange; }
    /// The exchange of a sender; null when it is no request.
    static RequestExchange *exchangeOf(Colleague *sender);

    /// The bytes of a success, and of an error (see bp::errorReply()), sent as bp::sendAndClose() does.
    void sendOk(QTcpSocket *client, const QString &body);
    void sendError(QTcpSocket *client, const QString &messageOrJson);

protected:
    void ok(const QString &body = QString());
    void ok(const QJsonObject &body);
    /// For long bodies of ASCII only.
    void okAscii(const QByteArray &body);
    void error(const QString &message);

    /// Passes a message on. False when somebody refused, which has then been answered.
    bool askServer(const char *message);
    bool askModel(const char *message);
    /// The same for each entry of the exchange's list.
    bool askServerForEach(const char *message);

    /// Top-level object of the body; empty when there is none.
    const QJsonObject &body() const { return m_body; }
    /// A text of the body; empty when it is missing or no text.
    QString text(const char *key) const;
    /// The command word that matched.
    const QString &command() const { return m_matched->word; }
    const QString &requestText() const { return m_text; }
    const server_state &state() const { return m_state; }
    static double now();

    RequestExchange m_exchange;

private:
    bool isDone();
    void reply(QTcpSocket *client, const QByteArray &bytes);

    server_state &m_state;
    ServerMediator *m_mediator = nullptr;
    QPointer<QTcpSocket> m_client; ///< may go while the command is carried out
    QDateTime m_created; ///< when the handler was made
    std::vector<Command> m_commands;
    const Command *m_matched;
    QString m_text;
    QJsonObject m_body;
    QByteArray m_reply;
    bp::LengthIn m_lengthUnit = bp::LengthIn::Utf16Units;
};
