#include "Console.h"
#include "commands/CommandRun.h"
#include "commands/Commands.h"
#include "commands/Refusal.h"
#include "server/HalvinHTTPQtClient.h"

#include <QCommandLineParser>
#include <QEventLoop>
#include <QJsonDocument>
#include <QTimer>

namespace {

constexpr int kAnswerTimeoutMs = 30000;

quint16 portFrom(const QString &text)
{
    bool isNumber = false;
    const uint port = text.toUInt(&isNumber);
    if (!isNumber || port == 0 || port > 65535) {
        refuseUsage(QStringLiteral("--port takes a number between 1 and 65535, not \"%1\".").arg(text));
    }
    return static_cast<quint16>(port);
}

void checkBody(const QString &json)
{
    QJsonParseError error;
    QJsonDocument::fromJson(json.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError) {
        refuseUsage(
            QStringLiteral("The body is no JSON: %1 at character %2.").arg(error.errorString()).arg(error.offset));
    }
}

/// The answer; empty when none came.
HalvinRespPacket ask(const QString &address, quint16 port, const QString &command, const QString &json)
{
    HalvinHTTPQtClient client(address, port);
    HalvinRespPacket answer;
    QEventLoop loop;
    QObject::connect(&client, &HalvinHTTPQtClient::takePacket, &loop, [&answer, &loop](const HalvinRespPacket &packet) {
        answer = packet;
        loop.quit();
    });
    const QByteArray word = command.toUtf8();
    QByteArray request;
    const bool isSent = json.isEmpty() ? client.sendGetRequest(word.constData())
                                       : client.sendGetRequestWithContent(word.constData(), json, request);
    if (isSent && answer.getResponse().isEmpty()) {
        QTimer::singleShot(kAnswerTimeoutMs, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return answer;
}

/// The message of an error. It is not escaped, so it need not be JSON: the wrapping is taken off by hand.
QString messageOf(const HalvinRespPacket &answer)
{
    QString text = answer.contentToJson().value(QLatin1String("error")).toString();
    const QString &content = answer.getContent();
    const QLatin1String begin("{\"error\":\"");
    const QLatin1String end("\"}");
    if (text.isEmpty()) {
        text = content.startsWith(begin) && content.endsWith(end)
            ? content.mid(begin.size(), content.size() - begin.size() - end.size())
            : content;
    }
    return text.replace(QLatin1String("\r\n"), QLatin1String(": ")).simplified();
}

Console::ExitStatus show(const HalvinRespPacket &answer)
{
    if (answer.isSuccessful()) {
        Console::print(answer.getContent());
        return Console::Success;
    }
    const QString reason = messageOf(answer);
    Console::error(reason.isEmpty() ? QStringLiteral("The service refused, and does not say why.")
                                    : QStringLiteral("The service refused: %1").arg(reason));
    return Console::Failure;
}

void addOptions(QCommandLineParser &parser)
{
    parser.setApplicationDescription(QStringLiteral("Sends one command to a running service and prints its answer."));
    parser.addPositionalArgument(QStringLiteral("COMMAND"),
                                 QStringLiteral("the command word, \"getinfo\" or \"writestatefile/3\" for example"));
    parser.addPositionalArgument(QStringLiteral("JSON"), QStringLiteral("its body, where the command takes one"),
                                 QStringLiteral("[JSON]"));
    parser.addOption({QStringLiteral("address"), QStringLiteral("address of the service"), QStringLiteral("A"),
                      QStringLiteral("127.0.0.1")});
    parser.addOption(
        {QStringLiteral("port"), QStringLiteral("port of the service"), QStringLiteral("N"), QStringLiteral("336")});
}

Console::ExitStatus request(const QCommandLineParser &parser)
{
    const QStringList words = parser.positionalArguments();
    if (words.isEmpty() || words.size() > 2) {
        refuseUsage(QStringLiteral("Say what to ask: bioprocessing request COMMAND [JSON]."));
    }
    const QString address = parser.value(QStringLiteral("address"));
    const quint16 port = portFrom(parser.value(QStringLiteral("port")));
    if (words.size() == 2) {
        checkBody(words[1]);
    }
    const HalvinRespPacket answer = ask(address, port, words[0], words.value(1));
    if (answer.getResponse().isEmpty()) {
        refuse(QStringLiteral("No answer from %1 port %2: is \"bioprocessing serve\" running there?")
                   .arg(address)
                   .arg(port));
    }
    return show(answer);
}

} // namespace

int runRequest(const QStringList &arguments)
{
    return runCommand(arguments, addOptions, request);
}
