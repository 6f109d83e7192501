#pragma once

#include "files/conversion/ChannelChoice.h"
#include "files/conversion/Resampler.h"
#include "files/edf/EdfInput.h"
#include "files/edf/EdfRecordPlan.h"

#include <functional>
#include <memory>
#include <vector>

namespace bp {

/// Copies a part, or some channels, of a recording into a new file. Reasons of failures are one sentence.
class RecordingCopy
{
public:
    /// Is told how many records of the target are done; false ends the work, which then failed as "cancelled".
    using Tick = std::function<bool(qint64 done, qint64 total)>;

    /// Of all samples.
    RecordingCopy(const QString &source, const QVector<EDFChannelChange> &changes);
    /// Of the samples with from ≤ t < to, in seconds of the file; a negative `to` means the end.
    RecordingCopy(const QString &source, double from, double to);

    Outcome open(const std::function<bool()> &cancelled);
    Outcome write(const QString &target, const Tick &tick);
    /// What a user should know of the source; after open().
    QString notice() const { return m_source.notice(); }

private:
    /// A segment of signal without a pause.
    struct Segment
    {
        qint64 first = 0; ///< record
        qint64 records = 0;
        qint64 onset = 0; ///< ticks in the file
    };

    Outcome chooseSegment();
    Outcome planTime();
    qint64 planSteps(double densest);
    Outcome copy(const QString &target, const Tick &tick);
    Outcome copyRecord(qint64 record, std::vector<qint32> &samples);
    Outcome copyChannel(int i, qint64 record, qint32 *out);

    QString m_path;
    QVector<EDFChannelChange> m_changes;
    double m_from = 0.0;
    double m_to = -1.0;
    bool m_isWhole = true;

    EdfInput m_source;
    Segment m_segment;
    ChannelChoice m_choice;
    EdfHeader m_header; ///< of the target
    Ratio m_step;
    qint64 m_firstStep = 0; ///< from the beginning of the segment
    EdfRecordPlan m_plan;
    QVector<EdfAnnotation> m_annotations;
    std::vector<std::unique_ptr<Resampler>> m_resamplers; ///< null: copied
    std::vector<qint32> m_input; ///< of a rate changer
    std::vector<double> m_values;
};

} // namespace bp
