#include "files/edf/EdfRecordingLimits.h"

#include <edflib.h>

#include <algorithm>

namespace {

// EDFlib gives each annotation signal room for one annotation per record. Sixteen of them take labels at the pace of
// any paradigm, also when they come in bursts, for less than 2 kB per second of recording.
constexpr int kAnnotationSignals = 16;
// Files with more signals, those for annotations included, are written by EDFlib but refused by its reader.
constexpr int kMostSignals = EDFLIB_MAXSIGNALS;
constexpr int kMostChannels = kMostSignals - 1;
constexpr qint64 kAnnotationSignalBytes = 128; ///< a little more than EDFlib takes

} // namespace

namespace bp {

int EdfRecordingLimits::annotationSignals(int channelCount)
{
    return std::min(kAnnotationSignals, kMostSignals - channelCount);
}

Outcome EdfRecordingLimits::check(int channelCount, qint64 samplesPerRecord)
{
    if (channelCount < 1 || channelCount > kMostChannels) {
        return Outcome::failure(QStringLiteral("it would have %1 channels, and the format takes 1 to %2")
                                    .arg(channelCount)
                                    .arg(kMostChannels));
    }
    if (samplesPerRecord < 1) {
        return Outcome::failure(QStringLiteral("the sampling rate is below 1 Hz"));
    }
    const qint64 annotationBytes = annotationSignals(channelCount) * kAnnotationSignalBytes;
    if (samplesPerRecord * channelCount * kSampleBytes + annotationBytes > kMostRecordBytes) {
        return Outcome::failure(
            QStringLiteral("%1 channels at %2 Hz exceed the 10 MB that one second of recording may have")
                .arg(channelCount)
                .arg(samplesPerRecord));
    }
    return Outcome::good();
}

} // namespace bp
