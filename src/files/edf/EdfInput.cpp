#include "files/edf/EdfInput.h"

#include <QFileInfo>

#include <algorithm>
#include <iterator>

namespace {

using bp::EdfLayout;

QDateTime parseStart(const QByteArray &text)
{
    return {bp::edfDate(text.left(8)), bp::edfClock(text.mid(8)), Qt::UTC};
}

} // namespace

namespace bp {

Outcome EdfInput::open(const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        return Outcome::failure(QStringLiteral("there is no such file"));
    }
    if (!info.isFile()) {
        return Outcome::failure(QStringLiteral("it is not a file"));
    }
    m_scan = std::make_unique<EdfFileScan>(path);
    const Outcome header = m_scan->outcome() ? readHeader() : m_scan->outcome();
    if (!header) {
        return header;
    }
    const EdfLayout &layout = m_scan->layout();
    return m_records.open(path, layout, layout.signalCount - layout.annotationSignals.size())
        ? Outcome::good()
        : Outcome::failure(QStringLiteral("reading failed"));
}

Outcome EdfInput::readHeader()
{
    const EdfLayout &layout = m_scan->layout();
    m_header.bdf = layout.isBdf;
    m_header.plus = !layout.annotationSignals.isEmpty();
    m_header.patient = layout.field(EdfLayout::kPatientAt, EdfLayout::kTextWidth);
    m_header.recording = layout.field(EdfLayout::kRecordingAt, EdfLayout::kTextWidth);
    m_header.start = parseStart(layout.field(EdfLayout::kStartAt, EdfLayout::kStartWidth));
    readSignals(layout);
    if (m_header.channels.isEmpty()) {
        return Outcome::failure(QStringLiteral("it holds annotations only, and no signal"));
    }
    if (recordTicks() <= 0) {
        return Outcome::failure(QStringLiteral("its records have no duration"));
    }
    if (!m_header.start.isValid()) {
        return Outcome::failure(QStringLiteral("its header has no valid start date and time"));
    }
    confine(0, records());
    return Outcome::good();
}

void EdfInput::readSignals(const EdfLayout &layout)
{
    for (int i = 0; i < layout.signalCount; ++i) {
        const auto text = [&](int before, int width = EdfLayout::kNumberWidth) {
            return layout.signalField(i, before, width);
        };
        const QByteArray label = text(0, EdfLayout::kLabelWidth);
        // Also in a file that is not an EDF+ one: nobody could read a channel of that name.
        if (layout.annotationSignals.contains(i) || EdfLayout::isAnnotationLabel(label)) {
            continue;
        }
        const auto samples = static_cast<int>(layout.blocks[i].samples);
        m_header.channels << EdfSignalHeader{label,
                                             text(EdfLayout::kTransducerBefore, EdfLayout::kTransducerWidth),
                                             text(EdfLayout::kDimensionBefore),
                                             text(EdfLayout::kPrefilterBefore, EdfLayout::kPrefilterWidth),
                                             text(EdfLayout::kPhysicalMinimumBefore),
                                             text(EdfLayout::kPhysicalMaximumBefore),
                                             static_cast<int>(text(EdfLayout::kDigitalMinimumBefore).toDouble()),
                                             static_cast<int>(text(EdfLayout::kDigitalMaximumBefore).toDouble()),
                                             samples,
                                             Ratio::of(samples * kEdfTicks, recordTicks()),
                                             i};
    }
}

Outcome EdfInput::scan(const std::function<bool()> &cancelled)
{
    m_scan->readAnnotations(cancelled);
    if (!m_scan->outcome()) {
        return m_scan->outcome();
    }
    for (const EdfAnnotation &annotation : m_scan->annotations()) {
        if (!annotation.text.isEmpty()) {
            m_annotations << annotation;
        }
    }
    std::stable_sort(m_annotations.begin(), m_annotations.end(),
                     [](const EdfAnnotation &a, const EdfAnnotation &b) { return a.onset < b.onset; });
    if (m_scan->firstOnset() > 0) {
        m_header.moveStart(m_scan->firstOnset());
    }
    return Outcome::good();
}

qint64 EdfInput::recordOnset(qint64 record) const
{
    const auto next = std::upper_bound(pauses().begin(), pauses().end(), record,
                                       [](qint64 wanted, const EdfPause &pause) { return wanted < pause.record; });
    if (next == pauses().begin()) {
        return record * recordTicks();
    }
    const EdfPause &last = *std::prev(next);
    return last.start + last.duration + (record - last.record) * recordTicks();
}

void EdfInput::confine(qint64 firstRecord, qint64 records)
{
    m_firstRecord = firstRecord;
    m_endRecord = firstRecord + records;
}

void EdfInput::hold(qint64 firstRecord, qint64 lastRecord)
{
    const qint64 first = std::clamp(firstRecord, m_firstRecord, m_endRecord - 1);
    m_records.hold(first, std::clamp(lastRecord, first, m_endRecord - 1));
}

Outcome EdfInput::read(int channel, qint64 first, int count, qint32 *out)
{
    const EdfSignalHeader &signal = m_header.channels[channel];
    const qint64 begin = m_firstRecord * signal.samplesPerRecord;
    const qint64 end = m_endRecord * signal.samplesPerRecord;
    const qint64 from = std::clamp(first, begin, end - 1);
    const qint64 to = std::clamp(first + count, from + 1, end);
    // Where in `out` these stand: nowhere but at an edge when all that is wanted lies outside.
    const auto at = static_cast<int>(std::clamp<qint64>(from - first, 0, count - 1));
    const auto inside = static_cast<int>(to - from);
    if (!m_records.readDigital(signal.signal, from, inside, out + at)) {
        return Outcome::failure(QStringLiteral("reading failed"));
    }
    std::fill(out, out + at, out[at]);
    std::fill(out + at + inside, out + count, out[at + inside - 1]);
    return Outcome::good();
}

} // namespace bp
