#include "Console.h"
#include "Interrupt.h"
#include "commands/CommandRun.h"
#include "commands/Commands.h"
#include "commands/Refusal.h"
#include "server/DataServer.h"
#include "server/TcpTextSocket.h"
#include "service/Service.h"

#include <QCommandLineParser>
#include <QDir>
#include <QEventLoop>
#include <QStandardPaths>
#include <QUrl>

namespace {

constexpr int kMaxStateSeconds = 3600;

void addOptions(QCommandLineParser &parser)
{
    const auto add = [&parser](const char *name, const QString &text, const char *value) {
        parser.addOption({QString::fromLatin1(name), text, QString::fromLatin1(value)});
    };
    parser.setApplicationDescription(QStringLiteral("Answers the command service's requests until Ctrl-C."));
    add("port", QStringLiteral("TCP port, 0 for any free one; %1 unless said.").arg(DataServer::kPort), "N");
    add("address", QStringLiteral("Address to listen on; 127.0.0.1, this computer only, unless said."), "A");
    add("data", QStringLiteral("Folder of profiles, montages and recordings; the user's own data unless said."),
        "FOLDER");
    add("state-seconds", QStringLiteral("Length of a state file; 10 unless said."), "N");
    add("device-search", QStringLiteral("Look for devices always, or only while none acquires, unless said."),
        "always|idle");
    add("playback",
        QStringLiteral(
            "Play this EDF or BDF recording as the device \"Playback\"; its recordings take over annotations, "
            "start time and patient, an outlet the samples alone."),
        "FILE");
    add("lsl", QStringLiteral("Stream through a Lab Streaming Layer outlet of this name."), "NAME");
    parser.addOption({QStringLiteral("text-sockets"),
                      QStringLiteral("Send alpha and beta as text lines to the ports %1 and %2 of this computer.")
                          .arg(TcpTextSocket::kAlphaPort)
                          .arg(TcpTextSocket::kBetaPort)});
    add("allow-origin", QStringLiteral("Let web pages of this origin use the service, * for all (repeatable)."),
        "ORIGIN");
}

QStringList allowedOrigins(const QCommandLineParser &parser)
{
    const QStringList origins = parser.values(QStringLiteral("allow-origin"));
    for (const QString &origin : origins) {
        const QUrl url(origin);
        const bool isOrigin = !url.scheme().isEmpty() && !url.host().isEmpty() && url.path().size() <= 1;
        if (!isOrigin && origin != QLatin1String("*") && origin != QLatin1String("null")) {
            refuseUsage(QStringLiteral("--allow-origin takes an origin, such as http://localhost:8000, not \"%1\".")
                            .arg(origin));
        }
    }
    return origins;
}

int number(const QCommandLineParser &parser, const char *option, int standard, int least, int most)
{
    const QString name = QString::fromLatin1(option);
    if (!parser.isSet(name)) {
        return standard;
    }
    bool isNumber = false;
    const int value = parser.value(name).toInt(&isNumber);
    if (!isNumber || value < least || value > most) {
        refuseUsage(QStringLiteral("--%1 takes a number from %2 to %3, not \"%4\".")
                        .arg(name)
                        .arg(least)
                        .arg(most)
                        .arg(parser.value(name)));
    }
    return value;
}

QHostAddress address(const QCommandLineParser &parser)
{
    const QString text = parser.value(QStringLiteral("address"));
    if (!parser.isSet(QStringLiteral("address")) || text == QLatin1String("localhost")) {
        return QHostAddress(QHostAddress::LocalHost);
    }
    const QHostAddress parsed(text);
    if (parsed.isNull()) {
        refuseUsage(QStringLiteral("--address takes an IP address, such as 127.0.0.1, not \"%1\".").arg(text));
    }
    return parsed;
}

bool searchesAlways(const QCommandLineParser &parser)
{
    const QString text = parser.value(QStringLiteral("device-search"));
    if (parser.isSet(QStringLiteral("device-search")) && text != QLatin1String("always")
        && text != QLatin1String("idle")) {
        refuseUsage(QStringLiteral("--device-search takes always or idle, not \"%1\".").arg(text));
    }
    return text == QLatin1String("always");
}

ServiceOptions parseOptions(const QCommandLineParser &parser)
{
    if (!parser.positionalArguments().isEmpty()) {
        refuseUsage(
            QStringLiteral("serve takes options only, not \"%1\".").arg(parser.positionalArguments().constFirst()));
    }
    ServiceOptions options;
    options.address = address(parser);
    options.port = static_cast<quint16>(number(parser, "port", DataServer::kPort, 0, 65535));
    options.stateSeconds = number(parser, "state-seconds", options.stateSeconds, 1, kMaxStateSeconds);
    options.searchWhileAcquiring = searchesAlways(parser);
    options.playbackFile = parser.value(QStringLiteral("playback"));
    options.lslName = parser.value(QStringLiteral("lsl"));
    options.textSockets = parser.isSet(QStringLiteral("text-sockets"));
    options.allowedOrigins = allowedOrigins(parser);
    const QString folder = parser.value(QStringLiteral("data"));
    options.dataFolder = QDir::cleanPath(QDir().absoluteFilePath(
        folder.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) : folder));
    return options;
}

Console::ExitStatus serve(const QCommandLineParser &parser)
{
    const ServiceOptions options = parseOptions(parser);
    Interrupt interrupt;
    Service service(options);
    QEventLoop loop;
    const QString place = QStringLiteral("%1:%2").arg(options.address.toString()).arg(service.port());
    QObject::connect(&service, &Service::ready, &loop, [&options, place] {
        Console::print(QStringLiteral("listening on %1, data in %2").arg(place, options.dataFolder));
    });
    QObject::connect(&service, &Service::stopped, &loop, &QEventLoop::quit, Qt::QueuedConnection);
    QObject::connect(&interrupt, &Interrupt::interrupted, &service, &Service::stop);
    if (!options.address.isLoopback()) {
        Console::error(QStringLiteral("%1 is no address of this computer alone: everybody on the network may drive the "
                                      "device.")
                           .arg(options.address.toString()));
    }
    loop.exec();
    return Console::Success;
}

} // namespace

int runServe(const QStringList &arguments)
{
    return runCommand(arguments, addOptions, serve);
}
