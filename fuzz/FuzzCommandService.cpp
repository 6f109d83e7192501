#include "algorithms/ParamFactory.h"
#include "common/BPCommon.h"
#include "montage/Montage.h"
#include "montage/MontageXmlReader.h"
#include "server/DataServer.h"
#include "server/ProcessRequest.h"
#include "server/ServerMediator.h"
#include "server/http/BrowserGuard.h"
#include "server/http/HttpRequest.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

constexpr std::array<const char *, 33> kCommands{"getinfo",
                                                 "getdata",
                                                 "getstates",
                                                 "getlaststate",
                                                 "setstate",
                                                 "bci",
                                                 "getspectrum",
                                                 "getlastrhythm",
                                                 "writestatefile",
                                                 "removestatefile",
                                                 "starttraining",
                                                 "stoptraining",
                                                 "gethalvinstatus",
                                                 "setcurrentprofile",
                                                 "getprofilelist",
                                                 "startwritefile",
                                                 "stopwritefile",
                                                 "discoverdevices",
                                                 "getdeviceparametrs",
                                                 "setdeviceparametrs",
                                                 "startdevice",
                                                 "stopdevice",
                                                 "getmontagelist",
                                                 "getmontageinfo",
                                                 "setmontagename",
                                                 "addnewprofile",
                                                 "removeprofile",
                                                 "getalgorithms",
                                                 "getalgorithmparams",
                                                 "setalgorithmparams",
                                                 "removealgorithm",
                                                 "addnewalgorithm",
                                                 "removeallrecords"};

/// The first byte of an input.
enum Flag : unsigned {
    Reading = 1,
    Bci = 2,
    Writing = 4,
    WritingState = 8,
    WithData = 16, ///< states recorded, and samples, a spectrum, rhythms and states to hand out
    Framed = 128 ///< the second byte chooses the command and the rest is its body; otherwise the rest is the request
};

/// The algorithm side: knows two profiles and two algorithms.
class Model : public Colleague
{
public:
    explicit Model(DataServer &server)
        : m_server(server)
        , m_algorithms{ParamFactory::makeCustomProperty(QStringLiteral("SpectrumOnline")),
                       ParamFactory::makeRhythmAlpha(QString())}
    {
    }

    void notify(Colleague *sender, QString message) override
    {
        if (message == QLatin1String("getAlgorithms")) {
            m_server.setParamList(m_algorithms);
        } else if (RequestExchange *exchange = ProcessRequest::exchangeOf(sender)) {
            exchange->profiles = QStringList{QStringLiteral("rest"), QStringLiteral("hands")};
        }
    }

private:
    DataServer &m_server;
    std::vector<UnitParams> m_algorithms;
};

/// The service with two channels, without a socket's help.
class Service
{
public:
    Service()
        : m_montage(QSharedPointer<Montage>::create(montageJson()))
        , m_device(QStringLiteral("Device"), QString(), QStringLiteral("1"), 2, {250.0f})
        , m_server(silenced(m_state), QHostAddress(QHostAddress::LocalHost), 0)
        , m_model(m_server)
    {
        m_mediator.setHalvinModel(&m_model);
        m_server.setMediator(&m_mediator);
        m_state.montageFolder = m_folder.path();
        MontageXmlReader().writeMontageToFile(m_folder.filePath(QStringLiteral("two.xml")), m_montage);
        QList<AmplifierInfo> devices{m_device};
        m_server.setNewDevices(devices);
    }

    void run(unsigned flags, const QString &request)
    {
        m_server.setServerSettings(m_montage, m_device, 129);
        m_state.readMode = (flags & Reading) != 0;
        m_state.bciMode = (flags & Bci) != 0;
        m_state.writingFile = (flags & Writing) != 0;
        m_state.writingStateFile = (flags & WritingState) != 0;
        m_state.recordedStates = (flags & WithData) != 0 ? QList<int>{1, 2} : QList<int>{};
        m_state.clientActive = true;
        if ((flags & WithData) != 0) {
            constexpr std::array<float, 6> values{-1.5f, 0.0f, 1e-7f, 20000.0f, 1e30f, 3.14159f};
            m_server.appendNewData(6, values.data());
            m_server.appendNewSpectrum(6, values.data());
            m_server.appendNewRhythm(QStringLiteral("alpha"), 2, values.data());
            m_server.setLastState(3);
        }
        check(m_server.answer(request));
    }

private:
    static QJsonObject montageJson()
    {
        return {{QStringLiteral("chan_list"),
                 QJsonArray{QJsonObject{{QStringLiteral("name"), QStringLiteral("C3")}},
                            QJsonObject{{QStringLiteral("name"), QStringLiteral("C4")}}}}};
    }

    static server_state &silenced(server_state &state)
    {
        for (int event = 0; event < BPCommon::kLogEventCount; ++event) {
            BPCommon::setLogMode(static_cast<BPCommon::LogEvent>(event), false);
        }
        return state;
    }

    /// Every answer has one of the two heads, and announces the length of what follows.
    static void check(const QByteArray &answer)
    {
        const QString text = QString::fromUtf8(answer.constData(), answer.size()); // NUL and all
        const int blankLine = text.indexOf(QLatin1String("\r\n\r\n"));
        const bool isAnswer = text.startsWith(QLatin1String("HTTP/1.1 200 OK\r\n"))
            || text.startsWith(QLatin1String("HTTP/1.1 400 Bad Request\r\n"));
        const QString length = QStringLiteral("Content-Length: %1\r\n").arg(text.size() - blankLine - 4);
        if (!isAnswer || blankLine < 0 || !text.leftRef(blankLine + 2).contains(length)) {
            std::abort();
        }
    }

    server_state m_state;
    QTemporaryDir m_folder;
    QSharedPointer<Montage> m_montage;
    AmplifierInfo m_device;
    ServerMediator m_mediator;
    DataServer m_server;
    Model m_model;
};

/// What arrives over a connection while whole requests are read; the handlers' form of it is hardly longer.
void checkHead(const QByteArray &bytes)
{
    const bp::RequestHead head = bp::parseHead(bytes).value_or(bp::parseBareHead(bytes));
    static const bp::BrowserGuard guard;
    static_cast<void>(guard.refusal(head, QHostAddress(QHostAddress::LocalHost)));
    if (bp::plainRequest(head, bytes).size() > bytes.size() + 64) {
        std::abort();
    }
}

QString requestFrom(unsigned flags, const char *text, std::size_t size)
{
    if ((flags & Framed) == 0) {
        return QString::fromUtf8(text, static_cast<int>(size));
    }
    if (size == 0) {
        return QString();
    }
    const QString body = QString::fromUtf8(text + 1, static_cast<int>(size) - 1);
    const char *command = kCommands[static_cast<unsigned char>(text[0]) % kCommands.size()];
    return QStringLiteral("POST /%1 HTTP/1.1\r\nContent-Length: %2\r\n\r\n")
               .arg(QLatin1String(command))
               .arg(body.size())
        + body;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static int argc = 1;
    static char name[] = "fuzz_command_service";
    static char *argv[] = {name, nullptr};
    static const QCoreApplication application(argc, argv);
    static Service service;
    if (size > 0) {
        const auto *text = reinterpret_cast<const char *>(data);
        checkHead(QByteArray(text + 1, static_cast<int>(size - 1)));
        service.run(data[0], requestFrom(data[0], text + 1, size - 1));
    }
    return 0;
}
