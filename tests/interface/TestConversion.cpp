#include "files/EDFConverter.h"
#include "files/EDFConverterProgressWidget.h"
#include "files/EDFReader.h"
#include "files/EDFToXLS.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLoggingCategory>
#include <QProgressBar>
#include <QPushButton>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <xlsxdocument.h>

#include <cmath>

namespace {

struct Signal
{
    QByteArray label;
    int perRecord;
    QByteArray limits; ///< physical minimum and maximum, 8 characters each
    QVector<int> samples; ///< digital
};

QByteArray pad(const QByteArray &text, int width)
{
    return text.leftJustified(width, ' ');
}

/// A file of ours, written field by field. The notes are those of the first record; without any it is plain EDF.
void writeEdf(const QString &path, const QByteArray &duration, const QList<Signal> &channels,
              const QByteArray &notes = QByteArray(), const QByteArray &magic = "0       ")
{
    const int width = magic.startsWith('0') ? 2 : 3;
    const int records = channels.first().samples.size() / channels.first().perRecord;
    const bool plus = !notes.isEmpty();
    const int count = channels.size() + (plus ? 1 : 0);
    QByteArray bytes = magic + pad(plus ? "X F 02-MAR-1951 Ann" : "free text", 80)
        + pad(plus ? "Startdate 31-DEC-2023 X X X" : "hospital", 80) + "31.12.2323.59.50"
        + pad(QByteArray::number(256 * (count + 1)), 8) + pad(plus ? "EDF+C" : "", 44)
        + pad(QByteArray::number(records), 8) + pad(duration, 8) + pad(QByteArray::number(count), 4);
    const auto field = [&](int size, auto text, const QByteArray &own) {
        for (const Signal &signal : channels) {
            bytes += pad(text(signal), size);
        }
        bytes += plus ? pad(own, size) : QByteArray();
    };
    const QByteArray top = width == 2 ? "32767" : "8388607";
    const QByteArray bottom = width == 2 ? "-32768" : "-8388608";
    field(
        16, [](const Signal &s) { return s.label; }, "EDF Annotations");
    field(
        80, [](const Signal &) { return QByteArray("AgCl"); }, "");
    field(
        8, [](const Signal &) { return QByteArray("uV"); }, "");
    field(
        8, [](const Signal &s) { return s.limits.left(8).trimmed(); }, "-1");
    field(
        8, [](const Signal &s) { return s.limits.mid(8).trimmed(); }, "1");
    field(
        8, [&](const Signal &) { return bottom; }, bottom);
    field(
        8, [&](const Signal &) { return top; }, top);
    field(
        80, [](const Signal &) { return QByteArray("HP:0.1Hz"); }, "");
    field(
        8, [](const Signal &s) { return QByteArray::number(s.perRecord); }, "100");
    field(
        32, [](const Signal &) { return QByteArray(); }, "");
    for (int record = 0; record < records; ++record) {
        for (const Signal &signal : channels) {
            for (int i = 0; i < signal.perRecord; ++i) {
                const int value = signal.samples[record * signal.perRecord + i];
                for (int byte = 0; byte < width; ++byte) {
                    bytes += static_cast<char>(value >> (8 * byte));
                }
            }
        }
        if (plus) {
            const QByteArray own = '+' + QByteArray::number(record * duration.toDouble()) + "\x14\x14" + '\0';
            bytes += (record == 0 ? own + notes : own).leftJustified(200, '\0');
        }
    }
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
}

void writeText(const QString &path, const QByteArray &text)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(text) == text.size());
}

/// Digital samples of a channel, found in the file without the library. Expects no annotations before the channel.
QVector<int> samplesOf(const QString &path, int channel)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    const QByteArray bytes = file.readAll();
    const int width = bytes.startsWith('0') ? 2 : 3;
    const int count = bytes.mid(252, 4).trimmed().toInt();
    QVector<int> perRecord;
    int before = 0;
    int all = 0;
    for (int i = 0; i < count; ++i) {
        perRecord << bytes.mid(256 + 216 * count + 8 * i, 8).trimmed().toInt();
        before += i < channel ? perRecord[i] * width : 0;
        all += perRecord[i] * width;
    }
    QVector<int> samples;
    for (int at = 256 * (count + 1); at + all <= bytes.size(); at += all) {
        for (int i = 0; i < perRecord[channel]; ++i) {
            const QByteArray raw = bytes.mid(at + before + i * width, width);
            int value = static_cast<signed char>(raw[width - 1]);
            for (int byte = width - 2; byte >= 0; --byte) {
                value = value * 256 + static_cast<unsigned char>(raw[byte]);
            }
            samples << value;
        }
    }
    return samples;
}

QVector<int> numbers(int count, int factor = 1)
{
    QVector<int> values(count);
    for (int i = 0; i < count; ++i) {
        values[i] = (i * factor) % 30000 - 15000;
    }
    return values;
}

QByteArray note(const char *times, const char *text)
{
    return QByteArray(times) + '\x14' + text + '\x14' + '\0';
}

constexpr double kPi = 3.141592653589793;
const QByteArray kLimits = "-3276.8 3276.7  ";

} // namespace

class TestConversion : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cropsOnTheSample_data();
    void cropsOnTheSample();
    void movesAnnotationsAndStart();
    void keepsRatesTogether();
    void changesChannels();
    void resamplesWithoutDelayOrFolding();
    void readsText_data();
    void readsText();
    void refusesDatesBeyondTheHeader();
    void refusesInOneSentence_data();
    void refusesInOneSentence();
    void leavesNothingWhenCancelled();
    void cancelsWhatHasNotBegun();
    void exportsToSheets();
    void showsProgress();

private:
    QString path(const char *name) const { return m_folder->filePath(QString::fromLatin1(name)); }

    std::unique_ptr<QTemporaryDir> m_folder;
};

void TestConversion::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
}

void TestConversion::cropsOnTheSample_data()
{
    QTest::addColumn<int>("perSecond");
    QTest::addColumn<double>("from");
    QTest::addColumn<double>("to");
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("count");
    QTest::newRow("within a record") << 100 << 0.25 << 0.75 << 25 << 50;
    QTest::newRow("across records") << 100 << 0.99 << 3.01 << 99 << 202;
    QTest::newRow("between samples, the later") << 100 << 1.001 << 2.001 << 101 << 100;
    QTest::newRow("a rate whose period is no decimal number") << 360 << 1.0 << 2.5 << 360 << 540;
    QTest::newRow("a prime number of samples") << 250 << 0.004 << 4.048 << 1 << 1011;
    QTest::newRow("a fraction that the last record's time lacks") << 1000 << 0.2 << 3.0 << 200 << 2800;
    QTest::newRow("to the end") << 256 << 7.0 << -1.0 << 1792 << 768;
}

void TestConversion::cropsOnTheSample()
{
    QFETCH(int, perSecond);
    QFETCH(double, from);
    QFETCH(double, to);
    QFETCH(int, first);
    QFETCH(int, count);
    for (const char *magic : {"0       ",
                              "\xff"
                              "BIOSEMI"}) {
        const QVector<int> a = numbers(10 * perSecond, 7);
        const QVector<int> b = numbers(10 * perSecond, 13);
        writeEdf(path("in"), "1", {{"A", perSecond, kLimits, a}, {"B", perSecond, "100     -100    ", b}}, {}, magic);
        EDFConverter converter;
        QVERIFY2(converter.crop(path("in"), path("out"), from, to), qPrintable(converter.lastError()));
        QCOMPARE(samplesOf(path("out"), 0), a.mid(first, count));
        QCOMPARE(samplesOf(path("out"), 1), b.mid(first, count));
        EDFReader reader(path("out"));
        QVERIFY2(reader.open(), qPrintable(reader.lastError()));
    }
}

void TestConversion::movesAnnotationsAndStart()
{
    const QByteArray notes = note("+1\x15"
                                  "4",
                                  "straddles the start")
        + note("+2", "before") + note("+3", "at start")
        + note("+11.5\x15"
               "5",
               "\xd0\xb3\xd0\xbb\xd0\xb0\xd0\xb7\xd0\xb0, over the end")
        + note("+12.5", "at end");
    writeEdf(path("in"), "1", {{"A", 10, kLimits, numbers(200)}}, notes);
    EDFConverter converter;
    QVERIFY2(converter.crop(path("in"), path("out"), 3.0, 12.5), qPrintable(converter.lastError()));
    EDFReader reader(path("out"));
    QVERIFY2(reader.open(), qPrintable(reader.lastError()));
    const QList<AnnotationStrct> found = reader.annotations();
    QCOMPARE(found.size(), 3);
    const QStringList texts{QStringLiteral("straddles the start"), QStringLiteral("at start"),
                            QString::fromUtf8("\xd0\xb3\xd0\xbb\xd0\xb0\xd0\xb7\xd0\xb0, over the end")};
    const double times[][2]{{0.0, 2.0}, {0.0, -1.0}, {8.5, 1.0}};
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(found[i].text, texts[i]);
        QCOMPARE(found[i].onset, times[i][0]);
        QCOMPARE(found[i].duration, times[i][1]);
    }
    QCOMPARE(reader.getPatientName(), QStringLiteral("Ann"));

    reader.close(); // what is open is not replaced
    // Over midnight and New Year, with a fraction of a second.
    QVERIFY(converter.crop(path("in"), path("out"), 10.5, 20.0));
    reader.setPath(path("out"));
    QVERIFY2(reader.open(), qPrintable(reader.lastError()));
    QCOMPARE(reader.getStartDateTime(), QDateTime(QDate(2024, 1, 1), QTime(0, 0, 0, 500)));
    QCOMPARE(reader.annotations().size(), 2);
    QCOMPARE(reader.annotations()[0].onset, 1.0);
}

void TestConversion::keepsRatesTogether()
{
    const QVector<int> fast = numbers(3000);
    const QVector<int> slow = numbers(30, 11);
    writeEdf(path("in"), "10", {{"F", 1000, kLimits, fast}, {"S", 10, kLimits, slow}});
    EDFConverter converter;
    // Both have samples on whole seconds only, so the cut holds them from 3 to 18 s.
    QVERIFY2(converter.crop(path("in"), path("out"), 3.7, 17.2), qPrintable(converter.lastError()));
    QCOMPARE(samplesOf(path("out"), 0), fast.mid(300, 1500));
    QCOMPARE(samplesOf(path("out"), 1), slow.mid(3, 15));
}

void TestConversion::changesChannels()
{
    const QVector<int> a = numbers(400, 3);
    const QVector<int> b = numbers(400, 5);
    writeEdf(path("in"), "0.5", {{"A", 50, kLimits, a}, {"B", 50, kLimits, b}, {"A", 50, kLimits, b}}, note("+1", "n"));
    EDFConverter converter;
    QVERIFY2(
        converter.convertChannels(path("in"), path("out"),
                                  {{QStringLiteral("B"), QStringLiteral("renamed"), 0.001, QStringLiteral("mV"), 0},
                                   {QStringLiteral("#1"), {}, 1.0, {}, 0}}),
        qPrintable(converter.lastError()));
    QCOMPARE(samplesOf(path("out"), 0), b);
    QCOMPARE(samplesOf(path("out"), 1), a);
    EDFReader reader(path("out"));
    QVERIFY2(reader.open(), qPrintable(reader.lastError()));
    QCOMPARE(reader.getChannelCount(), 2);
    QCOMPARE(reader.getChannelName(0), QStringLiteral("renamed"));
    QCOMPARE(reader.getPhysicalDimension(0), QStringLiteral("mV"));
    QCOMPARE(reader.getPhysicalMinimum(0), -3.2768);
    QCOMPARE(reader.getPhysicalMaximum(1), 3276.7);
    QCOMPARE(reader.annotations().size(), 1);
}

/// A tone below and one above half of the new rate: the one stays where it is, the other goes.
void TestConversion::resamplesWithoutDelayOrFolding()
{
    const auto tone = [](int count, double hz, double rate) {
        QVector<int> values(count);
        for (int i = 0; i < count; ++i) {
            values[i] = static_cast<int>(std::lround(10000.0 * std::sin(2.0 * kPi * hz * i / rate)));
        }
        return values;
    };
    writeEdf(path("in"), "1",
             {{"low", 360, kLimits, tone(7200, 20, 360)}, {"high", 360, kLimits, tone(7200, 70, 360)}});
    EDFConverter converter;
    for (const int rate : {100, 125, 500}) {
        const double hz = rate;
        QVERIFY2(converter.convertChannels(
                     path("in"), path("out"),
                     {{QStringLiteral("low"), {}, 1.0, {}, hz}, {QStringLiteral("high"), {}, 1.0, {}, hz}}),
                 qPrintable(converter.lastError()));
        const QVector<int> low = samplesOf(path("out"), 0);
        const QVector<int> high = samplesOf(path("out"), 1);
        QCOMPARE(low.size(), 20 * rate);
        const QVector<int> expected = tone(20 * rate, 20, hz);
        const QVector<int> above = rate > 140 ? tone(20 * rate, 70, hz) : QVector<int>(20 * rate, 0);
        for (int i = rate; i < 19 * rate; ++i) { // the ends have nothing beyond them
            QVERIFY2(std::abs(low[i] - expected[i]) <= 6, qPrintable(QString::number(i)));
            QVERIFY2(std::abs(high[i] - above[i]) <= 6, qPrintable(QString::number(i)));
        }
    }
}

void TestConversion::readsText_data()
{
    QTest::addColumn<QByteArrayList>("texts");
    QTest::addColumn<QVector<double>>("first");
    QTest::addColumn<QVector<double>>("second");
    const QVector<double> a{1.5, -2.25, 3.0};
    const QVector<double> b{100.0, 0.0, -7.0};
    QTest::newRow("blanks and comments") << QByteArrayList{"# a\n1.5  100\n\n -2.25 0\r\n#x\n3 -7"} << a << b;
    QTest::newRow("commas") << QByteArrayList{"1.5,100\n-2.25, 0\n3,-7\n"} << a << b;
    QTest::newRow("decimal commas") << QByteArrayList{"1,5;100\n-2,25;0\n3;-7\n"} << a << b;
    QTest::newRow("tabs to the end") << QByteArrayList{"\xef\xbb\xbf"
                                                       "1.5\t100\t\n-2.25\t0\t\n3\t-7\t\n"}
                                     << a << b;
    QTest::newRow("a file each") << QByteArrayList{"1.5\n-2.25\n3\n", "100\n0\n-7\n"} << a << b;
}

void TestConversion::readsText()
{
    QFETCH(QByteArrayList, texts);
    QFETCH(QVector<double>, first);
    QFETCH(QVector<double>, second);
    QStringList files;
    for (int i = 0; i < texts.size(); ++i) {
        files << m_folder->filePath(QStringLiteral("in%1").arg(i));
        writeText(files.last(), texts[i]);
    }
    EDFTextFormat format;
    format.rate = 10.0;
    format.labels = QStringList{QStringLiteral("one"), QStringLiteral("two")};
    EDFConverter converter;
    QVERIFY2(converter.convertText(files, path("out"), format), qPrintable(converter.lastError()));
    EDFReader reader(path("out"));
    QVERIFY2(reader.open(), qPrintable(reader.lastError()));
    QCOMPARE(reader.getChannelName(1), QStringLiteral("two"));
    QCOMPARE(reader.getChannelSampleCount(0), 3);
    QCOMPARE(reader.getChannelSampleRate(0), 10.0f);
    for (int i = 0; i < 3; ++i) { // the reader inverts
        QVERIFY(std::fabs(-reader.getChannelData(0, 0, 3)[static_cast<std::size_t>(i)] - first[i]) < 1e-9);
        QVERIFY(std::fabs(-reader.getChannelData(1, 0, 3)[static_cast<std::size_t>(i)] - second[i]) < 1e-9);
    }
}

// A header cannot hold such a date, and nobody could read it back.
void TestConversion::refusesDatesBeyondTheHeader()
{
    writeText(path("in"), "1\n2\n");
    EDFConverter converter;
    EDFTextFormat format;
    format.rate = 10.0;
    for (const int year : {1984, 1985, 2084, 2085}) {
        format.start = QDateTime(QDate(year, 1, 2), QTime(3, 4, 5));
        const bool fits = year >= 1985 && year <= 2084;
        QCOMPARE(converter.convertText({path("in")}, path("out"), format), fits);
        QCOMPARE(EDFReader::fileInfo(path("out")).startDateTime, fits ? format.start : QDateTime());
        QCOMPARE(QDir(m_folder->path()).entryList(QDir::Files).size(), fits ? 2 : 1);
        QFile::remove(path("out"));
    }
}

void TestConversion::refusesInOneSentence_data()
{
    QTest::addColumn<QByteArray>("text"); ///< empty: crop or channels
    QTest::addColumn<double>("to");
    QTest::addColumn<QString>("channel");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("words");
    const QString out = QStringLiteral("out");
    QTest::newRow("a word") << QByteArray("#\n1 2\n3 x\n") << 0.0 << QString() << out
                            << QStringLiteral("line 3: \"x\"");
    QTest::newRow("not a number") << QByteArray("1\nnan\n") << 0.0 << QString() << out << QStringLiteral("line 2");
    QTest::newRow("a column less") << QByteArray("1 2\n3\n") << 0.0 << QString() << out << QStringLiteral("line 2");
    QTest::newRow("no numbers") << QByteArray("# only\n") << 0.0 << QString() << out << QStringLiteral("no numbers");
    QTest::newRow("behind the end") << QByteArray() << 99.0 << QString() << out << QStringLiteral("lasts 4 s");
    QTest::newRow("no such channel") << QByteArray() << 0.0 << QStringLiteral("C") << out
                                     << QStringLiteral("only A, B");
    QTest::newRow("onto itself") << QByteArray() << 2.0 << QString() << QStringLiteral("in")
                                 << QStringLiteral("source");
}

void TestConversion::refusesInOneSentence()
{
    QFETCH(QByteArray, text);
    QFETCH(double, to);
    QFETCH(QString, channel);
    QFETCH(QString, target);
    QFETCH(QString, words);
    EDFConverter converter;
    QSignalSpy finished(&converter, &EDFConverter::finished);
    writeText(path("out"), "older");
    if (!text.isEmpty()) {
        writeText(path("in"), text);
        EDFTextFormat format;
        format.rate = 10.0;
        QVERIFY(!converter.convertText({path("in")}, m_folder->filePath(target), format));
    } else {
        writeEdf(path("in"), "1", {{"A", 10, kLimits, numbers(40)}, {"B", 10, kLimits, numbers(40)}});
        QVERIFY(channel.isEmpty() ? !converter.crop(path("in"), m_folder->filePath(target), 1.0, to)
                                  : !converter.convertChannels(path("in"), m_folder->filePath(target),
                                                               {{channel, {}, 1.0, {}, 0.0}}));
    }
    QVERIFY2(converter.lastError().contains(words), qPrintable(converter.lastError()));
    QCOMPARE(finished.size(), 1);
    QFile older(path("out"));
    QVERIFY(older.open(QIODevice::ReadOnly));
    QCOMPARE(older.readAll(), QByteArray("older"));
    QCOMPARE(QDir(m_folder->path()).entryList(QDir::Files).size(), 2);
}

void TestConversion::leavesNothingWhenCancelled()
{
    writeEdf(path("in"), "1", {{"A", 10, kLimits, numbers(4000)}});
    EDFConverter converter;
    connect(&converter, &EDFConverter::progress, &converter, &EDFConverter::cancel);
    QVERIFY(!converter.crop(path("in"), path("out"), 0.0, -1.0));
    QVERIFY(converter.lastError().startsWith(QLatin1String("Cancelled")));
    QCOMPARE(QDir(m_folder->path()).entryList(QDir::Files), QStringList{QStringLiteral("in")});
}

/// The worker thread takes up what was asked for when everything is over already.
void TestConversion::cancelsWhatHasNotBegun()
{
    writeEdf(path("in"), "1", {{"A", 10, kLimits, numbers(4000)}});
    QThread worker;
    EDFConverter converter;
    converter.moveToThread(&worker);
    QSignalSpy finished(&converter, &EDFConverter::finished);
    const auto ask = [&] {
        QMetaObject::invokeMethod(&converter, [&] { converter.crop(path("in"), path("out"), 0.0, -1.0); });
    };
    ask();
    converter.cancel();
    ask();
    worker.start();
    QTRY_COMPARE(finished.size(), 2);
    worker.quit();
    QVERIFY(worker.wait());
    QVERIFY2(finished[0][1].toString().startsWith(QLatin1String("Cancelled")), qPrintable(finished[0][1].toString()));
    QVERIFY2(finished[1][0].toBool(), qPrintable(finished[1][1].toString())); // only one was cancelled
}

void TestConversion::exportsToSheets()
{
    const QVector<int> fast = numbers(400);
    writeEdf(path("in"), "1", {{"F", 100, kLimits, fast}, {"S", 1, kLimits, {5, -5, 0, 1}}},
             note("+1.5\x15"
                  "2",
                  "n<&>"));
    EDFToXLS conversion;
    conversion.setRowsPerSheet(301);
    QVERIFY2(conversion.convert(path("in"), path("out.xls")), qPrintable(conversion.lastError()));
    QXlsx::Document book(path("out.xls"));
    QCOMPARE(
        book.sheetNames(),
        (QStringList{QStringLiteral("Information"), QStringLiteral("Data 100 Hz"), QStringLiteral("Data 100 Hz (2)"),
                     QStringLiteral("Data 1 Hz"), QStringLiteral("Annotations")}));
    book.selectSheet(QStringLiteral("Data 100 Hz (2)"));
    QCOMPARE(book.read(1, 2).toString(), QStringLiteral("F, uV"));
    for (int i = 300; i < 400; ++i) {
        QVERIFY(std::fabs(book.read(i - 298, 1).toDouble() - 0.01 * i) < 1e-9);
        QVERIFY(std::fabs(book.read(i - 298, 2).toDouble() - 0.1 * fast[i]) < 1e-6);
    }
    book.selectSheet(QStringLiteral("Annotations"));
    QCOMPARE(book.read(2, 1).toDouble(), 1.5);
    QCOMPARE(book.read(2, 2).toDouble(), 2.0);
    QCOMPARE(book.read(2, 3).toString(), QStringLiteral("n<&>"));
}

void TestConversion::showsProgress()
{
    writeEdf(path("in"), "1", {{"A", 10, kLimits, numbers(4000)}});
    EDFConverter converter;
    EDFConverterProgressWidget widget;
    widget.setConversion(&converter);
    widget.QWidget::show();
    auto *cancel = widget.findChild<QPushButton *>(QStringLiteral("cancel"));
    auto *bar = widget.findChild<QProgressBar *>(QStringLiteral("bar"));
    QVERIFY(!cancel->isEnabled());
    bool shot = false;
    connect(&converter, &EDFConverter::progress, &widget, [&](int percent) {
        if (percent == 40) {
            const QImage image = widget.grab().toImage();
            const QString target = qEnvironmentVariable("BP_WIDGET_PNG");
            shot = image.width() >= 300 && (target.isEmpty() || image.save(target));
            cancel->click();
        }
    });
    QVERIFY(!converter.crop(path("in"), path("recording.edf"), 0.0, -1.0));
    QVERIFY(shot);
    QCOMPARE(bar->value(), 40);
    QCOMPARE(widget.findChild<QLabel *>(QStringLiteral("file"))->text(), QStringLiteral("recording.edf"));
    QCOMPARE(widget.findChild<QLabel *>(QStringLiteral("state"))->text(), converter.lastError());
    QVERIFY(!cancel->isEnabled());
}

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("tavrix.console=false"));
    TestConversion test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "TestConversion.moc"
