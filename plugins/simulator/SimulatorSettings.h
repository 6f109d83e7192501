#pragma once

#include "SignalGenerator.h"

#include "algorithms/UnitParams.h"

#include <cstdint>

/// The parameters of a simulated device, as they were when an acquisition began.
struct SimulatorSettings
{
    SignalSettings signal;
    double speed = 1.0; ///< seconds of signal per second; 0: as fast as the reader takes it
    double duration = 0.0; ///< s of signal, then the end; 0: endless
    std::int64_t blockLimit = 0; ///< most samples per channel in one read; 0: all that is due

    // Faults.
    bool refuseStart = false;
    int errorCode = 0; ///< negative; 0: no error
    double errorAfter = 0.0; ///< s of signal before the error
    int zeroEvery = 0; ///< every n-th read gives no sample; 0: none
    int remainderEvery = 0; ///< every n-th read leaves a remainder; 0: none
    double latePercent = 0.0; ///< share of the samples due that waits for a later read

    /// The set a new device has: its keys, limits and defaults.
    static UnitParams defaultParams();
    static SimulatorSettings fromParams(const UnitParams &params);

    /// Hz, one of SimulatorLayout::kRates.
    static float rate(const UnitParams &params);
    /// Chooses a rate of SimulatorLayout::kRates by its index.
    static void setRateIndex(UnitParams &params, int index);
};
