#pragma once

#include "devices/AmplifierInfo.h"
#include "pipeline/reader/MontageMix.h"

#include <QSharedPointer>

#include <memory>

class Amplifier;
class Montage;

namespace bp {

class FilterFeed;

/// What a reader's loop needs of a device and a montage, taken on the thread that owns them: the loop never looks at
/// the inputs, the scales and the filter lists of the channels itself.
struct MontageSetup
{
    /// Builds the montage's filters anew for the device's rate. Input numbers beyond the device's channels become none,
    /// and are traced.
    MontageSetup(Amplifier &device, const QSharedPointer<Montage> &montage);

    Amplifier *device; ///< borrowed
    QSharedPointer<Montage> montage;
    float frequency; ///< Hz
    AmplifierInfo info; ///< after the frequency: a device may bring it up to date when it is asked for its rate
    bool filterFree; ///< the device filters by itself, the montage only takes differences
    MontageTable table;
    unsigned leftReferent = 0; ///< device channel, 0 is none
    unsigned rightReferent = 0;
    std::shared_ptr<FilterFeed> filters; ///< follows the channels' lists

private:
    void readChannels();
    void readReferents();
};

} // namespace bp
