#include "files/workbook/WorkbookCheck.h"

#include "files/workbook/Inflate.h"
#include "files/workbook/RhythmSheet.h"

#include <QXmlStreamReader>
#include <QtEndian>

#include <zlib.h>

namespace {

constexpr int kMaxParts = 256;
constexpr int kMaxUnpackedBytes = 512 * 1024 * 1024;
constexpr int kMaxSheets = 16;
constexpr qint64 kMaxCells = 9'000'000; // a full sheet of six rhythms; 400 bytes each once they are loaded
constexpr int kMaxDepth = 64;

constexpr int kEndSize = 22;
constexpr int kEntrySize = 46;
constexpr int kLocalSize = 30;
constexpr quint32 kEndMark = 0x06054b50;
constexpr quint32 kEntryMark = 0x02014b50;
constexpr quint32 kLocalMark = 0x04034b50;
constexpr quint16 kMaxVersion = 20; // what Qt's reader of archives understands; of others it gives empty parts
constexpr quint16 kEncrypted = 1;
constexpr quint16 kStored = 0;
constexpr quint16 kDeflated = 8;

class Check
{
public:
    explicit Check(const QByteArray &workbook)
        : m_bytes(workbook)
    {
    }

    bp::Outcome check()
    {
        const int end = m_bytes.lastIndexOf(QByteArrayLiteral("PK\x05\x06"));
        if (!m_bytes.startsWith("PK") || end < 0 || end > m_bytes.size() - kEndSize || number32(end) != kEndMark) {
            return bp::Outcome::failure(QStringLiteral("it is no workbook, or only a part of one"));
        }
        const int parts = number16(end + 10);
        qint64 entry = number32(end + 16);
        if (parts < 1 || parts > kMaxParts) {
            return bp::Outcome::failure(QStringLiteral("it has no parts, or too many"));
        }
        for (int i = 0; i < parts && m_outcome; ++i) {
            entry = checkEntry(entry);
        }
        if (m_outcome && (m_sheets > kMaxSheets || m_cells * qMax(1, m_sheets) > 2 * kMaxCells)) {
            fail("it is too large");
        }
        return m_outcome;
    }

private:
    bool contains(qint64 offset, qint64 size) const { return offset >= 0 && size <= m_bytes.size() - offset; }
    quint16 number16(qint64 offset) const { return qFromLittleEndian<quint16>(m_bytes.constData() + offset); }
    quint32 number32(qint64 offset) const { return qFromLittleEndian<quint32>(m_bytes.constData() + offset); }

    qint64 fail(const char *fault)
    {
        m_outcome = bp::Outcome::failure(QLatin1String(fault));
        return 0;
    }

    /// Returns the place of the next entry.
    qint64 checkEntry(qint64 entry)
    {
        if (!contains(entry, kEntrySize) || number32(entry) != kEntryMark) {
            return fail("its directory is damaged");
        }
        const int nameLength = number16(entry + 28);
        const qint64 next = entry + kEntrySize + nameLength + number16(entry + 30) + number16(entry + 32);
        const qint64 local = number32(entry + 42);
        if (!contains(entry, next - entry) || !contains(local, kLocalSize) || number32(local) != kLocalMark
            || number16(entry + 6) > kMaxVersion || (number16(entry + 8) & kEncrypted) != 0
            || number16(local + 8) != number16(entry + 10)) {
            return fail("its directory is damaged, or it is encrypted");
        }
        const qint64 start = local + kLocalSize + number16(local + 26) + number16(local + 28);
        const qint64 packedSize = number32(entry + 20);
        if (!contains(start, packedSize)) {
            return fail("a part of it is missing");
        }
        const QByteArray name = m_bytes.mid(static_cast<int>(entry) + kEntrySize, nameLength);
        checkPart(name, entry, QByteArray::fromRawData(m_bytes.constData() + start, static_cast<int>(packedSize)));
        return next;
    }

    void checkPart(const QByteArray &name, qint64 entry, const QByteArray &packed)
    {
        const quint16 method = number16(entry + 10);
        const qint64 size = number32(entry + 24);
        m_unpacked += size;
        if (m_unpacked > kMaxUnpackedBytes) {
            fail("it is too large");
            return;
        }
        QByteArray part;
        bool isSound = method == kStored ? packed.size() == size
                                         : method == kDeflated && bp::inflate(packed, static_cast<int>(size), part);
        part = method == kStored ? packed : part;
        const uLong sum = crc32(0, reinterpret_cast<const Bytef *>(part.constData()), static_cast<uInt>(part.size()));
        isSound = isSound && sum == number32(entry + 16);
        if (!isSound) {
            fail("a part of it is damaged");
        } else if (name.endsWith(".xml") || name.endsWith(".rels")) {
            checkXml(part);
        }
    }

    void checkXml(const QByteArray &xml)
    {
        QXmlStreamReader reader(xml);
        int depth = 0;
        while (!reader.atEnd() && m_outcome) {
            const QXmlStreamReader::TokenType token = reader.readNext();
            if (token == QXmlStreamReader::StartElement) {
                if (++depth > kMaxDepth) {
                    fail("it is nested too deeply");
                }
                countElement(reader);
            } else if (token == QXmlStreamReader::EndElement) {
                --depth;
            } else if (token == QXmlStreamReader::DTD) {
                fail("it defines entities");
            }
        }
        if (reader.hasError() && m_outcome) {
            fail("a part of it is damaged");
        }
    }

    void countElement(const QXmlStreamReader &reader)
    {
        if (reader.name() == QLatin1String("c") || reader.name() == QLatin1String("si")) {
            ++m_cells;
        } else if (reader.name() == QLatin1String("sheet")) {
            ++m_sheets;
        } else if (reader.name() == QLatin1String("col")) {
            // The library keeps a record for each column of the range, however long.
            ++m_columns;
            if (reader.attributes().value(QLatin1String("max")).toString().toInt() > bp::sheet::kMaxColumns
                || reader.attributes().value(QLatin1String("min")).toString().toInt() < 1) {
                fail("it has too many columns");
            }
        }
        if (m_cells > kMaxCells || m_columns > kMaxSheets * bp::sheet::kMaxColumns / 64) {
            fail("it is too large");
        }
    }

    const QByteArray &m_bytes;
    bp::Outcome m_outcome = bp::Outcome::good();
    qint64 m_unpacked = 0;
    qint64 m_cells = 0;
    int m_columns = 0;
    int m_sheets = 0;
};

} // namespace

bp::Outcome bp::checkWorkbook(const QByteArray &workbook)
{
    return Check(workbook).check();
}
