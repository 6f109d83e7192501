#include "server/LSLSyncSream.h"

#include "common/BPCommon.h"
#include "server/outlets/LslOutlet.h"

#include <stdexcept>

LSLSyncSream::LSLSyncSream(const QString &name, const QStringList &channelNames, float sampleRate,
                           const AmplifierInfo &source)
    : m_name(name)
    , m_channelNames(channelNames)
    , m_sampleRate(sampleRate)
    , m_source(source)
{
    bp::registerMetaTypes();
    makeOutlet();
}

LSLSyncSream::~LSLSyncSream() = default;

bool LSLSyncSream::isValid() const
{
    return m_outlet->isValid();
}

void LSLSyncSream::setChannelNameList(const QStringList &channelNames)
{
    if (channelNames == m_channelNames) {
        return;
    }
    m_channelNames = channelNames;
    makeOutlet();
}

void LSLSyncSream::appendData(int samples, float *data, double timestamp)
{
    if (samples > 0) {
        m_outlet->pushBlock(data, static_cast<std::size_t>(samples), timestamp);
    }
}

void LSLSyncSream::slotAppendData(const vector<float> &in_data, int in_samples)
{
    if (in_samples <= 0) {
        return;
    }
    try {
        m_outlet->pushBlock(in_data, static_cast<std::size_t>(in_samples), std::nullopt);
    } catch (const std::runtime_error &error) {
        if (sender() == nullptr) {
            throw;
        }
        BPCommon::log(BPCommon::LogOutlet, "LSLSyncSream::slotAppendData %s", error.what());
    }
}

void LSLSyncSream::makeOutlet()
{
    m_outlet.reset(); // there must never be two streams with one source identifier
    m_outlet = std::make_unique<bp::LslOutlet>(bp::LslStream{m_name, m_channelNames, static_cast<double>(m_sampleRate),
                                                             bp::lslSourceId(m_source, m_name), false});
}
