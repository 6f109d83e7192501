#include "algorithms/engine/RealFft.h"

#include <Eigen/Core>

#include <array>
#include <cmath>
#include <utility>

namespace bp {

namespace {

constexpr double kPi = 3.141592653589793;
constexpr std::size_t kColumns = 4;
/// Shorter transforms have less than four rows.
constexpr std::size_t kLeastSize = 32;

using Complexes = RealFft::Complexes;
using Floats = Eigen::Array<float, kColumns, 1>;
using FloatsIn = Eigen::Map<const Floats>;
using FloatsOut = Eigen::Map<Floats>;

/// Four neighbouring complex numbers.
struct Row
{
    Floats re;
    Floats im;

    static Row load(const Complexes &from, std::size_t at) { return {FloatsIn(&from.re[at]), FloatsIn(&from.im[at])}; }
    /// Four times the same number.
    static Row fill(const Complexes &from, std::size_t at)
    {
        return {Floats::Constant(from.re[at]), Floats::Constant(from.im[at])};
    }
    /// The conjugates of the numbers at, at − 1, at − 2, at − 3.
    static Row loadMirrored(const Complexes &from, std::size_t at)
    {
        return {FloatsIn(&from.re[at - 3]).reverse(), -FloatsIn(&from.im[at - 3]).reverse()};
    }
    void store(Complexes &to, std::size_t at) const
    {
        FloatsOut(&to.re[at]) = re;
        FloatsOut(&to.im[at]) = im;
    }
    Row operator+(const Row &b) const { return {re + b.re, im + b.im}; }
    Row operator-(const Row &b) const { return {re - b.re, im - b.im}; }
    Row operator*(const Row &b) const { return {re * b.re - im * b.im, re * b.im + im * b.re}; }
    Row timesMinusI() const { return {im, -re}; }
    /// Without Eigen's sqrt(), which may be an approximation.
    /// @param step  from one magnitude to the next
    void storeMagnitudes(float scale, float *to, std::ptrdiff_t step) const
    {
        const Floats power = re * re + im * im;
        for (Eigen::Index i = 0; i < power.size(); ++i) {
            to[i * step] = std::sqrt(power[i]) * scale;
        }
    }
};

using Rows = std::array<Row, 4>;

/// Four transforms of length 4 side by side.
Rows transform4(const Rows &x)
{
    const Row sumEven = x[0] + x[2];
    const Row differenceEven = x[0] - x[2];
    const Row sumOdd = x[1] + x[3];
    const Row differenceOdd = (x[1] - x[3]).timesMinusI();
    return {sumEven + sumOdd, differenceEven + differenceOdd, sumEven - sumOdd, differenceEven - differenceOdd};
}

/// Transforms of this length, stride of them side by side, become four times as many of a quarter of the length.
/// @param factor  where the pass's twiddle factors start, three for each group
void radix4Pass(std::size_t length, std::size_t stride, const Complexes &factors, std::size_t factor,
                const Complexes &in, Complexes &out)
{
    const std::size_t quarter = length / 4 * stride;
    for (std::size_t first = 0; first < quarter; first += stride, factor += 3) {
        const Rows twiddle{Row(), Row::fill(factors, factor), Row::fill(factors, factor + 1),
                           Row::fill(factors, factor + 2)};
        for (std::size_t i = 0; i < stride; i += kColumns) {
            const std::size_t from = first + i;
            const Rows y = transform4({Row::load(in, from), Row::load(in, from + quarter),
                                       Row::load(in, from + 2 * quarter), Row::load(in, from + 3 * quarter)});
            const std::size_t to = 4 * first + i;
            y[0].store(out, to);
            for (std::size_t j = 1; j < 4; ++j) {
                (y[j] * twiddle[j]).store(out, to + j * stride);
            }
        }
    }
}

void radix2Pass(std::size_t stride, const Complexes &in, Complexes &out)
{
    for (std::size_t i = 0; i < stride; i += kColumns) {
        const Row first = Row::load(in, i);
        const Row second = Row::load(in, stride + i);
        (first + second).store(out, i);
        (first - second).store(out, stride + i);
    }
}

/// Appends e^(−2πi·part/whole).
void appendUnit(Complexes &factors, std::size_t part, std::size_t whole)
{
    const double turns = static_cast<double>(part) / static_cast<double>(whole);
    factors.re.push_back(static_cast<float>(std::cos(2.0 * kPi * turns)));
    factors.im.push_back(static_cast<float>(-std::sin(2.0 * kPi * turns)));
}

} // namespace

RealFft::RealFft(std::size_t size)
    : m_size(size)
    , m_half(size / 2)
{
    if (size < kLeastSize) {
        return;
    }
    for (Complexes *buffer : {&m_now, &m_next}) {
        buffer->re.resize(m_half + 1);
        buffer->im.resize(m_half + 1);
    }
    const std::size_t rows = m_half / kColumns;
    for (std::size_t length = rows; length >= 4; length /= 4) {
        for (std::size_t i = 0; i < 3 * (length / 4); ++i) {
            appendUnit(m_columnFactors, (i / 3) * (i % 3 + 1), length);
        }
    }
    for (std::size_t i = 0; i < 3 * rows; ++i) {
        appendUnit(m_joinFactors, (i / rows + 1) * (i % rows), m_half);
    }
    for (std::size_t k = 0; k < m_half / 2; ++k) {
        appendUnit(m_unpackFactors, k, m_size);
    }
}

void RealFft::magnitudes(const float *in, float scale, float *out)
{
    if (m_size < kLeastSize) {
        magnitudesOfFew(in, scale, out);
        return;
    }
    pack(in);
    transformColumns();
    joinColumns();
    unpack(scale, out);
}

/// The sum as it defines the transform.
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

void RealFft::pack(const float *in)
{
    for (std::size_t i = 0; i < m_half; ++i) {
        m_now.re[i] = in[2 * i];
        m_now.im[i] = in[2 * i + 1];
    }
}

void RealFft::transformColumns()
{
    std::size_t length = m_half / kColumns;
    std::size_t stride = kColumns;
    std::size_t factor = 0;
    for (; length >= 4; length /= 4, stride *= 4) {
        radix4Pass(length, stride, m_columnFactors, factor, m_now, m_next);
        std::swap(m_now, m_next);
        factor += 3 * (length / 4);
    }
    if (length == 2) {
        radix2Pass(stride, m_now, m_next);
        std::swap(m_now, m_next);
    }
}

void RealFft::joinColumns()
{
    using Square = Eigen::Array<float, kColumns, kColumns>;
    const std::size_t rows = m_half / kColumns;
    for (std::size_t k = 0; k < rows; k += 4) {
        const Square re = Eigen::Map<const Square>(&m_now.re[k * kColumns]).transpose();
        const Square im = Eigen::Map<const Square>(&m_now.im[k * kColumns]).transpose();
        Rows columns{Row{re.col(0), im.col(0)}};
        for (std::size_t c = 1; c < kColumns; ++c) {
            const auto column = static_cast<Eigen::Index>(c);
            columns[c] = Row{re.col(column), im.col(column)} * Row::load(m_joinFactors, (c - 1) * rows + k);
        }
        const Rows joined = transform4(columns);
        for (std::size_t c = 0; c < kColumns; ++c) {
            joined[c].store(m_next, c * rows + k);
        }
    }
    std::swap(m_now, m_next);
}

/// Twice the transform of the even samples is Z[k] + conj Z[half − k], of the odd ones −i·(Z[k] − conj Z[half − k]).
void RealFft::unpack(float scale, float *out)
{
    m_now.re[m_half] = m_now.re[0];
    m_now.im[m_half] = m_now.im[0];
    const float halfScale = 0.5f * scale;
    for (std::size_t k = 0; k < m_half / 2; k += kColumns) {
        const Row value = Row::load(m_now, k);
        const Row mirrored = Row::loadMirrored(m_now, m_half - k);
        const Row even = value + mirrored;
        const Row odd = (value - mirrored).timesMinusI() * Row::load(m_unpackFactors, k);
        (even + odd).storeMagnitudes(halfScale, out + k, 1);
        (even - odd).storeMagnitudes(halfScale, out + m_half - k, -1);
    }
    const float re = m_now.re[m_half / 2];
    const float im = m_now.im[m_half / 2];
    out[m_half / 2] = std::sqrt(re * re + im * im) * scale;
}

} // namespace bp
