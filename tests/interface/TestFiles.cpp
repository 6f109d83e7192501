#include "devices/AmplifierChannel.h"
#include "files/EDFConverter.h"
#include "files/EDFReader.h"
#include "files/EDFWriter.h"
#include "montage/Montage.h"
#include "support/EdfParser.h"
#include "support/HandmadeEdf.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include <QLockFile>
#include <QTemporaryDir>
#include <QTextCodec>

#include <cmath>
#include <filesystem>
#include <limits>
#include <thread>

namespace {

constexpr double kStep = 1.0; // µV, a little more than the resolution of a recording
constexpr const char *kFormatError = "the file is not EDF(+) or BDF(+) compliant\r\n(it contains format errors)";

QSharedPointer<Montage> makeMontage(const QStringList &names)
{
    auto montage = QSharedPointer<Montage>::create();
    for (const QString &name : names) {
        auto *channel = new AmplifierChannel;
        channel->setChannelName(name);
        montage->push_back(channel);
    }
    return montage;
}

/// Sample i of channel c in the tests' signal, µV.
float signalAt(unsigned c, unsigned i)
{
    return 10.0f * static_cast<float>(i) + 5000.0f * static_cast<float>(c);
}

/// Gives the writer of a file with two channels a block of the tests' signal.
bool write(EDFWriter &writer, unsigned count, unsigned from = 0)
{
    std::vector<float> block;
    for (unsigned i = 0; i < 2 * count; ++i) {
        block.push_back(signalAt(i / count, from + i % count));
    }
    return writer.writeData(count, block.data());
}

bool isNear(double value, double expected)
{
    return std::fabs(value - expected) <= kStep;
}

} // namespace

class TestFiles : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void valuesComeBack();
    void writerFillsHeader();
    void writerJoinsBlocks();
    void writerRefusesFiles();
    void writerSparesOpenFiles();
    void openFilesAreKnown_data();
    void openFilesAreKnown();
    void lockKeepsOthersAway();
    void startTimeIsGiven();
    void nothingWithoutFile();
    void recordsOfOtherThreads();

    void annotationsComeBack();
    void annotationText();
    void annotationTimes();
    void lostRecords();
    void goneWhileRecording();
    void withinFirstSecond();

    void readerReadsPastEnd();
    void readerHeaderFacts();
    void readerMendsHeaders();
    void factsOfOpenFiles();
    void readerRefusesFiles();

private:
    QString path(const QString &name = QStringLiteral("test.edf")) const { return m_folder.filePath(name); }
    /// The bytes of a closed recording at path(): two seconds of the tests' signal at 10 Hz.
    QByteArray record() const;

    QTemporaryDir m_folder;
};

void TestFiles::initTestCase()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
}

QByteArray TestFiles::record() const
{
    EDFWriter writer(path(), 2, 10);
    const bool done = write(writer, 20) && writer.addAnnotationAt(0, QStringLiteral("begin")).first && writer.close();
    return done ? EdfParser(path()).bytes : QByteArray();
}

void TestFiles::valuesComeBack()
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    const std::vector<float> input{12.5f, -1000.0f, 0.0f, 32767.0f,  40000.0f, -40000.0f,
                                   3e9f,  -1e30f,   NAN,  -infinity, infinity};
    const std::vector<double> kept{12.5, -1000, 0, 32767, 32767, -32767, 32767, -32767, 0, -32767, 32767};
    EDFWriter writer(path(), 1, 11);
    QVERIFY(writer.writeData(11, input.data()));
    QVERIFY(writer.close());

    const EdfParser file(path());
    EDFReader reader(path());
    QVERIFY(reader.open());
    std::vector<double> read(11);
    QCOMPARE(reader.getBuffData(0, 11, read.data()), 0);
    const std::vector<float> floats = reader.getChannelDataFloat(0, 0, 11);
    for (std::size_t i = 0; i < 11; ++i) {
        QVERIFY2(isNear(file.signalList.at(0).values.at(i), -kept[i]), qPrintable(QString::number(i)));
        QVERIFY2(isNear(read[i], kept[i]), qPrintable(QString::number(i)));
        QCOMPARE(floats.at(i), static_cast<float>(read[i]));
    }
}

void TestFiles::writerFillsHeader()
{
    const QStringList names{QStringLiteral("Fp1"), QStringLiteral("a name of more than fifteen"),
                            QString::fromUtf8("O\xc3\xa9 \xd0\x96"), QStringLiteral("EDF Annotations"), QString()};
    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    EDFWriter writer;
    QVERIFY(writer.prepareWriter(path(), makeMontage(names), 250));
    const QDateTime after = QDateTime::currentDateTime();
    writer.setPatientInfo({1, 1951, 3, 2, QString::fromUtf8("J\xc3\xa9r\xc3\xb4me Smith"), QStringLiteral("amp")});
    QVERIFY(writer.writeData(250, std::vector<float>(5 * 250).data()));
    QVERIFY(writer.close());

    const EdfParser file(path());
    QCOMPARE(file.field(8, 80), QByteArray("X M 02-MAR-1951 Jerome_Smith"));
    QVERIFY(file.field(88, 80).endsWith(" X X amp"));
    QCOMPARE(file.field(192, 44), QByteArray("EDF+C"));
    QCOMPARE(file.field(244, 8), QByteArray("1"));
    QCOMPARE(file.records, 1);
    QCOMPARE(file.excessBytes, qint64{0});
    QByteArrayList labels;
    for (const EdfParser::Signal &signal : file.signalList) {
        labels << signal.label;
        QCOMPARE(signal.unitAndRange, (QByteArrayList{"uV", "-32767", "32767", "-32768", "32767"}));
        QCOMPARE(signal.samplesPerRecord, 250);
    }
    QCOMPARE(labels, (QByteArrayList{"Fp1", "a name of more", "Oe ?", "edf annotations", ""}));
    const QByteArray header = file.bytes.left(file.headerBytes);
    QVERIFY(std::all_of(header.begin(), header.end(), [](char c) { return c >= 32 && c <= 126; }));
    const QDateTime start =
        QDateTime::fromString(QString::fromLatin1(file.field(168, 16)), QStringLiteral("dd.MM.yyhh.mm.ss"))
            .addYears(100); // Qt's century is the last one
    QVERIFY2(start >= before && start <= after, qPrintable(start.toString()));

    EDFReader reader(path());
    QVERIFY2(reader.open(), qPrintable(reader.lastError()));
    QCOMPARE(reader.getChannelCount(), 5);
    PatientInfo read;
    QVERIFY(reader.getPatientInfo(read));
    QCOMPARE(read.name + read.equipment, QStringLiteral("Jerome Smithamp"));
    QCOMPARE(read.gender, 1);
    QCOMPARE(QDate(read.birthYear, read.birthMonth, read.birthDay), QDate(1951, 3, 2));
}

void TestFiles::writerJoinsBlocks()
{
    struct Case
    {
        QList<unsigned> blocks;
        unsigned rate;
        bool pad = false; ///< the incomplete record, with zeros; it is left out otherwise
    };
    const Case cases[]{{{1, 1, 1, 1, 1, 1}, 3}, {{0, 9, 0, 1, 0}, 10},  {{7, 7, 7, 9}, 10}, {{9, 31}, 10}, {{5}, 1},
                       {{8, 8, 8}, 10},         {{500, 300}, 500, true}};
    for (const Case &row : cases) {
        EDFWriter writer(path(), 2, static_cast<int>(row.rate));
        unsigned total = 0;
        for (const unsigned count : row.blocks) {
            QVERIFY(write(writer, count, total));
            total += count;
        }
        QVERIFY(!row.pad || writer.writeRemainderToFile());
        QVERIFY(writer.close());
        const EdfParser file(path());
        const unsigned records = total / row.rate + (row.pad ? 1 : 0);
        QCOMPARE(file.records, static_cast<int>(records));
        QCOMPARE(file.excessBytes, qint64{0});
        for (unsigned c = 0; c < 2; ++c) {
            const std::vector<double> &values = file.signalList.at(static_cast<int>(c)).values;
            QCOMPARE(values.size(), std::size_t{records * row.rate});
            for (unsigned i = 0; i < values.size(); ++i) {
                QVERIFY(isNear(values[i], i < total ? -static_cast<double>(signalAt(c, i)) : 0.0));
            }
        }
    }
}

void TestFiles::writerRefusesFiles()
{
    struct Case
    {
        const char *name;
        int channels, rate;
        const char *reason;
    };
    constexpr Case kCases[]{{"new.edf", -1, 250, "0 channels"},
                            {"new.edf", 640, 250, "640 channels"},
                            {"new.edf", 8, std::numeric_limits<int>::min(), "1 Hz"},
                            {"new.edf", 600, 10000, "10 MB"},
                            {"new.edf", 639, std::numeric_limits<int>::max(), "10 MB"},
                            {"nowhere/new.edf", 8, 250, "o such file"},
                            {"", 8, 250, "not a regular file"}};
    for (const Case &row : kCases) {
        TraceCapture trace;
        const QString file = path(QLatin1String(row.name));
        EDFWriter writer(file, row.channels, row.rate);
        QVERIFY(!writer.isFileOpened());
        QVERIFY2(writer.lastError().contains(QLatin1String(row.reason)), qPrintable(writer.lastError()));
        QVERIFY(writer.lastError().contains(file));
        QCOMPARE(trace.count(QLatin1String(row.reason)), 1);
        QVERIFY(!QFile::exists(path(QStringLiteral("new.edf"))));
    }
}

void TestFiles::writerSparesOpenFiles()
{
    EDFWriter first(path(), 2, 10);
    QVERIFY(write(first, 20));
    QVERIFY(!EDFWriter(path(), 2, 10).isFileOpened());
    QVERIFY(write(first, 15, 20));
    // The next file closes the one before, and has nothing of its incomplete record.
    const QString next = path(QStringLiteral("next.edf"));
    QVERIFY(first.prepareWriter(next, makeMontage({QString(), QString()}), 20));
    QCOMPARE(EdfParser(path()).records, 3);
    QCOMPARE(EdfParser(path()).excessBytes, qint64{0});
    QVERIFY(write(first, 20));
    QVERIFY(first.close());
    QCOMPARE(EdfParser(next).records, 1);
    QVERIFY(isNear(EdfParser(next).signalList.at(0).values.at(0), 0.0));

    EDFReader reader(next);
    EDFReader another(next);
    QVERIFY(reader.open());
    QVERIFY(reader.open()); // closes before
    QTest::ignoreMessage(QtDebugMsg, "file has already been opened");
    QVERIFY(!another.open());
    reader.close();
    QVERIFY(another.open());
}

void TestFiles::openFilesAreKnown_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("isWriter");
    QTest::newRow("sound recording") << QStringLiteral("EDF+C") << false;
    QTest::newRow("discontinuous recording") << QStringLiteral("EDF+D") << false;
    QTest::newRow("being recorded") << QStringLiteral("EDF+C") << true;
}

void TestFiles::openFilesAreKnown()
{
    QFETCH(QString, kind);
    QFETCH(bool, isWriter);
    namespace fs = std::filesystem;
    HandmadeEdf::write(HandmadeEdf::changed(record(), 192, kind.toLatin1()), path());
    const auto native = [](const QString &file) { return fs::path(file.toStdU16String()); };
    std::error_code error;
    fs::remove(native(path(QStringLiteral("hard.edf"))));
    fs::remove(native(path(QStringLiteral("soft.edf"))));
    fs::create_hard_link(native(path()), native(path(QStringLiteral("hard.edf"))), error);
    fs::create_symlink(native(path()), native(path(QStringLiteral("soft.edf"))), error);
    EDFReader reader(path());
    EDFWriter first;
    QVERIFY(isWriter ? first.prepareWriter(path(), makeMontage({QString(), QString()}), 10) && write(first, 10)
                     : reader.open());
    const QByteArray bytes = EdfParser(path()).bytes;
    for (const QString &name : {QStringLiteral("test.edf"), QStringLiteral("./test.edf"), QStringLiteral("hard.edf"),
                                QStringLiteral("soft.edf")}) {
        if (!QFile::exists(path(name))) {
            continue; // no links on this file system
        }
        EDFWriter writer(path(name), 2, 10);
        QVERIFY2(!writer.isFileOpened(), qPrintable(name));
        QVERIFY2(writer.lastError().contains(QStringLiteral("has it open")), qPrintable(writer.lastError()));
        EDFConverter converter;
        HandmadeEdf{{{"EEG Cz"}}}.writeTo(path(QStringLiteral("source.edf")));
        QVERIFY(!converter.crop(path(QStringLiteral("source.edf")), path(name), 0.0, 1.0));
        QVERIFY2(converter.lastError().contains(QStringLiteral("has it open")), qPrintable(converter.lastError()));
        QCOMPARE(EdfParser(path()).bytes, bytes);
    }
    reader.close();
    first.close();
    QVERIFY(EDFWriter(path(QStringLiteral("hard.edf")), 2, 10).isFileOpened());
}

void TestFiles::lockKeepsOthersAway()
{
    const QByteArray bytes = record();
    const QString lockPath = path(QStringLiteral("test.edf.lock"));
    QVERIFY(!QFile::exists(lockPath));
    {
        QLockFile other(lockPath);
        QVERIFY(other.lock());
        EDFWriter writer(path(), 2, 10);
        QVERIFY(!writer.isFileOpened());
        QVERIFY2(writer.lastError().contains(QStringLiteral("records into it")), qPrintable(writer.lastError()));
        QCOMPARE(EdfParser(path()).bytes, bytes);
    }
    // As a program leaves it that was killed.
    HandmadeEdf::write("2147483646\nrecorder\n" + QSysInfo::machineHostName().toLocal8Bit() + '\n', lockPath);
    EDFWriter writer(path(), 2, 10);
    QVERIFY2(writer.isFileOpened(), qPrintable(writer.lastError()));
    QVERIFY(QFile::exists(lockPath));
    QVERIFY(writer.close());
    QVERIFY(!QFile::exists(lockPath));
}

void TestFiles::startTimeIsGiven()
{
    EDFWriter writer;
    for (const int year : {1985, 2084, 1984}) {
        const QDateTime given(QDate(year, 2, 28), QTime(23, 59, 58, 700));
        writer.setStartDateTime(given);
        QVERIFY(writer.prepareWriter(path(), makeMontage({QStringLiteral("Fp1"), QStringLiteral("Fp2")}), 10));
        QCOMPARE(writer.notice().contains(QStringLiteral("no year")), year == 1984);
        QVERIFY(write(writer, 10) && writer.close());
        EDFReader reader(path());
        QVERIFY(reader.open());
        QCOMPARE(reader.getStartDateTime() == given.addMSecs(-700), year != 1984);
    }
}

void TestFiles::nothingWithoutFile()
{
    EDFWriter writer;
    TraceCapture trace;
    QVERIFY(!write(writer, 5));
    QVERIFY(!writer.writeRemainderToFile());
    QVERIFY(!writer.addAnnotationAt(5, QStringLiteral("label")).first);
    QVERIFY(!writer.close());
    QCOMPARE(trace.count(QStringLiteral("no file is open")), 4);
    writer.setPatientInfo(PatientInfo());
    QVERIFY(!writer.prepareWriter(path(), {}, 250));
    double value = 77.0;
    QCOMPARE(EDFReader(path()).getChannelBuffData(0, 0, 1, &value), -2);
    QCOMPARE(EDFReader(path()).getBuffData(0, 1, &value), -2);
    QVERIFY(EDFReader(path()).getChannelData(0, 0, 5).empty());
}

void TestFiles::recordsOfOtherThreads()
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < 20; ++i) {
                EDFWriter writer(path(QString::number(20 * t + i)), 2, 10);
                write(writer, 10);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (int i = 0; i < 80; ++i) {
        const EdfParser file(path(QString::number(i)));
        QCOMPARE(file.records, 1);
        QCOMPARE(file.signalList.size(), 2);
    }
}

void TestFiles::annotationsComeBack()
{
    struct Case
    {
        int records, given;
    };
    constexpr Case kCases[]{{10, 110}, {1, 20}, {2, 40}, {1, 200}}; // a record has 16 slots for annotations
    for (const auto &[records, given] : kCases) {
        EDFWriter writer(path(), 2, given / records);
        for (int i = 0; i < given; ++i) {
            QVERIFY(write(writer, 1));
            QVERIFY(writer.addAnnotationAt(i * 97 + 3, QString::number(i)).first);
        }
        const bool fits = given < 200;
        QCOMPARE(writer.close(), fits);
        const EdfParser file(path());
        const int kept = file.annotations.size();
        QVERIFY2(fits ? kept == given : kept > 64 && kept < given, qPrintable(QString::number(kept)));
        // What found no room is where the sentence says.
        const QString journal = path() + QStringLiteral(".labels");
        QCOMPARE(QFile::exists(journal), !fits);
        QVERIFY2(fits || writer.lastError().contains(QStringLiteral("%1 of its 200 labels").arg(given - kept)),
                 qPrintable(writer.lastError()));
        EDFReader reader(path());
        QVERIFY(reader.open());
        QCOMPARE(reader.annotations().size(), given);
        for (int i = 0; i < kept; ++i) {
            QCOMPARE(file.annotations[i].onset, (i * 97 + 3) / 1000.0);
            QCOMPARE(file.annotations[i].text, QByteArray::number(i));
            QCOMPARE(reader.annotations()[i].onset, (i * 97 + 3) / 1000.0);
            QCOMPARE(reader.annotations()[i].text, QString::number(i));
        }
        QCOMPARE(file.recordOnsets, (QList<double>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}).mid(0, records));
        QFile::remove(journal);
    }
}

void TestFiles::annotationText()
{
    const QByteArray zhe = "\xd0\x96";
    const QByteArray smile = "\xf0\x9f\x99\x82";
    // Cut after 40 bytes of the local encoding, to no half character; given, encoding, read.
    const QByteArrayList cases[]{{QByteArray(60, 'x'), "UTF-8", QByteArray(40, 'x')},
                                 {"a" + zhe.repeated(30), "UTF-8", "a" + zhe.repeated(19)},
                                 {"ab" + smile.repeated(30), "UTF-8", "ab" + smile.repeated(9)},
                                 {zhe.repeated(50), "windows-1251", zhe.repeated(40)},
                                 {"", "UTF-8", ""},
                                 {"a\024b\025c\n", "UTF-8", "a.b.c."}};
    for (const QByteArrayList &row : cases) {
        QTextCodec::setCodecForLocale(QTextCodec::codecForName(row[1]));
        EDFWriter writer(path(), 2, 10);
        writer.addAnnotationAt(1, QString::fromUtf8(row[0]));
        const bool written = write(writer, 10) && writer.close();
        EDFReader reader(path());
        const bool opened = reader.open();
        const bool isCut = QString::fromUtf8(row[0]).size() != QString::fromUtf8(row[2]).size();
        QCOMPARE(writer.notice().contains(QStringLiteral("40 bytes")), isCut);
        const QList<AnnotationStrct> annotations = reader.annotations();
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
        QVERIFY2(written && opened, qPrintable(reader.lastError()));
        QCOMPARE(annotations.size(), 1);
        QCOMPARE(annotations[0].text, QString::fromUtf8(row[2]));
    }
}

void TestFiles::annotationTimes()
{
    using Placed = std::pair<bool, long long>;
    const QString text = QStringLiteral("text");
    EDFWriter writer(path(), 2, 10);
    QCOMPARE(writer.addAnnotation(text), Placed(false, 0)); // before the start mark
    QVERIFY(writer.addAnnotation(5.0, 2.0, text)); // a tenth of the time
    QVERIFY(!writer.addAnnotation(std::numeric_limits<double>::quiet_NaN(), 0.0, text));
    QVERIFY(!writer.addAnnotation(1e30, 0.0, text));
    QCOMPARE(writer.addAnnotationAt(-20, text), Placed(true, 0));
    QCOMPARE(writer.addAnnotationAt(123456, text), Placed(true, 123456));
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    writer.takeStartTime();
    const Placed measured = writer.addAnnotation(text);
    QVERIFY(measured.first && measured.second >= 0);
    QVERIFY(measured.second <= QDateTime::currentMSecsSinceEpoch() - before);
    writer.resetStartTime();
    QVERIFY(!writer.addAnnotation(text).first);
    QVERIFY(write(writer, 10) && writer.close());

    QList<double> times;
    for (const EdfParser::Annotation &annotation : EdfParser(path()).annotations) {
        times << annotation.onset << annotation.duration;
    }
    const double onset = static_cast<double>(measured.second) / 1000.0;
    QCOMPARE(times, (QList<double>{0.5, 0.2, 0.0, 0.0001, 123.456, 0.0001, onset, 0.0001}));
}

// A file whose end has not reached the disk: it is cut while it is being written.
void TestFiles::lostRecords()
{
    for (const double recordsOnDisk : {3.5, 4.0, 0.9}) {
        const int expected = static_cast<int>(recordsOnDisk);
        EDFWriter writer(path(), 2, 1000);
        QVERIFY(write(writer, 6000));
        for (int i = 0; i < 40; ++i) {
            QVERIFY(writer.addAnnotationAt(111LL * i, QString::number(i)).first);
        }
        const EdfParser unfinished(path());
        const int onDisk = unfinished.headerBytes + static_cast<int>(recordsOnDisk * unfinished.recordBytes);
        QVERIFY(QFile::resize(path(), onDisk));

        TraceCapture trace;
        QVERIFY(!writer.close());
        QCOMPARE(trace.count(QStringLiteral("%1 of 6 records").arg(expected)), 1);
        QVERIFY(writer.lastError().contains(QStringLiteral("first %1 s").arg(expected)));
        const EdfParser file(path());
        QCOMPARE(file.records, expected);
        QCOMPARE(file.excessBytes, qint64{0});
        QCOMPARE(file.annotations.size(), expected == 0 ? 0 : 40);
        for (int i = 0; i < file.annotations.size(); ++i) {
            QCOMPARE(file.annotations[i].onset, i * 0.111);
            QCOMPARE(file.annotations[i].duration, 0.0001);
            QCOMPARE(file.annotations[i].text, QByteArray::number(i));
        }
        QCOMPARE(file.recordOnsets, (QList<double>{0, 1, 2, 3, 4, 5}).mid(0, expected));
        if (expected == 0) {
            QTest::ignoreMessage(QtDebugMsg, kFormatError);
        }
        QCOMPARE(EDFReader(path()).open(), expected > 0);
    }
}

void TestFiles::goneWhileRecording()
{
    for (const bool isReplaced : {false, true}) {
        EDFWriter writer(path(), 2, 10);
        QVERIFY(write(writer, 25) && writer.addAnnotationAt(5, QStringLiteral("label")).first);
        if (!QFile::remove(path())) {
            QSKIP("This system does not remove a file that is open.");
        }
        if (isReplaced) {
            HandmadeEdf::write("another file", path());
        }
        QVERIFY(!writer.close());
        QVERIFY2(
            writer.lastError().contains(isReplaced ? QStringLiteral("was replaced") : QStringLiteral("was removed")),
            qPrintable(writer.lastError()));
        QVERIFY(writer.lastError().contains(QStringLiteral("test.edf.labels")));
        QVERIFY(QFile::remove(path(QStringLiteral("test.edf.labels"))));
        QCOMPARE(EdfParser(path()).bytes, QByteArray(isReplaced ? "another file" : ""));
    }
}

void TestFiles::withinFirstSecond()
{
    struct Case
    {
        unsigned samples;
        bool label, isPadded, isKept;
    };
    constexpr Case kCases[]{{0, false, false, true}, {7, false, false, true}, {0, true, false, false},
                            {7, true, false, false}, {7, true, true, true},   {10, true, false, true}};
    for (const Case &row : kCases) {
        EDFWriter writer(path(), 2, 10);
        QVERIFY(write(writer, row.samples));
        QVERIFY(!row.label || writer.addAnnotationAt(0, QStringLiteral("begin")).first);
        QVERIFY(!row.isPadded || writer.writeRemainderToFile());
        QCOMPARE(writer.close(), row.isKept);
        QCOMPARE(writer.lastError().isEmpty(), row.isKept);
        QCOMPARE(writer.notice().isEmpty(), row.samples % 10 == 0 || row.isPadded || !row.isKept);
        QCOMPARE(writer.paddedSeconds(), row.isPadded ? 0.3 : 0.0);
        QCOMPARE(QFile::remove(path(QStringLiteral("test.edf.labels"))), row.label && !row.isKept);
    }
}

void TestFiles::readerReadsPastEnd()
{
    record();
    EDFReader reader(path());
    QVERIFY(reader.open());
    std::vector<double> values(30, 77.0);
    QCOMPARE(reader.getChannelBuffData(2, 0, 1, values.data()), -2);
    QCOMPARE(reader.getChannelBuffData(std::numeric_limits<unsigned>::max(), 0, 1, values.data()), -2);
    QVERIFY(reader.getChannelData(2, 0, 5).empty());
    QCOMPARE(values[0], 77.0);

    QCOMPARE(reader.getChannelBuffData(1, 15, 30, values.data()), 0);
    QVERIFY(isNear(values[4], static_cast<double>(signalAt(1, 19))));
    QCOMPARE(values[5], 0.0);
    QCOMPARE(values[29], 0.0);
    QCOMPARE(reader.getChannelBuffData(1, 4000000000u, 30, values.data()), 0);
    QCOMPARE(values[0], 0.0);
    QCOMPARE(reader.getChannelData(0, 18, std::numeric_limits<unsigned>::max()).size(), std::size_t{2});
    QVERIFY(reader.getChannelData(0, 20, 1).empty());
    QCOMPARE(reader.getChannelBuffData(0, 3, 0, nullptr), 0);
}

void TestFiles::readerHeaderFacts()
{
    struct Case
    {
        HandmadeEdf file;
        const char *duration;
        float rate;
    };
    const auto ecg = [](int samples) { return std::vector<HandmadeEdf::Signal>{{" ECG MLII", "mV", samples}}; };
    const Case cases[]{{{ecg(2), 5400, "1"}, "01:30:00", 2.0f},
                       {{ecg(4), 5, "0.5"}, "00:00:02", 8.0f},
                       {{ecg(128), 3, "10"}, "00:00:30", 12.8f},
                       {{ecg(100), 3, "1", {}, true}, "00:00:03", 100.0f}};
    for (const Case &row : cases) {
        EDFReader reader(row.file.writeTo(path()));
        QVERIFY2(reader.open(), qPrintable(reader.lastError()));
        QCOMPARE(reader.fileTypeText(), row.file.bdf ? QStringLiteral("BDF") : QStringLiteral("EDF"));
        QVERIFY2(reader.infoFull().contains(QLatin1String(row.duration)), qPrintable(reader.infoFull()));
        QCOMPARE(reader.getSampleRate(), row.rate);
        QCOMPARE(reader.getPhysicalDimension(0), QStringLiteral("mV"));
        QCOMPARE(reader.getStartDateTime(), QDateTime(QDate(2020, 1, 2), QTime(3, 4, 5)));
        const double second = row.file.bdf ? 3276.8 - (8388608.0 + 1.0) * 6553.5 / 16777215.0 : -0.1;
        QVERIFY(std::fabs(reader.getChannelData(0, 1, 1).at(0) - second) < 1e-9);
        QVERIFY(reader.annotations().isEmpty());
        QCOMPARE((*reader.getFileMontage())[0]->getName(), QStringLiteral("ECG MLII"));
        QCOMPARE((*reader.getFileMontage())[0]->getChannelType(), BPCommon::ECG);
    }
}

void TestFiles::readerMendsHeaders()
{
    const auto mends = [this](const QByteArray &bytes, const char *type, const char *label) {
        HandmadeEdf::write(bytes, path());
        QString copy;
        {
            TraceCapture trace;
            EDFReader reader(path());
            QVERIFY2(reader.open(), qPrintable(reader.lastError()));
            copy =
                trace.lines().filter(QStringLiteral("mended header")).value(0).section(QStringLiteral("header: "), 1);
            QVERIFY2(QFile::exists(copy), bytes.left(256).constData());
            QCOMPARE(reader.fileTypeText(), QLatin1String(type));
            QCOMPARE(reader.getChannelData(0, 0, 100).size(), std::size_t{20});
            QCOMPARE(reader.annotations().value(0).text, QLatin1String(label));
        }
        QVERIFY(!QFile::exists(copy));
        QCOMPARE(EdfParser(path()).bytes, bytes);
    };
    const QByteArray sound = record();
    const int count = sound.mid(252, 4).trimmed().toInt(); // of signals, two of them with samples
    mends(HandmadeEdf::changed(sound, 236, "-1      "), "EDF+", "begin"); // not closed
    mends(HandmadeEdf::changed(sound, 236, "-1      ") + QByteArray(9, 'x'), "EDF+",
          "begin"); // nor its last record complete
    mends(HandmadeEdf::changed(sound, 256 + count * 16 + 2 * 80, "amp"), "EDF+", "begin"); // transducer of annotations
    mends(HandmadeEdf::changed(sound, 256 + count * 136 + 5 * 80, "HP:0Hz"), "EDF+", "begin"); // their prefilter
    mends(HandmadeEdf::changed(HandmadeEdf{{{"ECG", "mV", 20}}}.make(), 192, "EDF+C"), "EDF",
          ""); // no annotation signal
}

void TestFiles::factsOfOpenFiles()
{
    record();
    EDFReader reader(path());
    QVERIFY(reader.open());
    const EDFInfo info = EDFReader::fileInfo(path());
    QVERIFY2(info.valid, qPrintable(info.error));
    QCOMPARE(info.channelNames, reader.getFileMontage()->getChannelNames());
    QCOMPARE(info.durationSeconds, reader.getDuration());
    QCOMPARE(info.startDateTime, reader.getStartDateTime());
    QVERIFY(reader.isFileOpened() && !reader.getChannelData(0, 0, 1).empty());

    EDFWriter writer(path(QStringLiteral("going_on.edf")), 1, 10);
    QVERIFY(writer.writeData(20, std::vector<float>(20).data()));
    QCOMPARE(EDFReader::fileInfo(path(QStringLiteral("going_on.edf"))).durationSeconds, qint64{2});
    QVERIFY(writer.close());
}

void TestFiles::readerRefusesFiles()
{
    const auto refuses = [this](const QByteArray &bytes, const char *message, const char *reason) {
        EDFReader reader(HandmadeEdf{{{"EEG Cz"}}}.writeTo(path(QStringLiteral("before.edf"))));
        QVERIFY(reader.open());
        reader.setPath(HandmadeEdf::write(bytes, path()));
        QTest::ignoreMessage(QtDebugMsg, message);
        QVERIFY2(!reader.open(), bytes.left(300).constData());
        QVERIFY2(reader.lastError().contains(QLatin1String(reason)), qPrintable(reader.lastError()));
        QVERIFY(reader.lastError().contains(path()));
        // Nothing of the file before is left.
        QVERIFY(!reader.isFileOpened());
        QCOMPARE(reader.getFileMontage()->size(), 0u);
        QCOMPARE(reader.getDuration(), 0LL);
    };
    const QByteArray sound = HandmadeEdf{{{"EEG Cz"}}}.make();
    for (const int length : {0, 100, 400}) {
        refuses(sound.left(length), "a read error occurred", length == 0 ? "it is empty" : "ends within its header");
    }
    const QByteArray webPage = QByteArray("<!DOCTYPE html><html><body>").repeated(60);
    for (const QByteArray &bytes :
         {sound.left(512), sound.left(sound.size() - 3), QByteArray(sound + 'x'), webPage, QByteArray(2000, '\0'),
          HandmadeEdf::changed(sound, 236, "99999999"), HandmadeEdf::changed(sound, 168, "99.99.99"),
          HandmadeEdf::changed(sound, 168, "31.02.20"), HandmadeEdf::changed(sound, 256 + 104, "nan     "),
          HandmadeEdf::changed(sound, 256 + 112, "1e999   "), HandmadeEdf::changed(sound, 256 + 128, "32768   "),
          HandmadeEdf::changed(sound, 256 + 128, "32766.5 ")}) {
        refuses(bytes, kFormatError, "format errors");
        EDFConverter converter; // as in conversion
        QVERIFY(!converter.crop(path(), path(QStringLiteral("out.edf")), 0.0, -1.0));
        QVERIFY(!QFile::exists(path(QStringLiteral("out.edf"))));
    }
    EDFReader leapDay(HandmadeEdf::write(HandmadeEdf::changed(sound, 168, "29.02.00"), path()));
    QVERIFY2(leapDay.open(), qPrintable(leapDay.lastError()));
}

BP_TEST_MAIN(TestFiles)
#include "TestFiles.moc"
