#pragma once

#include "algorithms/UnitParams.h"
#include "common/BPExport.h"
#include "devices/AmplifierInfo.h"
#include "devices/AnnotationStrct.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QStringList>

#include <atomic>
#include <vector>

class AmplifierChannel;
class Montage;

/// An acquisition device. Plug-ins derive from it; the order of the virtual operations is the interface to them.
///
/// A reader drives the device from its worker thread: startAcquisition(), readPeriodMs() and setReadBufferSize() once,
/// then readData() and isImpedanceReady() per block, at last stopAcquisition(). Everything else is called from the
/// host's thread. Values are in the device's physical unit (µV for EEG); the montage applies its scale later.
class BIOPROCESSING_EXPORT Amplifier : public QObject
{
    Q_OBJECT
public:
    /// Code with which a device that plays a finite signal ends it.
    static constexpr int kEndOfData = -100;

    explicit Amplifier(const AmplifierInfo &info);
    /// The parent is not used: the helper that found the device owns it.
    explicit Amplifier(QObject *parent);
    ~Amplifier() override;

    /// False ends the reader's loop before its first block.
    virtual bool startAcquisition() = 0;
    virtual void stopAcquisition() = 0;
    /// Polling period of the reader's loop in ms.
    virtual int readPeriodMs() = 0;
    virtual bool isAcquisitionRunning() const = 0;
    /// The device's words for one of its error codes; empty for one it doesn't know.
    virtual QString getErrorText(int code) const = 0;
    /// 0 to 100; −1 when unknown.
    virtual int getBatteryLevelPercent();
    /// The sampling rate in Hz.
    virtual float getFreqValue();
    /// Selects the nearest rate that the device offers.
    virtual bool setFreqValue(float hz) = 0;
    /// True when the channels' filters shall not run on this device's data.
    virtual bool isFilterFreeData() = 0;
    /// Appends the annotations that the device's signal brings along; false when there are none.
    virtual bool getAnnotation(QList<AnnotationStrct> &annotations) const;
    virtual bool isImpedanceSupported() const = 0;
    virtual bool isBatterySupported() const = 0;
    /// @param floats  capacity of the blocks that will be passed to readData()
    virtual void setReadBufferSize(int floats) = 0;
    virtual int getReadBufferSize() const = 0;
    /// True when the device delivers trigger values that can synchronise a stream.
    virtual bool isSynchro();
    /// @param value  of the last channel but one
    virtual bool isSynchroTrig(float value);
    virtual bool isMeasureImpedance() const;
    virtual QStringList synchroChannels();
    /// Opens a recording, on a device that plays files; false when it cannot.
    virtual bool setFilePath(const QString &path);
    /// Time stamp of a sample in seconds.
    virtual double getTimeStamp(unsigned int sample);
    virtual bool openDevice() = 0;
    virtual void closeDevice() = 0;
    virtual void resetDevice() = 0;
    /// Starts or stops measuring impedances; false when the device cannot.
    virtual bool getImpedance(bool on);
    /// Delivers what has been acquired since the last call, at most capacity floats.
    /// @param block      planar: sample k of channel c (counted from 1) of n is at (c − 1)·n + k
    /// @param remainder  in: 0, or −1 in the second call for a remainder. Out: floats that did not fit, when above 0;
    ///                   the reader then calls again at once with room behind the block for as many
    /// @return n ≥ 0, the samples per channel, or a negative error code, which ends the loop
    virtual int readData(int capacity, float *block, int &remainder) = 0;
    virtual int readSyncData(int capacity, float *block);

    AmplifierInfo getAmplifierInfo() const { return m_info; }
    bool isEqualInfo(const AmplifierInfo &info) const { return m_info == info; }

    /// Whether the device was there when it was last looked for. Any thread.
    bool getPresence() const { return m_presence.load(); }
    void setPresence(bool presence) { m_presence.store(presence); }
    bool getCurrentVals() const { return m_useCurrentVals.load(); }
    void useCurrentVals(bool use) { m_useCurrentVals.store(use); }

    /// Asks the device to start or stop measuring impedances.
    void takeImpedanceData(bool on);
    /// Copies the newest impedances, one per device channel in the device's unit, when there are any.
    bool isImpedanceReady(std::vector<unsigned int> &impedance) const;

    /// The parameters that the user sees. Not while the device acquires.
    void getUnitParams(UnitParams &params) const { params = m_params; }
    void setUnitParams(const UnitParams &params) { m_params = params; }
    void returnDefaultValue();
    void returnLastParamValue();
    /// The parameters as name → value.
    void getCurrentPropValue(QMap<QString, QString> &values) const;
    /// Names that the device doesn't know are ignored.
    void setCurrentPropValue(const QMap<QString, QString> &values);
    /// True when the parameter "config_file" names a file.
    bool isNeedReadConfigureFile() const;

    /// The montage that belongs to the device. A device that sets none has a usual montage of its channel list: copies
    /// of its channels, each of which reads the device channel at its place unless it names its inputs itself. The same
    /// object as long as the list is the same; a new one when it has changed. Null without channels.
    QSharedPointer<Montage> getMontage() const;

protected:
    /// Null brings the montage of the channel list back.
    void setMontage(const QSharedPointer<Montage> &montage) { m_montage = montage; }
    /// Replaces the rates of the description by those of a text such as "250;500;1000", in Hz. What is no number above
    /// 0 is left out.
    /// @param current  position of the rate to select in the ascending list; outside, the first is selected
    void takeFrequencyList(const QString &text, int current);

    /// The flag is set after the vector is filled; a vector that is filled again meanwhile needs the device's own care.
    std::atomic<bool> m_impedanceReady{false};
    std::atomic<bool> m_impedanceRequested{false};

private:
    std::atomic<bool> m_presence{true};
    std::atomic<bool> m_useCurrentVals{false};

protected:
    AmplifierInfo m_info;
    std::vector<unsigned int> m_impedance;
    UnitParams m_params;
    std::vector<AmplifierChannel *> m_channels; ///< owned

private:
    QSharedPointer<Montage> m_montage;
    mutable QSharedPointer<Montage> m_channelMontage; ///< of the channel list, when the device sets none
    mutable QByteArray m_channelMontageText; ///< the list that it was made of
};
