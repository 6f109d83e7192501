#include "filters/ButterworthFilter.h"
#include "filters/FIRfilter.h"
#include "filters/Filtrator.h"
#include "filters/IIRFilter.h"
#include "filters/NotchFilter.h"
#include "filters/engine/ChannelFilterBank.h"
#include "filters/engine/FilterFeed.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <utility>

namespace {

using F = AbstractFilter;
using Samples = std::vector<float>;
using FilterMaker = std::function<std::unique_ptr<AbstractFilter>()>;

constexpr double kPi = 3.141592653589793;

struct OpenNotch : NotchFilter
{
    using NotchFilter::Calculate;
};

/// Opens the protected step of any filter: the samples of every other path have to be its samples.
struct Step : AbstractFilter
{
    static float run(AbstractFilter &filter, float sample) { return (filter.*(&Step::InternalProcess))(sample); }
};

/// A subclass that says what its step is and nothing else.
template <class Filter> struct Constant : Filter
{
    using Filter::Filter;

protected:
    float InternalProcess(float) override { return 7.0f; }
};

template <class Filter, class... Arguments> FilterMaker maker(Arguments... arguments)
{
    return [=] { return std::make_unique<Filter>(arguments...); };
}

Samples noise(std::size_t count, unsigned seed = 1)
{
    std::mt19937 generator(seed);
    std::normal_distribution<float> distribution(20.0f, 50.0f);
    Samples samples(count);
    for (float &sample : samples) {
        sample = distribution(generator);
    }
    return samples;
}

Samples impulse(std::size_t count)
{
    Samples samples(count, 0.0f);
    samples[0] = 1.0f;
    return samples;
}

bool sameBits(const Samples &a, const Samples &b)
{
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0);
}

double levelDb(const Samples &response, double frequency, double rate)
{
    std::complex<double> sum = 0.0;
    for (std::size_t i = 0; i < response.size(); ++i) {
        const double phase = -2.0 * kPi * frequency / rate * static_cast<double>(i);
        sum += static_cast<double>(response[i]) * std::polar(1.0, phase);
    }
    return 20.0 * std::log10(std::max(std::abs(sum), 1e-12));
}

struct Golden
{
    int highPass, order;
    float cutOff, rate;
    double gain;
    std::vector<std::vector<double>> rows;
};

const Golden kGolden[] = {
#include "reference/butterworth_golden.inc"
};

struct Band
{
    double from, to, leastDb, mostDb;
};

constexpr double kAny = -1000.0;

} // namespace

class TestFilters : public QObject
{
    Q_OBJECT
private slots:
    void butterworthDesign();
    void spectralMask();
    void twoSlots();
    void blockIsSampleBySample();
    void bankIsOneByOne();
    void bankFollowsItsLists();
    void bankForgetsInvalidSamples();
    void runsTheStepOfASubclass();
    void designsStableFilters();
    void vectors();
    void recursion();
    void notchAndFirCoefficients();
    void resetAsymmetry();
    void hopelessDesigns();
    void chainSharesItsHistory();
    void resampling();
};

void TestFilters::butterworthDesign()
{
    for (const Golden &golden : kGolden) {
        std::vector<std::vector<float>> sections;
        float gain = 0.0f;
        const float hertz = golden.cutOff;
        ButterworthFilter::Butter(sections, gain, golden.highPass, golden.order, hertz, hertz, golden.rate);
        QCOMPARE(sections.size(), golden.rows.size());
        QVERIFY(std::fabs(static_cast<double>(gain) / golden.gain - 1.0) < 2e-6);
        for (std::size_t k = 0; k < sections.size(); ++k) {
            for (std::size_t i = 0; i < 6; ++i) {
                QVERIFY(std::fabs(static_cast<double>(sections[k][i]) - golden.rows[k][i]) < 2.5e-7);
            }
        }
    }
}

void TestFilters::spectralMask()
{
    const auto check = [](const FilterMaker &make, double rate, const std::vector<Band> &bands) {
        Samples response = impulse(20000);
        make()->Process(response);
        for (const Band &band : bands) {
            for (int i = 0; i <= 16; ++i) {
                const double frequency = band.from + (band.to - band.from) * i / 16;
                const double level = levelDb(response, frequency, rate);
                QVERIFY2(level >= band.leastDb && level <= band.mostDb,
                         qPrintable(QStringLiteral("%1 dB at %2 of %3 Hz").arg(level).arg(frequency).arg(rate)));
            }
        }
    };
    // The pole mapping lifts the end of the pass band by a decibel or so over a textbook Butterworth.
    const Band low[] = {
        {0, 15, -0.05, 0.5}, {15, 27, -0.05, 1.5}, {30, 30, -1.2, -0.7}, {60, 125, kAny, -33}, {90, 125, kAny, -60}};
    const Band high[] = {{0, 0.25, kAny, -55}, {0.25, 0.5, kAny, -30}, {1, 1, -3.1, -2.7}, {1.25, 250, -0.05, 0.3}};
    const Band notch[] = {
        {0, 45, -0.1, 0.1}, {49.5, 49.5, -3.5, -2}, {50, 50, kAny, -60}, {50.5, 50.5, -3.5, -2}, {55, 250, -0.1, 0.1}};
    check(maker<ButterworthFilter>(F::LowPass, 4, 250.0f, 30.0f, 30.0f), 250, {std::begin(low), std::end(low)});
    check(maker<ButterworthFilter>(F::HighPass, 4, 500.0f, 1.0f, 1.0f), 500, {std::begin(high), std::end(high)});
    check(maker<NotchFilter>(F::BandStop, 500.0f, 50.0f, 1.0f), 500, {std::begin(notch), std::end(notch)});
    QCOMPARE(NotchFilter(F::BandPass, 500.0f, 50.0f, 1.0f).getFilterType(), F::BandStop); // as every notch
    check(maker<NotchFilter>(F::BandPass, 500.0f, 50.0f, 1.0f), 500,
          {{0, 40, kAny, -20}, {50, 50, -0.1, 0.1}, {60, 250, kAny, -20}});
    check(maker<FIRfilter>(F::BandPass, FIRfilter::BlackmanWindow, 150, 250.0f, 8.0f, 30.0f), 250,
          {{2, 2, kAny, -60}, {19, 19, -0.05, 0.05}, {40, 40, kAny, -60}});
}

void TestFilters::twoSlots()
{
    Samples whole = noise(300);
    Samples halves = whole;
    for (const auto type : {F::BandPass, F::BandStop}) {
        ButterworthFilter(type, 4, 250.0f, 8.0f, 30.0f).Process(whole);
        ButterworthFilter(type == F::BandPass ? F::HighPass : F::LowPass, 4, 250.0f, 8.0f, 8.0f).Process(halves);
        ButterworthFilter(type == F::BandPass ? F::LowPass : F::HighPass, 4, 250.0f, 30.0f, 30.0f).Process(halves);
        QVERIFY(sameBits(whole, halves));
    }
}

void TestFilters::blockIsSampleBySample()
{
    const auto check = [](const char *name, const FilterMaker &make) {
        const auto stepped = make();
        const auto blocked = make();
        Samples expected = noise(2000);
        Samples actual = expected;
        for (float &sample : expected) {
            sample = Step::run(*stepped, sample);
        }
        // Around the lengths at which the ways through the engine change; a single step follows every block.
        const int lengths[] = {1, 2, 31, 32, 33, 47, 48, 49, 64, 65, 100, 255, 7, 500};
        int at = 0;
        for (int turn = 0; at < 2000; ++turn) {
            const int length = std::min(lengths[turn % 14], 2000 - at);
            blocked->Process(actual.data(), at, length);
            at += length;
            if (at < 2000) {
                actual[at] = Step::run(*blocked, actual[at]);
                ++at;
            }
        }
        QVERIFY2(sameBits(actual, expected), name);
    };
    const std::vector<Samples> mixed{{0.5f, 0.25f, 0.1f, 1.0f, -0.3f, 0.2f}, {0.5f, 0.25f, 1.0f, -0.3f}};
    check("one section", maker<NotchFilter>(F::BandStop, 250.0f, 50.0f, 1.0f));
    check("two sections", maker<ButterworthFilter>(F::HighPass, 4, 250.0f, 1.0f, 1.0f));
    check("three sections", maker<ButterworthFilter>(F::LowPass, 6, 250.0f, 30.0f, 30.0f));
    check("eight sections", maker<ButterworthFilter>(F::LowPass, 16, 250.0f, 30.0f, 30.0f));
    check("ten sections", maker<ButterworthFilter>(F::LowPass, 20, 250.0f, 30.0f, 30.0f));
    check("two cascades", maker<ButterworthFilter>(F::BandPass, 5, 250.0f, 2.0f, 30.0f));
    check("direct, uneven lengths", maker<IIRFilter>(Samples{0.3f, 0.1f, -0.2f, 0.05f}, Samples{2.0f, -0.6f, 0.3f}));
    check("sections of mixed orders", maker<IIRFilter>(mixed, 0.7f));
    check("FIR, odd", maker<FIRfilter>(F::BandPass, FIRfilter::BlackmanWindow, 100, 250.0f, 8.0f, 30.0f));
    check("FIR, even", maker<FIRfilter>(F::HighPass, FIRfilter::BlackmanWindow, 7, 250.0f, 8.0f, 30.0f));
}

void TestFilters::bankIsOneByOne()
{
    const auto build = [] {
        std::vector<bp::FilterList::Filters> lists(36);
        for (std::size_t channel = 0; channel < lists.size(); ++channel) {
            const auto add = [&](const FilterMaker &make) { lists[channel].push_back(make()); };
            const float spread = static_cast<float>(channel);
            const float hertz = 0.5f + 0.1f * spread;
            if (channel % 3 != 2) {
                add(maker<ButterworthFilter>(F::LowPass, 4, 250.0f, 30.0f + spread, 30.0f + spread));
                add(maker<ButterworthFilter>(F::HighPass, 4, 250.0f, hertz, hertz));
                add(maker<NotchFilter>(F::BandStop, 250.0f, 40.0f + spread, 1.0f));
            } else if (channel < 24) {
                add(maker<ButterworthFilter>(F::LowPass, channel < 18 ? 2 : 20, 250.0f, 20.0f, 20.0f));
            } else if (channel < 30) {
                lists[channel].push_back(nullptr);
                add(maker<FIRfilter>(F::LowPass, FIRfilter::BlackmanWindow, 20, 250.0f, 20.0f, 20.0f));
            }
        }
        lists[3].push_back(lists[4][0]);
        lists[6].push_back(lists[6][0]);
        return lists;
    };
    const auto lists = build();
    const auto twins = build();
    bp::ChannelFilterBank bank;
    bank.setChannels(lists);
    for (const int count : {500, 1, 3, 128, 129, 1, 31, 0, 200}) {
        Samples planar = noise(lists.size() * static_cast<std::size_t>(count), static_cast<unsigned>(count));
        Samples expected = planar;
        bank.process(planar.data(), static_cast<std::size_t>(count));
        for (std::size_t channel = 0; channel < twins.size(); ++channel) {
            for (const auto &filter : twins[channel]) {
                if (filter != nullptr) {
                    filter->Process(expected.data(), static_cast<int>(channel) * count, count);
                }
            }
        }
        QVERIFY(sameBits(planar, expected));
        // Between two blocks a filter is used, or reset, on its own.
        for (const auto *each : {&lists, &twins}) {
            Samples own = noise(40);
            each->at(0)[0]->Process(own);
            each->at(0)[2]->Reset();
        }
    }
}

void TestFilters::bankFollowsItsLists()
{
    const FilterMaker low = maker<ButterworthFilter>(F::LowPass, 4, 250.0f, 30.0f, 30.0f);
    const FilterMaker high = maker<ButterworthFilter>(F::HighPass, 4, 250.0f, 1.0f, 1.0f);
    const FilterMaker notch = maker<NotchFilter>(F::BandStop, 250.0f, 50.0f, 1.0f);
    constexpr std::size_t kChannels = 5;
    bp::FilterList lists[kChannels];
    const auto feed = std::make_shared<bp::FilterFeed>(kChannels);
    for (std::size_t i = 0; i < kChannels; ++i) {
        lists[i].push_back(low());
        lists[i].follow(feed, i);
    }
    bp::ChannelFilterBank bank;
    bank.follow(feed);
    std::vector<bp::FilterList::Filters> twins(kChannels);
    for (auto &twin : twins) {
        twin.push_back(low());
    }
    const auto compare = [&](unsigned seed) {
        Samples planar = noise(kChannels * 60, seed);
        Samples expected = planar;
        bank.process(planar.data(), 60);
        for (std::size_t i = 0; i < kChannels; ++i) {
            for (const auto &filter : twins[i]) {
                filter->Process(expected.data(), static_cast<int>(i) * 60, 60);
            }
        }
        return sameBits(planar, expected);
    };
    QVERIFY(compare(1));
    lists[0].push_back(high()); // the low-pass before it keeps its history
    twins[0].push_back(high());
    lists[1].clear();
    twins[1].clear();
    lists[2].insert(lists[2].begin(), notch());
    twins[2].insert(twins[2].begin(), notch());
    lists[3].assign({high(), notch()}); // twice before a block: the last one counts
    lists[3].erase(lists[3].begin());
    twins[3] = {notch()};
    QVERIFY(compare(2));
    QVERIFY(compare(3));
    // Another bank takes the lists over: the first one goes on with what it has.
    const auto other = std::make_shared<bp::FilterFeed>(kChannels);
    for (std::size_t i = 0; i < kChannels; ++i) {
        lists[i].follow(other, i);
        lists[i].clear();
    }
    QVERIFY(compare(4));
    Samples planar = noise(kChannels * 60);
    bp::ChannelFilterBank second;
    second.follow(other);
    second.process(planar.data(), 60);
    QVERIFY(sameBits(planar, noise(kChannels * 60)));
}

void TestFilters::bankForgetsInvalidSamples()
{
    const FilterMaker high = maker<ButterworthFilter>(F::HighPass, 4, 250.0f, 1.0f, 1.0f);
    for (const std::size_t channels : {std::size_t{1}, std::size_t{5}}) { // one by one, and in lanes
        std::vector<bp::FilterList::Filters> lists(channels);
        for (auto &list : lists) {
            list.push_back(high());
        }
        bp::ChannelFilterBank bank;
        bank.setChannels(lists);
        const auto filtered = [&](float first) {
            Samples planar = noise(channels * 50);
            planar[0] = first;
            bank.process(planar.data(), 50);
            return Samples(planar.begin(), planar.begin() + 50);
        };
        const Samples fresh = filtered(1.0f);
        QVERIFY(std::isnan(filtered(std::nanf(""))[49]));
        QVERIFY(sameBits(filtered(1.0f), fresh));
    }
}

void TestFilters::runsTheStepOfASubclass()
{
    const FilterMaker makers[] = {
        maker<Constant<NotchFilter>>(F::BandStop, 250.0f, 50.0f, 1.0f),
        maker<Constant<ButterworthFilter>>(F::LowPass, 4, 250.0f, 30.0f, 30.0f),
        maker<Constant<IIRFilter>>(Samples{1.0f, 0.0f, 0.0f}, Samples{1.0f, 0.0f, 0.0f}),
        maker<Constant<FIRfilter>>(F::LowPass, FIRfilter::BlackmanWindow, 8, 8.0f, 1.0f, 1.0f)};
    for (const FilterMaker &make : makers) {
        Samples samples = noise(70);
        make()->Process(samples);
        QCOMPARE(samples, Samples(70, 7.0f));
        Samples planar = noise(4 * 70);
        bp::ChannelFilterBank bank;
        bank.setChannels({{make()}, {make()}, {make()}, {make()}});
        bank.process(planar.data(), 70);
        QCOMPARE(planar, Samples(4 * 70, 7.0f));
    }
}

// Every choice that a channel offers, at every usual rate.
void TestFilters::designsStableFilters()
{
    constexpr float kRates[] = {100, 125, 128, 200,  250,  256,  300,  360,  400,
                                500, 512, 600, 1000, 1024, 2000, 2048, 4000, 8000};
    constexpr float kCutOffs[] = {0.5f, 1, 2, 5, 10, 20, 30, 40, 50, 60, 70};
    for (const float rate : kRates) {
        for (const float cutOff : kCutOffs) {
            for (const auto type : {F::LowPass, F::HighPass}) {
                if (cutOff >= rate / 2.0f) {
                    continue;
                }
                const auto filter = ButterworthFilter::makeStable(type, 4, rate, cutOff);
                Samples response = impulse(static_cast<std::size_t>(2000.0f + rate * 20.0f / std::min(cutOff, 10.0f)));
                filter->Process(response);
                const QString what = QStringLiteral("%1 Hz of %2 Hz").arg(cutOff).arg(rate);
                QVERIFY2(std::fabs(response.back()) < 1e-5f, qPrintable(what));
                const float fraction = cutOff / rate;
                const bool stable = type == F::LowPass || fraction < 0.165f || fraction > 0.335f;
                QCOMPARE(ButterworthFilter::isStable(type, 4, rate, cutOff), stable);
                if (stable) {
                    continue;
                }
                // The textbook's high-pass, whose level follows from the warped frequencies alone.
                QCOMPARE(filter->getFilterType(), F::HighPass);
                const auto warped = [&](double hertz) { return std::tan(kPi * hertz / static_cast<double>(rate)); };
                for (int i = 1; i < 50; ++i) {
                    const double hertz = static_cast<double>(rate) * i / 100.0;
                    const double ratio = warped(static_cast<double>(cutOff)) / warped(hertz);
                    const double level = std::pow(10.0, levelDb(response, hertz, static_cast<double>(rate)) / 20.0);
                    QVERIFY2(std::fabs(level - 1.0 / std::sqrt(1.0 + std::pow(ratio, 8.0))) < 1e-3, qPrintable(what));
                }
            }
        }
    }
}

void TestFilters::vectors()
{
    const auto make = maker<IIRFilter>(Samples{1.0f}, Samples{1.0f, -0.5f});
    const Samples in{1.0f, 0.0f, 4.0f};
    const Samples all{1.0f, 0.5f, 4.25f, 2.125f, 1.0625f}; // y = x + 0.5 · y of the sample before
    for (const auto &[count, length] : {std::pair(-1, 3), std::pair(2, 2), std::pair(5, 5), std::pair(0, 0)}) {
        const Samples expected(all.begin(), all.begin() + length);
        Samples out(4, 9.0f);
        make()->Process(in, out, count);
        QCOMPARE(out, expected);
        Samples same = in;
        make()->Process(same, same, count);
        QCOMPARE(same, expected);
    }
    Samples untouched = in;
    make()->Process(untouched.data(), 1, -3);
    QCOMPARE(untouched, in);
}

// The documented step, written out: every sum in its order, histories shifted one place.
void TestFilters::recursion()
{
    const float gain = 0.37f;
    const std::vector<Samples> sections{{0.4f, 0.3f, -0.2f, 2.0f, -1.1f, 0.7f},
                                        {0.5f, -0.25f, 0.1f, 1.0f, -0.9f, 0.3f}};
    Samples expected = noise(200);
    Samples actual = expected;
    for (const Samples &s : sections) {
        const float b[] = {s[0] / s[3], s[1] / s[3], s[2] / s[3]};
        const float a[] = {s[4] / s[3], s[5] / s[3]};
        float x[3] = {};
        float y[2] = {};
        for (float &sample : expected) {
            x[2] = std::exchange(x[1], std::exchange(x[0], sample));
            sample = b[0] * x[0];
            sample += b[1] * x[1];
            sample += b[2] * x[2];
            sample -= a[0] * y[0];
            sample -= a[1] * y[1];
            y[1] = std::exchange(y[0], sample);
        }
    }
    for (float &sample : expected) {
        sample *= gain;
    }
    IIRFilter(sections, gain).Process(actual);
    QVERIFY(sameBits(actual, expected));
}

void TestFilters::notchAndFirCoefficients()
{
    // fs = 240, f0 = 40: cos ω = 1/2, so K = 1 − R + R², with R = 1 − 3 · 8/240 = 0.9.
    Samples b;
    Samples a;
    OpenNotch::Calculate(b, a, F::BandStop, 240.0f, 40.0f, 8.0f);
    QVERIFY((b == Samples{0.91f, -0.91f, 0.91f} && a == Samples{1.0f, -0.9f, 0.81f}));
    OpenNotch::Calculate(b, a, F::BandPass, 240.0f, 40.0f, -8.0f);
    QCOMPARE(b, (Samples{0.09f, 0.01f, -0.1f}));

    const auto check = [](int type, int order, const Samples &expected) {
        Samples response = impulse(expected.size());
        FIRfilter(F::FilterTypeEnum(type), FIRfilter::BlackmanWindow, order, 8.0f, 1.0f, 2.0f).Process(response);
        for (std::size_t i = 0; i < expected.size(); ++i) {
            QVERIFY2(std::fabs(response[i] - expected[i]) < 1e-6f, qPrintable(QString::number(type)));
        }
    };
    // fs = 8, f1 = 1, f2 = 2: ω1 = π/4, ω2 = π/2. The windows are 0, 0.34, 1, 0.34, 0 and 0, 0.63, 0.63, 0.
    check(F::LowPass, 4, {0.0f, 0.0765267f, 0.25f, 0.0765267f, 0.0f});
    check(F::HighPass, 4, {0.0f, -0.1082254f, 0.5f, -0.1082254f, 0.0f});
    check(F::BandPass, 4, {0.0f, 0.0316987f, 0.25f, 0.0316987f, 0.0f});
    check(F::BandStop, 4, {0.0f, 0.0316987f, 0.75f, 0.0316987f, 0.0f}); // keeps the band-pass's sign
    check(F::HighPass, 3, {0.0f, 0.1174708f, 0.1174708f, 0.0f});
    check(F::BandStop, 3, {0.0f, 0.0f, 0.0f, 0.0f});
    check(F::LowPass, 0, {0.25f});
    check(F::LowPass, -1, {0.0f});
}

void TestFilters::resetAsymmetry()
{
    Samples zeros(10, 0.0f);
    Samples before = noise(100);
    ButterworthFilter recursive(F::BandPass, 4, 250.0f, 1.0f, 30.0f);
    recursive.Process(before);
    recursive.Reset();
    recursive.Process(zeros);
    QCOMPARE(zeros, Samples(10, 0.0f));
    FIRfilter remembering(F::LowPass, FIRfilter::BlackmanWindow, 4, 8.0f, 1.0f, 1.0f);
    Samples one{1.0f, 0.0f};
    remembering.Process(one);
    remembering.Reset();
    remembering.Process(zeros);
    QVERIFY(std::fabs(zeros[0] - 0.25f) < 1e-6f);
}

void TestFilters::hopelessDesigns()
{
    TraceCapture trace;
    Samples samples = noise(50);
    ButterworthFilter(F::LowPass, 0, 250.0f, 30.0f, 30.0f).Process(samples);
    ButterworthFilter(static_cast<F::FilterTypeEnum>(7), 4, 250.0f, 30.0f, 30.0f).Process(samples);
    QVERIFY(sameBits(samples, noise(50)) && trace.lines().isEmpty());
    ButterworthFilter(F::LowPass, 4, 100.0f, 70.0f, 70.0f).Process(samples);
    IIRFilter({1.0f}, {0.0f, 0.5f}).Process(samples);
    IIRFilter(Samples{}, Samples{}).Process(samples);
    QCOMPARE(trace.lines().size(), 3);
}

void TestFilters::chainSharesItsHistory()
{
    const FilterMaker makers[] = {maker<ButterworthFilter>(F::LowPass, 4, 250.0f, 40.0f, 40.0f),
                                  maker<ButterworthFilter>(F::HighPass, 4, 250.0f, 1.0f, 1.0f),
                                  maker<NotchFilter>(F::BandPass, 250.0f, 10.0f, 1.0f),
                                  maker<NotchFilter>(F::BandStop, 250.0f, 50.0f, 1.0f)};
    const Filtrator::Block in{noise(100), noise(37, 2)};
    std::vector<std::unique_ptr<AbstractFilter>> filters;
    for (const FilterMaker &make : makers) {
        filters.push_back(make());
    }
    Filtrator chain(250);
    chain.setFilters(2, 30, 0, 0, 0);
    chain.setFilters(4, 40, 1, 50, 10);
    Filtrator::Block out(5);
    for (int turn = 0; turn < 2; ++turn) { // what the last channel leaves is what the next block's first one finds
        Filtrator::Block expected = in;
        for (const auto &filter : filters) {
            for (Samples &channel : expected) {
                filter->Process(channel);
            }
        }
        chain.doFiltrate(in, out);
        QVERIFY(out == expected);
    }
    chain.setFilters(4, 0, 0, 0, -1);
    chain.doFiltrate(in, out);
    QVERIFY(out == in);
}

void TestFilters::resampling()
{
    constexpr double kHertz = 7.0;
    constexpr int kRates[][3] = {{500, 250, 500}, {250, 500, 2000}, {300, 250, 833}, {2000, 1, 0}};
    for (const auto &[inputRate, rate, length] : kRates) {
        const double turn = 2.0 * kPi * kHertz / inputRate;
        Samples sine(1000);
        for (std::size_t i = 0; i < sine.size(); ++i) {
            sine[i] = static_cast<float>(std::sin(turn * static_cast<double>(i)));
        }
        Filtrator::Block block{sine, {}};
        Filtrator(rate).resample(block, block, inputRate, 10);
        QVERIFY(block.size() == 2 && block[1].empty());
        QCOMPARE(block[0].size(), std::size_t(length));
        // Away from the ends, where part of the window is empty.
        for (std::size_t i = 40; i + 40 < block[0].size(); ++i) {
            const double expected = std::sin(turn * 1000.0 / length * static_cast<double>(i));
            QVERIFY(std::fabs(static_cast<double>(block[0][i]) - expected) < 1e-3);
        }
    }
    TraceCapture trace;
    Filtrator::Block block;
    Filtrator(250).resample({{1.0f, 2.0f}}, block, 0, 10);
    QCOMPARE(block, Filtrator::Block(1));
    QCOMPARE(trace.count(QStringLiteral("Filtrator::resample")), 1);
}

BP_TEST_MAIN(TestFilters)
#include "TestFilters.moc"
