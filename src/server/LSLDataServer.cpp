#include "server/LSLDataServer.h"

#include "montage/Montage.h"
#include "server/outlets/LslOutlet.h"

#include <utility>

LSLDataServer::LSLDataServer(const AmplifierInfo &info, QSharedPointer<Montage> montage, const QString &streamName,
                             bool deviceTime)
    : m_info(info)
    , m_montage(std::move(montage))
    , m_streamName(streamName)
    , m_deviceTime(deviceTime)
{
    makeOutlet();
}

bool LSLDataServer::isValid() const
{
    return m_outlet->isValid();
}

void LSLDataServer::setStreamName(const QString &streamName)
{
    if (streamName == m_streamName) {
        return;
    }
    m_streamName = streamName;
    makeOutlet();
}

void LSLDataServer::appendNewData(int samples, const float *block)
{
    if (samples > 0) {
        m_outlet->pushBlock(block, static_cast<std::size_t>(samples), std::nullopt);
    }
}

void LSLDataServer::appendNewData(int samples, const float *block, double timestamp)
{
    if (samples > 0) {
        m_outlet->pushBlock(block, static_cast<std::size_t>(samples), timestamp);
    }
}

void LSLDataServer::push_sample(unsigned samples, unsigned index, const float *block, double timestamp)
{
    m_outlet->pushSample(block, samples, index, timestamp);
}

void LSLDataServer::makeOutlet()
{
    m_outlet.reset();
    bp::LslStream stream{m_streamName, {}, 0.0, bp::lslSourceId(m_info, m_streamName), m_deviceTime};
    if (m_montage) {
        stream.channels = m_montage->getChannelNames();
        stream.rate = static_cast<double>(m_montage->getCurrentSampleFreq());
    }
    m_outlet = std::make_shared<bp::LslOutlet>(stream);
}
