#include "files/edf/EdfSink.h"

#include "files/edf/EdfLayout.h"
#include "files/edf/EdfSamples.h"
#include "files/edf/EdfSession.h"
#include "files/edf/EdfTal.h"

#include <QFileInfo>
#include <QLocale>
#include <QRandomGenerator>

#include <edflib.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace {

using bp::EdfLayout;

constexpr int kLeastNoteBytes = 60;
constexpr qint64 kMaxNoteBytes = 4 * 1024 * 1024;

QByteArray padded(const QByteArray &text, int width)
{
    return text.leftJustified(width, ' ', true);
}

QByteArray number(qint64 value, int width = EdfLayout::kNumberWidth)
{
    return padded(QByteArray::number(value), width);
}

/// Characters from the decimal point on; 0 for whole seconds.
int decimals(qint64 ticks)
{
    const QByteArray text = bp::edfSeconds(std::abs(ticks));
    const int point = text.indexOf('.');
    return point < 0 ? 0 : text.size() - point;
}

QByteArray timed(const bp::EdfNote &note, qint64 startTicks)
{
    const qint64 onset = note.onset + startTicks;
    const QByteArray lasting = note.duration < 0 ? QByteArray() : bp::edfSeconds(note.duration);
    return bp::EdfTal::list(onset < 0, bp::edfSeconds(std::abs(onset)), lasting, note.text) + '\0';
}

std::filesystem::path nativePath(const QString &path)
{
#ifdef Q_OS_WIN
    return path.toStdWString();
#else
    return QFile::encodeName(path).toStdString();
#endif
}

/// Behind a link stands the file that is replaced; the link stays.
QString behindLinks(const QString &path)
{
    const QString real = QFileInfo(path).canonicalFilePath();
    return real.isEmpty() ? path : real;
}

/// Also over an existing file, at once.
bool moveOver(const QString &from, const QString &to)
{
    if (QFileInfo::exists(to)) {
        QFile::setPermissions(from, QFile::permissions(to));
    }
    std::error_code error;
    std::filesystem::rename(nativePath(from), nativePath(to), error);
    return !error;
}

} // namespace

namespace bp {

EdfSink::~EdfSink()
{
    if (m_file) {
        const QString path = m_file->fileName();
        m_file.reset(); // removes what was not completed
        QFile::remove(path);
    }
}

bool EdfSink::open(const QString &path, const EdfFacts &facts, const EdfRecordPlan &plan, const QVector<EdfNote> &notes,
                   QString &error)
{
    m_facts = facts;
    m_plan = plan;
    m_notes = notes;
    if (!notes.isEmpty()) {
        m_facts.makePlus();
    }
    for (const EdfChannelFacts &channel : m_facts.channels) {
        m_samples += channel.samplesPerRecord;
    }
    if (m_facts.plus) {
        sizeNoteBlock();
    }
    m_target = behindLinks(path);
    m_file = std::make_unique<QSaveFile>(
        QStringLiteral("%1.%2").arg(m_target, QString::number(QRandomGenerator::global()->generate(), 36)));
    if (!m_file->open(QIODevice::WriteOnly)) {
        error = m_file->errorString();
        return false;
    }
    const QByteArray bytes = header();
    if (m_noteBytes > kMaxNoteBytes) {
        error = QStringLiteral("so many annotations do not fit into so short a file");
    } else if (m_file->write(bytes) != bytes.size()) {
        error = m_file->errorString();
    }
    return error.isEmpty();
}

QByteArray EdfSink::timekeeping(qint64 record) const
{
    return '+' + edfSeconds(m_facts.startTicks + record * m_plan.durationTicks) + "\x14\x14" + '\0';
}

/// No record's is longer: the last one has the most digits, and sums no more decimals than their parts.
qint64 EdfSink::longestTimekeeping() const
{
    const int most = std::max(decimals(m_facts.startTicks), decimals(m_plan.durationTicks));
    return timekeeping(m_plan.records).size() - decimals(m_facts.startTicks + m_plan.records * m_plan.durationTicks)
        + most;
}

/// The next notes that belong into the record or an earlier one, as far as there is room. Returns the first that
/// remains.
qint64 EdfSink::placeNotes(qint64 record, qint64 next, QByteArray *block) const
{
    qint64 used = timekeeping(record).size();
    const qint64 end = (record + 1) * m_plan.durationTicks;
    const bool last = record + 1 == m_plan.records;
    for (; next < m_notes.size(); ++next) {
        const EdfNote &note = m_notes[static_cast<int>(next)];
        const QByteArray text = timed(note, m_facts.startTicks);
        if (used + text.size() > m_noteBytes || (note.onset >= end && !last)) {
            break;
        }
        used += text.size();
        if (block != nullptr) {
            *block += text;
        }
    }
    return next;
}

void EdfSink::sizeNoteBlock()
{
    int longest = 0;
    for (const EdfNote &note : qAsConst(m_notes)) {
        longest = std::max(longest, timed(note, m_facts.startTicks).size());
    }
    // Even, and a whole number of samples of three bytes.
    const auto rounded = [](qint64 bytes) { return static_cast<int>((bytes + 5) / 6 * 6); };
    m_noteBytes =
        rounded(std::max<qint64>(m_notes.isEmpty() ? 0 : kLeastNoteBytes, longestTimekeeping() + qint64{longest}));
    // Placed from the front in every record, as writing does it, until nothing is left behind.
    const auto fits = [this] {
        qint64 next = 0;
        for (qint64 record = 0; record < m_plan.records && next < m_notes.size(); ++record) {
            next = placeNotes(record, next, nullptr);
        }
        return next == m_notes.size();
    };
    while (!fits() && m_noteBytes <= kMaxNoteBytes) {
        m_noteBytes = rounded(qint64{m_noteBytes} * 2);
    }
}

QByteArray EdfSink::header() const
{
    QVector<EdfChannelFacts> channels = m_facts.channels;
    if (m_facts.plus) {
        EdfChannelFacts notes;
        notes.label = m_facts.bdf ? "BDF Annotations" : "EDF Annotations";
        notes.physicalMinimum = "-1";
        notes.physicalMaximum = "1";
        notes.digitalMinimum = m_facts.bdf ? -8388608 : -32768;
        notes.digitalMaximum = m_facts.bdf ? 8388607 : 32767;
        notes.samplesPerRecord = m_noteBytes / m_facts.sampleBytes();
        channels << notes;
    }
    const QByteArray kind = m_facts.bdf ? "BDF" : "EDF";
    QByteArray bytes = m_facts.bdf ? QByteArray("\xff"
                                                "BIOSEMI")
                                   : padded("0", EdfLayout::kNumberWidth);
    bytes += padded(m_facts.patient, EdfLayout::kTextWidth) + padded(m_facts.recording, EdfLayout::kTextWidth)
        + QLocale::c().toString(m_facts.start, QStringLiteral("dd.MM.yyHH.mm.ss")).toLatin1()
        + number(EdfLayout::kFixedBytes * (qint64{channels.size()} + 1))
        + padded(m_facts.plus      ? kind + "+C"
                     : m_facts.bdf ? QByteArray("24BIT")
                                   : QByteArray(),
                 EdfLayout::kReservedWidth)
        + number(m_plan.records) + padded(edfSeconds(m_plan.durationTicks), EdfLayout::kNumberWidth)
        + number(channels.size(), EdfLayout::kSignalCountWidth);
    return bytes + signalFields(channels);
}

QByteArray EdfSink::signalFields(const QVector<EdfChannelFacts> &channels)
{
    QByteArray bytes;
    const auto field = [&](int width, auto text) {
        for (const EdfChannelFacts &channel : channels) {
            bytes += padded(text(channel), width);
        }
    };
    using Facts = const EdfChannelFacts &;
    field(EdfLayout::kLabelWidth, [](Facts c) { return c.label; });
    field(EdfLayout::kTransducerWidth, [](Facts c) { return c.transducer; });
    field(EdfLayout::kNumberWidth, [](Facts c) { return c.unit; });
    field(EdfLayout::kNumberWidth, [](Facts c) { return c.physicalMinimum; });
    field(EdfLayout::kNumberWidth, [](Facts c) { return c.physicalMaximum; });
    field(EdfLayout::kNumberWidth, [](Facts c) { return QByteArray::number(c.digitalMinimum); });
    field(EdfLayout::kNumberWidth, [](Facts c) { return QByteArray::number(c.digitalMaximum); });
    field(EdfLayout::kPrefilterWidth, [](Facts c) { return c.prefilter; });
    field(EdfLayout::kNumberWidth, [](Facts c) { return QByteArray::number(c.samplesPerRecord); });
    field(EdfLayout::kSignalReservedWidth, [](Facts) { return QByteArray(); });
    return bytes;
}

bool EdfSink::writeRecord(const std::vector<qint32> &samples, QString &error)
{
    m_buffer.resize(m_samples * m_facts.sampleBytes());
    EdfSamples::pack(samples.data(), m_samples, m_facts.sampleBytes(), m_buffer.data());
    if (m_noteBytes > 0) {
        QByteArray block = timekeeping(m_record);
        m_nextNote = placeNotes(m_record, m_nextNote, &block);
        m_buffer += block.leftJustified(m_noteBytes, '\0');
    }
    ++m_record;
    if (m_file->write(m_buffer) != m_buffer.size()) {
        error = QStringLiteral("writing failed; the disk may be full");
    }
    return error.isEmpty();
}

bool EdfSink::commit(QString &error)
{
    if (!m_file->commit()) {
        error = QStringLiteral("it could not be completed; the disk may be full");
        return false;
    }
    error = readBack();
    if (error.isEmpty() && !moveOver(m_file->fileName(), m_target)) {
        error = QStringLiteral("it could not be put in its place; close it in other programs");
    }
    return error.isEmpty();
}

/// Why the new file is not as it should be; empty when it is.
QString EdfSink::readBack() const
{
    EdfSession session;
    const QString reason = session.open(m_file->fileName());
    if (!reason.isEmpty()) {
        return QStringLiteral("what was written cannot be read again, as %1").arg(reason);
    }
    session.readAnnotations();
    const bool isComplete = session.header().edfsignals == m_facts.channels.size()
        && session.header().datarecords_in_file == m_plan.records && session.annotations().size() == m_notes.size();
    return isComplete ? QString() : QStringLiteral("channels or annotations could not be read again");
}

} // namespace bp
