#pragma once

#include "files/edf/EdfLayout.h"
#include "files/edf/EdfSamples.h"
#include "files/edf/OpenFile.h"

#include <QFile>

#include <vector>

namespace bp {

/// Samples straight from the data records of a file whose header has been found good.
///
/// EDFlib takes a file byte by byte; this takes it in pieces of a quarter of a megabyte and scales a block in one
/// pass. The values are EDFlib's, bit for bit, inverted.
class EdfRecords
{
public:
    /// @param layout of the file, with whole records
    /// @return false when the file cannot be opened, or has other than that many signals besides those for annotations
    bool open(const QString &path, const EdfLayout &layout, int channelCount);
    void close();
    /// Of the file that is open.
    const EdfLayout &layout() const { return m_layout; }
    /// Samples [from, from + count) of a channel, which the caller knows to be in the file.
    /// @param channel annotation signals not counted
    /// @return false when the file is shorter by now, or the disk fails
    bool read(int channel, qint64 from, qint64 count, const EdfSamples::Scale &scale, double *out);
    /// Samples that can be read from here on of every channel in turn without going to the file more than once; all of
    /// them when the channels have different rates.
    qint64 samplesAhead(qint64 from, qint64 count) const;
    /// As read(), of the signal of that number, annotation signals counted: digital values as they stand in the file.
    bool readDigital(int signal, qint64 from, qint64 count, qint32 *out);
    /// Says which records the next calls are about, so that the file is read once for all channels.
    /// @param last is in the file
    void hold(qint64 first, qint64 last);

private:
    template <class Visit> bool forEachBlock(int signal, qint64 from, qint64 count, const Visit &visit);
    void fetch(qint64 first, qint64 records);
    const char *recordData(qint64 record, int signal, qint64 lastRecord);

    QFile m_file;
    OpenFile m_use; ///< the file itself, also where EDFlib has a stand-in of it
    EdfLayout m_layout;
    std::vector<int> m_signals; ///< of the channels
    bool m_evenRates = true;
    std::vector<char> m_chunk;
    qint64 m_chunkRecords = 1; ///< that it has room for
    qint64 m_firstInChunk = 0;
    qint64 m_recordsInChunk = 0;
    qint64 m_heldFirst = 0;
    qint64 m_heldLast = -1;
};

} // namespace bp
