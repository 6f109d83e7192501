#include "SimulatorSettings.h"

#include "SimulatorLayout.h"

#include "pacing/DeviceParameters.h"

using DeviceParameters::CheckBox;
using DeviceParameters::Choice;
using DeviceParameters::Description;
using DeviceParameters::Integer;
using DeviceParameters::number;
using DeviceParameters::Real;

namespace {

/// Rows of kParameters.
enum Row {
    Frequency,
    Seed,
    HeartRate,
    MainsFrequency,
    MainsAmplitude,
    EyesPeriod,
    Speed,
    Duration,
    Block,
    RefuseStart,
    ErrorCode,
    ErrorAfter,
    ZeroEvery,
    RemainderEvery,
    LatePercent
};

constexpr Description kParameters[]{
    {"frequency", QT_TRANSLATE_NOOP("Generic", "Sampling rate, Hz"), Choice, "0", "0", "3", "1", "250;500;1000;2000"},
    {"seed", QT_TRANSLATE_NOOP("Generic", "Seed of the signal"), Integer, "1", "0", "2147483647", "1", ""},
    {"heart_rate", QT_TRANSLATE_NOOP("Generic", "Heart rate, bpm"), Real, "72", "20", "240", "1", ""},
    {"mains_freq", QT_TRANSLATE_NOOP("Generic", "Mains frequency, Hz"), Real, "50", "45", "65", "10", ""},
    {"mains_amp", QT_TRANSLATE_NOOP("Generic", "Mains hum, µV"), Real, "2", "0", "1000", "0.1", ""},
    {"eyes_period", QT_TRANSLATE_NOOP("Generic", "Eyes open and closed for, sec"), Real, "10", "0", "3600", "1", ""},
    {"speed", QT_TRANSLATE_NOOP("Generic", "Speed, 0 for the fastest"), Real, "1", "0", "1000", "0.1", ""},
    {"duration", QT_TRANSLATE_NOOP("Generic", "Duration, sec"), Real, "0", "0", "1000000", "1", ""},
    {"block", QT_TRANSLATE_NOOP("Generic", "Samples per read at most"), Integer, "0", "0", "1000000", "1", ""},
    {"refuse_start", QT_TRANSLATE_NOOP("Generic", "Fault: refuse to start"), CheckBox, "0", "0", "1", "1", ""},
    {"error_code", QT_TRANSLATE_NOOP("Generic", "Fault: error code"), Integer, "0", "-1000", "0", "1", ""},
    {"error_after", QT_TRANSLATE_NOOP("Generic", "Fault: error after, sec"), Real, "0", "0", "1000000", "0.1", ""},
    {"zero_every", QT_TRANSLATE_NOOP("Generic", "Fault: no samples on every n-th read"), Integer, "0", "0", "1000000",
     "1", ""},
    {"remainder_every", QT_TRANSLATE_NOOP("Generic", "Fault: remainder on every n-th read"), Integer, "0", "0",
     "1000000", "1", ""},
    {"late_percent", QT_TRANSLATE_NOOP("Generic", "Fault: samples that come late, %"), Real, "0", "0", "95", "1", ""},
};

} // namespace

UnitParams SimulatorSettings::defaultParams()
{
    UnitParams params;
    params.setParamName(QStringLiteral("Simulator"));
    DeviceParameters::appendAll(params, kParameters);
    return params;
}

SimulatorSettings SimulatorSettings::fromParams(const UnitParams &params)
{
    const auto value = [&params](Row row) { return number(params, kParameters[row]); };
    SimulatorSettings settings;
    settings.signal.rate = static_cast<double>(rate(params));
    settings.signal.seed = static_cast<std::uint64_t>(value(Seed));
    settings.signal.heartRate = value(HeartRate);
    settings.signal.mainsFrequency = value(MainsFrequency);
    settings.signal.mainsAmplitude = value(MainsAmplitude);
    settings.signal.eyesPeriod = value(EyesPeriod);
    settings.speed = value(Speed);
    settings.duration = value(Duration);
    settings.blockLimit = static_cast<std::int64_t>(value(Block));
    settings.refuseStart = value(RefuseStart) > 0.0;
    settings.errorCode = static_cast<int>(value(ErrorCode));
    settings.errorAfter = value(ErrorAfter);
    settings.zeroEvery = static_cast<int>(value(ZeroEvery));
    settings.remainderEvery = static_cast<int>(value(RemainderEvery));
    settings.latePercent = value(LatePercent);
    return settings;
}

float SimulatorSettings::rate(const UnitParams &params)
{
    return SimulatorLayout::kRates[static_cast<std::size_t>(number(params, kParameters[Frequency]))];
}

void SimulatorSettings::setRateIndex(UnitParams &params, int index)
{
    params.setParamValue(QLatin1String(kParameters[Frequency].key), QString::number(index));
}
