#pragma once

#include <cstddef>
#include <vector>

namespace bp {

/// Forward transform of a real signal whose length is a power of two, with its tables and work buffers.
///
/// Four textbook steps; sections are those of C. Van Loan, "Computational Frameworks for the Fast Fourier Transform"
/// (SIAM, 1992):
/// 1. Even and odd samples become the real and imaginary parts of a complex signal z of half the length (4.3).
/// 2. z is written row by row into a matrix of four columns, and each column is transformed by radix-4 passes of the
///    Stockham autosort algorithm, decimation in frequency, with a radix-2 pass at the end where needed (1.7, 2.4).
/// 3. Twiddle factors and one transform of length 4 per row join the columns to the transform of z (3.3).
/// 4. X[k] and X[half − k] are calculated from Z[k] and Z[half − k] (4.3).
///
/// The four columns make every inner loop at least four values wide over separate arrays of real and imaginary parts:
/// vector instructions without code for a particular processor.
class RealFft
{
public:
    /// @param size a power of two, at least 1
    explicit RealFft(std::size_t size);

    std::size_t size() const { return m_size; }

    /// |X[k]| · scale for k = 0 … size / 2, where X is the transform of the size() samples at in.
    void magnitudes(const float *in, float scale, float *out);

    /// Complex numbers, real and imaginary parts in arrays of their own.
    struct Complexes
    {
        std::vector<float> re;
        std::vector<float> im;
    };

private:
    void magnitudesOfFew(const float *in, float scale, float *out) const;
    void pack(const float *in);
    void transformColumns();
    void joinColumns();
    void unpack(float scale, float *out);

    std::size_t m_size;
    std::size_t m_half; ///< length of the complex transform
    Complexes m_now; ///< input of the present pass
    Complexes m_next; ///< its output
    Complexes m_columnFactors; ///< of all column passes in running order, three for each group
    Complexes m_joinFactors; ///< of columns 1, 2 and 3
    Complexes m_unpackFactors;
};

} // namespace bp
