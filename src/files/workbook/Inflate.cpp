#include "files/workbook/Inflate.h"

#include <zlib.h>

namespace bp {

bool inflate(const QByteArray &packed, int unpackedSize, QByteArray &unpacked)
{
    constexpr int kRawDeflate = -MAX_WBITS;
    unpacked.resize(unpackedSize);
    z_stream stream{};
    // The library takes no constant input, and leaves it alone.
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(packed.constData()));
    stream.avail_in = static_cast<uInt>(packed.size());
    stream.next_out = reinterpret_cast<Bytef *>(unpacked.data());
    stream.avail_out = static_cast<uInt>(unpackedSize);
    if (inflateInit2(&stream, kRawDeflate) != Z_OK) {
        return false;
    }
    const int result = ::inflate(&stream, Z_FINISH);
    inflateEnd(&stream);
    return result == Z_STREAM_END && stream.avail_out == 0;
}

} // namespace bp
