#include "bci/SignalFeatures.h"

#include "bci/numerics/PolynomialMatrix.h"
#include "bci/utilities.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <stdexcept>

namespace {

constexpr double kSilence = 1e-13; ///< of the power: what is left of a signal that is predicted exactly

double square(float value)
{
    return static_cast<double>(value) * static_cast<double>(value);
}

double difference(float a, float b)
{
    return std::fabs(static_cast<double>(a) - static_cast<double>(b));
}

float ratio(double sum, std::size_t count)
{
    return count == 0 ? 0.0f : static_cast<float>(sum / static_cast<double>(count));
}

/// Slope of ln(length) over ln(1/k), through those lengths that have a logarithm.
class LogSlope
{
public:
    void add(double k, double length)
    {
        if (!(length > 0.0) || !std::isfinite(length)) {
            return;
        }
        const double x = -std::log(k);
        const double y = std::log(length);
        m_count += 1.0;
        m_x += x;
        m_y += y;
        m_xx += x * x;
        m_xy += x * y;
    }
    float value() const
    {
        const double below = m_count * m_xx - m_x * m_x;
        return m_count < 2.0 ? 0.0f : static_cast<float>((m_count * m_xy - m_x * m_y) / below);
    }

private:
    double m_count = 0.0;
    double m_x = 0.0;
    double m_y = 0.0;
    double m_xx = 0.0;
    double m_xy = 0.0;
};

/// Higuchi's L(k): the mean normalised length of the curves x[m], x[m + k], x[m + 2k] … for m = 0 … k − 1.
double curveLength(const vector<float> &signal, std::size_t k)
{
    double lengths = 0.0;
    for (std::size_t m = 0; m < k; ++m) {
        double sum = 0.0;
        for (std::size_t i = m + k; i < signal.size(); i += k) {
            sum += difference(signal[i], signal[i - k]);
        }
        const std::size_t steps = (signal.size() - 1 - m) / k;
        lengths += sum / static_cast<double>(steps);
    }
    const double width = static_cast<double>(k);
    return lengths / width * static_cast<double>(signal.size() - 1) / (width * width);
}

/// The same from all pairs at once, each with the same weight.
double pairLength(const vector<float> &signal, std::size_t k)
{
    double sum = 0.0;
    for (std::size_t i = k; i < signal.size(); ++i) {
        sum += difference(signal[i], signal[i - k]);
    }
    const double width = static_cast<double>(k);
    return sum / static_cast<double>(signal.size() - k) * static_cast<double>(signal.size() - 1) / (width * width);
}

/// Row i holds the coefficients of ((x − centre) / half)ⁱ, so that a row of coefficients times it is in powers of x.
bp::PolynomialMatrix powersOfScaled(std::size_t size, double centre, double half)
{
    bp::PolynomialMatrix powers(size, size);
    powers.at(0, 0) = 1.0;
    for (std::size_t i = 1; i < size; ++i) {
        for (std::size_t k = 0; k <= i; ++k) {
            const double raised = k == 0 ? 0.0 : powers.at(i - 1, k - 1);
            powers.at(i, k) = (raised - centre * powers.at(i - 1, k)) / half;
        }
    }
    return powers;
}

} // namespace

float SignalFeatures::MAV(const vector<float> &signal)
{
    const auto add = [](double sum, float value) { return sum + std::fabs(static_cast<double>(value)); };
    return ratio(std::accumulate(signal.begin(), signal.end(), 0.0, add), signal.size());
}

float SignalFeatures::RMS(const vector<float> &signal)
{
    const auto add = [](double sum, float value) { return sum + square(value); };
    const double sum = std::accumulate(signal.begin(), signal.end(), 0.0, add);
    return signal.empty() ? 0.0f : static_cast<float>(std::sqrt(sum / static_cast<double>(signal.size())));
}

float SignalFeatures::Variance(const vector<float> &signal)
{
    const double deviation = static_cast<double>(utilities::StdDev(signal));
    return static_cast<float>(deviation * deviation);
}

float SignalFeatures::WaveformLength(const vector<float> &signal)
{
    double sum = 0.0;
    for (std::size_t i = 1; i < signal.size(); ++i) {
        sum += difference(signal[i], signal[i - 1]);
    }
    return static_cast<float>(sum);
}

int SignalFeatures::ZeroCrossings(const vector<float> &signal)
{
    int crossings = 0;
    float last = 0.0f;
    for (const float value : signal) {
        if (value > 0.0f || value < 0.0f) {
            crossings += last != 0.0f && (last > 0.0f) != (value > 0.0f) ? 1 : 0;
            last = value;
        }
    }
    return crossings;
}

float SignalFeatures::MedianOfMaxN(const vector<float> &signal, unsigned int n)
{
    vector<float> values;
    std::copy_if(signal.begin(), signal.end(), std::back_inserter(values), [](float x) { return !std::isnan(x); });
    const auto count = static_cast<std::ptrdiff_t>(std::min<std::size_t>(n, values.size()));
    std::partial_sort(values.begin(), values.begin() + count, values.end(), std::greater<>());
    values.resize(static_cast<std::size_t>(count));
    return utilities::Median(values);
}

void SignalFeatures::HiguchiFD(const vector<float> &signal, unsigned int kMax, float *dimension)
{
    LogSlope slope;
    for (std::size_t k = 1; k <= std::min<std::size_t>(kMax, signal.size() / 2); ++k) {
        slope.add(static_cast<double>(k), curveLength(signal, k));
    }
    *dimension = slope.value();
}

float SignalFeatures::AlternativeHiguchiFD(const vector<float> &signal, int kMax)
{
    constexpr int kFirstLogarithmic = 11; // its step is 5, behind 1 … 4
    const std::size_t most = std::min(static_cast<std::size_t>(std::max(kMax, 0)), signal.size() / 2);
    LogSlope slope;
    std::size_t k = 1;
    for (int j = kFirstLogarithmic; k <= most;) {
        slope.add(static_cast<double>(k), pairLength(signal, k));
        k = k < 4 ? k + 1 : static_cast<std::size_t>(std::pow(2.0, (j++ - 1) / 4.0));
    }
    return slope.value();
}

void SignalFeatures::PolyFit(const vector<float> &x, const vector<float> &y, int degree, vector<float> &coefficients)
{
    if (x.size() != y.size()) {
        throw std::invalid_argument("X and Y vector sizes do not match");
    }
    const std::size_t size = degree < 0 ? 0 : static_cast<std::size_t>(degree) + 1;
    if (x.size() < size) {
        throw std::length_error("invalid matrix size");
    }
    bp::PolynomialMatrix vandermonde(x.size(), size);
    bp::PolynomialMatrix values(y.size(), 1);
    const auto [least, most] = std::minmax_element(x.begin(), x.end());
    const double centre = (static_cast<double>(*least) + static_cast<double>(*most)) / 2.0;
    const double half = *least < *most ? (static_cast<double>(*most) - static_cast<double>(*least)) / 2.0 : 1.0;
    for (std::size_t r = 0; r < x.size(); ++r) {
        const double scaled = (static_cast<double>(x[r]) - centre) / half;
        double power = 1.0;
        for (std::size_t c = 0; c < size; ++c) {
            vandermonde.at(r, c) = power;
            power *= scaled;
        }
        values.at(r, 0) = static_cast<double>(y[r]);
    }
    const bp::PolynomialMatrix solution = vandermonde.leastSquares(values);
    bp::PolynomialMatrix row(1, size);
    for (std::size_t i = 0; i < size; ++i) {
        row.at(0, i) = solution.at(i, 0);
    }
    const bp::PolynomialMatrix unscaled = row * powersOfScaled(size, centre, half);
    coefficients.resize(size);
    for (std::size_t i = 0; i < size; ++i) {
        coefficients[i] = static_cast<float>(unscaled.at(0, i));
    }
}

void SignalFeatures::PolyVal(const vector<float> &coefficients, const vector<float> &x, vector<float> &y)
{
    vector<float> values(x.size());
    std::transform(x.begin(), x.end(), values.begin(), [&coefficients](float at) {
        const auto next = [at](double sum, float c) { return sum * static_cast<double>(at) + static_cast<double>(c); };
        return static_cast<float>(std::accumulate(coefficients.rbegin(), coefficients.rend(), 0.0, next));
    });
    y = std::move(values);
}

void SignalFeatures::calcAR(const vector<float> &signal, unsigned int order, bool removeMean,
                            vector<float> &coefficients)
{
    const std::size_t size = signal.size();
    const double mean = removeMean ? static_cast<double>(utilities::Mean(signal)) : 0.0;
    std::vector<double> forward(signal.begin(), signal.end());
    std::for_each(forward.begin(), forward.end(), [mean](double &value) { value -= mean; });
    std::vector<double> backward = forward;
    const double power = std::inner_product(forward.begin(), forward.end(), forward.begin(), 0.0);
    std::vector<double> a(order, 0.0);
    for (std::size_t m = 0; m < order && m + 1 < size; ++m) {
        double product = 0.0;
        double energy = 0.0;
        for (std::size_t t = m + 1; t < size; ++t) {
            product += forward[t] * backward[t - 1];
            energy += forward[t] * forward[t] + backward[t - 1] * backward[t - 1];
        }
        if (!(energy > kSilence * power)) {
            break; // predicted to the last bit: more coefficients would fit rounding
        }
        const double reflection = 2.0 * product / energy;
        const std::vector<double> before = a;
        for (std::size_t k = 0; k < m; ++k) {
            a[k] -= reflection * before[m - 1 - k];
        }
        a[m] = reflection;
        for (std::size_t t = size - 1; t > m; --t) {
            const double ahead = forward[t];
            forward[t] -= reflection * backward[t - 1];
            backward[t] = backward[t - 1] - reflection * ahead;
        }
    }
    vector<float> rounded(a.begin(), a.end());
    coefficients = std::move(rounded);
}
