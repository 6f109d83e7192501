#pragma once

#include <QtGlobal>

namespace bp {

/// The inner loops of recording and reading: nearly all of their work, in one pass over the samples, and with nothing
/// but operations that compilers turn into vector instructions.
class EdfSamples
{
public:
    // The range of a recording's signals. The physical minimum is one step off the digital one, so that the scale is
    // not quite symmetric. Compatibility: files in the field have these four values.
    static constexpr double kPhysicalMaximum = 32767.0;
    static constexpr double kPhysicalMinimum = -32767.0;
    static constexpr int kDigitalMaximum = 32767;
    static constexpr int kDigitalMinimum = -32768;

    /// From digital to physical values, as EDFlib scales them.
    struct Scale
    {
        double step; ///< physical units per digital one
        double offset; ///< digital
    };

    /// The digital values of samples in µV in the range above, rounded to the nearest. Inverted: the polarity in a file
    /// is the inverse of the input. Values beyond the range are clipped, NaN is stored as 0.
    static void store(const float *samples, qint64 count, qint16 *digital);
    /// Physical values, inverted again, of samples as they stand in an EDF file.
    static void scale16(const char *bytes, qint64 count, const Scale &scale, double *out);
    /// As scale16(), in a BDF file.
    static void scale24(const char *bytes, qint64 count, const Scale &scale, double *out);
    /// Digital values as they stand in a file, not inverted.
    static void unpack(const char *bytes, qint64 count, int sampleBytes, qint32 *digital);
    static void pack(const qint32 *digital, qint64 count, int sampleBytes, char *bytes);
};

} // namespace bp
