#include "server/handlers/DeviceRequests.h"

#include "server/ParamLimits.h"
#include "server/handlers/Conditions.h"

#include <algorithm>

namespace {

constexpr ProcessRequest::Precondition kIsIdle{bp::isIdle, "Halvin in state read mode"};

/// Puts the device of that name into the exchange; false when there is none.
bool chooseDevice(const QString &name, const QList<AmplifierInfo> &devices, RequestExchange &exchange)
{
    const auto found =
        std::find_if(devices.cbegin(), devices.cend(), [&name](const AmplifierInfo &device) { return device == name; });
    if (name.isEmpty() || found == devices.cend()) {
        return false;
    }
    exchange.name = name;
    exchange.device = *found;
    return true;
}

} // namespace

RequestGetDiscoverDevice::RequestGetDiscoverDevice(server_state &state, const QList<AmplifierInfo> &devices)
    : ProcessRequest(state,
                     {on("discoverdevices", &RequestGetDiscoverDevice::discover, {kIsIdle}),
                      on("getdeviceparametrs", &RequestGetDiscoverDevice::getParameters),
                      on("setdeviceparametrs", &RequestGetDiscoverDevice::setParameters)})
    , m_devices(devices)
{
}

void RequestGetDiscoverDevice::discover()
{
    QJsonArray list;
    for (const AmplifierInfo &device : m_devices) {
        list.append(QJsonObject{{QStringLiteral("name"), device.name()},
                                {QStringLiteral("serial"), device.serial()},
                                {QStringLiteral("channel"), device.channels()}});
    }
    ok(QJsonObject{{QStringLiteral("result"), true}, {QStringLiteral("devices"), list}, {QStringLiteral("t"), now()}});
}

void RequestGetDiscoverDevice::getParameters()
{
    if (!chooseDevice(text("name"), m_devices, m_exchange)) {
        error(QStringLiteral("Wrong device name"));
    } else if (askServer("deviceParametrs")) {
        if (m_exchange.params.isEmpty()) {
            error(QStringLiteral("Can not find device"));
        } else {
            ok(m_exchange.params.toJson());
        }
    }
}

void RequestGetDiscoverDevice::setParameters()
{
    if (!chooseDevice(text("name"), m_devices, m_exchange)) {
        error(QStringLiteral("Wrong device name"));
        return;
    }
    if (!askServer("deviceParametrs")) {
        return;
    }
    // Only the values: the name in the body is the device's, not the parameter set's.
    const QJsonValue values = body().value(QLatin1String("data"));
    const UnitParams before = m_exchange.params;
    const bool isTaken = values.isArray() && !before.isEmpty()
        && m_exchange.params.fromJson(QJsonObject{{QStringLiteral("data"), values}});
    if (!isTaken || !bp::valuesProblem(before, values.toArray()).isEmpty()) {
        error(QStringLiteral("Wrong param data"));
    } else if (askServer("setDeviceParametrs")) {
        ok();
    }
}

RequestStartDevice::RequestStartDevice(server_state &state, const QList<AmplifierInfo> &devices)
    : ProcessRequest(state, {on("startdevice", &RequestStartDevice::startDevice, {kIsIdle})})
    , m_devices(devices)
{
}

void RequestStartDevice::startDevice()
{
    if (!chooseDevice(text("device"), m_devices, m_exchange)) {
        error(QStringLiteral("Wrong device name"));
        return;
    }
    m_exchange.montageName = text("montage");
    if (askServer(m_exchange.montageName.isEmpty() ? "startDevice" : "startDeviceWithMontage")) {
        ok(QStringLiteral("Device") + m_exchange.name + QStringLiteral(" is starting"));
    }
}

RequestStopDevice::RequestStopDevice(server_state &state)
    : ProcessRequest(
        state,
        {on("stopdevice", &RequestStopDevice::stopDevice, {{bp::isReading, "Halvin is not in state read mode"}})})
{
}

void RequestStopDevice::stopDevice()
{
    if (askModel("stopDevice")) {
        ok(QStringLiteral("Device stop"));
    }
}
