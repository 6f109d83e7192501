#include "devices/Amplifier.h"
#include "devices/AmplifierChannel.h"
#include "montage/Montage.h"

// Here and not with the rest of Amplifier, because devices know nothing of what a montage is.

QSharedPointer<Montage> Amplifier::getMontage() const
{
    if (m_montage || m_channels.empty()) {
        return m_montage;
    }
    QByteArray text;
    for (const AmplifierChannel *channel : m_channels) {
        text += channel != nullptr ? channel->makeTextView() + '\n' : QByteArray();
    }
    if (m_channelMontage && text == m_channelMontageText) {
        return m_channelMontage;
    }
    m_channelMontage = QSharedPointer<Montage>::create();
    m_channelMontageText = text;
    for (std::size_t i = 0; i < m_channels.size(); ++i) {
        if (m_channels[i] == nullptr) {
            continue;
        }
        auto *channel = new AmplifierChannel(*m_channels[i]);
        if (channel->getGroup1() == 0 && channel->getGroup2() == 0) {
            channel->setGroup1(static_cast<quint32>(i + 1));
        }
        m_channelMontage->push_back(channel);
    }
    m_channelMontage->setMontageName(m_info.name());
    m_channelMontage->setCurrentSampleFreq(m_info.getCurrentFreqValue());
    return m_channelMontage;
}
