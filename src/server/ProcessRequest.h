#pragma once

#include "common/BPExport.h"
#include "server/Colleague.h"
#include "server/RequestExchange.h"
#include "server/server_state.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>

#include <utility>
#include <vector>

class QTcpSocket;
class ServerMediator;

namespace bp {

/// What a length is announced in. They differ for texts beyond ASCII. Clients in the field compare units; a client that
/// goes by the standard loses the end of a text unless bytes are announced.
enum class LengthIn { Utf16Units, Bytes };

} // namespace bp

/// A client's request.
struct Request
{
    explicit Request(const QString &request);

    QString text; ///< as sent: request line, head and body
    QJsonObject body; ///< top-level object of the body; empty when there is none
};

/// Base of the request handlers: finds the command word in a request line, checks the preconditions of the command, and
/// answers once.
///
/// A handler is used for one request after another, on the server's thread.
class BIOPROCESSING_EXPORT ProcessRequest : public Colleague
{
public:
    using Operation = void (ProcessRequest::*)();
    /// What the server's state must be, or else the command is rejected.
    struct Precondition
    {
        bool (*holds)(const server_state &state);
        const char *refusal; ///< the error that the client gets
    };
    /// A command word, its preconditions in the order in which they are checked, and what answers it.
    struct Command
    {
        QString word;
        Operation operation;
        std::vector<Precondition> preconditions;
    };

    ProcessRequest(server_state &state, std::vector<Command> commands);
    ~ProcessRequest() override;

    void notify(Colleague *sender, QString message) override;
    /// Whether one of the command words occurs in the line, in the order of the list; remembers the first.
    virtual bool matchRequest(const QString &requestLine);
    /// Answers the matched command.
    virtual void handleRequest();

    void setMediator(ServerMediator *mediator) { m_mediator = mediator; }
    /// The bytes that answer a request whose line has matched.
    QByteArray answer(const Request &request);
    /// Of the answers; UTF-16 units unless set.
    void setLengthUnit(bp::LengthIn unit) { m_lengthUnit = unit; }

    /// The exchange of a sender; null when it is not a request handler.
    static RequestExchange *exchangeOf(Colleague *sender);

    /// Sends a success, or an error (see bp::errorReply()), to a client and closes the connection; null: does nothing.
    void sendOk(QTcpSocket *client, const QString &body);
    void sendError(QTcpSocket *client, const QString &messageOrJson);

protected:
    /// One entry of a handler's list of commands.
    template <class Handler>
    static Command on(const char *word, void (Handler::*operation)(), std::vector<Precondition> preconditions = {})
    {
        return {QString::fromLatin1(word), static_cast<Operation>(operation), std::move(preconditions)};
    }

    void ok(const QString &body = QString());
    void ok(const QJsonObject &body);
    /// For long bodies of ASCII only.
    void okAscii(const QByteArray &body);
    void error(const QString &message);

    /// Sends a message. False when the receiver rejected it, which has then been answered.
    bool askServer(const char *message);
    bool askModel(const char *message);
    /// The same for each entry of the exchange's list.
    bool askServerForEach(const char *message);

    /// Top-level object of the body; empty when there is none.
    const QJsonObject &body() const { return m_request.body; }
    /// A text of the body; empty when it is missing or not a text.
    QString text(const char *key) const;
    /// The command word that matched.
    const QString &command() const { return m_matched->word; }
    const QString &requestText() const { return m_request.text; }
    const server_state &state() const { return m_state; }
    static double now();

    RequestExchange m_exchange;

private:
    bool isDone();

    server_state &m_state;
    ServerMediator *m_mediator = nullptr;
    QDateTime m_created; ///< when the handler was made
    std::vector<Command> m_commands;
    const Command *m_matched = nullptr; ///< null until a request line has matched
    Request m_request{QString()}; ///< the one that is being answered
    QByteArray m_reply; ///< to it
    bp::LengthIn m_lengthUnit = bp::LengthIn::Utf16Units;
};
