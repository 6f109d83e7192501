#pragma once

#include "bci/LearningPair.h"
#include "common/BPExport.h"

#include <QMap>
#include <QString>
#include <QStringList>

namespace bp {

/// A trained pair as a file.
///
/// JSON, UTF-8: "format" ("BioProcessing model"), "version" (1), "kind", "rate" (Hz), "window" and "step" (seconds),
/// "highpass" (Hz, 0 for none), "channels" (names, in the order of a window's rows), "classes" (label → name),
/// "preprocessor" and "processor" (what their model() gives). Keys that a reader doesn't know are left alone; a version
/// above its own is refused.
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

    /// Replaces the file only when everything could be written.
    /// @param reason  one sentence when the result is false
    bool write(const QString &path, QString &reason) const;
    /// Makes the pair anew. When the result is false, nothing here is of use.
    bool read(const QString &path, QString &reason);
};

} // namespace bp
