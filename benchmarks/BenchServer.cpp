#include "common/BPCommon.h"
#include "montage/Montage.h"
#include "server/DataServer.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonObject>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <memory>
#include <vector>

namespace {

constexpr int kChannels = 32;
constexpr int kRate = 1000;
constexpr int kPoints = 257;
constexpr char kStatus[] = "GET /gethalvinstatus HTTP/1.1\r\nHost: x\r\n\r\n";
constexpr char kSpectrum[] = "GET /getspectrum HTTP/1.1\r\nHost: x\r\n\r\n";
constexpr char kData[] = "GET /getdata HTTP/1.1\r\nHost: x\r\n\r\n";

/// A host's state behind a command service that streams 32 channels, its trace silent as in the host.
struct Host
{
    Host()
        : server(silenced(state), QHostAddress(QHostAddress::LocalHost), 0)
        , samples(kChannels * kRate)
    {
        QJsonArray channels;
        for (int i = 0; i < kChannels; ++i) {
            channels.append(QJsonObject{{QStringLiteral("name"), QStringLiteral("C%1").arg(i)}});
        }
        const QJsonObject montage{{QStringLiteral("chan_list"), channels}};
        const AmplifierInfo device(QStringLiteral("Device"), {}, QStringLiteral("1"), kChannels, {float{kRate}});
        server.setServerSettings(QSharedPointer<Montage>::create(montage), device, kPoints);
        state.readMode = true;
        state.clientActive = true;
        std::vector<float> spectrum(kChannels * kPoints);
        for (std::size_t i = 0; i < spectrum.size(); ++i) {
            spectrum[i] = 50.0f / static_cast<float>(1 + i % kPoints);
        }
        server.appendNewSpectrum(static_cast<unsigned>(spectrum.size()), spectrum.data());
        for (std::size_t i = 0; i < samples.size(); ++i) {
            samples[i] = 100.0f * std::sin(0.01f * static_cast<float>(i));
        }
    }

    static server_state &silenced(server_state &state)
    {
        for (int event = 0; event < BPCommon::kLogEventCount; ++event) {
            BPCommon::setLogMode(static_cast<BPCommon::LogEvent>(event), event == BPCommon::LogPlugin);
        }
        return state;
    }

    server_state state;
    DataServer server;
    std::vector<float> samples;
};

/// Reads once and writes the same bytes every time, as little as a Qt program can do for an answer.
struct Yardstick
{
    explicit Yardstick(const QByteArray &answer)
    {
        server.listen(QHostAddress(QHostAddress::LocalHost), 0);
        QObject::connect(&server, &QTcpServer::newConnection, &server, [this, answer] {
            QTcpSocket *socket = server.nextPendingConnection();
            QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [socket, answer] {
                socket->readAll();
                socket->write(answer);
                socket->disconnectFromHost();
            });
        });
    }

    QTcpServer server;
};

/// Both on a thread with an event loop, as long as the program lives.
class ServerThread
{
public:
    static ServerThread &instance()
    {
        static int argc = 1;
        static char name[] = "bench_server";
        static char *argv[] = {name, nullptr};
        static const QCoreApplication application(argc, argv);
        static ServerThread servers;
        return servers;
    }
    ServerThread()
    {
        m_thread.start();
        m_context.moveToThread(&m_thread);
        run([this] { m_host = std::make_unique<Host>(); });
    }
    ~ServerThread()
    {
        run([this] {
            m_yardstick.reset();
            m_host.reset();
        });
        m_thread.quit();
        m_thread.wait();
    }

    Host &host() { return *m_host; }
    quint16 hostPort() const { return m_host->server.serverPort(); }
    quint16 yardstickPort(const char *request)
    {
        run([this, request] {
            m_yardstick = std::make_unique<Yardstick>(m_host->server.answer(QString::fromLatin1(request)));
        });
        return m_yardstick->server.serverPort();
    }
    void run(const std::function<void()> &task)
    {
        QMetaObject::invokeMethod(&m_context, task, Qt::BlockingQueuedConnection);
    }

private:
    QThread m_thread;
    QObject m_context;
    std::unique_ptr<Host> m_host;
    std::unique_ptr<Yardstick> m_yardstick;
};

/// Bytes of the answer, 0 when none came.
qint64 ask(quint16 port, const char *request)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
    socket.write(request);
    while (socket.state() != QAbstractSocket::UnconnectedState && socket.waitForReadyRead(2000)) { }
    return socket.readAll().size();
}

double percentile(std::vector<double> &times, double part)
{
    std::sort(times.begin(), times.end());
    return times[static_cast<std::size_t>(part * static_cast<double>(times.size() - 1))];
}

/// Request to answer, by turns from the service and from the yardstick.
void roundTrip(benchmark::State &state, const char *request)
{
    ServerThread &servers = ServerThread::instance();
    const quint16 ports[] = {servers.hostPort(), servers.yardstickPort(request)};
    std::vector<double> times[2];
    qint64 bytes = 0;
    for (auto _ : state) {
        for (int i = 0; i < 2; ++i) {
            const auto start = std::chrono::steady_clock::now();
            bytes = ask(ports[i], request);
            times[i].push_back(
                std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
            if (bytes == 0) {
                state.SkipWithError("no answer");
                return;
            }
        }
    }
    const char *names[][2] = {{"service_median_us", "service_p99_us"}, {"bare_median_us", "bare_p99_us"}};
    for (int i = 0; i < 2; ++i) {
        state.counters[names[i][0]] = percentile(times[i], 0.5);
        state.counters[names[i][1]] = percentile(times[i], 0.99);
    }
    state.counters["ratio_median"] = percentile(times[0], 0.5) / percentile(times[1], 0.5);
    state.counters["ratio_p99"] = percentile(times[0], 0.99) / percentile(times[1], 0.99);
    state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK_CAPTURE(roundTrip, gethalvinstatus, kStatus)->Iterations(3000)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(roundTrip, getspectrum, kSpectrum)->Iterations(1500)->Unit(benchmark::kMicrosecond);

/// One second of 32 channels at 1000 Hz, serialised and framed.
void serialiseData(benchmark::State &state)
{
    qint64 bytes = 0;
    ServerThread::instance().run([&state, &bytes] {
        Host &host = ServerThread::instance().host();
        for (auto _ : state) {
            state.PauseTiming();
            host.server.appendNewData(static_cast<int>(host.samples.size()), host.samples.data());
            state.ResumeTiming();
            bytes = host.server.answer(QString::fromLatin1(kData)).size();
        }
    });
    state.counters["bytes"] = static_cast<double>(bytes);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * bytes);
}
BENCHMARK(serialiseData)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace
