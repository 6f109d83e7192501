#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include "bci/DimReduction.h"
#include "bci/FastICA.h"
#include "bci/MatrixOperations.h"
#include "bci/SignalFeatures.h"
#include "bci/numerics/PolynomialMatrix.h"
#include "bci/utilities.h"
#include "common/HalvinException.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <random>

namespace {

using Vector = vector<float>;
using Rows = vector<vector<float>>;
using Labels = vector<int>;

constexpr double kPi = 3.141592653589793;
const float kNaN = std::numeric_limits<float>::quiet_NaN();

/// Keeps the lines of the debug stream while it lives.
class DebugLines
{
public:
    DebugLines()
    {
        s_lines.clear();
        m_previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &message) { s_lines << message; });
    }
    ~DebugLines() { qInstallMessageHandler(m_previous); }
    Q_DISABLE_COPY(DebugLines)

    static QStringList lines() { return s_lines; }
    static int count(const char *text) { return s_lines.filter(QLatin1String(text)).size(); }

private:
    static inline QStringList s_lines;
    QtMessageHandler m_previous;
};

/// The inputs and expected outputs that numerics_reference.py wrote, by name.
QMap<QString, Rows> readGolden()
{
    QMap<QString, Rows> golden;
    QFile file(QStringLiteral(BP_REFERENCE_DIR "/golden/numerics.txt"));
    file.open(QIODevice::ReadOnly);
    while (!file.atEnd()) {
        const QByteArrayList words = file.readLine().simplified().split(' ');
        Rows &rows = golden[QString::fromLatin1(words[0])];
        rows.assign(words[1].toUInt(), Vector(words[2].toUInt()));
        int next = 3;
        for (Vector &row : rows) {
            for (float &value : row) {
                value = words[next++].toFloat();
            }
        }
    }
    return golden;
}

/// Largest difference, as a share of the largest element that is expected; infinite for another shape.
double difference(const Rows &actual, const Rows &expected)
{
    double most = 0.0;
    double largest = 1e-30;
    bool sameShape = actual.size() == expected.size();
    for (std::size_t r = 0; sameShape && r < expected.size(); ++r) {
        sameShape = actual[r].size() == expected[r].size();
        for (std::size_t c = 0; sameShape && c < expected[r].size(); ++c) {
            const double away = std::fabs(static_cast<double>(actual[r][c]) - static_cast<double>(expected[r][c]));
            most = std::isnan(away) ? INFINITY : std::max(most, away);
            largest = std::max(largest, std::fabs(static_cast<double>(expected[r][c])));
        }
    }
    return sameShape ? most / largest : INFINITY;
}

double difference(const Vector &actual, const Rows &expected)
{
    return difference(Rows{actual}, expected);
}

/// Turns the rows to the side of the others: directions have no sign.
Rows aligned(Rows rows, const Rows &expected)
{
    for (std::size_t r = 0; r < std::min(rows.size(), expected.size()); ++r) {
        if (std::inner_product(rows[r].begin(), rows[r].end(), expected[r].begin(), 0.0) < 0.0) {
            std::transform(rows[r].begin(), rows[r].end(), rows[r].begin(), std::negate<>());
        }
    }
    return rows;
}

Labels toLabels(const Rows &row)
{
    return Labels(row[0].begin(), row[0].end());
}

Rows product(const Rows &a, const Rows &b)
{
    Rows out;
    MatrixOperations::MatrixProduct(a, b, out);
    return out;
}

/// Between 0 and 1, the same on every platform.
double draw(quint32 &state)
{
    state = state * 1664525u + 1013904223u;
    return (state + 0.5) / 4294967296.0;
}

/// A sine, a square wave, a sawtooth and Laplacian noise, two of them with an offset.
Rows sources(std::size_t count)
{
    Rows rows(4, Vector(count));
    quint32 state = 7;
    for (std::size_t i = 0; i < count; ++i) {
        const double t = static_cast<double>(i) / 250.0;
        const double u = 2.0 * draw(state) - 1.0;
        rows[0][i] = static_cast<float>(std::sin(2.0 * kPi * 3.1 * t));
        rows[1][i] = std::sin(2.0 * kPi * 1.3 * t) > 0.0 ? 6.0f : 4.0f;
        rows[2][i] = static_cast<float>(std::fmod(2.7 * t, 1.0)) - 3.0f;
        rows[3][i] = static_cast<float>(std::copysign(std::log(1.0 - std::fabs(u)), u));
    }
    return rows;
}

const Rows kMixing{{30, 10, 20, -10}, {-10, 25, 5, 15}, {15, -20, 40, 10}, {5, 10, -15, 20}};

double correlation(const Vector &a, const Vector &b)
{
    const double ma = static_cast<double>(utilities::Mean(a));
    const double mb = static_cast<double>(utilities::Mean(b));
    double ab = 0.0;
    double aa = 0.0;
    double bb = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const double x = static_cast<double>(a[i]) - ma;
        const double y = static_cast<double>(b[i]) - mb;
        ab += x * y;
        aa += x * x;
        bb += y * y;
    }
    return ab / std::sqrt(aa * bb);
}

/// Amari's distance of a matrix from a permutation, 0 … 1.
double amariIndex(const Rows &p)
{
    const double size = static_cast<double>(p.size());
    double sum = 0.0;
    Rows columns;
    MatrixOperations::MatrixTranspose(p, columns);
    for (const Rows &side : {p, columns}) {
        for (const Vector &row : side) {
            double most = 0.0;
            double all = 0.0;
            for (const float value : row) {
                most = std::max(most, std::fabs(static_cast<double>(value)));
                all += std::fabs(static_cast<double>(value));
            }
            sum += all / most - 1.0;
        }
    }
    return sum / (2.0 * size * (size - 1.0));
}

const Rows kRagged{{1, 2}, {3}};

} // namespace

Q_DECLARE_METATYPE(Rows)

class TestNumerics : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_golden = readGolden(); }

    void medianSortsInPlace();
    void featuresOfSignals_data();
    void featuresOfSignals();
    void featuresOfNothing();
    void distancesOfVectors();
    void normalisesFeatures();
    void limitReplacesByRawMean();
    void resamplesASine();
    void savedMatrixComesBack();
    void badFileIsRefused_data();
    void badFileIsRefused();

    void fitsPolynomials_data();
    void fitsPolynomials();
    void polynomialErrors();

    void invertsMatrices_data();
    void invertsMatrices();
    void singularMatricesThrow_data();
    void singularMatricesThrow();
    void productsAndShapes();
    void momentsOfClasses();
    void eigenvectors_data();
    void eigenvectors();
    void tooFewEigenvalues();

    void principalComponents();
    void traceOfPca_data();
    void traceOfPca();
    void fisherDirections_data();
    void fisherDirections();
    void degenerateClasses_data();
    void degenerateClasses();
    void projectionErrors();

    void separatesSources();
    void dependentChannels();
    void sixthFailureStops();
    void badDataTrainsNothing_data();
    void badDataTrainsNothing();

private:
    void addGoldenRows(const char *prefix, const char *suffix);

    QMap<QString, Rows> m_golden;
};

/// A row for each name between a prefix and a suffix.
void TestNumerics::addGoldenRows(const char *prefix, const char *suffix)
{
    QTest::addColumn<QString>("name");
    const QMap<QString, Rows> golden = readGolden();
    for (const QString &key : golden.keys()) {
        if (key.startsWith(QLatin1String(prefix)) && key.endsWith(QLatin1String(suffix))) {
            const QString name = key.left(key.size() - int(qstrlen(suffix)));
            QTest::newRow(qPrintable(name)) << name;
        }
    }
}

void TestNumerics::medianSortsInPlace()
{
    Vector odd{3, 1, 2};
    QCOMPARE(utilities::Median(odd), 2.0f);
    QCOMPARE(odd, (Vector{1, 2, 3}));
    Vector even{4, 1, 3, 2};
    QCOMPARE(utilities::Median(even), 2.5f);
    Labels whole{4, 1, 3, 2};
    QCOMPARE(utilities::Median(whole), 2);
    Labels large{std::numeric_limits<int>::max(), std::numeric_limits<int>::max()};
    QCOMPARE(utilities::Median(large), large[0]);
    Vector holes(100, kNaN);
    holes[50] = 2.0f;
    holes[70] = 1.0f;
    utilities::Median(holes);
    QCOMPARE(Vector(holes.begin(), holes.begin() + 2), (Vector{1, 2}));
}

void TestNumerics::featuresOfSignals_data()
{
    addGoldenRows("features.", ".in");
}

void TestNumerics::featuresOfSignals()
{
    QFETCH(QString, name);
    const Vector x = m_golden[name + QStringLiteral(".in")][0];
    const Vector expected = m_golden[name + QStringLiteral(".scalars")][0];
    float dimension = 0.0f;
    SignalFeatures::HiguchiFD(x, 10, &dimension);
    Vector sorted = x;
    const Vector actual{SignalFeatures::MAV(x),
                        SignalFeatures::RMS(x),
                        SignalFeatures::Variance(x),
                        SignalFeatures::WaveformLength(x),
                        static_cast<float>(SignalFeatures::ZeroCrossings(x)),
                        SignalFeatures::MedianOfMaxN(x, 7),
                        SignalFeatures::MedianOfMaxN(x, 8),
                        dimension,
                        SignalFeatures::AlternativeHiguchiFD(x, 21),
                        utilities::Mean(x),
                        utilities::StdDev(x),
                        utilities::Median(sorted),
                        utilities::Max(x),
                        utilities::Min(x),
                        static_cast<float>(utilities::IndexOfMax(x))};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        QVERIFY2(std::fabs(actual[i] - expected[i]) <= 1e-5f * std::max(1e-2f, std::fabs(expected[i])),
                 qPrintable(QStringLiteral("%1: %2 %3").arg(i).arg(double(actual[i])).arg(double(expected[i]))));
    }
    Vector ar;
    SignalFeatures::calcAR(x, 6, false, ar);
    QVERIFY(difference(ar, m_golden[name + QStringLiteral(".ar")]) < 1e-3);
    SignalFeatures::calcAR(x, 6, true, ar);
    QVERIFY(difference(ar, m_golden[name + QStringLiteral(".ar0")]) < 1e-3);
    Vector smooth;
    utilities::smoothByRMS(x, smooth, 7);
    QVERIFY(difference(smooth, m_golden[name + QStringLiteral(".smooth")]) < 1e-6);
    for (const std::size_t window : {std::size_t{1}, std::size_t{2}, x.size() - 1, x.size(), 3 * x.size()}) {
        utilities::smoothByRMS(x, smooth, static_cast<unsigned int>(window));
        for (std::size_t i = 0; i < x.size(); ++i) {
            const std::size_t first = i - std::min(i, window / 2);
            const std::size_t last = std::min(i + window - window / 2, x.size());
            const float direct = SignalFeatures::RMS(Vector(x.begin() + first, x.begin() + last));
            QVERIFY(std::fabs(smooth[i] - direct) <= 1e-6f * direct);
        }
    }
}

void TestNumerics::featuresOfNothing()
{
    for (const Vector &x : {Vector{}, Vector{5.0f}, Vector(50, 5.0f), Vector(3, kNaN)}) {
        float dimension = -1.0f;
        SignalFeatures::HiguchiFD(x, 10, &dimension);
        QCOMPARE(dimension, 0.0f);
        QCOMPARE(SignalFeatures::AlternativeHiguchiFD(x, -4), 0.0f);
        Vector ar;
        SignalFeatures::calcAR(x, 4, true, ar);
        QCOMPARE(ar, Vector(4));
        QCOMPARE(SignalFeatures::ZeroCrossings(x), 0);
        QCOMPARE(SignalFeatures::MedianOfMaxN(x, 0), 0.0f);
    }
    Vector none;
    QCOMPARE(utilities::Median(none), 0.0f);
    QCOMPARE(utilities::IndexOfMax(none), -1);
    QCOMPARE(SignalFeatures::ZeroCrossings({1, 0, 0, -1, 0, -1, 2}), 2);
}

void TestNumerics::distancesOfVectors()
{
    for (const int size : {1, 15, 16, 17, 1280}) {
        const Rows in = m_golden[QStringLiteral("distance.%1.in").arg(size)];
        const Vector expected = m_golden[QStringLiteral("distance.%1.out").arg(size)][0];
        QVERIFY(std::fabs(utilities::eucDist(in[0], in[1]) / expected[0] - 1.0f) < 1e-6f);
        QVERIFY(std::fabs(utilities::cosineDist(in[0], in[1]) - expected[1]) < 1e-6f);
    }
    QCOMPARE(utilities::cosineDist({0, 0}, {1, 2}), 1.0f);
    const DebugLines debug;
    QCOMPARE(utilities::eucDist({1, 2, 3}, {1, 2, 3, 4}), 0.0f);
    QCOMPARE(utilities::cosineDist({1, 2, 3}, {1, 2, 3, 4}), 0.0f);
    QCOMPARE(debug.lines(),
             (QStringList{QStringLiteral("ERROR! Wrong dimensions in eucDist"),
                          QStringLiteral("ERROR! Wrong dimensions in cosineDist")}));
}

void TestNumerics::normalisesFeatures()
{
    Vector means;
    Vector deviations;
    Rows out;
    const DebugLines debug;
    utilities::normFeatures(m_golden[QStringLiteral("norm.in")], means, deviations, out, -1.0f);
    QVERIFY(difference(means, m_golden[QStringLiteral("norm.means")]) < 1e-6);
    QVERIFY(difference(deviations, m_golden[QStringLiteral("norm.deviations")]) < 1e-6);
    QVERIFY(difference(out, m_golden[QStringLiteral("norm.out")]) < 1e-4);
    utilities::normFeatures(m_golden[QStringLiteral("norm.in")], means, deviations, out, 1.5f);
    QVERIFY(difference(out, m_golden[QStringLiteral("norm.limited")]) < 1e-6);
    const int artefacts = static_cast<int>(m_golden[QStringLiteral("norm.artefacts")][0][0]);
    QCOMPARE(debug.lines(),
             (QStringList{QStringLiteral("Found 0 artifacts"), QStringLiteral("Found %1 artifacts").arg(artefacts)}));
    utilities::normFeatures({{7, 1}, {7, 2}}, means, deviations, out, 2.0f);
    QCOMPARE(Vector({out[0][0], out[1][0]}), Vector({0, 0})); // a feature that doesn't vary
    utilities::normFeatures(kRagged, means, deviations, out, 2.0f);
    QVERIFY(out.empty() && means.empty() && deviations.empty());
}

void TestNumerics::limitReplacesByRawMean()
{
    // Mean 10; deviations of 6 and −6 among zeros: z = ±2.9, of which only the upper is an artefact.
    Rows rows(20, Vector{10});
    rows[4][0] = 16;
    rows[9][0] = 4;
    Vector means;
    Vector deviations;
    Rows out;
    utilities::normFeatures(rows, means, deviations, out, 2.0f);
    QCOMPARE(out[4][0], 10.0f);
    QVERIFY(out[9][0] < -2.5f);
}

void TestNumerics::resamplesASine()
{
    const auto sine = [](std::size_t length) {
        Vector x(length);
        for (std::size_t i = 0; i < length; ++i) {
            x[i] = static_cast<float>(std::sin(2.0 * kPi * 4.0 * static_cast<double>(i) / static_cast<double>(length)));
        }
        return x;
    };
    Vector out;
    utilities::resampleToLen(sine(200), out, 500, 10);
    const Vector expected = sine(500);
    QCOMPARE(out.size(), expected.size());
    for (std::size_t i = 50; i < 450; ++i) { // nothing is padded at the ends
        QVERIFY(std::fabs(out[i] - expected[i]) < 0.01f);
    }
    utilities::resampleToLen({}, out, 3, 0);
    QCOMPARE(out, Vector(3));
}

void TestNumerics::savedMatrixComesBack()
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("m.txt"));
    const Rows matrix{{1.0f / 3.0f, -2e-30f}, {3e38f, 0}};
    Rows read;
    QVERIFY(utilities::saveSomeMat(path, matrix) && utilities::loadSomeMat(path, read));
    QCOMPARE(read, matrix);
    vector<Labels> whole;
    QVERIFY(utilities::saveSomeVec(path, Labels{1, -2}) && utilities::loadSomeMat(path, whole));
    QCOMPARE(whole, (vector<Labels>{{1, -2}}));
    const TraceCapture trace;
    QVERIFY(!utilities::saveSomeVec(folder.filePath(QStringLiteral("no/v.txt")), Vector{1}));
    QCOMPARE(trace.lines().size(), 1);
}

void TestNumerics::badFileIsRefused_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("isGood");
    QTest::newRow("blanks of all kinds") << QByteArray("\n 1\t2 \r\n\n3  4") << true;
    QTest::newRow("word") << QByteArray("1 two\n") << false;
    QTest::newRow("no number") << QByteArray("1 nan\n") << false;
    QTest::newRow("comma") << QByteArray("1,5 2\n") << false;
    QTest::newRow("ragged") << QByteArray("1 2\n3\n") << false;
    QTest::newRow("too large") << QByteArray("1 1e99\n") << false;
}

void TestNumerics::badFileIsRefused()
{
    QFETCH(QByteArray, text);
    QFETCH(bool, isGood);
    QTemporaryFile file;
    QVERIFY(file.open());
    file.write(text);
    file.close();
    const TraceCapture trace;
    Rows read{{9}};
    QCOMPARE(utilities::loadSomeMat(file.fileName(), read), isGood);
    QCOMPARE(read, isGood ? Rows({{1, 2}, {3, 4}}) : Rows({{9}}));
    QCOMPARE(trace.count(QStringLiteral("utilities::loadSomeMat")), isGood ? 0 : 1);
}

void TestNumerics::fitsPolynomials_data()
{
    addGoldenRows("fit.", ".x");
}

void TestNumerics::fitsPolynomials()
{
    QFETCH(QString, name);
    const Vector x = m_golden[name + QStringLiteral(".x")][0];
    const int degree = static_cast<int>(m_golden[name + QStringLiteral(".degree")][0][0]);
    Vector coefficients;
    Vector values;
    SignalFeatures::PolyFit(x, m_golden[name + QStringLiteral(".y")][0], degree, coefficients);
    QCOMPARE(coefficients.size(), static_cast<std::size_t>(degree) + 1);
    SignalFeatures::PolyVal(coefficients, x, values);
    // Coefficients are floats: far from 0 their terms cancel.
    QVERIFY(difference(values, m_golden[name + QStringLiteral(".values")]) < (x[0] > 100.0f ? 1e-2 : 1e-5));
}

void TestNumerics::polynomialErrors()
{
    const auto message = [](auto call) {
        try {
            call();
        } catch (const std::exception &error) {
            return QString::fromLatin1(error.what());
        }
        return QString();
    };
    Vector c;
    QCOMPARE(message([&] {
                 SignalFeatures::PolyFit({1, 2}, {1}, 1, c);
             }),
             QStringLiteral("X and Y vector sizes do not match"));
    QCOMPARE(message([&] { SignalFeatures::PolyFit({1, 2}, {1, 2}, 2, c); }), QStringLiteral("invalid matrix size"));
    QCOMPARE(message([&] { SignalFeatures::PolyFit({}, {}, -1, c); }), QStringLiteral("invalid matrix size"));
    QCOMPARE(message([] { bp::PolynomialMatrix(~std::size_t{0}, 2); }), QStringLiteral("invalid matrix size"));
    QCOMPARE(message([] { bp::PolynomialMatrix(2, 2).at(0, 2); }), QStringLiteral("position out of range"));
    QCOMPARE(message([] { bp::PolynomialMatrix(2, 3) * bp::PolynomialMatrix(2, 3); }),
             QStringLiteral("matrix dimensions are not multiplicable"));
    SignalFeatures::PolyFit({2, 2, 2}, {1, 2, 3}, 1, c); // no slope to be found in a single place
    QCOMPARE(c, (Vector{2, 0}));
}

void TestNumerics::invertsMatrices_data()
{
    addGoldenRows("inverse.", ".in");
}

void TestNumerics::invertsMatrices()
{
    QFETCH(QString, name);
    const Rows matrix = m_golden[name + QStringLiteral(".in")];
    const Rows expected = m_golden[name + QStringLiteral(".out")];
    Rows inverse;
    MatrixOperations::MatrixInverse(matrix, inverse);
    QVERIFY(difference(inverse, expected) < 1e-5);

    Labels permutation;
    int sign = 0;
    Rows lu;
    MatrixOperations::MatrixDecompose(matrix, permutation, &sign, lu);
    Rows lower = lu;
    Rows upper = lu;
    Rows permuted;
    Vector right;
    float determinantSign = static_cast<float>(sign);
    for (std::size_t r = 0; r < lu.size(); ++r) {
        std::fill(lower[r].begin() + std::ptrdiff_t(r), lower[r].end(), 0.0f);
        lower[r][r] = 1.0f;
        std::fill(upper[r].begin(), upper[r].begin() + std::ptrdiff_t(r), 0.0f);
        QVERIFY(*std::max_element(lower[r].begin(), lower[r].end()) <= 1.0f); // the largest pivot was taken
        determinantSign *= std::copysign(1.0f, lu[r][r]);
        permuted.push_back(matrix[std::size_t(permutation[r])]);
        right.push_back(permutation[r] == 0 ? 1.0f : 0.0f);
    }
    QCOMPARE(determinantSign, m_golden[name + QStringLiteral(".sign")][0][0]);
    QVERIFY(difference(product(lower, upper), permuted) < 1e-6);
    Vector solution;
    MatrixOperations::HelperSolve(lu, right, solution);
    Rows columns;
    MatrixOperations::MatrixTranspose(expected, columns);
    QVERIFY(difference(solution, {columns[0]}) < 0.05); // the rounded factors of an ill-conditioned matrix
}

void TestNumerics::singularMatricesThrow_data()
{
    QTest::addColumn<Rows>("matrix");
    QTest::addColumn<int>("code");
    QTest::newRow("empty") << Rows{} << 1001;
    QTest::newRow("no columns") << Rows{{}} << 1000;
    QTest::newRow("zeros") << Rows{{0, 0}, {0, 0}} << 1000;
    QTest::newRow("dependent rows") << Rows{{1, 2, 3}, {4, 5, 6}, {7, 8, 9}} << 1000;
    QTest::newRow("not square") << Rows{{1, 2, 3}, {4, 5, 6}} << 1000;
    QTest::newRow("ragged") << kRagged << 1000;
    QTest::newRow("not a number") << Rows{{1, kNaN}, {2, 3}} << 1000;
    QTest::newRow("infinite") << Rows{{INFINITY, 1}, {2, 3}} << 1000;
    // A channel that is recorded twice: at 29 rows, elimination in blocks leaves rounding behind.
    std::mt19937 random(7);
    for (const std::size_t size : {20u, 29u}) {
        Rows matrix(size, Vector(size));
        for (Vector &row : matrix) {
            std::generate(row.begin(), row.end(), [&] { return static_cast<float>(random() % 19) - 9.0f; });
        }
        matrix.back() = matrix.front();
        QTest::addRow("two equal rows of %zu", size) << matrix << 1000;
    }
    QTest::newRow("tiny, but regular") << Rows{{1, 0}, {0, 1e-20f}} << 0;
}

void TestNumerics::singularMatricesThrow()
{
    QFETCH(Rows, matrix);
    QFETCH(int, code);
    int thrown = 0;
    Rows inverse;
    try {
        MatrixOperations::MatrixInverse(matrix, inverse);
    } catch (const HalvinException &error) {
        thrown = error.code();
        QCOMPARE(QString::fromLatin1(error.what()),
                 QStringLiteral("MatrixOperations::MatrixDecompose code: %1").arg(code));
    }
    QCOMPARE(thrown, code);
}

void TestNumerics::productsAndShapes()
{
    const Rows a{{1, 2, 3}, {4, 5, 6}};
    Rows out;
    MatrixOperations::MatrixProduct(a, {{1, 0}, {0, 1}, {2, -1}}, out);
    QCOMPARE(out, (Rows{{7, -1}, {16, -1}}));
    MatrixOperations::MatrixProduct(a, {{1, 0}, {0, 1}, {2, -1}}, out, true);
    QCOMPARE(out, (Rows{{7, 16}, {-1, -1}}));
    MatrixOperations::MatrixSubstract(a, {{1, 1, 1}, {2, 2, 2}}, out, true);
    QCOMPARE(out, (Rows{{0, 2}, {1, 3}, {2, 4}}));
    MatrixOperations::MatrixFromVector({1, 2}, out);
    QCOMPARE(out, (Rows{{1}, {2}}));
    MatrixOperations::MatrixFromVector({1, 2}, out, true);
    QCOMPARE(out, (Rows{{1, 2}}));
    MatrixOperations::Unitize({{3, 0}, {4, 0}}, out);
    QVERIFY(difference(out, {{0.6f, 0}, {0.8f, 0}}) < 1e-6);
    QCOMPARE(MatrixOperations::triuSq(a), 1.0f + 4 + 9 + 25 + 36);

    const vector<std::function<void(Rows &)>> mismatched{
        [&a](Rows &x) { MatrixOperations::MatrixProduct(a, a, x); },
        [&a](Rows &x) {
            MatrixOperations::MatrixAdd(a, {{1, 2, 3}}, x);
        },
        [](Rows &x) { MatrixOperations::MatrixTranspose(kRagged, x); },
        [](Rows &x) { MatrixOperations::MatrixProduct({}, {}, x); },
        [](Rows &x) { MatrixOperations::Covariance(kRagged, true, x); },
        [&a](Rows &x) { MatrixOperations::Scatter(a, {1}, 1, x); },
        [&a](Rows &x) {
            MatrixOperations::ClassCovariance(a, {1, 1}, 2, true, x);
        },
        [&a](Rows &x) {
            MatrixOperations::Mean(a, {1, 1}, 2, x);
        },
        [&a](Rows &x) { x = DimReduction::ProcessICA(a, a); }};
    for (std::size_t i = 0; i < mismatched.size(); ++i) {
        out = a;
        mismatched[i](out);
        QVERIFY2(out.empty(), qPrintable(QString::number(i)));
    }
}

void TestNumerics::momentsOfClasses()
{
    const Rows data = m_golden[QStringLiteral("moments.in")];
    const Labels labels = toLabels(m_golden[QStringLiteral("moments.labels")]);
    Rows out;
    const auto isAsExpected = [this, &out](const char *name) {
        return difference(out, m_golden[QStringLiteral("moments.") + QLatin1String(name)]) < 1e-6;
    };
    MatrixOperations::Covariance(data, true, out);
    QVERIFY(isAsExpected("covariance"));
    MatrixOperations::Covariance(data, false, out);
    QVERIFY(isAsExpected("biased"));
    MatrixOperations::Mean(data, labels, 1, out);
    QVERIFY(isAsExpected("mean1"));
    MatrixOperations::ClassCovariance(data, labels, 1, true, out);
    QVERIFY(isAsExpected("covariance1"));
    MatrixOperations::Scatter(data, labels, 1, out);
    QVERIFY(isAsExpected("scatter1"));
    MatrixOperations::ScatterWithin(data, labels, out);
    QVERIFY(isAsExpected("within"));
    MatrixOperations::Covariance({{1, 2}}, true, out);
    QCOMPARE(out, (Rows{{0, 0}, {0, 0}}));
}

void TestNumerics::eigenvectors_data()
{
    addGoldenRows("eigen.", ".in");
}

void TestNumerics::eigenvectors()
{
    QFETCH(QString, name);
    const Rows matrix = m_golden[name + QStringLiteral(".in")];
    const Rows expected = m_golden[name + QStringLiteral(".vectors")];
    const Rows expectedValues = m_golden[name + QStringLiteral(".values")];
    const bool isUnique = !name.contains(QLatin1String("rank2")); // a basis of a null space is as good as another
    Rows vectors;
    Vector values;
    MatrixOperations::calcEigenVectors(matrix, true, -1, vectors, values);
    QVERIFY(difference(values, expectedValues) < 1e-6);
    QVERIFY(!isUnique || difference(aligned(vectors, expected), expected) < 1e-5);
    MatrixOperations::calcEigenVectors(matrix, false, 2, vectors, values);
    QCOMPARE(vectors.size(), std::size_t(2));
    QVERIFY(values[0] <= values[1] && std::fabs(values[0] - expectedValues[0].back()) < 1e-4f);

    MatrixOperations::jacobiEigenValue(matrix, static_cast<int>(matrix.size()), &vectors, &values);
    Rows scaled = vectors; // A V = V D
    for (Vector &row : scaled) {
        std::transform(row.begin(), row.end(), values.begin(), row.begin(), std::multiplies<>());
    }
    QVERIFY(difference(product(matrix, vectors), scaled) < 1e-5);
    std::sort(values.begin(), values.end(), std::greater<>());
    QVERIFY(difference(values, expectedValues) < 1e-6);
}

void TestNumerics::tooFewEigenvalues()
{
    for (const auto &[matrix, count] :
         {std::pair<Rows, int>{{{1, 0}, {0, 2}}, 3}, {{}, -1}, {{{kNaN}}, 1}, {kRagged, 1}}) {
        Rows vectors;
        Vector values;
        QByteArray thrown;
        try {
            MatrixOperations::calcEigenVectors(matrix, true, count, vectors, values);
        } catch (const char *text) {
            thrown = text;
        }
        QCOMPARE(thrown, QByteArray("MatrixOperations::calcEigenVectors code 1004"));
    }
    Rows vectors;
    Vector values{1};
    MatrixOperations::jacobiEigenValue({{1, 0}, {0, 2}}, 3, &vectors, &values);
    QVERIFY(vectors.empty() && values.empty());
}

void TestNumerics::principalComponents()
{
    const Rows data = m_golden[QStringLiteral("pca.in")];
    const Rows all = m_golden[QStringLiteral("pca.vectors")];
    const Vector e = m_golden[QStringLiteral("pca.values")][0];
    const auto expected = [&all](int from, int size) { return Rows(all.begin() + from, all.begin() + from + size); };
    Rows projection;
    Vector values;
    const auto isRange = [&](int from, int size) {
        return difference(aligned(projection, expected(from, size)), expected(from, size)) < 1e-4;
    };
    QVERIFY(DimReduction::TrainPCA(data, projection, -1));
    QVERIFY(isRange(0, 5)); // one fewer than there are columns
    QVERIFY(DimReduction::TrainPCA(data, projection, 3));
    QVERIFY(isRange(0, 3));
    QVERIFY(DimReduction::TrainPCA(data, values, projection, 3));
    QVERIFY(isRange(0, 3));
    QVERIFY(DimReduction::TrainPCA(data, values, projection, 0, 5));
    QVERIFY(isRange(0, 6));
    QVERIFY(difference(values, {e}) < 1e-5);
    QVERIFY(DimReduction::TrainPCA(data, values, projection, 2, 4));
    QVERIFY(isRange(2, 3));
    QVERIFY(difference(values, {Vector(e.begin() + 2, e.begin() + 5)}) < 1e-5);
    Vector out;
    DimReduction::ProcessPCA(data[0], projection, out);
    QCOMPARE(out.size(), std::size_t(3));
    QVERIFY(std::fabs(out[1] - std::inner_product(data[0].begin(), data[0].end(), projection[1].begin(), 0.0f))
            < 1e-4f);
}

void TestNumerics::traceOfPca_data()
{
    QTest::addColumn<Rows>("deviations"); // of uncorrelated columns, and dims
    QTest::addColumn<bool>("result");
    QTest::addColumn<QStringList>("lines");
    const QString warning = QStringLiteral("WARNING! Wrong number of dimensions");
    const QString error = QStringLiteral("ERROR! Bad eigenvectors in PCA!");
    const auto selected = [](int n) { return QStringLiteral("Selected %1 dimensions").arg(n); };
    const auto number = [](int n) { return QStringLiteral("Number of dimensions %1").arg(n); };
    QTest::newRow("full rank") << Rows{{3, 2, 1}, {-1}} << true
                               << QStringList{QStringLiteral("Dimension not reduced"), selected(3), warning, number(3)};
    QTest::newRow("reduced") << Rows{{4, 3, 2, 1}, {2}} << true
                             << QStringList{QStringLiteral("Reducing dimension..."), selected(3), warning, number(3)};
    QTest::newRow("to one") << Rows{{4, 3, 2, 1}, {0}} << false
                            << QStringList{QStringLiteral("Reducing dimension..."), selected(1), warning, number(1),
                                           error};
    QTest::newRow("singular")
        << Rows{{3, 2, 0, 0}, {-1}} << true
        << QStringList{QStringLiteral("WARNING: Dimension reduced to 1 due to singularity of covariance matrix"),
                       selected(2), warning, number(2)};
    QTest::newRow("one direction")
        << Rows{{3, 0.001f}, {-1}} << false
        << QStringList{
               QStringLiteral("Eigenvalues of the covariance matrix are too small. Try rescaling the data matrix")};
    QTest::newRow("volts instead of microvolts")
        << Rows{{0.002f, 0.001f}, {-1}} << false
        << QStringList{QStringLiteral("WARNING: Dimension reduced to -1 due to singularity of covariance matrix"),
                       selected(0), warning, number(0), error};
}

void TestNumerics::traceOfPca()
{
    QFETCH(Rows, deviations);
    QFETCH(bool, result);
    QFETCH(QStringList, lines);
    // Walsh functions: columns that have no correlation, with variance d² · 8/7.
    Rows data(8, deviations[0]);
    for (std::size_t i = 0; i < 8; ++i) {
        for (std::size_t c = 0; c < data[i].size(); ++c) {
            const std::size_t bits = i & (c + 1);
            data[i][c] *= ((bits ^ (bits >> 1) ^ (bits >> 2)) & 1) != 0 ? -1.0f : 1.0f;
        }
    }
    const DebugLines debug;
    Rows projection;
    QCOMPARE(DimReduction::TrainPCA(data, projection, static_cast<int>(deviations[1][0])), result);
    QCOMPARE(debug.lines(),
             QStringList({QStringLiteral("Train PCA init"), QStringLiteral("Train PCA Covariance")}) + lines);
    QCOMPARE(projection.empty(), !result);
}

void TestNumerics::fisherDirections_data()
{
    addGoldenRows("fld.", ".in");
}

void TestNumerics::fisherDirections()
{
    QFETCH(QString, name);
    const Rows data = m_golden[name + QStringLiteral(".in")];
    const Labels labels = toLabels(m_golden[name + QStringLiteral(".labels")]);
    const Rows expected = m_golden[name + QStringLiteral(".out")];
    Rows projection;
    DimReduction::TrainFLD(data, labels, projection, -1);
    QVERIFY(difference(projection, expected) < 1e-4);
    Vector value;
    DimReduction::ProcessFLD(data[0], projection, value);
    QVERIFY(difference(value, {{std::inner_product(data[0].begin(), data[0].end(), expected[0].begin(), 0.0f)}}) < 1e-4
            || expected.size() > 1);
    DimReduction::TrainFLD(data, labels, projection, 99);
    QCOMPARE(projection.size(), expected.size());
    if (expected.size() == 1) {
        Rows lda;
        DimReduction::TrainLDA(data, labels, lda, true);
        QVERIFY(difference(lda, m_golden[name + QStringLiteral(".lda")]) < 1e-4);
    }
}

void TestNumerics::degenerateClasses_data()
{
    QTest::addColumn<Rows>("data");
    QTest::addColumn<bool>("isSeparable");
    QTest::newRow("constant feature") << Rows{{5, 1}, {5, 1.5f}, {5, 3}, {5, 3.5f}} << true;
    QTest::newRow("fewer examples than features")
        << Rows{{1, 2, 3, 4, 5}, {1, 2, 4, 4, 5}, {2, 1, 3, 0, 9}, {2, 1, 4, 1, 9}} << true;
    QTest::newRow("feature that is the label") << Rows{{1, 3}, {1, 4}, {2, 4}, {2, 3}} << true;
    QTest::newRow("all examples alike") << Rows(4, Vector{5, 1}) << false;
    QTest::newRow("twice the same feature") << Rows{{1, 1}, {2, 2}, {5, 5}, {6, 6}} << true;
    QTest::newRow("large and small") << Rows{{1e18f, 1e-12f}, {1e18f, 2e-12f}, {-1e18f, 1e-12f}, {-1e18f, 2e-12f}}
                                     << false;
}

void TestNumerics::degenerateClasses()
{
    QFETCH(Rows, data);
    QFETCH(bool, isSeparable);
    const Labels labels{7, 7, 9, 9};
    Rows projection;
    Rows lda;
    DimReduction::TrainFLD(data, labels, projection, -1);
    DimReduction::TrainLDA(data, labels, lda, false);
    QCOMPARE(projection.size(), std::size_t(1));
    Vector values;
    Vector scores;
    for (const Vector &example : data) {
        Vector value;
        DimReduction::ProcessFLD(example, projection, value);
        values.push_back(value[0]);
        scores.push_back(DimReduction::ProcessLDA(example, lda));
        QVERIFY(std::isfinite(values.back()) && std::isfinite(scores.back()));
    }
    if (isSeparable) {
        QVERIFY(std::min(values[0], values[1]) > std::max(values[2], values[3]));
        QVERIFY(scores[0] > 0 && scores[1] > 0 && scores[2] < 0 && scores[3] < 0);
    }
}

void TestNumerics::projectionErrors()
{
    const auto code = [](auto call) {
        try {
            call();
        } catch (const HalvinException &error) {
            return QString::fromLatin1(error.what());
        }
        return QString();
    };
    Vector out;
    for (const auto &wrong : {std::pair<Vector, Rows>{{1}, {}}, {{}, {{1}}}, {{1, 2}, {{1}}}, {{1, 2}, kRagged}}) {
        QCOMPARE(code([&] { DimReduction::ProcessFLD(wrong.first, wrong.second, out); }),
                 QStringLiteral("DimReduction::ProcessFLD code: 2000"));
    }
    QCOMPARE(code([&] { DimReduction::ProcessLDA({1}, {{1}}); }),
             QStringLiteral("DimReduction::ProcessLDA code: 2000"));
    DimReduction::ProcessPCA({1, 2}, {{1}}, out);
    QVERIFY(out.empty());
}

void TestNumerics::separatesSources()
{
    const Rows original = sources(5000);
    const Rows mixed = product(kMixing, original);
    std::srand(3);
    Rows mixing;
    Rows unmixing;
    Rows separated;
    {
        const DebugLines debug;
        FastICA::Train(mixed, &mixing, unmixing, separated);
        for (int i = 1; i <= 4; ++i) {
            QCOMPARE(
                debug.lines()
                    .filter(QRegularExpression(QStringLiteral("^Component %1 converged in \\d+ iterations$").arg(i)))
                    .size(),
                1);
        }
        QCOMPARE(debug.lines().last(), QStringLiteral("Adding the mean back to the data"));
        QCOMPARE(debug.count("PrinComp done"), 1);
    }
    QCOMPARE(unmixing.size(), std::size_t(4));
    const double index = amariIndex(product(unmixing, kMixing));
    QVERIFY2(index < 0.05, qPrintable(QString::number(index)));
    for (const Vector &source : original) {
        double most = 0.0;
        for (const Vector &component : separated) {
            most = std::max(most, std::fabs(correlation(source, component)));
        }
        QVERIFY2(most > 0.98, qPrintable(QString::number(most)));
    }
    QVERIFY(difference(product(mixing, unmixing), {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}) < 1e-4);
    QVERIFY(difference(separated, DimReduction::ProcessICA(mixed, unmixing)) < 1e-4); // with their offsets

    Rows one;
    DimReduction::TrainICA(mixed, one, 1);
    QCOMPARE(one.size(), std::size_t(1));
    FastICA::Options sparse;
    sparse.sampleFraction = 0.5;
    FastICA::Train(mixed, nullptr, unmixing, separated, sparse);
    QVERIFY(amariIndex(product(unmixing, kMixing)) < 0.1);
    QCOMPARE(separated[0].size(), mixed[0].size());
}

void TestNumerics::dependentChannels()
{
    Rows mixed = product(kMixing, sources(2000));
    mixed[3] = mixed[0];
    Rows unmixing;
    DimReduction::TrainICA(mixed, unmixing, -1);
    QCOMPARE(unmixing.size(), std::size_t(3)); // not as many as channels: its caller goes without
    mixed[1] = mixed[2] = mixed[0];
    DimReduction::TrainICA(mixed, unmixing, -1);
    QVERIFY(unmixing.empty());
}

void TestNumerics::sixthFailureStops()
{
    const Rows mixed = product(kMixing, sources(1000));
    for (int most = 1; most < 12; ++most) {
        FastICA::Options options;
        options.maxIterations = most;
        Rows mixing;
        Rows unmixing{{1}};
        Rows separated;
        const DebugLines debug;
        FastICA::Train(mixed, &mixing, unmixing, separated, options);
        const int failures =
            debug.lines().filter(QRegularExpression(QStringLiteral("^Component number[1-4]did not converge$"))).size();
        QVERIFY(failures <= 6);
        QVERIFY(most > 1 || failures == 6);
        QCOMPARE(debug.count("Too many failures to converge"), failures == 6 ? 1 : 0);
        const std::size_t rows = failures == 6 ? 0 : 4;
        QVERIFY(unmixing.size() == rows && separated.size() == rows && mixing.size() == rows);
    }
}

void TestNumerics::badDataTrainsNothing_data()
{
    QTest::addColumn<Rows>("data");
    QTest::newRow("empty") << Rows{};
    QTest::newRow("no columns") << Rows{{}, {}, {}};
    QTest::newRow("ragged") << Rows{{1, 2, 3}, {3}, {4, 5}};
    QTest::newRow("not a number") << Rows{{1, 2, kNaN}, {3, 1, 2}, {5, 5, 1}};
    QTest::newRow("infinite") << Rows{{1, 2, 3}, {3, INFINITY, 2}, {5, 5, 1}};
}

void TestNumerics::badDataTrainsNothing()
{
    QFETCH(Rows, data);
    Rows out{{1}};
    QVERIFY(!DimReduction::TrainPCA(data, out, -1) && out.empty());
    out = {{1}};
    DimReduction::TrainFLD(data, {1, 1, 2}, out, -1);
    QVERIFY(out.empty());
    DimReduction::TrainLDA(data, {1, 1, 2}, out, false);
    QVERIFY(out.empty());
    DimReduction::TrainICA(data, out, -1);
    QVERIFY(out.empty());
    DimReduction::TrainFLD({{1}, {2}, {3}}, {1, 1, 1}, out, -1); // one class
    QVERIFY(out.empty());
}

BP_TEST_MAIN(TestNumerics)
#include "TestNumerics.moc"
