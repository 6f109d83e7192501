#pragma once

#include "devices/Amplifier.h"

#include <QMutex>
#include <QStringList>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <functional>

/// What a FakeAmplifier does; set before it starts.
struct FakeScript
{
    QString name = QStringLiteral("Fake");
    QString serial = QStringLiteral("F-1");
    int channels = 2;
    float rate = 250.0f;
    int blockSize = 25; ///< samples per channel of each read
    std::vector<int> firstBlocks; ///< of the first reads instead: 0 an empty block, negative an error code
    int errorAfterReads = -1; ///< this many reads succeed, then errorCode; −1 never
    int errorCode = -7;
    bool refuseStart = false;
    bool filterFree = false;
    int periodMs = 1;
    int remainderAtRead = -1; ///< number of the read, from 0, that leaves a remainder; −1 never
    int remainder = 0; ///< floats that it leaves
    int tailResult = 0; ///< what the second call then returns
    float tailValue = -1.0f; ///< with which the second call fills its block
    int hangAtRead = -1; ///< this read, from 0, does not return before release(); −1 never
    bool hangsBusy = false; ///< without ever waiting, so that the thread cannot be terminated
    std::vector<unsigned int> impedance; ///< ready when not empty
    /// Sample k (from the start of acquisition) of device channel c (from 1).
    std::function<float(int c, qint64 k)> value = [](int c, qint64 k) {
        return static_cast<float>(c * 1000) + static_cast<float>(k % 1000);
    };
};

/// A device that does what its script says and counts what is asked of it. The counters may be read from any thread.
class FakeAmplifier : public Amplifier
{
public:
    explicit FakeAmplifier(FakeScript fakeScript = {})
        : Amplifier(AmplifierInfo(fakeScript.name, {}, fakeScript.serial, fakeScript.channels, {fakeScript.rate}))
        , script(std::move(fakeScript))
    {
        m_impedance = script.impedance;
        m_impedanceReady.store(!script.impedance.empty());
    }

    FakeScript script;

    std::atomic<int> starts{0};
    std::atomic<int> stops{0};
    std::atomic<int> reads{0}; ///< without the second calls for a remainder
    std::atomic<int> tailReads{0};
    std::atomic<int> tailCapacity{0};
    std::atomic<bool> tailRemainderWasMinusOne{false};
    std::atomic<qint64> samples{0}; ///< per channel, delivered since the start
    std::atomic<int> bufferSize{0};

    /// Lets a read that hangs return.
    void release() { m_released = true; }
    bool isHanging() const { return m_hanging; }

    /// Names of the operations called, in order; runs of readData count once.
    QStringList calls() const
    {
        QMutexLocker locker(&m_mutex);
        return m_calls;
    }
    using Amplifier::setMontage;

    bool startAcquisition() override
    {
        note("startAcquisition");
        ++starts;
        samples = 0;
        m_acquiring = !script.refuseStart;
        return !script.refuseStart;
    }
    void stopAcquisition() override
    {
        note("stopAcquisition");
        ++stops;
        m_acquiring = false;
    }
    int readPeriodMs() override
    {
        note("readPeriodMs");
        return script.periodMs;
    }
    bool isAcquisitionRunning() const override { return m_acquiring; }
    QString getErrorText(int code) const override
    {
        return code == script.errorCode ? QStringLiteral("scripted error") : QString();
    }
    bool setFreqValue(float hz) override
    {
        m_info.setCurrentFreqValue(hz);
        return true;
    }
    bool isFilterFreeData() override { return script.filterFree; }
    bool isImpedanceSupported() const override { return !script.impedance.empty(); }
    bool isBatterySupported() const override { return false; }
    void setReadBufferSize(int floats) override
    {
        note("setReadBufferSize");
        bufferSize = floats;
    }
    int getReadBufferSize() const override { return bufferSize; }
    bool openDevice() override { return true; }
    void closeDevice() override { }
    void resetDevice() override { }
    bool getImpedance(bool on) override
    {
        note(on ? "getImpedance on" : "getImpedance off");
        return true;
    }

    int readData(int capacity, float *block, int &remainder) override
    {
        note("readData");
        if (remainder < 0) {
            return readTail(capacity, block, remainder);
        }
        const int read = reads++;
        if (read == script.hangAtRead) {
            hang();
        }
        const int wanted = blockOf(read);
        if (wanted < 0) {
            return wanted;
        }
        const int count = std::min(wanted, capacity / std::max(1, script.channels));
        const qint64 first = samples.fetch_add(count);
        for (int c = 1; c <= script.channels; ++c) {
            for (int k = 0; k < count; ++k) {
                *block++ = script.value(c, first + k);
            }
        }
        if (read == script.remainderAtRead) {
            remainder = script.remainder;
        }
        return count;
    }

private:
    void hang()
    {
        m_hanging = true;
        while (!m_released) {
            if (!script.hangsBusy) {
                QThread::msleep(1);
            }
        }
        m_hanging = false;
    }

    int blockOf(int read) const
    {
        if (script.errorAfterReads >= 0 && read >= script.errorAfterReads) {
            return script.errorCode;
        }
        const auto index = static_cast<std::size_t>(read);
        return index < script.firstBlocks.size() ? script.firstBlocks[index] : script.blockSize;
    }

    /// Leaves the remainder as it is, as devices may.
    int readTail(int capacity, float *block, int remainder)
    {
        ++tailReads;
        tailCapacity = capacity;
        tailRemainderWasMinusOne = remainder == -1;
        std::fill_n(block, std::min(capacity, script.remainder), script.tailValue);
        return script.tailResult;
    }

    void note(const char *operation)
    {
        const QString name = QString::fromLatin1(operation);
        QMutexLocker locker(&m_mutex);
        if (m_calls.isEmpty() || m_calls.constLast() != name || name != QLatin1String("readData")) {
            m_calls << name;
        }
    }

    std::atomic<bool> m_acquiring{false};
    std::atomic<bool> m_hanging{false};
    std::atomic<bool> m_released{false};
    mutable QMutex m_mutex;
    QStringList m_calls;
};
