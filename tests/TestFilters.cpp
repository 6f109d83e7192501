#include "filters/ButterworthFilter.h"
#include "filters/ChannelFilterBank.h"
#include "filters/FIRfilter.h"
#include "filters/Filtrator.h"
#include "filters/IIRFilter.h"
#include "filters/NotchFilter.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <functional>
#include <memory>
#include <random>

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
        sum +=
            static_cast<double>(response[i]) * std::polar(1.0, -2.0 * kPi * frequency / rate * static_cast<double>(i));
    }
    return 20.0 * std::log10(std::max(std::abs(sum), 1e-12));
}

struct Golden
{
    int highPass;
    int order;
    float cutOff;
    float rate;
    double gain;
    std::vector<std::vector<double>> rows;
};

const Golden kGolden[] = {
#include "reference/butterworth_golden.inc"
};

struct Band
{
    double from;
    double to;
    double leastDb;
    double mostDb;
};

constexpr double kAny = -1000.0;

} // namespace

Q_DECLARE_METATYPE(FilterMaker)
Q_DECLARE_METATYPE(std::vector<Band>)
Q_DECLARE_METATYPE(Samples)

class TestFilters : public QObject
{
    Q_OBJECT
private slots:
    void butterworthDesign();
    void spectralMask_data();
    void spectralMask();
    void twoSlots();
    void blockIsSampleBySample_data();
    void blockIsSampleBySample();
    void bankIsOneByOne();
    void vectors_data();
    void vectors();
    void recursion();
    void notchCoefficients();
    void firTaps_data();
    void firTaps();
    void firPhase();
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
        ButterworthFilter::Butter(sections, gain, golden.highPass, golden.order, golden.cutOff, golden.cutOff,
                                  golden.rate);
        QCOMPARE(sections.size(), golden.rows.size());
        QVERIFY(std::fabs(static_cast<double>(gain) / golden.gain - 1.0) < 2e-6);
        for (std::size_t k = 0; k < sections.size(); ++k) {
            QCOMPARE(sections[k].size(), std::size_t(6));
            for (std::size_t i = 0; i < 6; ++i) {
                QVERIFY(std::fabs(static_cast<double>(sections[k][i]) - golden.rows[k][i]) < 2.5e-7);
            }
        }
    }
}

void TestFilters::spectralMask_data()
{
    QTest::addColumn<FilterMaker>("make");
    QTest::addColumn<double>("rate");
    QTest::addColumn<std::vector<Band>>("bands");
    // The pole mapping lifts the end of the pass band by a decibel or so over a textbook Butterworth.
    QTest::newRow("low-pass") << maker<ButterworthFilter>(F::LowPass, 4, 250.0f, 30.0f, 30.0f) << 250.0
                              << std::vector<Band>{{0.0, 15.0, -0.05, 0.5},
                                                   {15.0, 27.0, -0.05, 1.5},
                                                   {30.0, 30.0, -1.2, -0.7},
                                                   {60.0, 125.0, kAny, -33.0},
                                                   {90.0, 125.0, kAny, -60.0}};
    QTest::newRow("high-pass") << maker<ButterworthFilter>(F::HighPass, 4, 500.0f, 1.0f, 1.0f) << 500.0
                               << std::vector<Band>{{0.0, 0.25, kAny, -55.0},
                                                    {0.25, 0.5, kAny, -30.0},
                                                    {1.0, 1.0, -3.1, -2.7},
                                                    {1.25, 250.0, -0.05, 0.3}};
    QTest::newRow("notch") << maker<NotchFilter>(F::BandStop, 500.0f, 50.0f, 1.0f) << 500.0
                           << std::vector<Band>{{0.0, 45.0, -0.1, 0.1},
                                                {49.5, 49.5, -3.5, -2.0},
                                                {50.0, 50.0, kAny, -60.0},
                                                {50.5, 50.5, -3.5, -2.0},
                                                {55.0, 250.0, -0.1, 0.1}};
    QTest::newRow("narrow band") << maker<NotchFilter>(F::BandPass, 500.0f, 50.0f, 1.0f) << 500.0
                                 << std::vector<Band>{
                                        {0.0, 40.0, kAny, -20.0}, {50.0, 50.0, -0.1, 0.1}, {60.0, 250.0, kAny, -20.0}};
}

void TestFilters::spectralMask()
{
    QFETCH(FilterMaker, make);
    QFETCH(double, rate);
    QFETCH(std::vector<Band>, bands);
    Samples response = impulse(20000);
    make()->Process(response);
    constexpr int kSteps = 16;
    for (const Band &band : bands) {
        for (int i = 0; i <= kSteps; ++i) {
            const double frequency = band.from + (band.to - band.from) * i / kSteps;
            const double level = levelDb(response, frequency, rate);
            QVERIFY2(level >= band.leastDb && level <= band.mostDb,
                     qPrintable(QStringLiteral("%1 dB at %2 Hz").arg(level).arg(frequency)));
        }
    }
}

void TestFilters::twoSlots()
{
    constexpr F::FilterTypeEnum kOrder[][3] = {{F::BandPass, F::HighPass, F::LowPass},
                                               {F::BandStop, F::LowPass, F::HighPass}};
    for (const auto &[type, first, second] : kOrder) {
        Samples whole = noise(300);
        Samples halves = whole;
        ButterworthFilter(type, 4, 250.0f, 8.0f, 30.0f).Process(whole);
        ButterworthFilter(first, 4, 250.0f, 8.0f, 8.0f).Process(halves);
        ButterworthFilter(second, 4, 250.0f, 30.0f, 30.0f).Process(halves);
        QVERIFY(sameBits(whole, halves));
    }
}

void TestFilters::blockIsSampleBySample_data()
{
    const std::vector<float> b{0.3f, 0.1f, -0.2f, 0.05f};
    const std::vector<float> a{2.0f, -0.6f, 0.3f};
    const std::vector<float> firstOrder{0.5f, 0.25f, 1.0f, -0.3f};
    const std::vector<float> secondOrder{0.5f, 0.25f, 0.1f, 1.0f, -0.3f, 0.2f};
    QTest::addColumn<FilterMaker>("make");
    QTest::newRow("one section") << maker<NotchFilter>(F::BandStop, 250.0f, 50.0f, 1.0f);
    QTest::newRow("two sections") << maker<ButterworthFilter>(F::HighPass, 4, 250.0f, 1.0f, 1.0f);
    QTest::newRow("three sections") << maker<ButterworthFilter>(F::LowPass, 6, 250.0f, 30.0f, 30.0f);
    QTest::newRow("eight sections") << maker<ButterworthFilter>(F::LowPass, 16, 250.0f, 30.0f, 30.0f);
    QTest::newRow("ten sections") << maker<ButterworthFilter>(F::LowPass, 20, 250.0f, 30.0f, 30.0f);
    QTest::newRow("two cascades") << maker<ButterworthFilter>(F::BandPass, 5, 250.0f, 2.0f, 30.0f);
    QTest::newRow("direct, uneven lengths") << maker<IIRFilter>(b, a);
    QTest::newRow("sections of mixed orders") << FilterMaker([=] {
        return std::make_unique<IIRFilter>(std::vector<Samples>{secondOrder, firstOrder}, 0.7f);
    });
    QTest::newRow("FIR, odd") << maker<FIRfilter>(F::BandPass, FIRfilter::BlackmanWindow, 100, 250.0f, 8.0f, 30.0f);
    QTest::newRow("FIR, even") << maker<FIRfilter>(F::HighPass, FIRfilter::BlackmanWindow, 7, 250.0f, 8.0f, 30.0f);
}

void TestFilters::blockIsSampleBySample()
{
    QFETCH(FilterMaker, make);
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
    QVERIFY(sameBits(actual, expected));
}

void TestFilters::bankIsOneByOne()
{
    using Filters = std::vector<std::unique_ptr<AbstractFilter>>;
    using Lists = std::vector<std::vector<AbstractFilter *>>;
    const auto build = [](Filters &filters) {
        Lists lists;
        const auto add = [&](std::unique_ptr<AbstractFilter> filter) {
            filters.push_back(std::move(filter));
            lists.back().push_back(filters.back().get());
        };
        const auto butterworth = [&](F::FilterTypeEnum type, int order, float hertz) {
            add(std::make_unique<ButterworthFilter>(type, order, 250.0f, hertz, hertz));
        };
        for (int channel = 0; channel < 36; ++channel) {
            const float spread = static_cast<float>(channel);
            lists.emplace_back();
            if (channel % 3 != 2) {
                butterworth(F::LowPass, 4, 30.0f + spread);
                butterworth(F::HighPass, 4, 0.5f + 0.1f * spread);
                add(std::make_unique<NotchFilter>(F::BandStop, 250.0f, 40.0f + spread, 1.0f));
            } else if (channel < 24) {
                butterworth(F::LowPass, channel < 18 ? 2 : 20, 20.0f);
            } else if (channel < 30) {
                lists.back().push_back(nullptr);
                add(std::make_unique<FIRfilter>(F::LowPass, FIRfilter::BlackmanWindow, 20, 250.0f, 20.0f, 20.0f));
            }
        }
        lists[3].push_back(lists[4][0]);
        lists[6].push_back(lists[6][0]);
        return lists;
    };
    Filters filters;
    Filters twinFilters;
    const Lists lists = build(filters);
    const Lists twins = build(twinFilters);
    bp::ChannelFilterBank bank;
    bank.setChannels(lists);
    unsigned seed = 1;
    for (const int count : {500, 1, 3, 128, 129, 1, 31, 0, 200}) {
        Samples planar = noise(lists.size() * static_cast<std::size_t>(count), ++seed);
        Samples expected = planar;
        bank.process(planar.data(), static_cast<std::size_t>(count));
        for (std::size_t channel = 0; channel < twins.size(); ++channel) {
            for (AbstractFilter *filter : twins[channel]) {
                if (filter != nullptr) {
                    filter->Process(expected.data(), static_cast<int>(channel) * count, count);
                }
            }
        }
        QVERIFY(sameBits(planar, expected));
        // Between two blocks a filter is used, or reset, on its own.
        for (const Filters *each : {&filters, &twinFilters}) {
            Samples own = noise(40);
            each->at(0)->Process(own);
            each->at(2)->Reset();
        }
    }
}

void TestFilters::vectors_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<Samples>("expected");
    // y = x + 0.5 · y of the sample before
    QTest::newRow("whole") << -1 << Samples{1.0f, 0.5f, 4.25f};
    QTest::newRow("shortened") << 2 << Samples{1.0f, 0.5f};
    QTest::newRow("prolonged with zeros") << 5 << Samples{1.0f, 0.5f, 4.25f, 2.125f, 1.0625f};
    QTest::newRow("nothing") << 0 << Samples{};
}

void TestFilters::vectors()
{
    QFETCH(int, count);
    QFETCH(Samples, expected);
    const auto make = [] { return std::make_unique<IIRFilter>(Samples{1.0f}, Samples{1.0f, -0.5f}); };
    const Samples in{1.0f, 0.0f, 4.0f};
    Samples out(4, 9.0f);
    make()->Process(in, out, count);
    QCOMPARE(out, expected);
    Samples same = in;
    make()->Process(same, same, count);
    QCOMPARE(same, expected);
    Samples inPlace = in;
    make()->Process(inPlace, count);
    expected.resize(std::min(expected.size(), in.size()));
    QCOMPARE(inPlace.size(), in.size());
    QVERIFY(std::equal(expected.begin(), expected.end(), inPlace.begin()));
    std::copy(in.begin(), in.end(), inPlace.begin());
    make()->Process(inPlace.data(), 1, -3);
    QCOMPARE(inPlace, in);
}

// The documented step, written out: every sum in its order, histories shifted one place.
void TestFilters::recursion()
{
    const std::vector<Samples> sections{{0.4f, 0.3f, -0.2f, 2.0f, -1.1f, 0.7f},
                                        {0.5f, -0.25f, 0.1f, 1.0f, -0.9f, 0.3f}};
    const float gain = 0.37f;
    struct Direct
    {
        Samples b, a, x, y;
    };
    std::vector<Direct> model;
    for (const Samples &section : sections) {
        Direct direct{{}, {}, Samples(3), Samples(3)};
        for (std::size_t i = 0; i < 3; ++i) {
            direct.b.push_back(section[i] / section[3]);
            direct.a.push_back(section[3 + i] / section[3]);
        }
        model.push_back(direct);
    }
    Samples expected = noise(200);
    Samples actual = expected;
    for (float &sample : expected) {
        for (Direct &direct : model) {
            direct.x = {sample, direct.x[0], direct.x[1]};
            float acc = 0.0f;
            for (std::size_t i = 0; i < 3; ++i) {
                acc += direct.b[i] * direct.x[i];
            }
            direct.y = {0.0f, direct.y[0], direct.y[1]};
            for (std::size_t i = 1; i < 3; ++i) {
                acc -= direct.a[i] * direct.y[i];
            }
            sample = direct.y[0] = acc;
        }
        sample *= gain;
    }
    IIRFilter(sections, gain).Process(actual);
    QVERIFY(sameBits(actual, expected));
}

void TestFilters::notchCoefficients()
{
    // fs = 240, f0 = 40: cos ω = 1/2, so K = 1 − R + R², with R = 1 − 3 · 8/240 = 0.9.
    for (const float width : {8.0f, -8.0f}) {
        Samples b;
        Samples a;
        OpenNotch::Calculate(b, a, F::BandStop, 240.0f, 40.0f, width);
        const Samples expected{0.91f, -0.91f, 0.91f, 1.0f, -0.9f, 0.81f};
        Samples actual = b;
        actual.insert(actual.end(), a.begin(), a.end());
        QCOMPARE(actual, expected);
        OpenNotch::Calculate(b, a, F::BandPass, 240.0f, 40.0f, width);
        QCOMPARE(b, (Samples{0.09f, 0.01f, -0.1f}));
    }
}

void TestFilters::firTaps_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("order");
    QTest::addColumn<Samples>("expected");
    // fs = 8, f1 = 1, f2 = 2: ω1 = π/4, ω2 = π/2. The window of five taps is 0, 0.34, 1, 0.34, 0; of four 0, 0.63,
    // 0.63, 0.
    QTest::newRow("low-pass") << 0 << 4 << Samples{0.0f, 0.0765267f, 0.25f, 0.0765267f, 0.0f};
    QTest::newRow("high-pass") << 1 << 4 << Samples{0.0f, -0.1082254f, 0.5f, -0.1082254f, 0.0f};
    QTest::newRow("band-pass") << 2 << 4 << Samples{0.0f, 0.0316987f, 0.25f, 0.0316987f, 0.0f};
    QTest::newRow("band-stop keeps the band-pass's sign")
        << 3 << 4 << Samples{0.0f, 0.0316987f, 0.75f, 0.0316987f, 0.0f};
    QTest::newRow("low-pass, even length") << 0 << 3 << Samples{0.0f, 0.1534830f, 0.1534830f, 0.0f};
    QTest::newRow("high-pass, even length") << 1 << 3 << Samples{0.0f, 0.1174708f, 0.1174708f, 0.0f};
    QTest::newRow("band-pass, even length") << 2 << 3 << Samples{0.0f, 0.1301166f, 0.1301166f, 0.0f};
    QTest::newRow("band-stop, even length") << 3 << 3 << Samples{0.0f, 0.0f, 0.0f, 0.0f};
    QTest::newRow("another type") << 4 << 3 << Samples{0.0f, 0.0f, 0.0f, 0.0f};
    QTest::newRow("one tap") << 0 << 0 << Samples{0.25f};
    QTest::newRow("no tap") << 0 << -1 << Samples{0.0f};
}

void TestFilters::firTaps()
{
    QFETCH(int, type);
    QFETCH(int, order);
    QFETCH(Samples, expected);
    const auto kind = static_cast<F::FilterTypeEnum>(type);
    Samples response = impulse(expected.size());
    FIRfilter(kind, FIRfilter::BlackmanWindow, order, 8.0f, 1.0f, 2.0f).Process(response);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        QVERIFY(std::fabs(response[i] - expected[i]) < 1e-6f);
    }
    Samples silent = impulse(8);
    FIRfilter(kind, static_cast<FIRfilter::WindowTypeEnum>(1), order, 8.0f, 1.0f, 2.0f).Process(silent);
    QCOMPARE(silent, Samples(8, 0.0f));
}

void TestFilters::firPhase()
{
    for (const int order : {150, 151}) {
        Samples response = impulse(static_cast<std::size_t>(order) + 1);
        FIRfilter(F::BandPass, FIRfilter::BlackmanWindow, order, 250.0f, 8.0f, 30.0f).Process(response);
        QVERIFY(sameBits(response, Samples(response.rbegin(), response.rend())));
        QVERIFY(std::fabs(levelDb(response, 19.0, 250.0)) < 0.05);
        QVERIFY(levelDb(response, 2.0, 250.0) < -60.0 && levelDb(response, 40.0, 250.0) < -60.0);
    }
}

void TestFilters::resetAsymmetry()
{
    Samples zeros(10, 0.0f);
    ButterworthFilter recursive(F::BandPass, 4, 250.0f, 1.0f, 30.0f);
    NotchFilter notch(F::BandStop, 250.0f, 50.0f, 1.0f);
    for (AbstractFilter *filter : std::initializer_list<F *>{&recursive, &notch}) {
        Samples before = noise(100);
        filter->Process(before);
        filter->Reset();
        filter->Process(zeros);
        QCOMPARE(zeros, Samples(10, 0.0f));
    }
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
    QVERIFY(sameBits(samples, noise(50)));
    ButterworthFilter(static_cast<F::FilterTypeEnum>(7), 4, 250.0f, 30.0f, 30.0f).Process(samples);
    QVERIFY(sameBits(samples, noise(50)));
    QCOMPARE(trace.lines().size(), 0);
    ButterworthFilter(F::LowPass, 4, 100.0f, 70.0f, 70.0f).Process(samples);
    IIRFilter({1.0f}, {0.0f, 0.5f}).Process(samples);
    IIRFilter(Samples{}, Samples{}).Process(samples);
    QCOMPARE(trace.lines().size(), 3);
}

void TestFilters::chainSharesItsHistory()
{
    ButterworthFilter lowPass(F::LowPass, 4, 250.0f, 40.0f, 40.0f);
    ButterworthFilter highPass(F::HighPass, 4, 250.0f, 1.0f, 1.0f);
    NotchFilter narrow(F::BandPass, 250.0f, 10.0f, 1.0f);
    NotchFilter notch(F::BandStop, 250.0f, 50.0f, 1.0f);
    Filtrator chain(250);
    chain.setFilters(2, 30, 0, 0, 0);
    chain.setFilters(4, 40, 1, 50, 10);
    const Filtrator::Block in{noise(100), noise(37, 2)};
    Filtrator::Block out(5);
    for (int turn = 0; turn < 2; ++turn) {
        Filtrator::Block expected = in;
        for (AbstractFilter *filter : std::initializer_list<F *>{&lowPass, &highPass, &narrow, &notch}) {
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
        QCOMPARE(block.size(), std::size_t(2));
        QVERIFY(block[1].empty());
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
