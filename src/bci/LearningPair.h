#pragma once

#include "common/BPExport.h"

#include <QPair>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

class Preprocessor;
class Processor;

namespace bp {

/// Parameters of a preprocessor/processor pair. A pair uses those of its kind.
struct LearningSettings
{
    QString kind; ///< one of learningKinds()
    int channels = 1; ///< rows of a window
    float minimumRate = 0.5f; ///< 0 … 1: what every class has to reach in the validation
    std::vector<QPair<float, float>> bands{{4.0f, 8.0f}, {8.0f, 13.0f}, {13.0f, 30.0f}}; ///< "eeg", Hz
    QPair<float, float> band{4.0f, 30.0f}; ///< "portal", Hz
    int neighbours = 5; ///< "portal"
    bool components = false; ///< "portal": compares principal components instead of amplitudes
    int envelope = 5; ///< "emg": cut-off, Hz
    int order = 4; ///< "gesture": of the autoregressive model
    int shrinkagePercent = -1; ///< "gesture": see EMGGestureProcessor; −1: from the data
    float rejectDistance = 0.0f; ///< "gesture": see EMGGestureProcessor; 0 never rejects
};

/// A preprocessor, which computes features of windows, and the processor that learns from these features.
struct BIOPROCESSING_EXPORT LearningPair
{
    LearningPair();
    ~LearningPair();
    LearningPair(LearningPair &&) noexcept;
    LearningPair &operator=(LearningPair &&) noexcept;

    std::unique_ptr<Preprocessor> preprocessor;
    std::unique_ptr<Processor> processor;
    QString resultName; ///< under which the processor publishes the class
};

/// "eeg", "portal", "emg" and "gesture".
BIOPROCESSING_EXPORT QStringList learningKinds();
/// The pair has no objects when the kind is unknown.
BIOPROCESSING_EXPORT LearningPair makeLearningPair(const LearningSettings &settings);

} // namespace bp
