#include "files/edf/EdfSamples.h"

#include <QtEndian>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

using bp::EdfSamples;

constexpr double kUnitsPerBit = (EdfSamples::kPhysicalMaximum - EdfSamples::kPhysicalMinimum)
    / (EdfSamples::kDigitalMaximum - EdfSamples::kDigitalMinimum);
constexpr double kBitsPerUnit = 1.0 / kUnitsPerBit;
constexpr double kDigitalOffset = EdfSamples::kPhysicalMaximum / kUnitsPerBit - EdfSamples::kDigitalMaximum;
/// Adding this much before the fraction is cut off rounds as std::round() does.
constexpr double kAlmostHalf = 0.49999999999999994;

int digital24(const char *bytes)
{
    const auto *b = reinterpret_cast<const unsigned char *>(bytes);
    return ((b[0] | b[1] << 8 | b[2] << 16) ^ 0x800000) - 0x800000;
}

} // namespace

namespace bp {

void EdfSamples::store(const float *samples, qint64 count, qint16 *digital)
{
    constexpr auto kHighest = static_cast<float>(kPhysicalMaximum);
    constexpr auto kLowest = static_cast<float>(kPhysicalMinimum);
    for (qint64 i = 0; i < count; ++i) {
        const float number = std::isnan(samples[i]) ? 0.0f : samples[i];
        const float clipped = std::max(kLowest, std::min(kHighest, number));
        const double value = static_cast<double>(-clipped) * kBitsPerUnit - kDigitalOffset;
        digital[i] = static_cast<qint16>(static_cast<int>(value + std::copysign(kAlmostHalf, value)));
    }
}

void EdfSamples::scale16(const char *bytes, qint64 count, const Scale &scale, double *out)
{
    const double step = scale.step;
    const double offset = scale.offset;
    for (qint64 i = 0; i < count; ++i) {
        qint16 digital = 0;
        std::memcpy(&digital, bytes + 2 * i, 2);
        out[i] = step * (offset + static_cast<double>(qFromLittleEndian(digital))) * -1.0;
    }
}

void EdfSamples::scale24(const char *bytes, qint64 count, const Scale &scale, double *out)
{
    for (qint64 i = 0; i < count; ++i) {
        out[i] = scale.step * (scale.offset + static_cast<double>(digital24(bytes + 3 * i))) * -1.0;
    }
}

void EdfSamples::unpack(const char *bytes, qint64 count, int sampleBytes, qint32 *digital)
{
    for (qint64 i = 0; i < count; ++i) {
        digital[i] = sampleBytes == 2 ? qFromLittleEndian<qint16>(bytes + 2 * i) : digital24(bytes + 3 * i);
    }
}

void EdfSamples::pack(const qint32 *digital, qint64 count, int sampleBytes, char *bytes)
{
    for (qint64 i = 0; i < count; ++i) {
        const auto value = static_cast<quint32>(digital[i]);
        for (int byte = 0; byte < sampleBytes; ++byte) {
            *bytes++ = static_cast<char>(static_cast<unsigned char>(value >> (8 * byte)));
        }
    }
}

} // namespace bp
