#pragma once

#include <cstddef>
#include <vector>

namespace bp {

/// Forward transform of a real signal whose length is a power of two, with its tables and work buffers.
///
/// Runs as a complex transform of half the length (even samples are the real, odd ones the imaginary parts). Its rows
/// are four neighbouring values wide, the columns are transformed side by side by Stockham passes, which write in
/// order, and a last pass joins the four columns: every inner loop is at least four values wide over separate arrays of
/// real and imaginary parts, which compilers turn into vector instructions. See Van Loan, Computational Frameworks for
/// the Fast Fourier Transform (1992).
class RealFft
{
public:
    /// @param size a power of two, at least 1
    explicit RealFft(std::size_t size);

    std::size_t size() const { return m_size; }

    /// |X[k]| · scale for k = 0 … size / 2, where X is the transform of the size() samples at in.
    void magnitudes(const float *in, float scale, float *out);

private:
    /// Real and imaginary parts, apart from each other.
    struct Parts
    {
        std::vector<float> re;
        std::vector<float> im;

        void resize(std::size_t size);
        void setUnit(std::size_t at, std::size_t part, std::size_t whole);
    };

    void makeTables();
    void magnitudesOfFew(const float *in, float scale, float *out) const;
    void transformColumns(const float *in);
    void joinColumns();
    void combine(float scale, float *out);

    std::size_t m_size;
    std::size_t m_half; ///< length of the complex transform
    Parts m_now; ///< values of the present pass
    Parts m_next;
    Parts m_factors; ///< of the column passes in running order, three for each group
    Parts m_joinFactors; ///< of columns 1, 2 and 3
    Parts m_halfTurns; ///< combine even and odd samples
};

} // namespace bp
