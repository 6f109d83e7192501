#include "filters/ButterworthFilter.h"

#include "common/BPCommon.h"
#include "filters/IIRFilter.h"
#include "filters/engine/CascadeStage.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <typeinfo>

namespace {

constexpr double kPi = 3.141592653589793;

using Row = double[5];

/// A design counts as unstable when it settles this many times slower than the textbook's.
constexpr double kMostRinging = 10.0;

int evenOrder(int order)
{
    const int limited = std::clamp(order, 0, ButterworthFilter::kMaxOrder);
    return limited + (limited & 1);
}

/// A cascade as rows b0 b1 b2 a0 a1 a2 and one gain.
struct Design
{
    std::vector<std::vector<float>> sections;
    float gain = 1.0f;
};

Design standardDesign(bool highPass, int order, float cutOff, float sampleRate)
{
    Design design;
    ButterworthFilter::Butter(design.sections, design.gain, highPass ? 1 : 0, order, cutOff, cutOff, sampleRate);
    return design;
}

/// Bilinear transform of the analogue pole pairs, which are the same as in the standard design.
Design textbookDesign(bool highPass, int order, float cutOff, float sampleRate)
{
    Design design;
    const int even = evenOrder(order);
    const double warped = std::tan(kPi * static_cast<double>(cutOff) / static_cast<double>(sampleRate));
    const double square = warped * warped;
    double gain = 1.0;
    for (int k = 0; k < even / 2; ++k) {
        const double damped = 2.0 * warped * std::cos((2 * k + 1) * kPi / (2 * even));
        const double d = 1.0 + damped + square;
        gain *= (highPass ? 1.0 : square) / d;
        design.sections.push_back({1.0f, highPass ? -2.0f : 2.0f, 1.0f, 1.0f,
                                   static_cast<float>(2.0 * (square - 1.0) / d),
                                   static_cast<float>((1.0 - damped + square) / d)});
    }
    design.gain = static_cast<float>(gain);
    return design;
}

/// Distance of the outermost pole from the unit circle: the larger, the sooner the filter settles; not above 0 when it
/// is unstable.
double poleMargin(const Design &design)
{
    double largest = 0.0;
    for (const std::vector<float> &section : design.sections) {
        const double half = static_cast<double>(section[4]) / 2.0;
        const double product = static_cast<double>(section[5]);
        const double discriminant = half * half - product;
        const double radius = discriminant < 0.0 ? std::sqrt(product) : std::fabs(half) + std::sqrt(discriminant);
        largest = std::max(largest, radius);
    }
    return 1.0 - largest;
}

std::unique_ptr<IIRFilter> designed(bool highPass, int order, float cutOff, float sampleRate)
{
    if (!(cutOff > 0.0f && 2.0f * cutOff < sampleRate)) {
        BPCommon::log(BPCommon::LogGeneral,
                      "ButterworthFilter::ButterworthFilter %f Hz is not between 0 and half of %f Hz", cutOff,
                      sampleRate);
    }
    const Design design = standardDesign(highPass, order, cutOff, sampleRate);
    return std::make_unique<IIRFilter>(design.sections, design.gain);
}

/// The conjugate pole pairs of the low-pass prototype as sections with unity gain at 0 Hz.
void lowPassSections(std::vector<std::vector<double>> &b, std::vector<std::vector<double>> &a, int order, double warped)
{
    for (int k = 0; k < order / 2; ++k) {
        const double theta = (2 * k + 1) * kPi / (2 * order);
        const double re = static_cast<double>(static_cast<float>(-warped * std::cos(theta)));
        const double im = static_cast<double>(static_cast<float>(warped * std::sin(theta)));
        // Not the bilinear |1 − p|², whose middle term is −2·re. Compatibility: all coefficients depend on it.
        const double d = 1.0 - (1.0 - re) * re + im * im;
        const double zRe = static_cast<double>(static_cast<float>((1.0 - re * re - im * im) / d));
        const double zIm = static_cast<double>(static_cast<float>(2.0 * im / d));
        const double a1 = -2.0 * zRe;
        const double a2 = zRe * zRe + zIm * zIm;
        const double s = 1.0 + a1 + a2;
        b.push_back({1.0 / (4.0 / s), 2.0 / (4.0 / s), 1.0 / (4.0 / s)});
        a.push_back({1.0, a1, a2});
    }
}

/// An all-pass function n(z⁻¹)/d(z⁻¹) that takes the place of z⁻¹; d has n's coefficients in reverse, up to the sign.
struct Substitution
{
    int degree; ///< 0 when there is none for the mode
    std::array<double, 3> n;
    std::array<double, 3> d;
};

Substitution substitution(int mode, double wp, double wt, double w2)
{
    if (mode == 0) {
        const double alpha = std::sin(kPi * (wp - wt)) / std::sin(kPi * (wp + wt));
        return {1, {-alpha, 1.0, 0.0}, {1.0, -alpha, 0.0}};
    }
    if (mode == 1) {
        const double alpha = -std::cos(kPi * (wp + wt)) / std::cos(kPi * (wp - wt));
        return {1, {-alpha, -1.0, 0.0}, {1.0, alpha, 0.0}};
    }
    if (mode != 2 && mode != 3) {
        return {0, {}, {}};
    }
    const double c = std::cos(kPi * (w2 + wt)) / std::cos(kPi * (w2 - wt));
    const double width = std::tan(kPi * (w2 - wt));
    if (mode == 2) {
        const double k = std::tan(kPi * wp) / width;
        const double first = 2.0 * c * k / (k + 1.0);
        const double second = (k - 1.0) / (k + 1.0);
        return {2, {-second, first, -1.0}, {1.0, -first, second}};
    }
    const double k = std::tan(kPi * wp) * width;
    const double first = 2.0 * c / (1.0 + k);
    const double second = (1.0 - k) / (1.0 + k);
    return {2, {second, -first, 1.0}, {1.0, -first, second}};
}

/// c0·d² + c1·n·d + c2·n², which is the polynomial c with n/d in place of z⁻¹, times d².
void substitute(Row &c, const Substitution &map)
{
    Row result = {};
    for (int i = 0; i <= map.degree; ++i) {
        for (int j = 0; j <= map.degree; ++j) {
            result[i + j] += c[0] * map.d[i] * map.d[j] + c[1] * map.n[i] * map.d[j] + c[2] * map.n[i] * map.n[j];
        }
    }
    std::copy_n(result, 5, c);
}

} // namespace

ButterworthFilter::ButterworthFilter(FilterTypeEnum type, int order, float sampleRate, float f1, float f2,
                                     QObject *parent)
    : AbstractFilter(type, RecursiveResponse, QStringLiteral("ButterworthFilter"), parent)
    , m_kind(type)
{
    switch (type) {
    case LowPass:
        m_lowPass = designed(false, order, f1, sampleRate);
        break;
    case HighPass:
        m_highPass = designed(true, order, f2, sampleRate);
        break;
    case BandPass:
        m_lowPass = designed(true, order, f1, sampleRate);
        m_highPass = designed(false, order, f2, sampleRate);
        break;
    case BandStop:
        m_lowPass = designed(false, order, f1, sampleRate);
        m_highPass = designed(true, order, f2, sampleRate);
        break;
    }
}

ButterworthFilter::ButterworthFilter(FilterTypeEnum type, std::unique_ptr<IIRFilter> stage)
    : AbstractFilter(type, RecursiveResponse, QStringLiteral("ButterworthFilter"))
    , m_kind(type)
{
    (type == HighPass ? m_highPass : m_lowPass) = std::move(stage);
}

ButterworthFilter::~ButterworthFilter() = default;

bool ButterworthFilter::isStable(FilterTypeEnum type, int order, float sampleRate, float cutOff)
{
    const bool highPass = type == HighPass;
    return kMostRinging * poleMargin(standardDesign(highPass, order, cutOff, sampleRate))
        > poleMargin(textbookDesign(highPass, order, cutOff, sampleRate));
}

std::unique_ptr<ButterworthFilter> ButterworthFilter::makeStable(FilterTypeEnum type, int order, float sampleRate,
                                                                 float cutOff)
{
    if (isStable(type, order, sampleRate, cutOff)) {
        return std::make_unique<ButterworthFilter>(type, order, sampleRate, cutOff, cutOff);
    }
    const Design design = textbookDesign(type == HighPass, order, cutOff, sampleRate);
    return std::unique_ptr<ButterworthFilter>(
        new ButterworthFilter(type, std::make_unique<IIRFilter>(design.sections, design.gain)));
}

void ButterworthFilter::Butter(std::vector<std::vector<float>> &sections, float &gain, int highPass, int order,
                               float cutOff, float cutOff2, float sampleRate)
{
    Q_UNUSED(cutOff2)
    const double rate = static_cast<double>(sampleRate);
    const double target = static_cast<double>(cutOff) / rate;
    const double prototype = highPass != 0 ? (rate - static_cast<double>(cutOff)) / rate : target;

    std::vector<std::vector<double>> b;
    std::vector<std::vector<double>> a;
    lowPassSections(b, a, evenOrder(order), std::tan(kPi * prototype));
    const int length = highPass != 0 ? FilterTransform(b, a, 1, prototype, target, 0.0) : 3;

    gain = 1.0f;
    sections.clear();
    for (std::size_t k = 0; k < b.size(); ++k) {
        const double b0 = b[k][0];
        gain = static_cast<float>(static_cast<double>(gain) * b0);
        std::vector<float> section;
        for (int i = 0; i < length; ++i) {
            section.push_back(static_cast<float>(b[k][i] / b0));
        }
        for (int i = 0; i < length; ++i) {
            section.push_back(static_cast<float>(a[k][i]));
        }
        sections.push_back(std::move(section));
    }
}

int ButterworthFilter::FilterTransform(std::vector<std::vector<double>> &b, std::vector<std::vector<double>> &a,
                                       int mode, double wp, double wt, double w2)
{
    int length = substitution(mode, wp, wt, w2).degree == 0 ? -1 : 3;
    for (std::size_t k = 0; k < b.size(); ++k) {
        Row rowB = {};
        Row rowA = {};
        std::copy_n(b[k].begin(), 3, rowB);
        std::copy_n(a[k].begin(), 3, rowA);
        length = FilterTransform(&rowB, &rowA, 1, mode, wp, wt, w2);
        if (length > 0) {
            b[k].assign(rowB, rowB + length);
            a[k].assign(rowA, rowA + length);
        }
    }
    return length;
}

int ButterworthFilter::FilterTransform(double (*b)[5], double (*a)[5], int count, int mode, double wp, double wt,
                                       double w2)
{
    const Substitution map = substitution(mode, wp, wt, w2);
    if (map.degree == 0) {
        return -1;
    }
    for (int k = 0; k < count; ++k) {
        substitute(b[k], map);
        substitute(a[k], map);
        const double a0 = a[k][0];
        for (int i = 0; i < 5; ++i) {
            b[k][i] /= a0;
            a[k][i] /= a0;
        }
    }
    return 2 * map.degree + 1;
}

void ButterworthFilter::Reset()
{
    for (IIRFilter *stage : {m_lowPass.get(), m_highPass.get()}) {
        if (stage != nullptr) {
            stage->Reset();
        }
    }
}

float ButterworthFilter::InternalProcess(float sample)
{
    for (IIRFilter *stage : {m_lowPass.get(), m_highPass.get()}) {
        if (stage != nullptr) {
            sample = stage->InternalProcess(sample);
        }
    }
    return sample;
}

bool ButterworthFilter::appendStages(std::vector<bp::CascadeStage> &stages)
{
    if (typeid(*this) != typeid(ButterworthFilter)) {
        return false;
    }
    const std::size_t before = stages.size();
    for (IIRFilter *stage : {m_lowPass.get(), m_highPass.get()}) {
        if (stage != nullptr && !stage->appendStages(stages)) {
            stages.resize(before);
            return false;
        }
    }
    return stages.size() > before;
}

void ButterworthFilter::processBlock(float *samples, std::size_t count)
{
    if (typeid(*this) != typeid(ButterworthFilter)) {
        AbstractFilter::processBlock(samples, count);
        return;
    }
    for (IIRFilter *stage : {m_lowPass.get(), m_highPass.get()}) {
        if (stage != nullptr) {
            stage->processBlock(samples, count);
        }
    }
}
