#pragma once

#include <QByteArray>
#include <QtEndian>

#include <vector>

/// Zip archives built field by field, sound or not.
struct HandmadeZip
{
    struct Part
    {
        QByteArray name;
        QByteArray content;
        bool deflated = false;
        qint64 claimedSize = -1; ///< instead of the content's; −1 for the true one
    };
    std::vector<Part> parts;

    QByteArray make() const
    {
        QByteArray bytes;
        QByteArray directory;
        for (const Part &part : parts) {
            const QByteArray packed = part.deflated ? deflate(part.content) : part.content;
            const auto size = static_cast<quint32>(part.claimedSize < 0 ? part.content.size() : part.claimedSize);
            const QByteArray common = number16(20) + number16(0) + number16(part.deflated ? 8 : 0) + number32(0)
                + number32(checksum(part.content)) + number32(static_cast<quint32>(packed.size())) + number32(size)
                + number16(part.name.size()) + number16(0);
            directory += "PK\x01\x02" + number16(20) + common + number16(0) + number16(0) + number16(0) + number32(0)
                + number32(static_cast<quint32>(bytes.size())) + part.name;
            bytes += "PK\x03\x04" + common + part.name + packed;
        }
        const int count = static_cast<int>(parts.size());
        return bytes + directory + "PK\x05\x06" + number32(0) + number16(count) + number16(count)
            + number32(static_cast<quint32>(directory.size())) + number32(static_cast<quint32>(bytes.size()))
            + number16(0);
    }

private:
    static QByteArray number16(int value)
    {
        QByteArray bytes(2, '\0');
        qToLittleEndian(static_cast<quint16>(value), bytes.data());
        return bytes;
    }
    static QByteArray number32(quint32 value)
    {
        QByteArray bytes(4, '\0');
        qToLittleEndian(value, bytes.data());
        return bytes;
    }
    /// Qt's format without its length, the header and the checksum of zlib.
    static QByteArray deflate(const QByteArray &content)
    {
        const QByteArray packed = qCompress(content, 9);
        return packed.mid(6, packed.size() - 10);
    }
    static quint32 checksum(const QByteArray &bytes)
    {
        quint32 sum = ~0u;
        for (const char byte : bytes) {
            sum ^= static_cast<unsigned char>(byte);
            for (int bit = 0; bit < 8; ++bit) {
                sum = (sum >> 1) ^ ((sum & 1u) != 0 ? 0xEDB88320u : 0u);
            }
        }
        return ~sum;
    }
};
