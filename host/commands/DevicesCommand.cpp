#include "Console.h"
#include "acquire/DeviceFinder.h"
#include "commands/Commands.h"

#include <QCommandLineParser>
#include <QJsonArray>
#include <QJsonObject>

namespace {

QList<float> ratesOf(const AmplifierInfo &info)
{
    QList<float> rates;
    info.getFrequencisList(rates);
    return rates;
}

QJsonObject toJson(const AmplifierInfo &info)
{
    QJsonObject object = info.getJsonObject();
    QJsonArray rates;
    for (const float rate : ratesOf(info)) {
        rates << static_cast<double>(rate);
    }
    object.insert(QStringLiteral("frequencies"), rates);
    return object;
}

QString toLine(const AmplifierInfo &info)
{
    QStringList rates;
    for (const float rate : ratesOf(info)) {
        rates << QString::number(static_cast<double>(rate));
    }
    return QStringLiteral("%1 %2 %3 channels  %4")
        .arg(info.name(), -16)
        .arg(info.serial(), -12)
        .arg(info.channels(), 4)
        .arg(rates.isEmpty() ? QStringLiteral("no rate yet")
                             : rates.join(QStringLiteral(", ")) + QStringLiteral(" Hz"));
}

} // namespace

int runDevices(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Lists what the device plug-ins find: name, serial, channels, rates."));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print a JSON array."));
    parser.addOption(json);
    Console::ExitStatus status = Console::Success;
    if (!Console::parse(parser, arguments, status)) {
        return status;
    }

    if (!parser.positionalArguments().isEmpty()) {
        Console::error(
            QStringLiteral("devices takes options only, not \"%1\".").arg(parser.positionalArguments().constFirst()));
        return Console::WrongUsage;
    }
    DeviceFinder finder;
    const QList<AmplifierInfo> devices = finder.search();
    if (parser.isSet(json)) {
        QJsonArray array;
        for (const AmplifierInfo &info : devices) {
            array << toJson(info);
        }
        Console::printJson(array);
        return Console::Success;
    }
    for (const AmplifierInfo &info : devices) {
        Console::print(toLine(info));
    }
    if (devices.isEmpty()) {
        Console::error(QStringLiteral(
            "No device was found: put device plug-ins into a folder of HalvinDevices beside the program."));
        return Console::Failure;
    }
    return Console::Success;
}
