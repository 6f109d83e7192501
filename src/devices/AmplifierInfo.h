#pragma once

#include "common/BPExport.h"

#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QString>

/// Identity of a device, its channel count and the sampling rates (Hz) that it offers. A plain value.
class BIOPROCESSING_EXPORT AmplifierInfo
{
public:
    AmplifierInfo() = default;
    /// @param frequencies  Hz, ascending; the first one is selected
    AmplifierInfo(const QString &name, const QString &secondText, const QString &serial, int channels,
                  const QList<float> &frequencies);

    QString name() const { return m_name; }
    /// Two texts that only distinguish devices from each other; they are not part of the JSON form.
    QString secondText() const { return m_secondText; }
    QString thirdText() const { return m_thirdText; }
    QString serial() const { return m_serial; }
    /// Number of device channels.
    int channels() const { return m_channels; }

    void setName(const QString &name) { m_name = name; }
    void setSecondText(const QString &text) { m_secondText = text; }
    void setThirdText(const QString &text) { m_thirdText = text; }
    void setSerial(const QString &serial) { m_serial = serial; }
    void setChannels(int channels) { m_channels = channels; }

    /// The same device: names, both texts and serials are equal. Channel count and rates don't matter.
    bool operator==(const AmplifierInfo &other) const;
    bool operator!=(const AmplifierInfo &other) const { return !(*this == other); }
    bool operator==(const QString &name) const { return m_name == name; }

    bool isNull() const;
    /// Name of the device's configuration file; what it holds is the plug-in's business.
    QString configFileName() const;
    QJsonObject getJsonObject() const;

    void getFrequencisList(QList<float> &frequencies) const { frequencies = m_frequencies; }
    void clearFrequencyList() { m_frequencies.clear(); }
    int getFrequenceSize() const { return m_frequencies.size(); }
    /// As text; empty for an index outside the list.
    QString getFrequencyValue(int index) const;
    /// The lowest rate, 0 when there is none.
    float getLowFreqValue() const;
    /// The selected rate, 0 when there is none.
    float getCurrentFreqValue() const;
    /// Keeps the list ascending. The selected index stays as it is, so that it may now select another rate.
    /// @return the position of the rate in the list, −1 for a value that is not finite
    int addNewFrequencyValue(float frequency);
    /// Selects the offered rate that is nearest, the lower one of two equally near; the first rate of an empty list is
    /// added. A value that is not finite changes nothing.
    /// @return the selected index
    int setCurrentFreqValue(float frequency);
    /// The selected index. One that is negative or beyond the size is first set to 0; one that equals the size passes
    /// (kept: hosts tell "no rate" by it).
    int getFrequencyMode();

private:
    QString m_name;
    QString m_secondText;
    QString m_thirdText;
    QString m_serial;
    int m_channels = 0;
    int m_currentFrequency = 0;
    QList<float> m_frequencies;
};

Q_DECLARE_METATYPE(AmplifierInfo)
