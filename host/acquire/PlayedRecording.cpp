#include "acquire/PlayedRecording.h"

#include "algorithms/UnitParams.h"
#include "commands/Refusal.h"
#include "devices/Amplifier.h"
#include "files/EDFReader.h"

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
    notice = reader.notice();
    start = reader.getStartDateTime();
    reader.getPatientInfo(patient);
    seconds = playedSeconds(reader);
    reader.close();
    if (!device.setFilePath(path)) {
        refuse(QStringLiteral("%1 has no signal to play.").arg(path));
    }
}

void PlayedRecording::beginWhereDeviceDoes(Amplifier &device)
{
    UnitParams params;
    device.getUnitParams(params);
    const double skipped = std::min(parameter(params, "start"), seconds);
    passSeconds = parameter(params, "repeat") > 0.0 ? seconds - skipped : 0.0;
    start = start.addMSecs(std::llround(skipped * 1000.0));
    annotations.clear();
    QList<AnnotationStrct> all;
    device.getAnnotation(all);
    for (AnnotationStrct annotation : qAsConst(all)) {
        annotation.onset -= skipped;
        if (annotation.onset >= 0.0 && !annotation.text.isEmpty()) {
            annotations << annotation;
        }
    }
    std::stable_sort(annotations.begin(), annotations.end(),
                     [](const AnnotationStrct &a, const AnnotationStrct &b) { return a.onset < b.onset; });
}

QStringList deviceNotes(Amplifier &device)
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
    return notes;
}
