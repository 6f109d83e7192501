#pragma once

#include "Recording.h"

#include "devices/Amplifier.h"
#include "pacing/DevicePacer.h"

/// A device that plays an EDF/BDF recording: its labels, its rate, its values in µV.
///
/// Without a recording it is there, has no channels and doesn't start. setFilePath() makes it the recording, while it
/// isn't acquiring: the channels are the signals at the file's fastest rate, the device parameter "left_out" names the
/// others. Every read gives the same length of signal, the parameter "block" (0.5 s), or nothing, whatever the pace:
/// results do not depend on it. Shorter are the last block and those for which the reader has less room; a remainder is
/// reported only when there is no room for one sample of each channel (rates below 2 Hz), asks for a larger block and
/// delivers nothing.
///
/// Parameters that say what the file is, and cannot be set: "file", "left_out" (labels separated by ";"), "start_time"
/// (of the first sample, ISO 8601 with milliseconds), "patient_name", "patient_gender" ("Male", "Female"),
/// "patient_birth" (ISO 8601), "equipment", "true_rate" (Hz, when it is no whole number), each empty when there is
/// nothing to say; and "clipped", how many samples of the last run a recording cannot hold (beyond ±32767 µV), which
/// the host's event loop brings at the end of the run.
class PlaybackAmplifier : public Amplifier
{
    Q_OBJECT
public:
    /// Codes of a read: acquisition isn't running; the file can't be read any more.
    static constexpr int kNotRunning = -2;
    static constexpr int kReadError = -3;

    PlaybackAmplifier();

    /// False without a recording.
    bool startAcquisition() override;
    void stopAcquisition() override;
    int readPeriodMs() override;
    bool isAcquisitionRunning() const override;
    QString getErrorText(int code) const override;
    /// The recording's rate is the only one; false without a recording.
    bool setFreqValue(float hz) override;
    bool isFilterFreeData() override;
    /// Appends the recording's annotations, seconds from the first sample of the file wherever playing starts (the
    /// pauses of a discontinuous recording do not count). False when there are none.
    bool getAnnotation(QList<AnnotationStrct> &annotations) const override;
    bool isImpedanceSupported() const override;
    bool isBatterySupported() const override;
    void setReadBufferSize(int floats) override;
    int getReadBufferSize() const override;
    /// False, with the reason in the trace, when the file can't be played (the device then has no recording) and while
    /// acquiring (it then stays as it is).
    bool setFilePath(const QString &path) override;
    bool openDevice() override;
    /// Stops. The recording stays: the device can be opened and started again.
    void closeDevice() override;
    void resetDevice() override;
    int readData(int capacity, float *block, int &remainder) override;

    /// Stops and lets go of the file. The description stays, but the device doesn't start any more.
    void closeRecording();

private:
    void describeRecording(const QString &path);
    int deliver(qint64 samples, float *block);
    int end(int code);
    void showClipped();

    Recording m_recording;
    std::atomic<bool> m_running{false};
    std::atomic<int> m_bufferSize{0};
    std::atomic<int> m_endCode{kNotRunning}; ///< what a read returns at the end of the run and after it

    // Of the run; only the reader's thread touches them.
    DevicePacer m_pacer;
    qint64 m_first = 0; ///< sample of the file with which a pass begins
    qint64 m_position = 0; ///< next sample of the file
    qint64 m_delivered = 0; ///< samples per channel
    qint64 m_limit = 0; ///< at which the run ends
    qint64 m_block = 1; ///< samples per channel of a block
    bool m_askedForRoom = false;
};
