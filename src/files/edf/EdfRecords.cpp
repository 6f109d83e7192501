#include "files/edf/EdfRecords.h"

#include <algorithm>

namespace {

constexpr qint64 kChunkBytes = 1 << 18; // stays in the processor's cache until it is scaled
constexpr qint64 kMostHeldBytes = 1 << 28;
/// A signal with less than this share of a record is fetched by itself when much of it is wanted.
constexpr qint64 kSmallShare = 4;

} // namespace

namespace bp {

bool EdfRecords::open(const QString &path, const EdfLayout &layout, int channelCount)
{
    close();
    m_file.setFileName(path);
    if (!m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return false;
    }
    m_use.hold(m_file);
    m_layout = layout;
    for (int i = 0; i < m_layout.signalCount; ++i) {
        if (!m_layout.annotationSignals.contains(i)) {
            m_signals.push_back(i);
        }
    }
    if (static_cast<int>(m_signals.size()) != channelCount) {
        close();
        return false;
    }
    m_evenRates = std::all_of(m_signals.begin(), m_signals.end(), [this](int signal) {
        return m_layout.blocks[signal].samples == m_layout.blocks[m_signals.front()].samples;
    });
    m_chunkRecords = std::max<qint64>(1, kChunkBytes / m_layout.recordBytes);
    return true;
}

void EdfRecords::close()
{
    m_use.release();
    m_file.close();
    m_layout = EdfLayout();
    m_signals.clear();
    m_recordsInChunk = 0;
    hold(0, -1);
}

/// Calls visit(bytes, samples) for what each record has of these samples.
template <class Visit> bool EdfRecords::forEachBlock(int signal, qint64 from, qint64 count, const Visit &visit)
{
    const qint64 perRecord = m_layout.blocks[signal].samples;
    const qint64 end = from + count;
    while (from < end) {
        const qint64 inRecord = from % perRecord;
        const qint64 samples = std::min(end - from, perRecord - inRecord);
        const char *data = recordData(from / perRecord, signal, (end - 1) / perRecord);
        if (data == nullptr) {
            return false;
        }
        visit(data + inRecord * m_layout.sampleBytes, samples);
        from += samples;
    }
    return true;
}

bool EdfRecords::read(int channel, qint64 from, qint64 count, const EdfSamples::Scale &scale, double *out)
{
    const auto scaled = m_layout.isBdf ? EdfSamples::scale24 : EdfSamples::scale16;
    return forEachBlock(m_signals.at(static_cast<std::size_t>(channel)), from, count,
                        [&](const char *bytes, qint64 samples) {
                            scaled(bytes, samples, scale, out);
                            out += samples;
                        });
}

bool EdfRecords::readDigital(int signal, qint64 from, qint64 count, qint32 *out)
{
    return forEachBlock(signal, from, count, [&](const char *bytes, qint64 samples) {
        EdfSamples::unpack(bytes, samples, m_layout.sampleBytes, out);
        out += samples;
    });
}

void EdfRecords::hold(qint64 first, qint64 last)
{
    const qint64 most = kMostHeldBytes / std::max<qint64>(1, m_layout.recordBytes);
    m_heldFirst = first;
    m_heldLast = std::min(last, first + most);
}

qint64 EdfRecords::samplesAhead(qint64 from, qint64 count) const
{
    if (!m_evenRates || m_signals.empty()) {
        return count;
    }
    const qint64 perRecord = m_layout.blocks[m_signals.front()].samples;
    return std::min(count, (from / perRecord + m_chunkRecords) * perRecord - from);
}

/// Fills the chunk from that record on.
void EdfRecords::fetch(qint64 first, qint64 records)
{
    const qint64 wanted = std::max(m_chunkRecords, records) * m_layout.recordBytes;
    m_chunk.resize(static_cast<std::size_t>(wanted));
    const qint64 at = m_layout.headerBytes.size() + first * m_layout.recordBytes;
    const qint64 bytes = m_file.seek(at) ? m_file.read(m_chunk.data(), wanted) : -1;
    m_firstInChunk = first;
    m_recordsInChunk = std::max<qint64>(0, bytes) / m_layout.recordBytes;
}

/// The block of a signal in a record; null when it cannot be read.
const char *EdfRecords::recordData(qint64 record, int signal, qint64 lastRecord)
{
    const EdfLayout::Block &block = m_layout.blocks[signal];
    const auto isInChunk = [&] { return record >= m_firstInChunk && record < m_firstInChunk + m_recordsInChunk; };
    const bool isHeld = record >= m_heldFirst && record <= m_heldLast;
    const qint64 blockBytes = m_layout.blockBytes(signal);
    if (!isInChunk() && !isHeld && lastRecord - record >= m_chunkRecords
        && blockBytes * kSmallShare < m_layout.recordBytes) {
        m_recordsInChunk = 0;
        m_chunk.resize(static_cast<std::size_t>(m_chunkRecords * m_layout.recordBytes));
        const bool isRead = m_file.seek(m_layout.headerBytes.size() + record * m_layout.recordBytes + block.at)
            && m_file.read(m_chunk.data(), blockBytes) == blockBytes;
        return isRead ? m_chunk.data() : nullptr;
    }
    if (!isInChunk()) {
        const qint64 first = isHeld ? m_heldFirst : record;
        fetch(first, isHeld ? m_heldLast - first + 1 : 1);
    }
    return isInChunk() ? m_chunk.data() + (record - m_firstInChunk) * m_layout.recordBytes + block.at : nullptr;
}

} // namespace bp
