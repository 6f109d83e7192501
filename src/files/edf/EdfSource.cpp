#include "files/edf/EdfSource.h"

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

bool EdfSource::open(const QString &path, QString &error)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        error = QStringLiteral("there is no such file");
    } else if (!info.isFile()) {
        error = QStringLiteral("it is not a file");
    } else {
        m_contents = std::make_unique<EdfContents>(path);
        error = m_contents->reason();
    }
    if (!error.isEmpty() || !takeFacts(error)) {
        return false;
    }
    const EdfLayout &layout = m_contents->layout();
    if (!m_records.open(path, layout.signalCount - layout.annotationSignals.size())) {
        error = QStringLiteral("reading failed");
    }
    return error.isEmpty();
}

bool EdfSource::takeFacts(QString &error)
{
    const EdfLayout &layout = m_contents->layout();
    m_facts.bdf = layout.isBdf;
    m_facts.plus = !layout.annotationSignals.isEmpty();
    m_facts.patient = layout.field(EdfLayout::kPatientAt, EdfLayout::kTextWidth);
    m_facts.recording = layout.field(EdfLayout::kRecordingAt, EdfLayout::kTextWidth);
    m_facts.start = parseStart(layout.field(EdfLayout::kStartAt, EdfLayout::kStartWidth));
    takeChannels(layout);
    if (m_facts.channels.isEmpty()) {
        error = QStringLiteral("it holds annotations only, and no signal");
    } else if (recordTicks() <= 0) {
        error = QStringLiteral("its records have no duration");
    } else if (!m_facts.start.isValid()) {
        error = QStringLiteral("its header has no valid start date and time");
    }
    confine(0, records());
    return error.isEmpty();
}

void EdfSource::takeChannels(const EdfLayout &layout)
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
        m_facts.channels << EdfChannelFacts{label,
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

bool EdfSource::scan(const std::function<bool()> &cancelled, QString &error)
{
    m_contents->readAnnotations(cancelled);
    error = m_contents->reason();
    if (!error.isEmpty()) {
        return false;
    }
    for (const EdfNote &note : m_contents->notes()) {
        if (!note.text.isEmpty()) {
            m_notes << note;
        }
    }
    std::stable_sort(m_notes.begin(), m_notes.end(),
                     [](const EdfNote &a, const EdfNote &b) { return a.onset < b.onset; });
    if (m_contents->firstOnset() > 0) {
        m_facts.moveStart(m_contents->firstOnset());
    }
    return true;
}

qint64 EdfSource::recordOnset(qint64 record) const
{
    const auto next = std::upper_bound(pauses().begin(), pauses().end(), record,
                                       [](qint64 wanted, const EdfPause &pause) { return wanted < pause.record; });
    if (next == pauses().begin()) {
        return record * recordTicks();
    }
    const EdfPause &last = *std::prev(next);
    return last.start + last.duration + (record - last.record) * recordTicks();
}

void EdfSource::confine(qint64 firstRecord, qint64 records)
{
    m_firstRecord = firstRecord;
    m_endRecord = firstRecord + records;
}

void EdfSource::hold(qint64 firstRecord, qint64 lastRecord)
{
    const qint64 first = std::clamp(firstRecord, m_firstRecord, m_endRecord - 1);
    m_records.hold(first, std::clamp(lastRecord, first, m_endRecord - 1));
}

bool EdfSource::read(int channel, qint64 first, int count, qint32 *out, QString &error)
{
    const EdfChannelFacts &facts = m_facts.channels[channel];
    const qint64 begin = m_firstRecord * facts.samplesPerRecord;
    const qint64 end = m_endRecord * facts.samplesPerRecord;
    const qint64 from = std::clamp(first, begin, end - 1);
    const qint64 to = std::clamp(first + count, from + 1, end);
    // Where in `out` these stand: nowhere but at an edge when all that is wanted lies outside.
    const auto at = static_cast<int>(std::clamp<qint64>(from - first, 0, count - 1));
    const auto inside = static_cast<int>(to - from);
    if (!m_records.readDigital(facts.signal, from, inside, out + at)) {
        error = QStringLiteral("reading failed");
        return false;
    }
    std::fill(out, out + at, out[at]);
    std::fill(out + at + inside, out + count, out[at + inside - 1]);
    return true;
}

} // namespace bp
