#pragma once

#include "devices/Amplifier.h"

#include <QMap>
#include <QString>

#include <algorithm>
#include <vector>

/// Drives a device as the reader does and collects everything it delivers, the tails of remainders included.
struct DeviceRun
{
    std::vector<std::vector<float>> channels; ///< by device channel, in the order of delivery
    std::vector<int> counts; ///< what each first call returned
    std::vector<int> remainders; ///< the remainder each first call announced, 0 for none
    int code = 0; ///< negative: ended the run
    QString breach; ///< of the acquisition contract; empty when there was none

    std::size_t samples() const { return channels.empty() ? 0 : channels.front().size(); }

    /// Sets parameters over the defaults.
    static void configure(Amplifier &device, const QMap<QString, QString> &values)
    {
        device.returnDefaultValue();
        device.setCurrentPropValue(values);
    }

    /// @param capacities floats, by read, from the first again after the last
    /// @param samples    ends the run after at least as many samples per channel
    static DeviceRun of(Amplifier &device, const std::vector<int> &capacities, std::size_t samples)
    {
        DeviceRun run;
        run.channels.resize(static_cast<std::size_t>(device.getAmplifierInfo().channels()));
        run.code = device.startAcquisition() ? 0 : -1;
        // A device that never delivers ends here, not in a hang.
        for (std::size_t read = 0; run.code >= 0 && run.samples() < samples && read < 100000; ++read) {
            const int capacity = capacities[read % capacities.size()];
            int remainder = 0;
            const int taken = run.call(device, capacity, remainder) * static_cast<int>(run.channels.size());
            run.counts.push_back(taken / static_cast<int>(run.channels.size()));
            run.remainders.push_back(remainder);
            if (run.code >= 0 && remainder > 0) {
                const int room = std::max(capacity - taken, remainder);
                remainder = -1;
                run.call(device, room, remainder);
            }
        }
        return run;
    }

private:
    static constexpr float kUntouched = -1.0e30f;

    int call(Amplifier &device, int capacity, int &remainder)
    {
        std::vector<float> block(static_cast<std::size_t>(capacity) + 1, kUntouched);
        const int n = device.readData(capacity, block.data(), remainder);
        code = std::min(n, 0);
        const std::ptrdiff_t count = std::max(n, 0);
        const auto end = block.begin() + count * static_cast<std::ptrdiff_t>(channels.size());
        if (end >= block.end() || std::count(block.begin(), end, kUntouched) != 0
            || std::count(end, block.end(), kUntouched) != block.end() - end) {
            breach = QStringLiteral("%1 samples returned, others written or more than fit").arg(n);
            return n;
        }
        auto first = block.begin();
        for (std::vector<float> &channel : channels) {
            channel.insert(channel.end(), first, first + count);
            first += count;
        }
        return n;
    }
};
