#include "files/EdfRecords.h"

#include <algorithm>

namespace {

constexpr qint64 kChunkBytes = 1 << 18; // stays in the processor's cache until it is scaled
/// A signal with less than this share of a record is fetched by itself when much of it is wanted.
constexpr qint64 kSmallShare = 4;

} // namespace

namespace bp {

bool EdfRecords::open(const QString &path, int channelCount)
{
    close();
    m_file.setFileName(path);
    if (!m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return false;
    }
    m_layout = EdfLayout::read(m_file);
    for (int i = 0; m_layout.recordBytes > 0 && i < m_layout.signalCount; ++i) {
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
    m_chunkRecords = std::max<qint64>(1, kChunkBytes / std::max<qint64>(1, m_layout.recordBytes));
    return true;
}

void EdfRecords::close()
{
    m_file.close();
    m_layout = EdfLayout();
    m_signals.clear();
    m_recordsInChunk = 0;
}

bool EdfRecords::read(int channel, qint64 from, qint64 count, const EdfSamples::Scale &scale, double *out)
{
    if (count <= 0) {
        return true;
    }
    const int signal = m_signals.at(static_cast<std::size_t>(channel));
    const qint64 perRecord = m_layout.blocks[signal].samples;
    const qint64 lastRecord = (from + count - 1) / perRecord;
    while (count > 0) {
        const qint64 record = from / perRecord;
        const qint64 inRecord = from % perRecord;
        const qint64 take = std::min(count, perRecord - inRecord);
        const char *data = recordData(record, signal, lastRecord);
        if (data == nullptr) {
            return false;
        }
        (m_layout.isBdf ? EdfSamples::scale24 : EdfSamples::scale16)(data + inRecord * m_layout.sampleBytes, take,
                                                                     scale, out);
        out += take;
        from += take;
        count -= take;
    }
    return true;
}

qint64 EdfRecords::samplesAhead(qint64 from, qint64 count) const
{
    if (!m_evenRates || m_signals.empty()) {
        return count;
    }
    const qint64 perRecord = m_layout.blocks[m_signals.front()].samples;
    return std::min(count, (from / perRecord + m_chunkRecords) * perRecord - from);
}

/// The block of a signal in a record; null when it cannot be read.
const char *EdfRecords::recordData(qint64 record, int signal, qint64 lastRecord)
{
    const EdfLayout::Block &block = m_layout.blocks[signal];
    if (record >= m_firstInChunk && record < m_firstInChunk + m_recordsInChunk) {
        return m_chunk.data() + (record - m_firstInChunk) * m_layout.recordBytes + block.at;
    }
    const qint64 blockBytes = m_layout.blockBytes(signal);
    const bool alone = lastRecord - record >= m_chunkRecords && blockBytes * kSmallShare < m_layout.recordBytes;
    m_recordsInChunk = 0;
    const qint64 position = m_layout.header.size() + record * m_layout.recordBytes + (alone ? block.at : 0);
    const qint64 wanted = alone ? blockBytes : m_chunkRecords * m_layout.recordBytes;
    m_chunk.resize(static_cast<std::size_t>(m_chunkRecords * m_layout.recordBytes));
    const qint64 bytes = m_file.seek(position) ? m_file.read(m_chunk.data(), wanted) : -1;
    if (alone) {
        return bytes == wanted ? m_chunk.data() : nullptr;
    }
    m_firstInChunk = record;
    m_recordsInChunk = std::max<qint64>(0, bytes) / m_layout.recordBytes;
    return m_recordsInChunk > 0 ? m_chunk.data() + block.at : nullptr;
}

} // namespace bp
