// A device plug-in of one's own: two channels of sines. docs/writing-a-plugin.md goes through it line by line.
#include "devices/Amplifier.h"
#include "devices/AmplifierChannel.h"
#include "devices/AmplifierHelper.h"
#include "montage/Montage.h"

#include <QElapsedTimer>
#include <QtMath>

static constexpr int kChannels = 2;
static constexpr int kNotRunning = -2; // negative codes are the device's own, but for -1 and kEndOfData

/// Sines of 10 and 20 Hz. The reader's thread calls start, read and stop; everything else comes from the host's thread.
class ExampleAmplifier : public Amplifier
{
    Q_OBJECT
public:
    ExampleAmplifier()
        : Amplifier(AmplifierInfo(QStringLiteral("Example"), {}, QStringLiteral("EX-1"), kChannels, {250.0f, 500.0f}))
    {
        QList<AmplifierChannel *> outputs; // the montage's own
        for (unsigned number = 1; number <= kChannels; ++number) {
            m_channels.push_back(new AmplifierChannel(number, 1.0f, BPCommon::EEG)); // the base deletes them
            m_channels.back()->setChannelName(QStringLiteral("S%1").arg(number));
            m_channels.back()->setGroup1(number); // the device channel that this montage channel shows
            outputs << new AmplifierChannel(m_channels.back());
        }
        setMontage(QSharedPointer<Montage>::create(outputs));
        custom_param amplitude; // texts, like everything in a parameter set
        amplitude.key = QStringLiteral("amplitude");
        amplitude.label = QStringLiteral("Amplitude, µV");
        amplitude.defaultValue = QStringLiteral("50");
        amplitude.controlType = custom_param::ControlReal;
        amplitude.valueType = custom_param::ValueReal;
        m_params.push_back(amplitude);
    }

    bool startAcquisition() override
    {
        m_amplitude = m_params.getParamValue(QStringLiteral("amplitude")).toDouble();
        m_rate = static_cast<double>(m_info.getCurrentFreqValue());
        m_delivered = 0;
        m_clock.start();
        m_running = true;
        return true;
    }
    void stopAcquisition() override { m_running = false; }
    int readData(int capacity, float *block, int &) override
    {
        if (!m_running) {
            return kNotRunning;
        }
        const auto due = static_cast<qint64>(static_cast<double>(m_clock.nsecsElapsed()) * 1e-9 * m_rate) - m_delivered;
        const int count = static_cast<int>(qMin<qint64>(due, capacity / kChannels)); // the rest stays due
        for (int i = 0; i < kChannels * count; ++i) { // planar: all samples of S1, then all of S2
            const double seconds = static_cast<double>(m_delivered + i % count) / m_rate;
            block[i] = static_cast<float>(m_amplitude * qSin(2.0 * M_PI * 10.0 * (1 + i / count) * seconds));
        }
        m_delivered += count;
        return count;
    }
    int readPeriodMs() override { return 50; }
    bool isAcquisitionRunning() const override { return m_running; }
    QString getErrorText(int code) const override { return code == kNotRunning ? tr("It isn't running.") : QString(); }
    bool setFreqValue(float hz) override { return !m_running && m_info.setCurrentFreqValue(hz) >= 0; }
    bool isFilterFreeData() override { return false; }
    bool isImpedanceSupported() const override { return false; }
    bool isBatterySupported() const override { return false; }
    void setReadBufferSize(int floats) override { m_bufferSize = floats; }
    int getReadBufferSize() const override { return m_bufferSize; }
    bool openDevice() override { return true; }
    void closeDevice() override { stopAcquisition(); }
    void resetDevice() override { stopAcquisition(); }

private:
    std::atomic<bool> m_running{false};
    std::atomic<int> m_bufferSize{0};
    double m_amplitude = 0.0; // from here on: of the run, only the reader's thread touches them
    double m_rate = 0.0;
    qint64 m_delivered = 0; // samples per channel
    QElapsedTimer m_clock;
};

/// What the search loads: gives the same object for the same device each time, and owns it.
class ExampleHelper : public AmplifierHelper
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID AmplifierHelper_iid)
public:
    bool isReadyToSearch() override { return true; }
    void findDevices(QList<Amplifier *> &devices) override { getAllDevices(devices); }
    void getAllDevices(QList<Amplifier *> &devices) override { devices << &m_device; }
    QString getHelperName() override { return QStringLiteral("Example"); }

private:
    ExampleAmplifier m_device;
};

#include "ExampleAmplifier.moc"
