#include "devices/Amplifier.h"

#include "base/TextHelper.h"
#include "common/BPCommon.h"
#include "devices/AmplifierChannel.h"

#include <cmath>

namespace {

const QString kConfigureFileKey = QStringLiteral("config_file");

} // namespace

Amplifier::Amplifier(const AmplifierInfo &info)
    : m_info(info)
{
}

Amplifier::Amplifier(QObject *parent)
{
    Q_UNUSED(parent)
    BPCommon::log(BPCommon::LogDevice, "Amplifier::Amplifier created");
}

Amplifier::~Amplifier()
{
    for (AmplifierChannel *channel : m_channels) {
        delete channel;
    }
}

int Amplifier::getBatteryLevelPercent()
{
    return -1;
}

float Amplifier::getFreqValue()
{
    return m_info.getCurrentFreqValue();
}

bool Amplifier::getAnnotation(QList<AnnotationStrct> &annotations) const
{
    Q_UNUSED(annotations)
    return false;
}

bool Amplifier::isSynchro()
{
    return false;
}

bool Amplifier::isSynchroTrig(float value)
{
    Q_UNUSED(value)
    return false;
}

bool Amplifier::isMeasureImpedance() const
{
    return false;
}

QStringList Amplifier::synchroChannels()
{
    return {};
}

bool Amplifier::setFilePath(const QString &path)
{
    Q_UNUSED(path)
    return false;
}

double Amplifier::getTimeStamp(unsigned int sample)
{
    Q_UNUSED(sample)
    return 0.0;
}

bool Amplifier::getImpedance(bool on)
{
    Q_UNUSED(on)
    return false;
}

int Amplifier::readSyncData(int capacity, float *block)
{
    Q_UNUSED(capacity)
    Q_UNUSED(block)
    return 0;
}

void Amplifier::takeImpedanceData(bool on)
{
    m_impedanceRequested.store(on);
    getImpedance(on);
}

bool Amplifier::isImpedanceReady(std::vector<unsigned int> &impedance) const
{
    if (!m_impedanceReady.load(std::memory_order_acquire)) {
        return false;
    }
    impedance = m_impedance;
    return true;
}

void Amplifier::returnDefaultValue()
{
    m_params.initDefaultValues();
}

void Amplifier::returnLastParamValue()
{
    m_params.returnLastParamValue();
}

void Amplifier::getCurrentPropValue(QMap<QString, QString> &values) const
{
    values.clear();
    const auto names = m_params.getParamNames();
    for (const QString &name : names) {
        values.insert(name, m_params[name]);
    }
}

void Amplifier::setCurrentPropValue(const QMap<QString, QString> &values)
{
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        if (m_params.contain(it.key())) {
            m_params.setParamValue(it.key(), it.value());
        }
    }
}

bool Amplifier::isNeedReadConfigureFile() const
{
    return m_params.contain(kConfigureFileKey) && !m_params[kConfigureFileKey].isEmpty();
}

void Amplifier::takeFrequencyList(const QString &text, int current)
{
    m_info.clearFrequencyList();
    const QStringList parts = text.split(QLatin1Char(';'), TextHelper::SkipEmptyParts);
    for (const QString &part : parts) {
        const float frequency = part.trimmed().toFloat();
        if (std::isfinite(frequency) && frequency > 0.0f) {
            m_info.addNewFrequencyValue(frequency);
        }
    }
    QList<float> frequencies;
    m_info.getFrequencisList(frequencies);
    if (!frequencies.isEmpty()) {
        m_info.setCurrentFreqValue(frequencies.value(current, frequencies.constFirst()));
    }
}
