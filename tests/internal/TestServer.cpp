#include "devices/DeviceManager.h"
#include "montage/Montage.h"
#include "montage/MontageXmlReader.h"
#include "server/DataServer.h"
#include "server/HalvinHTTPQtClient.h"
#include "server/ProcessRequest.h"
#include "server/ServerMediator.h"
#include "server/handlers/SampleBuffer.h"
#include "server/http/JsonBody.h"
#include "server/http/JsonNumbers.h"
#include "support/FakeAmplifier.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMetaMethod>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

#include <functional>
#include <random>

namespace {

enum Flag : unsigned {
    Idle = 0,
    Reading = 1,
    Bci = 2,
    Writing = 4,
    WritingState = 8,
    StatesRecorded = 16,
    NoAlgorithms = 32,
    WithData = 64,
};

/// Stands for every time stamp, which has as many digits until the year 2286.
const QByteArray kTime = "1234567890123";

/// Parameters with one entry, and the entry as clients see it.
UnitParams oneParameter(const QString &name, const QString &descriptor)
{
    custom_param rate;
    rate.key = QStringLiteral("rate");
    rate.label = QStringLiteral("Rate");
    rate.valueType = custom_param::ValueReal;
    rate.controlType = custom_param::ControlReal;
    rate.minimum = QStringLiteral("100");
    rate.maximum = QStringLiteral("1000");
    rate.defaultValue = QStringLiteral("250");
    UnitParams params;
    params.setParamName(name);
    params.setParamDescriptor(descriptor);
    params.push_back(rate);
    return params;
}

QByteArray written(char *(*write)(char *, float), float value)
{
    std::array<char, bp::kMaxNumberLength> text{};
    return QByteArray(text.data(), static_cast<int>(write(text.data(), value) - text.data()));
}
#define ONE_PARAMETER                                                                                                  \
    R"([{"curr_val":"250","description":"rate","editable":true,"max_val":"1000","min_val":"100","title":"Rate","vals_list":""}])"

/// A fake device with one parameter, known to the device manager as if it had been found.
class ParamAmplifier : public FakeAmplifier
{
public:
    ParamAmplifier() { reset(); }
    void reset() { m_params = oneParameter(QStringLiteral("fake_params"), QString()); }
    QString rate() const { return m_params.getParamValue(QStringLiteral("rate")); }
};

struct ManagerDoor : DeviceManager
{
    static void add(Amplifier *device)
    {
        QList<Amplifier *> devices{device};
        (DeviceManager::Instance()->*(&ManagerDoor::addDevicesFromList))(devices);
    }
};

/// The algorithm side: notes what it is sent, knows two profiles and an algorithm.
class Model : public Colleague
{
public:
    explicit Model(QStringList &heard)
        : m_heard(heard)
    {
    }
    DataServer *server = nullptr;
    std::vector<UnitParams> algorithms;
    QString recordPath;
    QString refusal;

    void notify(Colleague *sender, QString message) override
    {
        RequestExchange *exchange = ProcessRequest::exchangeOf(sender);
        exchange->refusal = refusal;
        if (message == QLatin1String("getProfileList")) {
            exchange->profiles = QStringList{QStringLiteral("rest"), QStringLiteral("hands")};
        } else if (message == QLatin1String("getAlgorithms")) {
            server->setParamList(algorithms);
        } else if (message == QLatin1String("getRecordFile")) {
            exchange->recordPath = recordPath;
        } else {
            const QString rate = exchange->params.getParamValue(QStringLiteral("rate"));
            const QStringList parts{message, exchange->name, exchange->descriptor, rate + exchange->label};
            m_heard << QStringLiteral("model ") + parts.join(QLatin1Char('|'))
                    + (exchange->state > 0 ? QString::number(exchange->state) : QString());
        }
    }

private:
    QStringList &m_heard;
};

/// A service on a free port of this computer, with two channels at 250 Hz.
class Service
{
public:
    explicit Service(unsigned flags = Idle)
        : montage(QSharedPointer<Montage>::create(QJsonObject{
            {QStringLiteral("name"), QStringLiteral("Two")},
            {QStringLiteral("chan_list"),
             QJsonArray{QJsonObject{{QStringLiteral("name"), QStringLiteral("C3")}, {QStringLiteral("index"), 0}},
                        QJsonObject{{QStringLiteral("name"), QStringLiteral("C4")}, {QStringLiteral("index"), 1}}}}}))
        , model(heard)
        , server(state, QHostAddress(QHostAddress::LocalHost), 0)
    {
        model.server = &server;
        mediator.setHalvinModel(&model);
        server.setMediator(&mediator);
        QList<AmplifierInfo> devices{device, {QStringLiteral("Ghost"), {}, QStringLiteral("G-1"), 1, {100.0f}}};
        server.setNewDevices(devices);
        server.setServerSettings(montage, device, 3);
        state.montageFolder = folder.path();
        state.currentProfile = QStringLiteral("rest");
        state.readMode = (flags & Reading) != 0;
        state.bciMode = (flags & Bci) != 0;
        state.writingFile = (flags & Writing) != 0;
        state.writingStateFile = (flags & WritingState) != 0;
        model.recordPath = state.writingFile ? QStringLiteral("/data/now.edf") : QString();
        if ((flags & StatesRecorded) != 0) {
            state.recordedStates = {1, 2};
        }
        if ((flags & NoAlgorithms) == 0) {
            model.algorithms = {oneParameter(QStringLiteral("Tiny"), QStringLiteral("mine"))};
        }
        listen();
        if ((flags & WithData) != 0) {
            feed();
        }
    }

    void writeMontages() const
    {
        MontageXmlReader().writeMontageToFile(folder.filePath(QStringLiteral("two.xml")), montage);
        QFile broken(folder.filePath(QStringLiteral("broken.xml")));
        if (broken.open(QIODevice::WriteOnly)) {
            broken.write("<montage");
        }
    }

    /// The answer to a request, with kTime for time stamps.
    QByteArray answer(const QByteArray &request)
    {
        static const QRegularExpression stamp(QStringLiteral("\"t\":(\"?)\\d{13}(?=\\D)"));
        QString text = QString::fromUtf8(server.answer(QString::fromUtf8(request)));
        return text.replace(stamp, QStringLiteral("\"t\":\\1") + QString::fromLatin1(kTime)).toUtf8();
    }

    QStringList heard;
    server_state state;
    QTemporaryDir folder;
    const AmplifierInfo device{QStringLiteral("Fake"), {}, QStringLiteral("F-1"), 2, {250.0f}};
    QSharedPointer<Montage> montage;
    ServerMediator mediator;
    Model model;
    DataServer server;

private:
    void listen()
    {
        const auto note = [this](const char *signal, const QString &what) {
            heard << QString::fromLatin1(signal) + QLatin1Char(' ') + what;
        };
        const auto number = [](int value) { return QString::number(value); };
        using S = DataServer;
        QObject::connect(&server, &S::removeProfile, [=](const QString &name) { note("removeProfile", name); });
        QObject::connect(&server, &S::addNewProfile, [=](const QString &name, const QString &type) {
            note("addNewProfile", name + QLatin1Char('|') + type);
        });
        QObject::connect(&server, &S::writeStateFile, [=](int index) { note("writeStateFile", number(index)); });
        QObject::connect(&server, &S::removeStateFile, [=](int index) { note("removeStateFile", number(index)); });
        QObject::connect(&server, &S::setCurrentProfile, [=](const QString &name) { note("setCurrentProfile", name); });
        QObject::connect(&server, &S::startDevice, [=](const AmplifierInfo &info, bool automatic) {
            note("startDevice", info.name() + QLatin1Char('|') + number(automatic));
        });
        QObject::connect(&server, QOverload<AmplifierInfo, QSharedPointer<Montage>>::of(&S::startDeviceWithMontage),
                         [=](const AmplifierInfo &info, const QSharedPointer<Montage> &chosen) {
                             note("startDeviceWithMontage", info.name() + QLatin1Char('|') + number(chosen->size()));
                         });
        QObject::connect(&server, &S::currentMontageChanged, [=](const QSharedPointer<Montage> &chosen) {
            note("montage",
                 server.getMontageName() + QLatin1Char('|') + number(chosen->size()) + QLatin1Char('|')
                     + number(chosen->getType()));
        });
    }

    void feed()
    {
        state.clientActive = true;
        server.appendNewData(4, std::array<float, 4>{1.239f, -1.239f, 0.005f, 100.0f}.data());
        // 0.0005 is a little more than that as a float; the third is above 10000.
        server.appendNewSpectrum(6, std::array<float, 6>{0.0005f, -1.0f, 10000.01f, 10000.0f, 1.5f, 0.12345f}.data());
        server.appendNewRhythm(QStringLiteral("beta"), 1, std::array<float, 1>{3.0f}.data());
        server.appendNewRhythm(QStringLiteral("alpha"), 2, std::array<float, 2>{12.5f, 0.1f}.data());
        server.setLastState(2);
        server.setLastState(1);
    }
};

QByteArray get(const QByteArray &path)
{
    return "GET /" + path + " HTTP/1.1\r\nHost: x\r\n\r\n";
}

QByteArray post(const QByteArray &word, const QByteArray &body)
{
    return "POST /" + word + " HTTP/1.1\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

QByteArray success(const QByteArray &body)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(QString::fromUtf8(body).size())
        + "\r\nContent-Type: text/html\r\nAccess-Control-Allow-Origin: *\r\nConnection: close\r\n\r\n" + body;
}

QByteArray refusal(const QByteArray &message)
{
    const QByteArray body = "{\"error\":\"" + message + "\"}";
    return "HTTP/1.1 400 Bad Request\r\nContent-Type: text/html\r\nContent-Length: "
        + QByteArray::number(QString::fromUtf8(body).size())
        + "\r\nAccess-Control-Allow-Origin: *\r\nConnection: Closed\r\n\r\n" + body;
}

/// What a connection brings until the service ends it.
QByteArray overSocket(quint16 port, const QByteArray &request)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
    socket.write(request);
    QSignalSpy ended(&socket, &QTcpSocket::disconnected);
    return ended.wait(10000) ? socket.readAll() : QByteArray("no end");
}

} // namespace

class TestServer : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void commands_data();
    void commands();
    void dispatch_data();
    void dispatch();
    void content_data();
    void content();
    void jsonBody_data();
    void jsonBody();
    void packet();
    void deviceParametersReachTheDevice();
    void montageInCapitals();
    void modelRefuses();
    void hostRefuses();
    void samplesWaitForAClient();
    void samplesAreHandedOutOnce();
    void overflowKeepsTheNewest();
    void wideStreamsAreBounded();
    void statesAreTwentyAtMost();
    void signalsAndSlots();
    void truncatedNumbers();
    void threeDecimals();
    void unansweredClientIsDropped();
    void onlyOneRead();
    void pollingClientsAreBothAnswered();
    void wholeRequests_data();
    void wholeRequests();
    void badClientsAreNoObstacle();
    void largeAnswerArrivesWhole();
    void clientRequests();
    void clientAgainstService();
    void clientTakesChunks_data();
    void clientTakesChunks();
    void clientGivesUp();

private:
    struct Exchange
    {
        bool isSent = false;
        QList<HalvinRespPacket> packets;
        QStringList texts; ///< request and answer
    };
    using Make = std::function<bool(HalvinHTTPQtClient &)>;
    static Exchange drive(quint16 port, const Make &make);

    ParamAmplifier m_amplifier;
};

void TestServer::initTestCase()
{
    ManagerDoor::add(&m_amplifier);
}

void TestServer::commands_data()
{
    QTest::addColumn<unsigned>("flags");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("expected");
    QTest::addColumn<QString>("heard");
    const auto row = [](unsigned flags, const QByteArray &request, const QByteArray &expected, const char *heard = "") {
        const QByteArray name = QByteArray::number(flags) + ' ' + request.simplified().left(90);
        QTest::newRow(name.constData()) << flags << request << expected << QString::fromLatin1(heard);
    };
    const auto ok = [&row](unsigned flags, const QByteArray &request, QByteArray body, const char *heard = "") {
        row(flags, request, success(body.replace('@', kTime)), heard);
    };
    const auto no = [&row](unsigned flags, const QByteArray &request, const QByteArray &message) {
        row(flags, request, refusal(message));
    };
    const unsigned everything = Reading | Bci | StatesRecorded | WithData;

    no(Idle, get("getinfo"), "Halvin is not in state mode");
    ok(Reading, get("getinfo"),
       R"({"channelAmount":2,"channels":[{"name":"C3"},{"name":"C4"}],"frequency":250,"result":true,"spectrumFrequencies":[0,62.5,125]})");
    no(Bci | WithData, get("getdata"), "Halvin is not in state mode");
    ok(Reading, get("getdata"), R"({"data":[{"d":[[],[]],"t":@}],"result":true,"samples":0})");
    ok(Reading | WithData, get("getdata"),
       R"({"data":[{"d":[[1.23,-1.23],[0,100]],"t":@}],"result":true,"samples":2})");
    no(Reading, get("getstates"), "getstate\r\nthe halvin is not in BCI state");
    ok(Bci | WithData, get("getstates"),
       R"({"amount":"2","result":true,"states":[{"state":"2","t":"@"},{"state":"1","t":"@"}]})");
    no(Idle, get("getlaststate"), "Halvin is not in state work");
    no(Bci, get("getlaststate"), "Halvin is not in state work");
    no(Reading, get("getlaststate"), "getlaststate\r\nthe halvin is not in BCI state");
    ok(everything, get("getlaststate"), R"({"result":true,"state":1,"t":@})");
    no(Bci, post("setstate", "{}"), "Halvin is not in state work");
    no(Reading, post("setstate", "{}"), "Halvin is not in BCI state");
    no(everything, get("setstate"), "Wrong content");
    no(everything, post("setstate", R"({"state":"two"})"), "Wrong content");
    no(everything, post("setstate", R"({"state":9})"), "Wrong state count");
    ok(everything, post("setstate", R"({"state":8})"), "", "model setState|||8");
    ok(everything, post("setstate", R"({"state":"2"})"), "", "model setState|||2");
    no(Bci | WithData, get("bci"), "Device is not open");
    ok(everything, get("bci"), R"({"result":true,"samples":2,"state":1,"type":"state"})");
    ok(Reading | WithData, get("bci"),
       R"({"result":true,"rhythms":[{"name":"alpha","value":[12.5,0.1]},{"name":"beta","value":[3]}],"samples":2,"type":"rhythms"})");
    no(WithData, get("getspectrum"), "Halvin is not in state mode");
    ok(Reading | WithData, get("getspectrum"),
       R"({"last_spectrum":{"d":[["0.001","0.000","0.000"],["10000.000","1.500","0.123"]],"t":@},"result":true,"samples":3})");
    no(Bci, get("getlastrhythm"), "Halvin is not in state mode");
    no(Reading | Bci, get("getlastrhythm"), "Halvin is not in BCI mode");
    ok(Reading | WithData, get("getlastrhythm"),
       R"({"result":true,"rhythms":[{"name":"alpha","value":[12.5,0.1]},{"name":"beta","value":[3]}],"samples":2,"t":@})");

    for (const QByteArray &word : {QByteArray("writestatefile"), QByteArray("removestatefile")}) {
        no(Bci, get(word), ""); // the argument would be "HTTP/1.1"
        no(Bci, "GET /" + word + "/3\r\n\r\n", "");
        no(Bci, get(word + "/x"), "");
        no(Bci, get(word + "/99999999999"), "");
        no(Idle, get(word + "/0"), word + ":0\r\ninvalid state index");
        no(Writing, get(word + "/9"), word + ":9\r\ninvalid state index");
        no(Writing, get(word + "/3"), word + "\r\nthe halvin is not in BCI state");
        no(Bci | Writing, get(word + "/3"), word + ":3\r\nthe halvin is busy with the recording");
    }
    ok(Bci | WritingState, get("writestatefile/8"), R"({"state":8,"time":10,"unit":"second, sec"})",
       "writeStateFile 8");
    ok(Bci, get("removestatefile?1"), "", "removeStateFile 1");
    no(StatesRecorded, get("starttraining"), "starttraining\r\nthe halvin is not in BCI state");
    no(Bci, get("starttraining"), "starttraining: no state files recorded");
    ok(Bci | StatesRecorded, get("starttraining"), "starttraining\r\n", "model startTraining|||");
    no(Reading, get("stoptraining"), "stoptraining\r\nthe halvin is not in BCI state");
    ok(Bci, get("stoptraining"), "stoptraining\r\n", "model stopTraining|||");

    ok(Idle, get("gethalvinstatus"),
       R"({"curr_device":{"channels":2,"frequency":250,"name":"Fake","serial":"F-1"},"curr_mode":false,"current_device":"Fake","current_profile":"rest","result":true,"type_profile":"RT","write_status":false})");
    ok(everything | WritingState, get("gethalvinstatus"),
       R"({"curr_device":{"channels":2,"frequency":250,"name":"Fake","serial":"F-1"},"curr_mode":true,"current_device":"Fake","current_profile":"rest","result":true,"states":"1;2;","write_status":true})");
    no(Idle, get("setcurrentprofile"), "unknown profile : ");
    no(Idle, post("setcurrentprofile", R"({"name":"a\"b"})"), "unknown profile : a\"b"); // not escaped
    no(Idle, "POST /setcurrentprofile\r\nContent-Length: 12\r\n\r\n{\"name\":\"é\"}", "unknown profile : é");
    ok(Idle, post("setcurrentprofile", R"({"name":"hands"})"), "set user : hands", "setCurrentProfile hands");
    ok(Idle, get("getprofilelist"), R"({"list":["rest","hands"],"result":true})");
    no(Writing, get("startwritefile"), "startwritefile: Halvin does not in work state");
    no(Reading | Writing, get("startwritefile"), "startwritefile: Halvin is already writing the file");
    no(Reading | WritingState, get("startwritefile"), "startwritefile: Halvin is already writing the file");
    ok(Reading, get("startwritefile"), "startwritefile:Halvin writes a file", "model startWritingFlag|||");
    no(Idle, get("stopwritefile"), "stopwritefile: Halvin does not in work state");
    no(Reading, get("stopwritefile"), "stopwritefile: Halvin does not write the file");
    ok(Reading | WritingState, get("stopwritefile"), "stopwritefile:Halvin stopped writing the file",
       "model stopWritingFlag|||");

    no(Reading, get("discoverdevices"), "Halvin in state read mode");
    ok(Idle, get("discoverdevices"),
       R"({"devices":[{"channel":2,"name":"Fake","serial":"F-1"},{"channel":1,"name":"Ghost","serial":"G-1"}],"result":true,"t":@})");
    no(Idle, get("getdeviceparametrs"), "Wrong device name");
    no(Idle, post("getdeviceparametrs", R"({"name":"Other"})"), "Wrong device name");
    no(Idle, post("getdeviceparametrs", R"({"name":"Ghost"})"), "Can not find device");
    ok(Idle, post("getdeviceparametrs", R"({"name":"Fake"})"),
       R"({"data":)" ONE_PARAMETER R"(,"desc":"","name":"fake_params"})");
    no(Idle, post("setdeviceparametrs", R"({"data":[]})"), "Wrong device name");
    no(Idle, post("setdeviceparametrs", R"({"name":"Fake","data":7})"), "Wrong param data");
    no(Idle, post("setdeviceparametrs", R"({"name":"Ghost","data":[]})"), "Wrong param data");
    ok(Idle, post("setdeviceparametrs", R"({"name":"Fake","data":[]})"), "");
    no(Reading, get("startdevice"), "Halvin in state read mode");
    no(Idle, get("startdevice"), "Wrong device name");
    no(Idle, post("startdevice", R"({"device":"Other"})"), "Wrong device name");
    no(Idle, post("startdevice", R"({"device":["Fake"]})"), "Wrong device name");
    no(Idle, post("startdevice", R"({"device":"Fake","montage":"broken"})"), "Cannot open montage file");
    no(Idle, post("startdevice", R"({"device":"Fake","montage":"../two"})"), "Cannot open montage file");
    ok(Idle, post("startdevice", R"({"device":"Fake"})"), "DeviceFake is starting", "startDevice Fake|1");
    ok(Idle, post("startdevice", R"({"device":"Fake","montage":"two"})"), "DeviceFake is starting",
       "startDeviceWithMontage Fake|2");
    no(Idle, get("stopdevice"), "Halvin is not in state read mode");
    ok(Reading, get("stopdevice"), "Device stop", "model stopDevice|||");

    ok(Idle, get("getmontagelist"),
       R"({"montage_list":[{"name_file":"broken.xml"},{"name_file":"two.xml"}],"result":true,"t":@})");
    no(Idle, get("getmontageinfo"), "Wrong montage file name");
    for (const char *name : {"../two", "..", "/two", "C:two", "a\\\\two", "two\\u0000"}) {
        no(Idle, post("getmontageinfo", QByteArray(R"({"name":")") + name + R"("})"), "Wrong file name");
        no(Idle, post("setmontagename", QByteArray(R"({"name":")") + name + R"("})"), "Wrong montage file name");
    }
    no(Idle, post("getmontageinfo", R"({"name":"gone"})"), "Cannot open file");
    no(Idle, post("getmontageinfo", R"({"name":"broken.xml"})"), "Cannot open file");
    no(Idle, post("setmontagename", R"({"name":"gone"})"), "Wrong montage file name");
    for (const char *list : {"[]", "7", "[7]", "[[]]", R"([{"name":"C3"},{"name":4}])"}) {
        no(Idle, post("setmontagename", QByteArray(R"({"chan_list":)") + list + '}'), "Wrong montage file name");
    }
    ok(Idle, post("setmontagename", R"({"name":"two.xml"})"), "Montage installed successfully", "montage two.xml|2|0");
    ok(Idle, post("setmontagename", R"({"name":"m","chan_list":[{"name":"C3"}],"Montage_Bipolar":"bipolar"})"),
       "Montage installed successfully", "montage m|1|1");
    ok(Idle, post("setmontagename", R"({"name":"m","chan_list":[{"name":"C3"}],"Montage_Average":"average"})"),
       "Montage installed successfully", "montage m|1|2");

    no(Idle, get("addnewprofile"), "Wrong name or type");
    no(Idle, post("addnewprofile", R"({"name":"a"})"), "Wrong name or type");
    no(Idle, post("addnewprofile", R"({"type":"rt"})"), "Wrong name or type");
    no(Idle, post("addnewprofile", R"({"name":"a","type":"RT"})"), "Wrong name or type");
    no(Idle, post("addnewprofile", R"({"profile_list":{}})"), "Wrong profiles list");
    no(Idle, post("addnewprofile", R"({"profile_list":[{"name":"a","type":"rt"},{"name":"b"}]})"),
       "Wrong profiles list");
    ok(Idle, post("addnewprofile", R"({"name":"a","type":"bci"})"), "", "addNewProfile a|bci");
    ok(Idle, post("addnewprofile", R"({"profile_list":[{"name":"a","type":"rt"},{"name":"b","type":"bci"}]})"), "",
       "addNewProfile a|rt;addNewProfile b|bci");
    no(Idle, get("removeprofile"), "Wrong name of profile");
    no(Idle, post("removeprofile", R"({"name":"nobody"})"), "Wrong name of profile");
    ok(Idle, post("removeprofile", R"({"name":"rest"})"), "", "removeProfile rest");

    no(NoAlgorithms, get("getalgorithms"), "The list of algorithm parameters is empty");
    ok(Idle, get("getalgorithms"), R"([{"desc":"mine","name":"Tiny","param_list":)" ONE_PARAMETER "}]");
    no(Idle, get("getalgorithmparams"), "Algorythm is not found");
    ok(Idle, post("getalgorithmparams", R"({"name":"Tiny"})"),
       R"({"desc":"mine","name":"Tiny","param_list":)" ONE_PARAMETER "}");
    no(Idle, post("setalgorithmparams", R"({"name":"Tiny"})"), "Wrong contant");
    no(Idle, post("setalgorithmparams", R"({"data":[]})"), "Algorhythm name is empty");
    ok(Idle, post("setalgorithmparams", R"({"name":"Tiny","data":[{"description":"rate","curr_val":500}]})"),
       "Algorhythm is updating", "model updateParam|Tiny|mine|500");
    no(Idle, post("removealgorithm", R"({"decs":"x"})"), "Wrong algorhythm name");
    no(Idle, post("removealgorithm", R"({"name":"","decs":"x"})"), "Can not remove ");
    no(Idle, post("removealgorithm", R"({"name":"Tiny","desc":"x"})"), "Can not remove Tiny");
    no(Idle, post("removealgorithm", R"({"name":"SpectrumOnline","decs":"x"})"), "Can not remove SpectrumOnline");
    no(Idle, post("removealgorithm", R"({"name":"DependSpectrumNorm","decs":"x"})"),
       "Can not remove DependSpectrumNorm");
    ok(Idle, post("removealgorithm", R"({"name":"Tiny","decs":"mine"})"), "", "model removeAlgorithm|Tiny|mine|");
    no(Idle, post("addnewalgorithm", R"({"name":"Math"})"), "Wrong content");
    no(Idle, post("addnewalgorithm", R"({"param_list":[{"nom":"Math"}]})"), "Wrong content");
    ok(Idle, post("addnewalgorithm", R"({"name":"Math","desc":"sum","data":[]})"), "",
       "model addNewAlgorithm|Math|sum|");
    ok(Idle, post("addnewalgorithm", R"({"param_list":[{"name":"Math"},{"name":"ECG"}]})"), "",
       "model addNewAlgorithmByName|Math||;model addNewAlgorithmByName|ECG||");
    ok(Idle, get("removeallrecords"), "", "model removeRecordFile|||");

    no(Idle, post("setdeviceparametrs", R"({"name":"Fake","data":[{"description":"rate","curr_val":99}]})"),
       "Wrong param data");
    no(Idle, post("setdeviceparametrs", R"({"name":"Fake","data":[{"description":"rat","curr_val":250}]})"),
       "Wrong param data");
    no(Idle, post("setdeviceparametrs", R"({"name":"Fake","data":[{"description":"rate","curr_val":null}]})"),
       "Wrong param data");
    no(Reading | WritingState, post("writelabel", R"({"label":"a"})"), "writelabel: no recording is being written");
    no(Reading | Writing, post("writelabel", R"({"label":" "})"), "writelabel: the label is missing");
    no(Reading | Writing, post("writelabel", R"({"label":")" + QByteArray(41, 'a') + R"("})"),
       "writelabel: the label is longer than 40 bytes");
    ok(Reading | Writing, post("writelabel", R"({"label":"eyes open"})"), R"({"result":true,"t":@})",
       "model writeLabel|||eyes open");
    no(Reading, get("getrecordfile"), "getrecordfile: no recording is being written");
    ok(Reading | Writing, get("getrecordfile"), R"({"file":"/data/now.edf","result":true})");
}

void TestServer::commands()
{
    QFETCH(unsigned, flags);
    QFETCH(QByteArray, request);
    m_amplifier.reset();
    Service service(flags);
    service.writeMontages();
    const bool wasReading = service.state.readMode;
    QTEST(service.answer(request), "expected");
    QTEST(service.heard.join(QLatin1Char(';')), "heard");
    QCOMPARE(service.state.readMode, wasReading);
    QVERIFY(service.state.clientActive);
}

void TestServer::dispatch_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("empty") << QByteArray() << QByteArray("Unknown commands");
    QTest::newRow("unknown") << get("getinf") << QByteArray("Unknown commands");
    QTest::newRow("other case") << get("GETINFO") << QByteArray("Unknown commands");
    QTest::newRow("word behind the line")
        << QByteArray("GET /\r\nX: getinfo\r\n\r\n") << QByteArray("Unknown commands");
    QTest::newRow("word behind a bare line feed") << QByteArray("GET /\ngetinfo") << QByteArray("Unknown commands");
    QTest::newRow("no line break") << QByteArray("getinfo") << QByteArray("Halvin is not in state mode");
    QTest::newRow("break at the start") << QByteArray("\r\nX\r\ngetinfo") << QByteArray("Unknown commands");
    QTest::newRow("line feed at the start") << QByteArray("\nX getinfo") << QByteArray("Halvin is not in state mode");
    QTest::newRow("two words, the first registered wins")
        << get("stopdevice?getinfo") << QByteArray("Halvin is not in state mode");
    QTest::newRow("any line with the word") << get("my-bci-tool") << QByteArray("Device is not open");
    QTest::newRow("a documented word before a later one")
        << get("writelabel/getrecordfile/getinfo") << QByteArray("Halvin is not in state mode");
}

void TestServer::dispatch()
{
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, message);
    Service service;
    QCOMPARE(service.answer(request), refusal(message));
    QCOMPARE(service.state.clientActive, message != "Unknown commands");
}

void TestServer::content_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("content");
    const auto row = [](const char *name, const char *text, const char *content) {
        QTest::newRow(name) << QString::fromUtf8(text) << QString::fromUtf8(content);
    };
    row("plain", "x\r\nContent-Length: 4\r\n\r\nbody", "body");
    row("blanks around the number", "x\r\nContent-Length :   4  \r\n\r\nbody", "body");
    row("first in the text", "Content-Length: 4\r\n\r\nbody", "");
    row("second in the text", " Content-Length: 4\r\n\r\nbody", "body");
    row("other case", "x\r\ncontent-length: 4\r\n\r\nbody", "");
    row("no number", "x\r\nContent-Length: abc\r\n\r\nbody", "");
    row("no colon", "x\r\nContent-Length 4\r\n\r\nbody", "");
    row("no line end", "x\r\nContent-Length: 4", "");
    row("no blank line", "x\r\nContent-Length: 4\r\nbody", "");
    row("blank line before the header", "x\r\n\r\nContent-Length: 4\r\nbody", "");
    row("bare line feeds", "x\nContent-Length: 4\n\nbody", "");
    row("headers behind it", "x\r\nContent-Length: 4\r\nA: b\r\n\r\nbody", "body");
    row("shorter than announced", "x\r\nContent-Length: 104857600\r\n\r\nbody", "body");
    row("longer than announced", "x\r\nContent-Length: 2\r\n\r\nbody", "bo");
    row("counted in UTF-16 units", "x\r\nContent-Length: 4\r\n\r\né\U0001F9E0ab", "é\U0001F9E0a");
}

void TestServer::content()
{
    QFETCH(QString, text);
    QTEST(HalvinRespPacket::getContent(text), "content");
}

void TestServer::jsonBody_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QJsonObject>("object");
    const auto bad = [](const char *name, const QByteArray &text) { QTest::newRow(name) << text << QJsonObject(); };
    const auto good = [](const char *name, const QByteArray &text, const QJsonValue &value) {
        QTest::newRow(name) << text << QJsonObject{{QStringLiteral("a"), value}};
    };
    const auto nested = [](int depth) { return R"({"a":)" + QByteArray(depth, '[') + QByteArray(depth, ']') + '}'; };
    bad("nothing", "");
    bad("an array", R"([{"a":1}])");
    bad("cut off", R"({"a":[1,{"b":"c)");
    bad("two texts", R"({"a":1}{"a":1})");
    bad("comma at the end", R"({"a":1,})");
    bad("comma at the end of an array", R"({"a":[1,]})");
    bad("name without quotes", "{a:1}");
    bad("single quotes", "{'a':1}");
    bad("no value", R"({"a"})");
    bad("other words", R"({"a":True})");
    bad("comment", R"({"a":1/**/})");
    bad("257 levels", nested(257));
    bad("300 levels", nested(300));
    bad("100,000 levels", QByteArray(100000, '[') + QByteArray(100000, ']'));
    bad("beyond a double", R"({"a":1e999})");
    bad("too small for a double", R"({"a":1e-999})");
    for (const char *number : {"01", "+1", "1.", ".5", "-", "1e", "0x1", "NaN", "--1"}) {
        bad(number, QByteArray(R"({"a":)") + number + '}');
    }
    for (const char *string : {"\\q", "\\u12", "\\u12g4", "\\u+123", "\n", "\x1f", "\\"}) {
        bad((QByteArray("string ") + QByteArray(string).toHex()).constData(),
            QByteArray(R"({"a":")") + string + R"("})");
    }
    bad("zero in a string", QByteArray("{\"a\":\"\0\"}", 9));
    good("256 levels of arrays within", nested(256), QJsonDocument::fromJson(nested(256)).object()[QLatin1String("a")]);
    good("blanks", " \t\r\n{ \"a\" : [ 1 , 2 ] } ", QJsonArray{1, 2});
    good("byte order mark", "\xEF\xBB\xBF{\"a\":true}", true);
    good("null", R"({"a":null})", QJsonValue::Null);
    good("numbers", R"({"a":[0,-0.5,1E2,25e-1,1e+2,9007199254740992]})",
         QJsonArray{0, -0.5, 100, 2.5, 100, 9007199254740992.0});
    good("escapes", R"({"a":"\"\\\/\b\f\n\r\té"})", QString::fromUtf8("\"\\/\b\f\n\r\té"));
    good("pair of surrogates", R"({"a":"\ud83e\uDDE0"})", QString::fromUtf8("\U0001F9E0"));
    good("half a pair", R"({"a":"\ud800"})", QString(QChar(0xD800)));
    good("beyond ASCII", "{\"a\":\"脳\"}", QString::fromUtf8("脳"));
    good("escaped name", R"({"\u0061":{}})", QJsonObject());
    good("the last of one name", R"({"a":{"b":1},"a":[{}],"a":"c"})", QStringLiteral("c"));
}

void TestServer::jsonBody()
{
    QFETCH(QByteArray, text);
    QTEST(bp::jsonObject(QString::fromUtf8(text.constData(), text.size())), "object");
}

void TestServer::packet()
{
    HalvinRespPacket packet(request_set_state, QString::fromUtf8(success(R"({"a":1})")));
    QVERIFY(packet.isSuccessful());
    QCOMPARE(packet.getRequestType(), request_set_state);
    QCOMPARE(packet.contentToJson(), (QJsonObject{{QStringLiteral("a"), 1}}));
    QCOMPARE(packet.getRequestText(), packet.getResponse());
    packet.reset();
    QVERIFY(!packet.isSuccessful() && packet.getResponse().isEmpty() && packet.getContent().isEmpty());
    QCOMPARE(packet.getRequestType(), request_none);
    QVERIFY(!HalvinRespPacket(QStringLiteral("200 OK")).isSuccessful());
    QVERIFY(HalvinRespPacket(QString::fromUtf8(success("[1]"))).contentToJson().isEmpty());
}

void TestServer::deviceParametersReachTheDevice()
{
    m_amplifier.reset();
    Service service;
    const QByteArray request =
        post("setdeviceparametrs", R"({"name":"Fake","data":[{"description":"rate","curr_val":500}]})");
    QCOMPARE(service.answer(request), success(""));
    QCOMPARE(m_amplifier.rate(), QStringLiteral("500"));
    m_amplifier.reset();
    service.state.readMode = true;
    QCOMPARE(service.answer(request), refusal("Halvin in state read mode"));
    QCOMPARE(m_amplifier.rate(), QStringLiteral("250"));
}

void TestServer::montageInCapitals()
{
    Service service;
    MontageXmlReader().writeMontageToFile(service.folder.filePath(QStringLiteral("X.XML")), service.montage);
    for (const char *name : {"X.XML", "X"}) {
        const QByteArray body = QByteArray(R"({"device":"Fake","name":")") + name + R"(","montage":")" + name + R"("})";
        QVERIFY(service.answer(post("getmontageinfo", body)).startsWith("HTTP/1.1 200"));
        QVERIFY(service.answer(post("setmontagename", body)).startsWith("HTTP/1.1 200"));
        QVERIFY(service.answer(post("startdevice", body)).startsWith("HTTP/1.1 200"));
        QCOMPARE(service.server.getMontageName(), QStringLiteral("X.XML"));
    }
}

void TestServer::modelRefuses()
{
    Service service(Reading | Bci | StatesRecorded);
    service.model.refusal = QStringLiteral("no");
    for (const char *word : {"starttraining", "stopdevice", "startwritefile", "removeallrecords", "getalgorithms"}) {
        QCOMPARE(service.answer(get(word)), refusal("no"));
    }
}

void TestServer::hostRefuses()
{
    Service service(Bci | StatesRecorded);
    service.writeMontages();
    const auto refuse = [&service] {
        service.server.refuse(QString()); // none
        service.server.refuse(QStringLiteral("no"));
        service.server.refuse(QStringLiteral("the first one counts"));
    };
    connect(&service.server, &DataServer::addNewProfile, refuse);
    connect(&service.server, &DataServer::removeProfile, refuse);
    connect(&service.server, &DataServer::setCurrentProfile, refuse);
    connect(&service.server, &DataServer::writeStateFile, refuse);
    connect(&service.server, &DataServer::removeStateFile, refuse);
    connect(&service.server, &DataServer::startDevice, refuse);
    connect(&service.server, QOverload<AmplifierInfo, QSharedPointer<Montage>>::of(&DataServer::startDeviceWithMontage),
            refuse);
    connect(&service.server, &DataServer::currentMontageChanged, refuse);
    const QByteArray name = R"({"name":"rest","type":"rt"})";
    for (const char *word : {"addnewprofile", "removeprofile", "setcurrentprofile"}) {
        QCOMPARE(service.answer(post(word, name)), refusal("no"));
    }
    QCOMPARE(service.answer(post("addnewprofile", R"({"profile_list":[)" + name + "]}")), refusal("no"));
    for (const char *path : {"writestatefile/3", "removestatefile/3"}) {
        QCOMPARE(service.answer(get(path)), refusal("no"));
    }
    QCOMPARE(service.answer(post("startdevice", R"({"device":"Fake"})")), refusal("no"));
    QCOMPARE(service.answer(post("setmontagename", R"({"name":"two"})")), refusal("no"));
    QCOMPARE(service.server.getMontageName(), QString());
    QCOMPARE(service.answer(post("startdevice", R"({"device":"Ghost"})")), refusal("no"));
    service.server.refuse(QStringLiteral("outside of a wish"));
    QCOMPARE(service.answer(get("stoptraining")), success("stoptraining\r\n"));

    QCOMPARE(service.answer(post("startdevice", R"({"device":"Fake","montage":"two"})")), refusal("no"));
    QCOMPARE(service.state.currentMontage, service.montage); // not the one from the file
}

void TestServer::samplesWaitForAClient()
{
    Service service(Reading);
    const std::array<float, 2> samples{1.0f, 2.0f};
    service.server.appendNewData(2, samples.data());
    service.answer("nonsense");
    service.server.appendNewData(2, samples.data());
    QVERIFY(service.answer(get("getdata")).endsWith("\"samples\":0}"));
    service.server.appendNewData(2, samples.data());
    QVERIFY(service.answer(get("getdata")).contains("[[1],[2]]"));
    service.server.setServerSettings(service.montage, service.device, 3);
    service.server.appendNewData(2, samples.data());
    QVERIFY(service.answer(get("getdata")).endsWith("\"samples\":0}"));
}

void TestServer::samplesAreHandedOutOnce()
{
    Service service(Reading | WithData);
    QVERIFY(service.answer(get("getdata")).contains("[[1.23,-1.23],[0,100]]"));
    service.server.appendNewData(2, std::array<float, 2>{7.0f, 8.0f}.data());
    QVERIFY(service.answer(get("getdata")).contains("[[7],[8]]"));
    QVERIFY(service.answer(get("getdata")).contains("[[],[]]"));
}

void TestServer::overflowKeepsTheNewest()
{
    Service service(Reading);
    service.state.clientActive = true;
    const TraceCapture trace;
    constexpr int kSecond = 250;
    for (int second = 0; second < 130; ++second) {
        std::vector<float> block(2 * kSecond, static_cast<float>(second));
        service.server.appendNewData(2 * kSecond, block.data());
    }
    QCOMPARE(trace.count(QStringLiteral("dropping the oldest")), 1);
    const QByteArray answer = service.answer(get("getdata"));
    QVERIFY(answer.contains("\"d\":[[70,70"));
    QVERIFY(answer.endsWith("\"samples\":15000}"));
    service.server.appendNewData(2, std::array<float, 2>{7.0f, 8.0f}.data());
    QVERIFY(service.answer(get("getdata")).contains("[[7],[8]]"));
}

void TestServer::wideStreamsAreBounded()
{
    SampleBuffer buffer;
    buffer.reset(512, 60 * 8000); // a minute would be a gigabyte, and an answer of two
    const std::vector<float> block(512 * 4000, 1.0f);
    for (int i = 0; i < 12; ++i) {
        buffer.append(4000, block.data());
    }
    QCOMPARE(buffer.sampleCount(), std::size_t{32768}); // 64 MiB
}

void TestServer::statesAreTwentyAtMost()
{
    Service service(Bci);
    for (unsigned state = 1; state <= 21; ++state) {
        service.server.setLastState(state);
    }
    QCOMPARE(service.server.getlastState(), 21U);
    const QByteArray answer = service.answer(get("getstates"));
    QVERIFY(answer.contains(R"("amount":"20")"));
    QVERIFY(answer.contains(R"("states":[{"state":"2",)"));
    QVERIFY(answer.contains(R"({"state":"21",)"));
}

void TestServer::signalsAndSlots()
{
    const QByteArrayList expected{"removeProfile(QString in_name)",
                                  "addNewProfile(QString in_name,QString in_type)",
                                  "writeStateFile(int in_state)",
                                  "removeStateFile(int in_state)",
                                  "setCurrentProfile(QString in_name)",
                                  "startDeviceWithMontage(AmplifierInfo info,QSharedPointer<Montage> in_Montage)",
                                  "startDevice(AmplifierInfo info,bool autoMontage)",
                                  "setDiscoverDevice(QList<AmplifierInfo>& in_list)",
                                  "readyReadData()",
                                  "takeNewConnection()",
                                  "clientDisconnected()",
                                  "setNewDevices(QList<AmplifierInfo>& in_list)"};
    const QMetaObject &meta = DataServer::staticMetaObject;
    QByteArrayList found;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        QByteArrayList parameters;
        for (int p = 0; p < method.parameterCount(); ++p) {
            parameters << method.parameterTypes()[p] + ' ' + method.parameterNames()[p];
        }
        found << method.name() + '(' + parameters.join(',') + ')';
    }
    found.removeAll("currentMontageChanged(QSharedPointer<Montage> montage)");
    QCOMPARE(found, expected);
}

void TestServer::truncatedNumbers()
{
    std::mt19937 random(1);
    std::uniform_real_distribution<float> exponent(-5.0f, 9.0f);
    std::vector<float> samples{0.0f, -0.001f, 0.29f, -0.5f, 1.0f, 99999.0f, 1e10f, 1e11f, -3e10f};
    for (int i = 0; i < 5000; ++i) {
        samples.push_back(std::pow(10.0f, exponent(random)) * (i % 2 == 0 ? 1.0f : -1.0f));
    }
    for (const float sample : samples) {
        const QByteArray text = '[' + written(bp::writeTruncated, sample);
        // The value times 100 in double, its integer part, and the quotient.
        const double shown = static_cast<double>(static_cast<qint64>(static_cast<double>(sample) * 100.0)) / 100.0;
        QCOMPARE(text + ']', QJsonDocument(QJsonArray{shown}).toJson(QJsonDocument::Compact));
    }
    QByteArray text;
    for (const float sample : {std::nanf(""), HUGE_VALF, 1e30f}) {
        text += written(bp::writeTruncated, sample) + ' ';
    }
    QVERIFY2(text.startsWith("null null 1.0000000150474662e+30 "), text.constData());
}

void TestServer::threeDecimals()
{
    std::mt19937 random(2);
    std::uniform_real_distribution<float> exponent(-6.0f, 4.0f);
    std::vector<float> values{0.0f, 0.0625f, 0.1875f, 0.0005f, 9999.9995f, 10000.0f};
    for (int i = 0; i < 5000; ++i) {
        values.push_back(std::pow(10.0f, exponent(random)));
        values.push_back(std::floor(values.back() * 16.0f) / 16.0f); // ties
    }
    for (const float value : values) {
        if (value <= 10000.0f) {
            QCOMPARE(QString::fromLatin1(written(bp::writeThreeDecimals, value)),
                     QString::number(static_cast<double>(value), 'f', 3));
        }
    }
    QByteArray clamped;
    for (const float value : {-1.0f, -0.0f, 10000.001f, std::nanf(""), HUGE_VALF}) {
        clamped += written(bp::writeThreeDecimals, value);
    }
    QCOMPARE(clamped, QByteArray("0.0000.0000.0000.0000.000"));
}

void TestServer::unansweredClientIsDropped()
{
    Service service;
    QTcpSocket first;
    QTcpSocket second;
    const auto join = [&service](QTcpSocket &socket) {
        socket.connectToHost(QHostAddress(QHostAddress::LocalHost), service.server.serverPort());
    };
    join(first);
    QTRY_COMPARE(first.state(), QAbstractSocket::ConnectedState);
    QSignalSpy dropped(&first, &QTcpSocket::disconnected);
    join(second);
    QVERIFY(dropped.wait());
    QVERIFY(first.bytesAvailable() == 0);
    QSignalSpy answered(&second, &QTcpSocket::disconnected);
    second.write(get("getinfo"));
    QVERIFY(answered.wait());
    QCOMPARE(second.readAll(), refusal("Halvin is not in state mode"));
}

void TestServer::onlyOneRead()
{
    Service service(Reading | Bci);
    QCOMPARE(overSocket(service.server.serverPort(), "POST /setstate HTTP/1.1\r\nContent-Length: 11\r\n\r\n"),
             refusal("Wrong content"));
    QCOMPARE(overSocket(service.server.serverPort(), "nonsense"), refusal("Unknown commands"));
    QCOMPARE(overSocket(service.server.serverPort(), post("setstate", "{\"state\":1}")), success(""));
}

/// Both have sent their requests before the service hears of either.
void TestServer::pollingClientsAreBothAnswered()
{
    Service service;
    std::array<QTcpSocket, 3> clients;
    for (QTcpSocket &client : clients) {
        client.connectToHost(QHostAddress(QHostAddress::LocalHost), service.server.serverPort());
        QVERIFY(client.waitForConnected());
        client.write(get("getinfo"));
        QVERIFY(client.waitForBytesWritten());
    }
    for (QTcpSocket &client : clients) {
        QTRY_COMPARE(client.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(client.readAll(), refusal("Halvin is not in state mode"));
    }
}

void TestServer::wholeRequests_data()
{
    QTest::addColumn<QByteArrayList>("pieces");
    QTest::addColumn<QByteArray>("answer"); // "ok", or the message of the error
    const auto row = [](const char *name, const QByteArrayList &pieces, const char *answer) {
        QTest::newRow(name) << pieces << QByteArray(answer);
    };
    const auto web = [&row](const char *name, const QByteArray &fields, const char *answer) {
        row(name, {"GET /removeallrecords HTTP/1.1\r\n" + fields + "\r\n\r\n"}, answer);
    };
    const QByteArray head = "POST /setstate HTTP/1.1\r\n";
    const QByteArray body = R"({"state":1})";
    const char *noOrigin = "This origin is not allowed";
    const char *noHost = "This host name is not allowed";
    row("body in a piece of its own", {head + "Content-Length: 11\r\n\r\n", body}, "ok");
    row("in many pieces", {head, "content-length: ", "11\r", "\n\r\n{\"state\"", ":1}"}, "ok");
    row("waits to be told", {head + "Content-Length: 11\r\nExpect: 100-Continue\r\n\r\n", "100", body}, "ok");
    row("bytes are announced", {head + "Content-Length: 21\r\n\r\n", R"({"state":1,"é":"é"})"}, "ok");
    row("UTF-16 units are announced", {head + "Content-Length: 19\r\n\r\n" + R"({"state":1,"é":"é"})"}, "ok");
    row("more than announced", {head + "Content-Length: 11\r\n\r\n" + body + "}"}, "ok");
    row("word in a field", {head + "X: Content-Length: 2\r\nContent-Length: 11\r\n\r\n", body}, "ok");
    row("no blank line", {"GET /removeallrecords HTTP/1.1\r\nHost: localhost\r\n"}, "ok");
    row("no line at all", {"removeallrecords"}, "ok");
    row("chunks", {head + "Transfer-Encoding: chunked\r\n\r\n"}, "Send the body in one piece, with a Content-Length");
    row("too large", {head + "Content-Length: 99999999999\r\n\r\n"}, "The request is too large");
    row("endless head", {head + QByteArray(100000, 'x')}, "The request is too large");
    web("own page", "Host: localhost:336\r\nOrigin: http://localhost:336", "ok");
    web("allowed page", "Host: 127.0.0.1:9\r\nOrigin: HTTP://Good.example:80", "ok");
    web("foreign page", "Host: 127.0.0.1\r\nOrigin: http://bad.example", noOrigin);
    web("page of another port", "Host: localhost:336\r\nOrigin: http://localhost:8000", noOrigin);
    web("file or frame", "Host: 127.0.0.1\r\norigin: null", noOrigin);
    web("picture of a page", "Host: 127.0.0.1\r\nSec-Fetch-Site: cross-site", noOrigin);
    web("picture in an older browser", "Host: 127.0.0.1\r\nReferer: http://bad.example/page?a=b", noOrigin);
    web("picture of an allowed page",
        "Host: 127.0.0.1\r\nReferer: http://good.example:80/page\r\nSec-Fetch-Site: cross-site", "ok");
    web("address bar", "Host: [::1]:336\r\nSec-Fetch-Site: none", "ok");
    web("host of another name", "Host: bad.example:336", noHost);
    web("host that looks like this one", "Host: localhost.bad.example", noHost);
    web("host of an allowed page", "Host: good.example", "ok");
    web("number of another computer", "Host: 192.0.2.1", noHost);
    row("asks what is allowed", {"OPTIONS /removeallrecords HTTP/1.1\r\nOrigin: http://bad.example\r\n\r\n"}, noOrigin);
}

void TestServer::wholeRequests()
{
    QFETCH(QByteArrayList, pieces);
    QFETCH(QByteArray, answer);
    Service service(Reading | Bci);
    service.server.setWholeRequests(true);
    service.server.setAllowedOrigins({QStringLiteral("http://good.example:80/")});
    QTcpSocket waiting; // disturbs nobody
    waiting.connectToHost(QHostAddress(QHostAddress::LocalHost), service.server.serverPort());
    QTcpSocket socket;
    QSignalSpy ended(&socket, &QTcpSocket::disconnected);
    socket.connectToHost(QHostAddress(QHostAddress::LocalHost), service.server.serverPort());
    for (const QByteArray &piece : qAsConst(pieces)) {
        if (piece == "100") {
            QTRY_COMPARE(socket.bytesAvailable(), qint64{25});
            QCOMPARE(socket.readAll(), QByteArray("HTTP/1.1 100 Continue\r\n\r\n"));
            continue;
        }
        socket.write(piece);
        QTRY_COMPARE(socket.bytesToWrite(), qint64{0});
        QTest::qWait(20); // the service is to see each piece by itself
    }
    QVERIFY(!ended.isEmpty() || ended.wait(10000));
    QCOMPARE(socket.readAll(), answer == "ok" ? success("") : refusal(answer));
    QCOMPARE(service.heard.size(), answer == "ok" ? 1 : 0);
    QCOMPARE(waiting.state(), QAbstractSocket::ConnectedState);

    const QByteArray preflight = "OPTIONS /removeallrecords HTTP/1.1\r\nOrigin: http://good.example:80\r\n\r\n";
    const int heard = service.heard.size();
    QVERIFY(overSocket(service.server.serverPort(), preflight).startsWith("HTTP/1.1 204 "));
    const QByteArray name = "POST /setcurrentprofile HTTP/1.1\r\nContent-Length: 13\r\n\r\n{\"name\":\"é\"}";
    QVERIFY(overSocket(service.server.serverPort(), name).contains("\r\nContent-Length: 32\r\n")); // bytes
    QCOMPARE(service.heard.size(), heard);
}

void TestServer::badClientsAreNoObstacle()
{
    Service service(Reading);
    service.state.clientActive = true;
    const QHostAddress address(QHostAddress::LocalHost);
    const AmplifierInfo fast(QStringLiteral("Fast"), {}, QStringLiteral("1"), 2, {20000.0f});
    service.server.openDevice(fast, service.montage);
    std::vector<float> block(2000000, 12.34f);
    QTcpSocket neverReads;
    neverReads.setReadBufferSize(1);
    QTcpSocket silent;
    QTcpSocket half;
    for (QTcpSocket *socket : {&neverReads, &silent, &half}) {
        service.server.appendNewData(static_cast<int>(block.size()), block.data());
        socket->connectToHost(address, service.server.serverPort());
        QTRY_COMPARE(socket->state(), QAbstractSocket::ConnectedState);
        if (socket != &silent) {
            socket->write(socket == &half ? QByteArray("GET /getd") : get("getdata"));
        }
        QTRY_COMPARE(socket->bytesToWrite(), qint64{0});
        QCOMPARE(overSocket(service.server.serverPort(), get("nonsense")), refusal("Unknown commands"));
    }
    QVERIFY(service.server.isListening());
}

void TestServer::largeAnswerArrivesWhole()
{
    Service service(Reading);
    service.state.clientActive = true;
    service.server.openDevice({QStringLiteral("Fast"), {}, QStringLiteral("1"), 2, {20000.0f}}, service.montage);
    constexpr int kSamples = 1000000;
    std::vector<float> block(2 * kSamples);
    for (std::size_t i = 0; i < block.size(); ++i) {
        block[i] = static_cast<float>(i % 1000);
    }
    service.server.appendNewData(static_cast<int>(block.size()), block.data());
    const QByteArray answer = overSocket(service.server.serverPort(), get("getdata"));
    const QString body = HalvinRespPacket::getContent(QString::fromLatin1(answer));
    const QJsonArray rows =
        QJsonDocument::fromJson(body.toLatin1())[QLatin1String("data")][0][QLatin1String("d")].toArray();
    QCOMPARE(rows.size(), 2);
    QCOMPARE(rows[1].toArray().size(), kSamples);
    QCOMPARE(rows[1][kSamples - 1].toDouble(), 999.0);
}

TestServer::Exchange TestServer::drive(quint16 port, const Make &make)
{
    Exchange result;
    const auto run = [&] {
        HalvinHTTPQtClient client(QStringLiteral("127.0.0.1"), port);
        QEventLoop loop;
        QObject::connect(&client, &HalvinHTTPQtClient::takePacket, &loop, [&](const HalvinRespPacket &packet) {
            result.packets << packet;
            loop.quit();
        });
        QObject::connect(&client, &HalvinHTTPQtClient::takeNewData, &loop,
                         [&](const QString &request, const QString &answer) { result.texts << request << answer; });
        result.isSent = make(client);
        if (result.isSent && result.packets.isEmpty()) {
            QTimer::singleShot(10000, &loop, &QEventLoop::quit);
            loop.exec();
        }
    };
    const std::unique_ptr<QThread> thread(QThread::create(run));
    QEventLoop loop;
    QObject::connect(thread.get(), &QThread::finished, &loop, &QEventLoop::quit);
    thread->start();
    loop.exec();
    thread->wait();
    return result;
}

namespace {

/// Answers every connection with the same chunks, each in a write of its own, once it has a request.
class FakeService : public QTcpServer
{
public:
    explicit FakeService(const QByteArrayList &chunks)
    {
        listen(QHostAddress(QHostAddress::LocalHost), 0);
        connect(this, &QTcpServer::newConnection, this, [this, chunks] {
            QTcpSocket *socket = nextPendingConnection();
            connect(socket, &QTcpSocket::disconnected, this, [this] { ++ended; });
            connect(socket, &QTcpSocket::readyRead, this, [this, socket, chunks] {
                request = socket->readAll();
                for (const QByteArray &chunk : chunks) {
                    socket->write(chunk);
                    socket->flush();
                    QTest::qWait(60); // the client is to see each by itself
                }
            });
        });
    }
    QByteArray request;
    std::atomic<int> ended{0}; ///< connections
};

using Client = HalvinHTTPQtClient;

struct PlainMethod
{
    const char *path;
    bool (Client::*make)();
    quint32 type;
};
constexpr PlainMethod kPlainMethods[] = {
    {"getinfo", &Client::makeGetInfo, 1},
    {"getdata", &Client::makeGetData, 2},
    {"getstates", &Client::makeGetStates, 3},
    {"getlaststate", &Client::makeGetLastState, 4},
    {"getspectrum", &Client::makeGetSpectrum, 5},
    {"getlastrhythm", &Client::makeGetLastRithm, 6},
    {"gethalvinstatus", &Client::makeGetHalvinStatus, 11},
    {"getprofilelist", &Client::makeGetProfilesList, 13},
    {"startwritefile", &Client::makeStartWriteFile, 14},
    {"stopwritefile", &Client::makeStopWriteFile, 15},
    {"discoverdevices", &Client::makeDiscoverDevice, 16},
    {"stopdevice", &Client::makeStopDevice, 20},
    {"getmontagelist", &Client::makeGetMontageList, 21},
    {"getalgorithms", &Client::makeGetAlgorhythmList, 26},
    {"removeallrecords", &Client::makeRemoveAllRecords, 26},
};

struct BodyMethod
{
    const char *path;
    bool (Client::*make)(const QString &);
    quint32 type;
};
constexpr BodyMethod kBodyMethods[] = {
    {"setcurrentprofile", &Client::makeSetCurrentProfile, 12},
    {"getdeviceparametrs", &Client::makeGetDeviceParams, 17},
    {"setdeviceparametrs", &Client::makeSetDeviceParams, 18},
    {"startdevice", &Client::makeStartDevice, 19},
    {"getmontageinfo", &Client::makeGetMontageInfo, 22},
    {"setmontagename", &Client::makeSetMontageInfo, 23},
    {"addnewprofile", &Client::makeAddNewProfile, 24},
    {"removeprofile", &Client::makeRemoveProfile, 25},
    {"setalgorithmparams", &Client::makeSetAlgorhythmParam, 28},
    {"removealgorithm", &Client::makeRemoveAlgorhythms, 29},
    {"addnewalgorithm", &Client::makeAddNewAlgorhythm, 30},
    {"getalgorithmparams", &Client::makeAddNewAlgorhythmParam, 30},
    {"setstate", &Client::makeSetCurrentState, 31},
};

const QByteArray kHost = " HTTP/1.1\r\nHost: 127.0.0.1:336\r\n";
const QByteArray kAccept = "Connection: keep-alive\r\nAccept: application/json, text/j\r\n";

} // namespace

void TestServer::clientRequests()
{
    FakeService fake({success("{}")});
    const auto check = [&fake](const Make &make, quint32 type, const QByteArray &expected) {
        const Exchange exchange = drive(fake.serverPort(), make);
        QCOMPARE(fake.request, expected);
        QVERIFY(exchange.isSent);
        QCOMPARE(exchange.packets.size(), 1);
        QCOMPARE(exchange.packets[0].getRequestType(), request_type(type));
        QCOMPARE(exchange.texts, (QStringList{QString::fromUtf8(expected), QString::fromUtf8(success("{}"))}));
    };
    for (const PlainMethod &method : kPlainMethods) {
        check([&](Client &client) { return (client.*method.make)(); }, method.type,
              QByteArray("GET /") + method.path + kHost + kAccept);
    }
    const QByteArray body = "{\"é\":12345}"; // eleven characters, twelve bytes
    for (const BodyMethod &method : kBodyMethods) {
        check([&](Client &client) { return (client.*method.make)(QString::fromUtf8(body)); }, method.type,
              QByteArray("POST /") + method.path + kHost + "Content-Length : 11\r\n" + kAccept + "\r\n" + body);
    }
    check([](Client &client) { return client.makeSetWriteStateFile(3); }, 7, "GET /writestatefile/3" + kHost + kAccept);
    check([](Client &client) { return client.makeSetRemoveStateFile(8); }, 8,
          "GET /removestatefile/8" + kHost + kAccept);
}

void TestServer::clientAgainstService()
{
    Service service(Reading | Bci | WithData);
    const quint16 port = service.server.serverPort();
    const Exchange info = drive(port, [](Client &client) { return client.makeGetInfo(); });
    QVERIFY(info.packets.value(0).isSuccessful());
    QCOMPARE(info.packets[0].contentToJson()[QLatin1String("channelAmount")].toInt(), 2);
    const Exchange data = drive(port, [](Client &client) { return client.makeGetData(); });
    QCOMPARE(data.packets.value(0).contentToJson()[QLatin1String("samples")].toInt(), 2);
    const Exchange state =
        drive(port, [](Client &client) { return client.makeSetCurrentState(QStringLiteral("{\"state\":5}")); });
    QVERIFY(state.packets.value(0).isSuccessful());
    QCOMPARE(service.heard, QStringList{QStringLiteral("model setState|||5")});
    const Exchange refused = drive(port, [](Client &client) { return client.makeDiscoverDevice(); });
    QVERIFY(refused.isSent);
    QCOMPARE(refused.texts.value(1), QString::fromUtf8(refusal("Halvin in state read mode")));
    QVERIFY(!refused.packets.value(0).isSuccessful());
}

void TestServer::clientTakesChunks_data()
{
    QTest::addColumn<bool>("isData");
    QTest::addColumn<QByteArrayList>("chunks");
    QTest::addColumn<QByteArray>("answer");
    const QByteArray whole = success("{\"data\":" + QByteArray(3000, '1') + '}');
    QTest::newRow("three") << true << QByteArrayList{whole.left(500), whole.mid(500, 1500), whole.mid(2000)} << whole;
    QTest::newRow("the header counts, the rest follows at once")
        << true << QByteArrayList{whole.left(500), whole.mid(500, 2540), whole.mid(3040)} << whole;
    QTest::newRow("one") << true << QByteArrayList{whole} << whole;
    QTest::newRow("others end with their first")
        << false << QByteArrayList{whole.left(500), whole.mid(500)} << whole.left(500);
}

void TestServer::clientTakesChunks()
{
    QFETCH(bool, isData);
    QFETCH(QByteArrayList, chunks);
    FakeService fake(chunks);
    const Exchange exchange = drive(
        fake.serverPort(), [isData](Client &client) { return isData ? client.makeGetData() : client.makeGetInfo(); });
    QCOMPARE(exchange.packets.size(), 1);
    QTEST(exchange.packets[0].getResponse().toUtf8(), "answer");
}

void TestServer::clientGivesUp()
{
    FakeService silent({});
    quint16 closedPort = 0;
    {
        const FakeService gone({});
        closedPort = gone.serverPort();
    }
    for (const quint16 port : {silent.serverPort(), closedPort, quint16{0}}) {
        const Exchange exchange = drive(port, [](Client &client) { return client.makeGetHalvinStatus(); });
        QVERIFY(!exchange.isSent);
        QVERIFY(exchange.packets.isEmpty() && exchange.texts.isEmpty());
    }
    QVERIFY(!silent.request.isEmpty());

    bool hasClosed = false; // while the client lives
    const int before = silent.ended;
    drive(silent.serverPort(), [&](Client &client) {
        const bool isSent = client.makeGetHalvinStatus();
        for (int i = 0; i < 200 && silent.ended == before; ++i) {
            QThread::msleep(10);
        }
        hasClosed = silent.ended > before;
        return isSent;
    });
    QVERIFY(hasClosed);
}

BP_TEST_MAIN(TestServer)
#include "TestServer.moc"
