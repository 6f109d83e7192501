#include "algorithms/UnitParams.h"
#include "devices/Amplifier.h"
#include "devices/DeviceManager.h"
#include "files/EDFReader.h"
#include "montage/Montage.h"
#include "pipeline/DataCompound.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>

// A host of another project: finds the simulator in the installed plug-ins, records three seconds and reads them again.

namespace {

constexpr int kTimeoutMs = 20000;
constexpr int kSeconds = 3;

AmplifierInfo s_simulator;

void takeDevices(QList<AmplifierInfo> &devices)
{
    for (const AmplifierInfo &device : qAsConst(devices)) {
        if (device.name().startsWith(QLatin1String("Simulator"))) {
            s_simulator = device;
        }
    }
}

template <class Sender, class Signal> void waitFor(Sender *sender, Signal signal, void (*start)(Sender *))
{
    QEventLoop loop;
    QObject::connect(sender, signal, &loop, &QEventLoop::quit);
    QTimer::singleShot(kTimeoutMs, &loop, &QEventLoop::quit);
    start(sender);
    loop.exec();
}

Amplifier *openSimulator()
{
    DeviceManager *manager = DeviceManager::Instance();
    manager->setCallBackFunction(takeDevices);
    waitFor(
        manager, &DeviceManager::searchCompleted, +[](DeviceManager *m) { m->startSearchThread(); });
    manager->stopSearchThread();
    Amplifier *device = manager->openDevice(s_simulator);
    if (device != nullptr) {
        UnitParams params;
        device->getUnitParams(params);
        params.setParamValue(QStringLiteral("duration"), QString::number(kSeconds));
        params.setParamValue(QStringLiteral("speed"), QStringLiteral("0"));
        device->setUnitParams(params);
    }
    return device;
}

void record(Amplifier *device, const QString &path)
{
    DataCompound compound(device, device->getMontage());
    compound.startRecord(path, true, false, 0);
    waitFor(
        &compound, &DataCompound::currentDeviceReturnError, +[](DataCompound *c) { c->startReadData(); });
    waitFor(
        &compound, &DataCompound::recordStopped, +[](DataCompound *c) { c->stopRecord(); });
}

int fail(const QString &what)
{
    std::fprintf(stderr, "%s\n", qPrintable(what));
    return 1;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    Amplifier *device = openSimulator();
    if (device == nullptr) {
        return fail(QStringLiteral("There is no simulator in HalvinDevices beside the program."));
    }
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("recording.edf"));
    record(device, path);
    EDFReader reader(path);
    if (!reader.open()) {
        return fail(reader.lastError());
    }
    const unsigned channels = reader.getFileMontage()->size();
    const auto samples = static_cast<int>(kSeconds * device->getFreqValue());
    const auto read = static_cast<int>(reader.getChannelData(0, 0, 1000000).size());
    if (channels != device->getMontage()->size() || read != samples) {
        return fail(QStringLiteral("Recorded %1 channels of %2 samples.").arg(channels).arg(read));
    }
    std::printf("%u channels of %d samples\n", channels, read);
    return 0;
}
