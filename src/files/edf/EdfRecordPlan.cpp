#include "files/edf/EdfRecordPlan.h"

#include "files/edf/EdfLayout.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace {

constexpr qint64 kGoodBytes = 61440; // as the format recommends
constexpr qint64 kMaxBytes = 5 * 1024 * 1024; // readers refuse records of 10 MB
constexpr qint64 kMaxExtraSteps = 100'000;
constexpr qint64 kMaxRatio = qint64{1} << 40;

struct Span
{
    double least; ///< s
    double most;
    qint64 bytes;
};
constexpr Span kSpans[]{{0.1, 60.0, kGoodBytes}, {0.02, 600.0, kMaxBytes}};

/// Ticks of so many steps; 0 when the header cannot hold the time exactly.
qint64 exactTicks(bp::Ratio step, qint64 count)
{
    const qint64 divisor = std::gcd(count, step.den);
    const qint64 den = step.den / divisor;
    if (bp::kEdfTicks % den != 0 || count / divisor > std::numeric_limits<qint64>::max() / bp::kEdfTicks / step.num) {
        return 0;
    }
    const qint64 ticks = count / divisor * step.num * (bp::kEdfTicks / den);
    return bp::edfSeconds(ticks).size() <= bp::EdfLayout::kNumberWidth ? ticks : 0;
}

/// The record durations that there are for a number of steps.
struct Choice
{
    bp::Ratio step;
    qint64 bytesPerStep;
    qint64 preferredTicks;

    /// The one within the span that is nearest to what is preferred.
    bp::EdfRecordPlan among(qint64 total, const Span &span) const
    {
        const double target = static_cast<double>(preferredTicks > 0 ? preferredTicks : bp::kEdfTicks);
        bp::EdfRecordPlan best;
        double bestScore = std::numeric_limits<double>::infinity();
        const auto consider = [&](qint64 count) {
            const qint64 ticks = exactTicks(step, count);
            const double seconds = bp::edfTime(ticks);
            const bool preferred = ticks == preferredTicks && &span == kSpans;
            const bool fits = seconds >= std::min(span.least, step.value() * static_cast<double>(total))
                && seconds <= std::max(span.most, step.value()) && count <= span.bytes / bytesPerStep;
            const double score = std::fabs(std::log(static_cast<double>(ticks) / target));
            if (ticks > 0 && total / count <= bp::EdfLayout::kMostRecords && (fits || preferred) && score < bestScore) {
                best = {count, total / count, ticks};
                bestScore = score;
            }
        };
        for (qint64 divisor = 1; divisor * divisor <= total; ++divisor) {
            if (total % divisor == 0) {
                consider(divisor);
                consider(total / divisor);
            }
        }
        return best;
    }
};

} // namespace

namespace bp {

Ratio EdfRecordPlan::commonStep(const QVector<Ratio> &rates)
{
    qint64 num = 1;
    qint64 den = 0;
    for (const Ratio &rate : rates) {
        num = std::lcm(num, rate.den);
        den = std::gcd(den, rate.num);
        if (num > kMaxRatio || rate.num < 1) {
            return {};
        }
    }
    return den == 0 ? Ratio{} : Ratio::of(num, den);
}

EdfRecordPlan EdfRecordPlan::make(Ratio step, qint64 steps, qint64 bytesPerStep, qint64 preferredTicks)
{
    const Choice choice{step, bytesPerStep, preferredTicks};
    for (qint64 total = steps; total <= steps + kMaxExtraSteps; ++total) {
        for (const Span &span : kSpans) {
            const EdfRecordPlan best = choice.among(total, span);
            if (best.stepsPerRecord > 0) {
                return best;
            }
        }
    }
    return {};
}

} // namespace bp
