#include "PortableMath.h"

#include <array>
#include <cmath>

namespace portable {

namespace {

constexpr double kTwoPi = 6.283185307179586476925;
constexpr double kLn2 = 0.693147180559945309417;

/// Taylor coefficients 1/n!, every second one with alternating sign for the sine.
constexpr std::array<double, 10> kSineCoefficients{1.0,
                                                   -1.0 / 6.0,
                                                   1.0 / 120.0,
                                                   -1.0 / 5040.0,
                                                   1.0 / 362880.0,
                                                   -1.0 / 39916800.0,
                                                   1.0 / 6227020800.0,
                                                   -1.0 / 1307674368000.0,
                                                   1.0 / 355687428096000.0,
                                                   -1.0 / 121645100408832000.0};
constexpr std::array<double, 14> kExponentialCoefficients{1.0,
                                                          1.0,
                                                          1.0 / 2.0,
                                                          1.0 / 6.0,
                                                          1.0 / 24.0,
                                                          1.0 / 120.0,
                                                          1.0 / 720.0,
                                                          1.0 / 5040.0,
                                                          1.0 / 40320.0,
                                                          1.0 / 362880.0,
                                                          1.0 / 3628800.0,
                                                          1.0 / 39916800.0,
                                                          1.0 / 479001600.0,
                                                          1.0 / 6227020800.0};

template <std::size_t N> double polynomial(const std::array<double, N> &coefficients, double x)
{
    double sum = coefficients[N - 1];
    for (std::size_t i = N - 1; i > 0; --i) {
        sum = sum * x + coefficients[i - 1];
    }
    return sum;
}

} // namespace

double sine(double turns)
{
    double x = turns - std::floor(turns + 0.5);
    if (x > 0.25) {
        x = 0.5 - x;
    } else if (x < -0.25) {
        x = -0.5 - x;
    }
    const double angle = kTwoPi * x;
    return angle * polynomial(kSineCoefficients, angle * angle);
}

double exponential(double x)
{
    if (x < -700.0) {
        return 0.0;
    }
    const double doublings = std::floor(x / kLn2 + 0.5);
    const double rest = x - doublings * kLn2;
    return std::ldexp(polynomial(kExponentialCoefficients, rest), static_cast<int>(doublings));
}

double bell(double x, double centre, double width)
{
    const double deviation = (x - centre) / width;
    return deviation > 8.0 || deviation < -8.0 ? 0.0 : exponential(-0.5 * deviation * deviation);
}

} // namespace portable
