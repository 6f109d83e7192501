// A minimal host: finds the simulator, acquires three seconds of two channels, shows a rhythm, records an EDF+ file.
#include "algorithms/ParamFactory.h"
#include "devices/Amplifier.h"
#include "devices/AmplifierChannel.h"
#include "devices/DeviceManager.h"
#include "montage/Montage.h"
#include "pipeline/DataCompound.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QLoggingCategory>
#include <QTextStream>
#include <QTimer>

/// Results come to a slot of this very signature.
class Results : public QObject
{
    Q_OBJECT
public:
    float alpha = -1.0f;

public slots:
    void takeAlgorithmData(const QString &, const UnitParams &params, unsigned int, const vector<float> &data)
    {
        if (params.getParamDescriptor() == QLatin1String("alpha") && !data.empty()) {
            alpha = data.front();
        }
    }
};

namespace {

QList<AmplifierInfo> s_devices;

Amplifier *findDevice(const QString &name)
{
    DeviceManager *manager = DeviceManager::Instance();
    manager->setCallBackFunction([](QList<AmplifierInfo> &devices) { s_devices = devices; });
    QEventLoop round;
    QObject::connect(manager, &DeviceManager::searchCompleted, &round, &QEventLoop::quit);
    manager->startSearchThread();
    round.exec();
    manager->stopSearchThread();
    for (const AmplifierInfo &info : qAsConst(s_devices)) {
        if (info == name) {
            return manager->openDevice(info);
        }
    }
    return nullptr;
}

/// An electrode against the reference of the device, 1 to 30 Hz.
AmplifierChannel *makeChannel(const Montage &device, const QString &name)
{
    auto *channel = new AmplifierChannel(device[static_cast<unsigned>(device.getIndexByName(name))]);
    channel->setHPF(1.0f);
    channel->setLPF(30.0f);
    return channel;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("tavrix.console=false")); // without it, the trace is on
    QTextStream out(stdout);
    const QString path = application.arguments().value(1, QStringLiteral("example.edf"));

    Amplifier *device = findDevice(QStringLiteral("Simulator 8"));
    if (device == nullptr) {
        out << "No simulator: is HalvinDevices/ beside this program?\n";
        return 1;
    }
    const auto montage = QSharedPointer<Montage>::create(); // owns its channels
    montage->push_back(makeChannel(*device->getMontage(), QStringLiteral("O1")));
    montage->push_back(makeChannel(*device->getMontage(), QStringLiteral("O2")));
    int blocks = 0;
    Results results;
    DataCompound compound(device, montage);
    QObject::connect(&compound, &DataCompound::newSampleData, [&blocks] { ++blocks; });
    QObject::connect(&compound, &DataCompound::recordError, [&out](const QString &reason) { out << reason << '\n'; });
    QObject::connect(&compound, &DataCompound::endWritingAndCloseFile, &QCoreApplication::quit);
    UnitParams alpha = ParamFactory::makeRhythmAlpha(QString()); // of all channels; docs/algorithms.md has the keys
    alpha.setParamValue(QStringLiteral("time"), QStringLiteral("1"));
    compound.setAlgorithmParams(&results, {alpha});
    compound.startRecord(path, true, false, 0);
    compound.startReadData();
    QTimer::singleShot(3000, &compound, &DataCompound::stopRecord);
    QTimer::singleShot(10000, &application, [] { QCoreApplication::exit(1); });
    const int status = QCoreApplication::exec();
    compound.stopReadData();
    DeviceManager::Instance()->releaseDevice(device);

    out << blocks << " blocks, alpha " << results.alpha << " of 100, recorded into " << path << '\n';
    return blocks > 0 && results.alpha >= 0.0f ? status : 1;
}

#include "main.moc"
