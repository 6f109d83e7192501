#include "devices/AmplifierInfo.h"

#include <algorithm>
#include <cmath>

AmplifierInfo::AmplifierInfo(const QString &name, const QString &secondText, const QString &serial, int channels,
                             const QList<float> &frequencies)
    : m_name(name)
    , m_secondText(secondText)
    , m_serial(serial)
    , m_channels(channels)
    , m_frequencies(frequencies)
{
}

bool AmplifierInfo::operator==(const AmplifierInfo &other) const
{
    return m_name == other.m_name && m_secondText == other.m_secondText && m_thirdText == other.m_thirdText
        && m_serial == other.m_serial;
}

bool AmplifierInfo::isNull() const
{
    return m_name.isEmpty() && m_serial.isEmpty() && m_channels == 0;
}

QString AmplifierInfo::configFileName() const
{
    return m_name + QLatin1Char('_') + m_serial + QLatin1String(".xml");
}

QJsonObject AmplifierInfo::getJsonObject() const
{
    return {{QStringLiteral("name"), m_name},
            {QStringLiteral("serial"), m_serial},
            {QStringLiteral("channels"), m_channels},
            {QStringLiteral("frequency"), static_cast<double>(getCurrentFreqValue())}};
}

QString AmplifierInfo::getFrequencyValue(int index) const
{
    return index >= 0 && index < m_frequencies.size() ? QString::number(static_cast<double>(m_frequencies[index]))
                                                      : QString();
}

float AmplifierInfo::getLowFreqValue() const
{
    return m_frequencies.value(0, 0.0f);
}

float AmplifierInfo::getCurrentFreqValue() const
{
    return m_frequencies.value(m_currentFrequency, 0.0f);
}

int AmplifierInfo::addNewFrequencyValue(float frequency)
{
    if (!std::isfinite(frequency)) {
        return -1; // it has no place in an ascending list
    }
    if (!m_frequencies.contains(frequency)) {
        m_frequencies.append(frequency);
        std::sort(m_frequencies.begin(), m_frequencies.end());
    }
    return m_frequencies.indexOf(frequency);
}

int AmplifierInfo::setCurrentFreqValue(float frequency)
{
    if (!std::isfinite(frequency)) {
        return m_currentFrequency;
    }
    const int position = m_frequencies.indexOf(frequency);
    if (position >= 0) {
        m_currentFrequency = position;
    } else if (m_frequencies.isEmpty()) {
        m_currentFrequency = 0;
        m_frequencies.append(frequency);
    } else if (m_frequencies.constFirst() > frequency) {
        m_currentFrequency = 0;
    } else if (frequency > m_frequencies.constLast()) {
        m_currentFrequency = m_frequencies.size() - 1;
    } else {
        for (int i = 0; i + 1 < m_frequencies.size(); ++i) {
            const float below = m_frequencies[i];
            const float above = m_frequencies[i + 1];
            if (below < frequency && frequency < above) {
                m_currentFrequency = std::fabs(below - frequency) <= std::fabs(above - frequency) ? i : i + 1;
            }
        }
    }
    return m_currentFrequency;
}

int AmplifierInfo::getFrequencyMode()
{
    if (m_currentFrequency < 0 || m_currentFrequency > m_frequencies.size()) {
        m_currentFrequency = 0;
    }
    return m_currentFrequency;
}
