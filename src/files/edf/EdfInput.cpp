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

bool EdfInput::open(const QString &path, QString &error)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        error = QStringLiteral("there is no such file");
    } else if (!info.isFile()) {
        error = QStringLiteral("it is not a file");
    } else {
        m_scan = std::make_unique<EdfFileScan>(path);
        error = m_scan->reason();
    }
    if (!error.isEmpty() || !readHeader(error)) {
        return false;
    }
    const EdfLayout &layout = m_scan->layout();
    if (!m_records.open(path, layout, layout.signalCount - layout.annotationSignals.size())) {
        error = QStringLiteral("reading failed");
    }
    return error.isEmpty();
}

bool EdfInput::readHeader(QString &error)
{
    const EdfLayout &layout = m_scan->layout();
    m_header.bdf = layout.isBdf;
    m_header.plus = !layout.annotationSignals.isEmpty();
    m_header.patient = layout.field(EdfLayout::kPatientAt, EdfLayout::kTextWidth);
    m_header.recording = layout.field(EdfLayout::kRecordingAt, EdfLayout::kTextWidth);
    m_header.start = parseStart(layout.field(EdfLayout::kStartAt, EdfLayout::kStartWidth));
    readSignals(layout);
    if (m_header.channels.isEmpty()) {
        error = QStringLiteral("it holds annotations only, and no signal");
    } else if (recordTicks() <= 0) {
        error = QStringLiteral("its records have no duration");
    } else if (!m_header.start.isValid()) {
        error = QStringLiteral("its header has no valid start date and time");
    }
    confine(0, records());
    return error.isEmpty();
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

bool EdfInput::scan(const std::function<bool()> &cancelled, QString &error)
{
    m_scan->readAnnotations(cancelled);
    error = m_scan->reason();
    if (!error.isEmpty()) {
        return false;
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
    return true;
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

bool EdfInput::read(int channel, qint64 first, int count, qint32 *out, QString &error)
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
        error = QStringLiteral("reading failed");
        return false;
    }
    std::fill(out, out + at, out[at]);
    std::fill(out + at + inside, out + count, out[at + inside - 1]);
    return true;
}

} // namespace bp
