#include "algorithms/engine/RealFft.h"

#include <cmath>
#include <utility>

namespace bp {

namespace {

constexpr double kPi = 3.141592653589793;
constexpr std::size_t kColumns = 4;
/// Shorter transforms have no whole pass.
constexpr std::size_t kLeastSize = 32;

/// Four complex numbers as a value: the loops of its operators become vector instructions.
struct Row
{
    float re[kColumns];
    float im[kColumns];

    static Row load(const float *re, const float *im)
    {
        Row row;
        for (std::size_t i = 0; i < kColumns; ++i) {
            row.re[i] = re[i];
            row.im[i] = im[i];
        }
        return row;
    }
    /// From real and imaginary parts in turns.
    static Row loadPairs(const float *pairs)
    {
        Row row;
        for (std::size_t i = 0; i < kColumns; ++i) {
            row.re[i] = pairs[2 * i];
            row.im[i] = pairs[2 * i + 1];
        }
        return row;
    }
    void store(float *toRe, float *toIm) const
    {
        for (std::size_t i = 0; i < kColumns; ++i) {
            toRe[i] = re[i];
        }
        for (std::size_t i = 0; i < kColumns; ++i) {
            toIm[i] = im[i];
        }
    }
    /// The conjugates of the value at re and im and of those before it.
    static Row loadMirrored(const float *re, const float *im)
    {
        Row row;
        for (std::size_t i = 0; i < kColumns; ++i) {
            row.re[i] = (re - i)[0];
            row.im[i] = -(im - i)[0];
        }
        return row;
    }
    Row times(float byRe, float byIm) const
    {
        Row row;
        for (std::size_t i = 0; i < kColumns; ++i) {
            row.re[i] = re[i] * byRe - im[i] * byIm;
            row.im[i] = re[i] * byIm + im[i] * byRe;
        }
        return row;
    }
    Row times(const Row &by) const
    {
        Row row;
        for (std::size_t i = 0; i < kColumns; ++i) {
            row.re[i] = re[i] * by.re[i] - im[i] * by.im[i];
            row.im[i] = re[i] * by.im[i] + im[i] * by.re[i];
        }
        return row;
    }
    void storeMagnitudes(float scale, float *to) const
    {
        for (std::size_t i = 0; i < kColumns; ++i) {
            to[i] = std::sqrt(re[i] * re[i] + im[i] * im[i]) * scale;
        }
    }
    /// The last one goes to where to points, those before it follow.
    void storeMagnitudesMirrored(float scale, float *to) const
    {
        float magnitudes[kColumns];
        storeMagnitudes(scale, magnitudes);
        for (std::size_t i = 0; i < kColumns; ++i) {
            (to - i)[0] = magnitudes[i];
        }
    }
};

inline Row operator+(const Row &a, const Row &b)
{
    Row row;
    for (std::size_t i = 0; i < kColumns; ++i) {
        row.re[i] = a.re[i] + b.re[i];
        row.im[i] = a.im[i] + b.im[i];
    }
    return row;
}

inline Row operator-(const Row &a, const Row &b)
{
    Row row;
    for (std::size_t i = 0; i < kColumns; ++i) {
        row.re[i] = a.re[i] - b.re[i];
        row.im[i] = a.im[i] - b.im[i];
    }
    return row;
}

/// Multiplied by −i.
inline Row turned(const Row &a)
{
    Row row;
    for (std::size_t i = 0; i < kColumns; ++i) {
        row.re[i] = a.im[i];
        row.im[i] = -a.re[i];
    }
    return row;
}

/// Four rows, and their transform of length 4.
struct Quad
{
    Row rows[4];

    Quad transformed() const
    {
        const Row sumEven = rows[0] + rows[2];
        const Row differenceEven = rows[0] - rows[2];
        const Row sumOdd = rows[1] + rows[3];
        const Row differenceOdd = turned(rows[1] - rows[3]);
        return {{sumEven + sumOdd, differenceEven + differenceOdd, sumEven - sumOdd, differenceEven - differenceOdd}};
    }
};

/// A radix-4 pass: transforms of this length, stride of them side by side, become four times as many of a quarter of
/// it.
/// @param load   gives the row at a position of the input
/// @param factor three per group
template <class Load>
void radix4Pass(std::size_t length, std::size_t stride, Load load, const float *factorRe, const float *factorIm,
                float *outRe, float *outIm)
{
    const std::size_t groups = length / 4;
    const std::size_t quarter = groups * stride;
    for (std::size_t group = 0; group < groups; ++group) {
        const float *re = factorRe + 3 * group;
        const float *im = factorIm + 3 * group;
        for (std::size_t i = 0; i < stride; i += kColumns) {
            const std::size_t from = group * stride + i;
            const Quad in{{load(from), load(from + quarter), load(from + 2 * quarter), load(from + 3 * quarter)}};
            const Quad out = in.transformed();
            const std::size_t to = 4 * group * stride + i;
            out.rows[0].store(outRe + to, outIm + to);
            for (std::size_t j = 1; j < 4; ++j) {
                const std::size_t at = to + j * stride;
                out.rows[j].times(re[j - 1], im[j - 1]).store(outRe + at, outIm + at);
            }
        }
    }
}

/// Sums and differences of the two halves.
void radix2Pass(std::size_t stride, const float *re, const float *im, float *outRe, float *outIm)
{
    for (std::size_t i = 0; i < stride; i += kColumns) {
        const Row first = Row::load(re + i, im + i);
        const Row second = Row::load(re + stride + i, im + stride + i);
        (first + second).store(outRe + i, outIm + i);
        (first - second).store(outRe + stride + i, outIm + stride + i);
    }
}

} // namespace

void RealFft::Parts::resize(std::size_t size)
{
    re.resize(size);
    im.resize(size);
}

/// e^(−2πi·part/whole)
void RealFft::Parts::setUnit(std::size_t at, std::size_t part, std::size_t whole)
{
    const double turns = static_cast<double>(part) / static_cast<double>(whole);
    re[at] = static_cast<float>(std::cos(2.0 * kPi * turns));
    im[at] = static_cast<float>(-std::sin(2.0 * kPi * turns));
}

RealFft::RealFft(std::size_t size)
    : m_size(size)
    , m_half(size / 2)
{
    if (size >= kLeastSize) {
        m_now.resize(m_half + 1);
        m_next.resize(m_half + 1);
        makeTables();
    }
}

void RealFft::makeTables()
{
    const std::size_t rows = m_half / kColumns;
    m_factors.resize(rows);
    m_joinFactors.resize(3 * rows);
    m_halfTurns.resize(m_half / 2);
    std::size_t at = 0;
    for (std::size_t length = rows; length >= 4; length /= 4) {
        for (std::size_t i = 0; i < 3 * (length / 4); ++i) {
            m_factors.setUnit(at++, (i / 3) * (i % 3 + 1), length);
        }
    }
    for (std::size_t i = 0; i < 3 * rows; ++i) {
        m_joinFactors.setUnit(i, (i / rows + 1) * (i % rows), m_half);
    }
    for (std::size_t k = 0; k < m_half / 2; ++k) {
        m_halfTurns.setUnit(k, k, m_size);
    }
}

void RealFft::magnitudes(const float *in, float scale, float *out)
{
    if (m_size < kLeastSize) {
        magnitudesOfFew(in, scale, out);
        return;
    }
    transformColumns(in);
    joinColumns();
    combine(scale, out);
}

void RealFft::magnitudesOfFew(const float *in, float scale, float *out) const
{
    for (std::size_t k = 0; k <= m_half; ++k) {
        double re = 0.0;
        double im = 0.0;
        for (std::size_t n = 0; n < m_size; ++n) {
            const double angle = 2.0 * kPi * static_cast<double>(k * n % m_size) / static_cast<double>(m_size);
            re += static_cast<double>(in[n]) * std::cos(angle);
            im -= static_cast<double>(in[n]) * std::sin(angle);
        }
        out[k] = static_cast<float>(std::sqrt(re * re + im * im)) * scale;
    }
}

void RealFft::transformColumns(const float *in)
{
    std::size_t length = m_half / kColumns;
    std::size_t stride = kColumns;
    std::size_t factors = 0;
    const auto pass = [&](const auto &load) {
        radix4Pass(length, stride, load, &m_factors.re[factors], &m_factors.im[factors], m_next.re.data(),
                   m_next.im.data());
        std::swap(m_now, m_next);
        factors += 3 * (length / 4);
        length /= 4;
        stride *= 4;
    };
    pass([in](std::size_t i) { return Row::loadPairs(in + 2 * i); });
    while (length >= 4) {
        const float *re = m_now.re.data();
        const float *im = m_now.im.data();
        pass([re, im](std::size_t i) { return Row::load(re + i, im + i); });
    }
    if (length == 2) {
        radix2Pass(stride, m_now.re.data(), m_now.im.data(), m_next.re.data(), m_next.im.data());
        std::swap(m_now, m_next);
    }
}

/// The four columns, each of which holds every fourth value's transform, become one transform of all.
void RealFft::joinColumns()
{
    const std::size_t rows = m_half / kColumns;
    float *outRe = m_next.re.data();
    float *outIm = m_next.im.data();
    for (std::size_t k = 0; k < rows; k += 4) {
        const float *re = &m_now.re[k * kColumns];
        const float *im = &m_now.im[k * kColumns];
        Quad columns;
        for (std::size_t c = 0; c < kColumns; ++c) {
            for (std::size_t i = 0; i < 4; ++i) {
                columns.rows[c].re[i] = re[i * kColumns + c];
                columns.rows[c].im[i] = im[i * kColumns + c];
            }
        }
        for (std::size_t c = 1; c < kColumns; ++c) {
            const std::size_t at = (c - 1) * rows + k;
            columns.rows[c] = columns.rows[c].times(Row::load(&m_joinFactors.re[at], &m_joinFactors.im[at]));
        }
        const Quad joined = columns.transformed();
        for (std::size_t c = 0; c < kColumns; ++c) {
            joined.rows[c].store(outRe + c * rows + k, outIm + c * rows + k);
        }
    }
    std::swap(m_now, m_next);
}

/// Takes the transforms of even and odd samples apart and adds them up. Bin k and bin half − k come from the same two
/// values.
void RealFft::combine(float scale, float *out)
{
    m_now.re[m_half] = m_now.re[0];
    m_now.im[m_half] = m_now.im[0];
    const float halfScale = 0.5f * scale;
    for (std::size_t k = 0; k < m_half / 2; k += kColumns) {
        const Row value = Row::load(&m_now.re[k], &m_now.im[k]);
        const Row mirrored = Row::loadMirrored(&m_now.re[m_half - k], &m_now.im[m_half - k]);
        const Row factor = Row::load(&m_halfTurns.re[k], &m_halfTurns.im[k]);
        const Row odd = turned(value - mirrored).times(factor);
        const Row even = value + mirrored;
        (even + odd).storeMagnitudes(halfScale, out + k);
        (even - odd).storeMagnitudesMirrored(halfScale, out + m_half - k);
    }
    const float re = m_now.re[m_half / 2];
    const float im = m_now.im[m_half / 2];
    out[m_half / 2] = std::sqrt(re * re + im * im) * scale;
}

} // namespace bp
