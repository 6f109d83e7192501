#include "files/conversion/RecordingCopy.h"

#include "files/edf/EdfOutput.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kTimeSlack = 1e-6; // samples

qint64 ticksOf(bp::Ratio step, qint64 count)
{
    return std::llround(static_cast<long double>(count) * step.num * bp::kEdfTicks / step.den);
}

/// The part of the annotations within [begin, end), moved to the new beginning.
QVector<bp::EdfAnnotation> cut(const QVector<bp::EdfAnnotation> &annotations, qint64 begin, qint64 end)
{
    QVector<bp::EdfAnnotation> kept;
    for (bp::EdfAnnotation annotation : annotations) {
        const bool lasts = annotation.duration > 0;
        const qint64 annotationEnd = annotation.onset + std::max<qint64>(0, annotation.duration);
        if (annotation.onset >= end || (annotation.onset < begin && (!lasts || annotationEnd <= begin))) {
            continue;
        }
        const qint64 onset = std::max(annotation.onset, begin);
        annotation.duration = lasts ? std::min(annotationEnd, end) - onset : annotation.duration;
        annotation.onset = onset - begin;
        kept << annotation;
    }
    return kept;
}

/// A failure with a whole sentence.
bp::Outcome cannot(const char *verb, const QString &path, const QString &reason)
{
    return bp::Outcome::failure(QStringLiteral("Cannot %1 %2: %3.").arg(QLatin1String(verb), path, reason));
}

} // namespace

namespace bp {

RecordingCopy::RecordingCopy(const QString &source, const QVector<EDFChannelChange> &changes)
    : m_path(source)
    , m_changes(changes)
{
}

RecordingCopy::RecordingCopy(const QString &source, double from, double to)
    : m_path(source)
    , m_from(from)
    , m_to(to)
    , m_isWhole(false)
{
}

Outcome RecordingCopy::open(const std::function<bool()> &cancelled)
{
    const Outcome opened = m_source.open(m_path);
    const Outcome read = opened ? m_source.scan(cancelled) : opened;
    return read ? chooseSegment() : cannot("read", m_path, read.reason());
}

/// Finds the part that the range lies in, and makes the range count from its beginning.
Outcome RecordingCopy::chooseSegment()
{
    const double end = edfTime(m_source.recordOnset(m_source.records() - 1) + m_source.recordTicks());
    double densest = 0.0;
    for (const EdfSignalHeader &channel : m_source.header().channels) {
        densest = std::max(densest, channel.rate.value());
    }
    m_to = m_to < 0.0 ? end : m_to;
    if (!m_isWhole && !(m_from >= 0.0 && m_from < m_to && m_to <= end + 0.5 / densest)) {
        return Outcome::failure(QStringLiteral("%1 lasts %2 s; it cannot be cropped from %3 to %4 s.")
                                    .arg(m_path)
                                    .arg(end, 0, 'g', 10)
                                    .arg(m_from, 0, 'g', 10)
                                    .arg(m_to, 0, 'g', 10));
    }
    m_segment.records = m_source.records();
    for (const EdfPause &pause : m_source.pauses()) {
        const qint64 pauseEnd = pause.start + pause.duration;
        const bool isBehind = m_from >= edfTime(pauseEnd) - kTimeSlack / densest;
        if (m_isWhole || (!isBehind && m_to > edfTime(pause.start) + kTimeSlack / densest)) {
            return cannot("convert", m_path,
                          QStringLiteral("there is a gap in it from %1 to %2 s, crop what lies before or behind")
                              .arg(edfTime(pause.start), 0, 'g', 10)
                              .arg(edfTime(pauseEnd), 0, 'g', 10));
        }
        if (!isBehind) {
            m_segment.records = pause.record - m_segment.first;
            break;
        }
        m_segment = {pause.record, m_source.records() - pause.record, pauseEnd};
    }
    m_from = std::max(0.0, m_from - edfTime(m_segment.onset));
    m_to -= edfTime(m_segment.onset);
    m_source.confine(m_segment.first, m_segment.records);
    return Outcome::good();
}

Outcome RecordingCopy::write(const QString &target, const Tick &tick)
{
    const Outcome chosen = m_choice.choose(m_source.header(), m_changes);
    const Outcome planned = chosen ? planTime() : chosen;
    return planned ? copy(target, tick) : planned;
}

Outcome RecordingCopy::planTime()
{
    m_header = m_source.header();
    m_header.channels = m_choice.channels();
    QVector<Ratio> rates;
    double densest = 0.0;
    for (const EdfSignalHeader &channel : qAsConst(m_header.channels)) {
        rates << channel.rate;
        densest = std::max(densest, channel.rate.value());
    }
    m_step = EdfRecordPlan::commonStep(rates);
    if (m_step.num < 1) {
        return Outcome::failure(
            QStringLiteral("The rates of the channels do not fit into records of one duration; choose others."));
    }
    const qint64 steps = planSteps(densest);
    if (m_plan.stepsPerRecord == 0) {
        return Outcome::failure(
            QStringLiteral("The range or the rates do not fit into records of one duration; choose others."));
    }
    const double recordSeconds = m_step.value() * static_cast<double>(m_plan.stepsPerRecord);
    for (EdfSignalHeader &channel : m_header.channels) {
        channel.samplesPerRecord = static_cast<int>(std::llround(channel.rate.value() * recordSeconds));
    }
    const qint64 begin = m_segment.onset + ticksOf(m_step, m_firstStep);
    const qint64 end = m_segment.onset + ticksOf(m_step, m_firstStep + steps);
    m_header.moveStart(begin);
    m_annotations = m_isWhole ? m_source.annotations() : cut(m_source.annotations(), begin, end);
    return Outcome::good();
}

/// Finds first step and records of the target. Returns its number of steps.
qint64 RecordingCopy::planSteps(double densest)
{
    const double stepSeconds = m_step.value();
    const auto onGrid = [&](double time) { return std::ceil(time * densest - kTimeSlack) / densest / stepSeconds; };
    m_firstStep = static_cast<qint64>(std::floor(onGrid(m_from) + kTimeSlack));
    const auto endStep = static_cast<qint64>(std::ceil(onGrid(m_to) - kTimeSlack));
    double bytesPerStep = 0.0;
    for (const EdfSignalHeader &channel : qAsConst(m_header.channels)) {
        bytesPerStep += channel.rate.value() * stepSeconds * m_header.sampleBytes();
    }
    if (bytesPerStep < 1e9 && endStep > m_firstStep) {
        m_plan = EdfRecordPlan::make(m_step, endStep - m_firstStep, std::llround(bytesPerStep), m_source.recordTicks());
    }
    // What a whole number of records holds beyond the end comes from the signal itself where there is any.
    const qint64 planned = m_plan.stepsPerRecord * m_plan.records;
    const double seconds = edfTime(m_segment.records * m_source.recordTicks());
    const auto available = static_cast<qint64>(std::floor(seconds / stepSeconds + kTimeSlack));
    m_firstStep = std::max<qint64>(0, std::min(m_firstStep, std::max(available, endStep) - planned));
    return planned;
}

Outcome RecordingCopy::copy(const QString &target, const Tick &tick)
{
    EdfOutput output;
    const Outcome opened = output.open(target, m_header, m_plan, m_annotations);
    if (!opened) {
        return cannot("write", target, opened.reason());
    }
    for (int i = 0; i < m_header.channels.size(); ++i) {
        const Ratio inRate = m_source.header().channels[m_choice.numbers()[i]].rate;
        const Ratio outRate = m_header.channels[i].rate;
        m_resamplers.push_back(inRate == outRate ? nullptr : std::make_unique<Resampler>(inRate, outRate));
    }
    std::vector<qint32> samples(static_cast<std::size_t>(output.samplesPerRecord()));
    for (qint64 record = 0; record < m_plan.records; ++record) {
        const Outcome copied = copyRecord(record, samples);
        if (!copied) {
            return copied;
        }
        const Outcome written = output.writeRecord(samples);
        if (!written) {
            return cannot("write", target, written.reason());
        }
        if (!tick(record + 1, m_plan.records)) {
            return Outcome::failure(QStringLiteral("cancelled"));
        }
    }
    const Outcome committed = output.commit();
    return committed ? committed : cannot("write", target, committed.reason());
}

Outcome RecordingCopy::copyRecord(qint64 record, std::vector<qint32> &samples)
{
    const double begin = m_step.value() * static_cast<double>(m_firstStep + record * m_plan.stepsPerRecord);
    const double end = begin + m_step.value() * static_cast<double>(m_plan.stepsPerRecord);
    const double recordSeconds = edfTime(m_source.recordTicks());
    m_source.hold(m_segment.first + static_cast<qint64>(begin / recordSeconds) - 1,
                  m_segment.first + static_cast<qint64>(end / recordSeconds) + 1);
    qint32 *out = samples.data();
    for (int i = 0; i < m_header.channels.size(); ++i) {
        const Outcome copied = copyChannel(i, record, out);
        if (!copied) {
            return copied;
        }
        out += m_header.channels[i].samplesPerRecord;
    }
    return Outcome::good();
}

Outcome RecordingCopy::copyChannel(int i, qint64 record, qint32 *out)
{
    const EdfSignalHeader &channel = m_header.channels[i];
    const int number = m_choice.numbers()[i];
    const int count = channel.samplesPerRecord;
    const double seconds = static_cast<double>(m_firstStep) * m_step.value();
    const qint64 first = std::llround(seconds * channel.rate.value()) + record * count;
    const auto &resampler = m_resamplers[static_cast<std::size_t>(i)];
    if (!resampler) {
        const qint64 before = m_segment.first * m_source.header().channels[number].samplesPerRecord;
        const Outcome read = m_source.read(number, before + first, count, out);
        return read ? read : cannot("read", m_path, read.reason());
    }
    m_input.resize(static_cast<std::size_t>(resampler->inputCount(first, count)));
    m_values.resize(static_cast<std::size_t>(count));
    const Outcome read =
        m_source.read(number, resampler->firstInput(first), static_cast<int>(m_input.size()), m_input.data());
    if (!read) {
        return cannot("read", m_path, read.reason());
    }
    resampler->process(m_input, first, count, m_values.data());
    std::transform(m_values.begin(), m_values.end(), out, [&channel](double value) { return channel.clipped(value); });
    return Outcome::good();
}

} // namespace bp
