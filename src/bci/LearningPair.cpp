#include "bci/LearningPair.h"

#include "bci/EEGBCIPreprocessor.h"
#include "bci/EEGBCIProcessor.h"
#include "bci/EMGBCIPreprocessor.h"
#include "bci/EMGBCIProcessor.h"
#include "bci/EMGGesturePreprocessor.h"
#include "bci/EMGGestureProcessor.h"
#include "bci/PortalPreprocessor.h"
#include "bci/PortalProcessor.h"

#include <algorithm>
#include <array>

namespace bp {

namespace {

constexpr float kNoArtefactLimit = -1.0f;
constexpr int kMinimumExamples = 2;

using Settings = LearningSettings;

struct Kind
{
    const char *name;
    const char *resultName;
    Preprocessor *(*makePreprocessor)(const Settings &settings);
    Processor *(*makeProcessor)(const Settings &settings);
};

PortalPreprocessor::PortalMode portalMode(const Settings &settings)
{
    return settings.components ? PortalPreprocessor::Components : PortalPreprocessor::Spectral;
}

const std::array<Kind, 4> kKinds{{
    {"eeg", "label", [](const Settings &s) -> Preprocessor * { return new EEGBCIPreprocessor(s.bands); },
     [](const Settings &s) -> Processor * { return new EEGBCIProcessor(s.minimumRate); }},
    {"portal", "Class",
     [](const Settings &s) -> Preprocessor * {
         return new PortalPreprocessor(s.band.first, s.band.second, portalMode(s));
     },
     [](const Settings &s) -> Processor * {
         return new PortalProcessor(s.neighbours, s.minimumRate, 0, kNoArtefactLimit, s.channels, portalMode(s));
     }},
    {"emg", "Class", [](const Settings &s) -> Preprocessor * { return new EMGBCIPreprocessor(s.envelope); },
     [](const Settings &) -> Processor * { return new EMGBCIProcessor; }},
    {"gesture", "Class", [](const Settings &s) -> Preprocessor * { return new EMGGesturePreprocessor(s.order, true); },
     [](const Settings &s) -> Processor * {
         return new EMGGestureProcessor(s.minimumRate, true, s.shrinkagePercent, kMinimumExamples, s.rejectDistance);
     }},
}};

} // namespace

LearningPair::LearningPair() = default;
LearningPair::~LearningPair() = default;
LearningPair::LearningPair(LearningPair &&) noexcept = default;
LearningPair &LearningPair::operator=(LearningPair &&) noexcept = default;

QStringList learningKinds()
{
    QStringList names;
    for (const Kind &kind : kKinds) {
        names << QString::fromLatin1(kind.name);
    }
    return names;
}

LearningPair makeLearningPair(const LearningSettings &settings)
{
    LearningPair pair;
    const auto kind = std::find_if(kKinds.cbegin(), kKinds.cend(), [&settings](const Kind &candidate) {
        return settings.kind == QLatin1String(candidate.name);
    });
    if (kind != kKinds.cend()) {
        pair.preprocessor.reset(kind->makePreprocessor(settings));
        pair.processor.reset(kind->makeProcessor(settings));
        pair.resultName = QString::fromLatin1(kind->resultName);
    }
    return pair;
}

} // namespace bp
