#pragma once

#include "common/BPCommon.h"
#include "devices/AnnotationStrct.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

class EDFReader;

/// The part of an EDF/BDF file that can be played as one device: its fastest signals, in µV where they are voltages.
///
/// Values are EDFReader's. Signals in nV, mV or V are brought to µV, every other unit stays. One thread at a time.
class Recording
{
public:
    struct Signal
    {
        int fileChannel;
        QString label;
        BPCommon::ChannelType type; ///< guessed from the label
        double toMicrovolt; ///< factor; 1 for what isn't a voltage
    };

    Recording();
    ~Recording();
    Recording(const Recording &) = delete;
    Recording &operator=(const Recording &) = delete;

    /// Closes what was open before.
    /// @return false when the file can't be read or has no samples; reason() says why
    bool open(const QString &path);
    void close();
    bool isOpen() const { return !m_signals.empty(); }
    QString reason() const { return m_reason; }

    /// Signals at rate(), in the order of the file.
    const std::vector<Signal> &signalList() const { return m_signals; }
    /// Labels of the slower signals.
    QStringList leftOut() const { return m_leftOut; }
    float rate() const { return m_rate; }
    /// What the file says of itself, by the key of the device parameter that shows it; empty texts where it says
    /// nothing. "start_time" (of the first sample, ISO 8601 with milliseconds), "patient_name", "patient_gender"
    /// ("Male" or "Female"), "patient_birth" (ISO 8601), "equipment".
    QMap<QString, QString> facts() const;
    /// The rate in full, when it is no whole number; empty otherwise.
    QString fractionalRate() const;
    /// How many of the samples read so far are beyond ±32767 (µV), which is what a recording of them can hold. What was
    /// read ahead counts.
    qint64 clippedCount() const { return m_clipped; }
    void forgetClipped() { m_clipped = 0; }
    /// Samples that every signal has.
    qint64 sampleCount() const { return m_sampleCount; }
    /// At their place in the signal: the pauses of a discontinuous recording are not played.
    QList<AnnotationStrct> annotations() const;

    /// Reads ahead by about a second, so small blocks don't each cost a seek per signal. No allocation.
    /// @param planar signal s, sample k goes to planar[s · stride + k]
    /// @return false when reading the file failed
    bool read(qint64 from, qint64 count, float *planar, qint64 stride);

private:
    bool takeSignals();
    bool fail(const QString &reason);
    bool fetch(qint64 from);

    std::unique_ptr<EDFReader> m_reader;
    std::vector<Signal> m_signals;
    QStringList m_leftOut;
    QString m_reason;
    float m_rate = 0.0f;
    qint64 m_sampleCount = 0;

    std::vector<float> m_ahead; ///< planar, signals × m_aheadCapacity
    std::vector<double> m_scratch;
    qint64 m_aheadCapacity = 0;
    qint64 m_aheadFrom = 0;
    qint64 m_aheadCount = 0;
    qint64 m_clipped = 0;
};
