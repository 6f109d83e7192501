#include "acquire/PlayedRecording.h"

#include "algorithms/UnitParams.h"
#include "commands/Refusal.h"
#include "devices/Amplifier.h"
#include "files/EDFReader.h"
#include "pipeline/DataCompound.h"

#include <algorithm>
#include <cmath>

namespace {

double parameter(const UnitParams &params, const char *key)
{
    return params.getParamValue(QLatin1String(key)).toDouble();
}

/// Seconds of the signals that are played, the fastest ones.
double playedSeconds(const EDFReader &reader)
{
    float rate = 0.0f;
    double seconds = 0.0;
    for (int channel = 0; channel < reader.getChannelCount(); ++channel) {
        if (reader.getChannelSampleRate(channel) > rate) {
            rate = reader.getChannelSampleRate(channel);
            seconds = static_cast<double>(reader.getChannelSampleCount(channel)) / static_cast<double>(rate);
        }
    }
    return seconds;
}

} // namespace

void PlayedRecording::open(Amplifier &device, const QString &path)
{
    EDFReader reader(path);
    if (!reader.open()) {
        refuse(reader.lastError());
    }
    if (!reader.notice().isEmpty()) {
        notes << reader.notice();
    }
    start = reader.getStartDateTime();
    reader.getPatientInfo(patient);
    seconds = playedSeconds(reader);
    reader.close();
    if (!device.setFilePath(path)) {
        refuse(QStringLiteral("%1 has no signal to play.").arg(path));
    }
}

PlayedRecording PlayedRecording::fromWhereDeviceBegins(Amplifier &device) const
{
    UnitParams params;
    device.getUnitParams(params);
    const double skipped = std::min(parameter(params, "start"), seconds);
    PlayedRecording played = *this;
    played.passSeconds = parameter(params, "repeat") > 0.0 ? seconds - skipped : 0.0;
    played.start = start.addMSecs(std::llround(skipped * 1000.0));
    QList<AnnotationStrct> all;
    device.getAnnotation(all);
    int behind = 0;
    for (AnnotationStrct annotation : qAsConst(all)) {
        annotation.onset -= skipped;
        if (annotation.onset >= 0.0 && !annotation.text.isEmpty()) {
            played.annotations << annotation;
            behind += annotation.onset > seconds - skipped ? 1 : 0;
        }
    }
    std::stable_sort(played.annotations.begin(), played.annotations.end(),
                     [](const AnnotationStrct &a, const AnnotationStrct &b) { return a.onset < b.onset; });
    if (behind > 0) {
        played.notes << QStringLiteral("Annotations behind the end of the signal are not played: %1.").arg(behind);
    }
    return played;
}

void PlayedRecording::giveTo(DataCompound &compound) const
{
    compound.setSignalLabels(annotations, passSeconds);
    compound.setSignalStartTime(start);
    compound.setPatientInfo(patient);
}

QStringList deviceNotes(Amplifier &device, bool isRecorded)
{
    UnitParams params;
    device.getUnitParams(params);
    QStringList notes;
    const UnitParams &values = params;
    if (!values.getParamValue(QStringLiteral("left_out")).isEmpty()) {
        notes << QStringLiteral("Left out, since their rate differs: %1.")
                     .arg(QString(values.getParamValue(QStringLiteral("left_out")))
                              .replace(QLatin1Char(';'), QLatin1String(", ")));
    }
    const auto rate = static_cast<double>(device.getFreqValue());
    if (isRecorded && rate >= 1.0 && rate != std::floor(rate)) {
        notes << QStringLiteral(
                     "The rate of %1 Hz is recorded as %2 Hz, since a recording has whole samples per second: "
                     "times in it are %3 % longer.")
                     .arg(rate)
                     .arg(std::floor(rate))
                     .arg(100.0 * (rate / std::floor(rate) - 1.0), 0, 'g', 2);
    }
    return notes;
}
