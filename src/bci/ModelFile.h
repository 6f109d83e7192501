#pragma once

#include "bci/LearningPair.h"
#include "common/BPExport.h"

#include <QMap>
#include <QString>
#include <QStringList>

class QJsonObject;

namespace bp {

/// A trained pair as a file.
///
/// JSON, UTF-8: "format" ("BioProcessing model"), "version" (1), "kind", "rate" (Hz), "window" and "step" (seconds),
/// "highpass" (Hz, 0 for none), "channels" (names, in the order of a window's rows), "classes" (label → name),
/// "preprocessor" and "processor" (what their model() returns). A reader ignores keys that it doesn't know and rejects
/// a version above its own. A model with a fault() is neither written nor read.
struct BIOPROCESSING_EXPORT ModelFile
{
    QString kind;
    int rate = 0; ///< Hz
    double window = 0.0; ///< seconds
    double step = 0.0; ///< seconds
    double highPass = 0.0; ///< Hz, of the signals before they are cut into windows; 0 for none
    QStringList channels;
    QMap<int, QString> classes;
    LearningPair pair;

    static constexpr int kMaxWindowSamples = 1 << 25; ///< over all channels
    static constexpr int kMaxRate = 1000000; ///< Hz

    /// Samples per channel, as LearningCSM cuts its windows; of the step at least 1. Only without a fault.
    std::size_t windowSamples() const;
    std::size_t stepSamples() const;
    /// What is wrong with the values beside the pair, as the rest of a sentence about the file; empty when nothing is:
    /// a rate up to kMaxRate, a window of one sample to kMaxWindowSamples, a step up to that, a high-pass below half
    /// the rate, channels of different names, and a name for every class.
    QString fault() const;

    /// Replaces the file only when everything could be written.
    /// @param reason  one sentence when the result is false
    /// @return false also for a pair that is missing or untrained
    bool write(const QString &path, QString &reason) const;
    /// Creates the pair and tests it on a window of zeros. When the result is false, no member may be used.
    bool read(const QString &path, QString &reason);

private:
    bool readJson(const QString &path, const QJsonObject &json, QString &reason);
    bool judgesSilence();
};

} // namespace bp
