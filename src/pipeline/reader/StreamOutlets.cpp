#include "pipeline/reader/StreamOutlets.h"

#include "devices/Amplifier.h"
#include "montage/Montage.h"
#include "server/LSLDataServer.h"
#include "server/LSLSyncSream.h"

#include <algorithm>

namespace bp {

namespace {

constexpr float kLargestCounter = 4294967040.0f; // the largest float that an unsigned int holds

} // namespace

StreamOutlets::StreamOutlets() = default;
StreamOutlets::~StreamOutlets() = default;

void StreamOutlets::open(const Request &request, Amplifier *device, const AmplifierInfo &info,
                         const QSharedPointer<Montage> &montage)
{
    close();
    m_request = request;
    m_device = device;
    if (device == nullptr || request.streamName.isEmpty()) {
        return;
    }
    const bool deviceTime = request.synchro && device->isSynchro();
    m_outlet = std::make_unique<LSLDataServer>(info, montage, request.streamName, deviceTime);
    if (deviceTime) {
        m_syncStream = std::make_unique<LSLSyncSream>(request.syncStreamName, device->synchroChannels(),
                                                      montage->getCurrentSampleFreq(), info);
        m_trigger.resize(static_cast<std::size_t>(m_syncStream->channelNames().size()));
    }
}

void StreamOutlets::changeMontage(const AmplifierInfo &info, const QSharedPointer<Montage> &montage)
{
    if (m_outlet != nullptr) {
        open(Request(m_request), m_device, info, montage);
    }
}

void StreamOutlets::close()
{
    m_syncStream.reset();
    m_outlet.reset();
}

void StreamOutlets::push(const float *block, unsigned channels, unsigned samples)
{
    if (m_outlet == nullptr || samples == 0) {
        return;
    }
    if (m_syncStream != nullptr && channels > 1) {
        pushSynchronised(block, channels, samples);
    } else {
        m_outlet->appendNewData(static_cast<int>(samples), block);
    }
}

/// The last channel counts the device's samples, the one before it carries the triggers.
void StreamOutlets::pushSynchronised(const float *block, unsigned channels, unsigned samples)
{
    const float *counter = block + std::size_t{channels - 1} * samples;
    const float *trigger = counter - samples;
    for (unsigned k = 0; k < samples; ++k) {
        const bool isCount = counter[k] > 0.0f && counter[k] < kLargestCounter;
        const double time = m_device->getTimeStamp(isCount ? static_cast<unsigned>(counter[k]) : 0);
        m_outlet->push_sample(samples, k, block, time);
        if (m_device->isSynchroTrig(trigger[k])) {
            std::fill(m_trigger.begin(), m_trigger.end(), trigger[k]);
            m_syncStream->appendData(1, m_trigger.data(), time);
        }
    }
}

} // namespace bp
