#include "files/EdfSink.h"

#include <QLocale>

#include <algorithm>
#include <limits>
#include <vector>

namespace {

constexpr qint64 kGoodBytes = 61440; // as the format recommends
constexpr qint64 kMaxBytes = 5 * 1024 * 1024; // readers refuse records of 10 MB
constexpr qint64 kMaxRecords = 99'999'999;
constexpr qint64 kMaxExtraSteps = 100'000;
constexpr int kNumberWidth = 8;
constexpr int kLeastNoteBytes = 60;
constexpr qint64 kMaxNoteBytes = 4 * 1024 * 1024;
constexpr qint64 kMaxRatio = qint64{1} << 40;

struct Span
{
    double least; ///< s
    double most;
    qint64 bytes;
};
constexpr Span kSpans[]{{0.1, 60.0, kGoodBytes}, {0.02, 600.0, kMaxBytes}};

/// Ticks of so many steps; 0 when the header cannot hold the time exactly.
qint64 exactTicks(bp::Ratio step, qint64 count)
{
    const qint64 divisor = std::gcd(count, step.den);
    const qint64 den = step.den / divisor;
    if (bp::kEdfTicks % den != 0 || count / divisor > std::numeric_limits<qint64>::max() / bp::kEdfTicks / step.num) {
        return 0;
    }
    const qint64 ticks = count / divisor * step.num * (bp::kEdfTicks / den);
    return bp::edfSeconds(ticks).size() <= kNumberWidth ? ticks : 0;
}

QByteArray padded(const QByteArray &text, int width)
{
    return text.leftJustified(width, ' ', true);
}

QByteArray number(qint64 value, int width = kNumberWidth)
{
    return padded(QByteArray::number(value), width);
}

QByteArray timed(const bp::EdfNote &note, qint64 startTicks)
{
    const qint64 onset = note.onset + startTicks;
    const QByteArray sign = onset < 0 ? "-" : "+";
    const QByteArray lasting = note.duration < 0 ? QByteArray() : '\x15' + bp::edfSeconds(note.duration);
    return sign + bp::edfSeconds(std::abs(onset)) + lasting + '\x14' + note.text + "\x14" + '\0';
}

} // namespace

namespace bp {

Ratio EdfRecordPlan::commonStep(const QVector<Ratio> &rates)
{
    qint64 num = 1;
    qint64 den = 0;
    for (const Ratio &rate : rates) {
        num = std::lcm(num, rate.den);
        den = std::gcd(den, rate.num);
        if (num > kMaxRatio || rate.num < 1) {
            return {};
        }
    }
    return den == 0 ? Ratio{} : Ratio::of(num, den);
}

EdfRecordPlan EdfRecordPlan::make(Ratio step, qint64 steps, qint64 bytesPerStep, qint64 preferredTicks)
{
    const double target = static_cast<double>(preferredTicks > 0 ? preferredTicks : kEdfTicks);
    for (qint64 total = steps; total <= steps + kMaxExtraSteps; ++total) {
        for (const Span &span : kSpans) {
            EdfRecordPlan best;
            double bestScore = std::numeric_limits<double>::infinity();
            const auto consider = [&](qint64 count) {
                const qint64 ticks = exactTicks(step, count);
                const double seconds = static_cast<double>(ticks) / static_cast<double>(kEdfTicks);
                const bool preferred = ticks == preferredTicks && &span == kSpans;
                const bool fits = seconds >= std::min(span.least, step.value() * static_cast<double>(total))
                    && seconds <= std::max(span.most, step.value()) && count <= span.bytes / bytesPerStep;
                const double score = std::fabs(std::log(static_cast<double>(ticks) / target));
                if (ticks > 0 && total / count <= kMaxRecords && (fits || preferred) && score < bestScore) {
                    best = {count, total / count, ticks};
                    bestScore = score;
                }
            };
            for (qint64 divisor = 1; divisor * divisor <= total; ++divisor) {
                if (total % divisor == 0) {
                    consider(divisor);
                    consider(total / divisor);
                }
            }
            if (best.stepsPerRecord > 0) {
                return best;
            }
        }
    }
    return {};
}

bool EdfSink::open(const QString &path, const EdfFacts &facts, const EdfRecordPlan &plan, const QVector<EdfNote> &notes,
                   QString &error)
{
    m_facts = facts;
    m_plan = plan;
    m_notes = notes;
    m_facts.plus = m_facts.plus || !notes.isEmpty();
    for (const EdfChannelFacts &channel : m_facts.channels) {
        m_samples += channel.samplesPerRecord;
    }
    if (m_facts.plus) {
        sizeNoteBlock();
    }
    m_file = std::make_unique<QSaveFile>(path);
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
    m_noteBytes = rounded(std::max<qint64>(m_notes.isEmpty() ? 0 : kLeastNoteBytes,
                                           timekeeping(m_plan.records).size() + qint64{longest}));
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
                                   : padded("0", kNumberWidth);
    bytes += padded(m_facts.patient, 80) + padded(m_facts.recording, 80)
        + QLocale::c().toString(m_facts.start, QStringLiteral("dd.MM.yyHH.mm.ss")).toLatin1()
        + number(256 * (qint64{channels.size()} + 1))
        + padded(m_facts.plus      ? kind + "+C"
                     : m_facts.bdf ? QByteArray("24BIT")
                                   : QByteArray(),
                 44)
        + number(m_plan.records) + padded(edfSeconds(m_plan.durationTicks), kNumberWidth) + number(channels.size(), 4);
    const auto field = [&](int width, auto text) {
        for (const EdfChannelFacts &channel : qAsConst(channels)) {
            bytes += padded(text(channel), width);
        }
    };
    using Facts = const EdfChannelFacts &;
    field(16, [](Facts c) { return c.label; });
    field(80, [](Facts c) { return c.transducer; });
    field(8, [](Facts c) { return c.unit; });
    field(8, [](Facts c) { return c.physicalMinimum; });
    field(8, [](Facts c) { return c.physicalMaximum; });
    field(8, [](Facts c) { return QByteArray::number(c.digitalMinimum); });
    field(8, [](Facts c) { return QByteArray::number(c.digitalMaximum); });
    field(80, [](Facts c) { return c.prefilter; });
    field(8, [](Facts c) { return QByteArray::number(c.samplesPerRecord); });
    field(32, [](Facts) { return QByteArray(); });
    return bytes;
}

bool EdfSink::writeRecord(const std::vector<qint32> &samples, QString &error)
{
    m_buffer.resize(m_samples * m_facts.sampleBytes());
    char *out = m_buffer.data();
    for (int i = 0; i < m_samples; ++i) {
        const auto value = static_cast<quint32>(samples[static_cast<std::size_t>(i)]);
        for (int byte = 0; byte < m_facts.sampleBytes(); ++byte) {
            *out++ = static_cast<char>(static_cast<unsigned char>(value >> (8 * byte)));
        }
    }
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
    }
    return error.isEmpty();
}

} // namespace bp
