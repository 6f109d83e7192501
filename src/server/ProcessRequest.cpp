#include "server/ProcessRequest.h"

#include "server/HalvinRespPacket.h"
#include "server/ServerMediator.h"
#include "server/http/HttpReply.h"
#include "server/http/JsonBody.h"

#include <QJsonDocument>

Request::Request(const QString &request)
    : text(request)
    , body(bp::jsonObject(HalvinRespPacket::getContent(request)))
{
}

ProcessRequest::ProcessRequest(server_state &state, std::vector<Command> commands)
    : m_state(state)
    , m_created(QDateTime::currentDateTime())
    , m_commands(std::move(commands))
{
}

ProcessRequest::~ProcessRequest() = default;

void ProcessRequest::notify(Colleague *, QString)
{
}

bool ProcessRequest::matchRequest(const QString &requestLine)
{
    for (const Command &command : m_commands) {
        if (requestLine.contains(command.word)) {
            m_matched = &command;
            return true;
        }
    }
    return false;
}

void ProcessRequest::handleRequest()
{
    m_exchange = RequestExchange();
    if (m_matched == nullptr) {
        error(QStringLiteral("Unknown commands"));
        return;
    }
    for (const Precondition &precondition : m_matched->preconditions) {
        if (!precondition.holds(m_state)) {
            error(QLatin1String(precondition.refusal));
            return;
        }
    }
    (this->*m_matched->operation)();
}

QByteArray ProcessRequest::answer(const Request &request)
{
    m_request = request;
    m_reply.clear();
    handleRequest();
    return std::exchange(m_reply, QByteArray());
}

RequestExchange *ProcessRequest::exchangeOf(Colleague *sender)
{
    auto *request = dynamic_cast<ProcessRequest *>(sender);
    return request != nullptr ? &request->m_exchange : nullptr;
}

void ProcessRequest::sendOk(QTcpSocket *client, const QString &body)
{
    bp::sendAndClose(client, bp::successReply(body, m_lengthUnit));
}

void ProcessRequest::sendError(QTcpSocket *client, const QString &messageOrJson)
{
    bp::sendAndClose(client, bp::errorReply(messageOrJson, m_lengthUnit));
}

void ProcessRequest::ok(const QString &body)
{
    m_reply = bp::successReply(body, m_lengthUnit);
}

void ProcessRequest::error(const QString &message)
{
    m_reply = bp::errorReply(message, m_lengthUnit);
}

void ProcessRequest::ok(const QJsonObject &body)
{
    ok(QString::fromUtf8(QJsonDocument(body).toJson(QJsonDocument::Compact)));
}

void ProcessRequest::okAscii(const QByteArray &body)
{
    m_reply = bp::successReplyAscii(body);
}

bool ProcessRequest::askServer(const char *message)
{
    if (m_mediator != nullptr) {
        m_mediator->setMessageToServer(this, QString::fromLatin1(message));
    }
    return isDone();
}

bool ProcessRequest::askModel(const char *message)
{
    if (m_mediator != nullptr) {
        m_mediator->setMessageToHalvinModel(this, QString::fromLatin1(message));
    }
    return isDone();
}

/// False when the receiver of a message has rejected it; the client then gets the reason, which may repeat what it
/// sent. Errors are not escaped later.
bool ProcessRequest::isDone()
{
    if (m_exchange.refusal.isEmpty()) {
        return true;
    }
    const QByteArray list = QJsonDocument(QJsonArray{m_exchange.refusal}).toJson(QJsonDocument::Compact);
    error(QString::fromUtf8(list.mid(2, list.size() - 4))); // without [" and "]
    return false;
}

bool ProcessRequest::askServerForEach(const char *message)
{
    for (const RequestExchange::Entry &entry : m_exchange.list) {
        m_exchange.name = entry.name;
        m_exchange.type = entry.type;
        m_exchange.descriptor = entry.descriptor;
        if (!askServer(message)) {
            return false;
        }
        ++m_exchange.listIndex;
    }
    return true;
}

QString ProcessRequest::text(const char *key) const
{
    return body().value(QLatin1String(key)).toString();
}

double ProcessRequest::now()
{
    return static_cast<double>(QDateTime::currentMSecsSinceEpoch());
}
