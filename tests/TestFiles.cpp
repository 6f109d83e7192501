#include "devices/AmplifierChannel.h"
#include "files/EDFReader.h"
#include "files/EDFWriter.h"
#include "montage/Montage.h"
#include "support/EdfBytes.h"
#include "support/EdfParser.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include <QTemporaryDir>
#include <QTextCodec>

#include <cmath>
#include <limits>
#include <thread>

namespace {

constexpr double kStep = 1.0; // µV, a little more than the resolution of a recording

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

/// A planar block of two channels.
std::vector<float> signalBlock(unsigned from, unsigned count)
{
    std::vector<float> block;
    for (unsigned c = 0; c < 2; ++c) {
        for (unsigned i = 0; i < count; ++i) {
            block.push_back(signalAt(c, from + i));
        }
    }
    return block;
}

void writeBytes(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), qint64{bytes.size()});
}

} // namespace

class TestFiles : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void writerStoresValues_data();
    void writerStoresValues();
    void writerFillsHeader();
    void writerKeepsOtherSignalNames();
    void writerJoinsBlocks_data();
    void writerJoinsBlocks();
    void writerPadsRemainder();
    void writerStoresPatient();
    void writerRefusesFiles_data();
    void writerRefusesFiles();
    void writerSparesFileInUse();
    void writerWithoutFile();
    void writerClosesFileBefore();

    void annotationsAllComeBack();
    void annotationsBeyondRoom();
    void annotationText_data();
    void annotationText();
    void annotationTimes();

    void lostRecords_data();
    void lostRecords();
    void recordsOfOtherThreads();

    void readerRestoresInput();
    void readerReadsPastEnd();
    void readerHeaderFacts_data();
    void readerHeaderFacts();
    void readerDescribesRecording();
    void readerMendsHeaders_data();
    void readerMendsHeaders();
    void readerRefusesFiles_data();
    void readerRefusesFiles();
    void readerRefusesDiscontinuousFile();
    void readerRefusesFileTwice();

private:
    QString path(const QString &name = QStringLiteral("test.edf")) const { return m_folder->filePath(name); }
    void record(const QString &file, unsigned rate, unsigned samples) const;

    std::unique_ptr<QTemporaryDir> m_folder;
};

void TestFiles::initTestCase()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    init(); // rows are made before
}

void TestFiles::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid());
}

/// A closed recording of the tests' signal.
void TestFiles::record(const QString &file, unsigned rate, unsigned samples) const
{
    EDFWriter writer;
    QVERIFY2(
        writer.prepareWriter(file, makeMontage({QStringLiteral("C3"), QStringLiteral("ECG")}), static_cast<int>(rate)),
        qPrintable(writer.lastError()));
    QVERIFY(writer.writeData(samples, signalBlock(0, samples).data()));
    QVERIFY(writer.addAnnotationAt(0, QStringLiteral("begin")).first);
    QVERIFY(writer.close());
}

void TestFiles::writerStoresValues_data()
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    QTest::addColumn<float>("input");
    QTest::addColumn<double>("stored");

    QTest::newRow("polarity is inverted") << 12.5f << -12.5;
    QTest::newRow("negative") << -1000.0f << 1000.0;
    QTest::newRow("zero") << 0.0f << 0.0;
    QTest::newRow("largest") << 32767.0f << -32767.0;
    QTest::newRow("clipped above") << 40000.0f << -32767.0;
    QTest::newRow("clipped below") << -40000.0f << 32767.0;
    QTest::newRow("beyond an integer") << 3e9f << -32767.0;
    QTest::newRow("far below an integer") << -1e30f << 32767.0;
    QTest::newRow("infinite") << infinity << -32767.0;
    QTest::newRow("negative infinite") << -infinity << 32767.0;
    QTest::newRow("not a number") << std::numeric_limits<float>::quiet_NaN() << 0.0;
}

void TestFiles::writerStoresValues()
{
    QFETCH(float, input);
    QFETCH(double, stored);
    EDFWriter writer(path(), 1, 2);
    const std::vector<float> block{input, input};
    QVERIFY(writer.writeData(2, block.data()));
    QVERIFY(writer.close());

    const EdfParser file(path());
    QCOMPARE(file.signalList.size(), 1);
    QVERIFY2(std::fabs(file.signalList[0].physicalAt(1) - stored) <= kStep,
             qPrintable(QString::number(file.signalList[0].physicalAt(1))));
}

void TestFiles::writerFillsHeader()
{
    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    EDFWriter writer;
    const QStringList names{QStringLiteral("Fp1"), QStringLiteral("a name of more than fifteen"),
                            QString::fromUtf8("O\xc3\xa9 \xd0\x96")};
    QVERIFY(writer.prepareWriter(path(), makeMontage(names), 250));
    const QDateTime after = QDateTime::currentDateTime();
    const std::vector<float> block(750);
    QVERIFY(writer.writeData(250, block.data()));
    QVERIFY(writer.close());

    const EdfParser file(path());
    QCOMPARE(file.reserved, QByteArray("EDF+C"));
    QCOMPARE(file.recordDuration, QByteArray("1"));
    QCOMPARE(file.records, 1);
    QCOMPARE(file.excessBytes, qint64{0});
    const QByteArrayList labels{"Fp1", "a name of more", "Oe ?"};
    for (int i = 0; i < 3; ++i) {
        const EdfParser::Signal &signal = file.signalList.at(i);
        QCOMPARE(signal.label, labels[i]);
        QCOMPARE(signal.dimension, QByteArray("uV"));
        QCOMPARE(signal.prefilter, QByteArray());
        QCOMPARE(signal.physicalMaximum, QByteArray("32767"));
        QCOMPARE(signal.physicalMinimum, QByteArray("-32767"));
        QCOMPARE(signal.digitalMaximum, QByteArray("32767"));
        QCOMPARE(signal.digitalMinimum, QByteArray("-32768"));
        QCOMPARE(signal.samplesPerRecord, 250);
    }
    QVERIFY(std::all_of(file.header.begin(), file.header.end(), [](char c) { return c >= 32 && c <= 126; }));

    const QDateTime start =
        QDateTime::fromString(QStringLiteral("20")
                                  + QString::fromLatin1(file.startDate.mid(6, 2) + file.startDate.mid(3, 2)
                                                        + file.startDate.left(2) + file.startTime),
                              QStringLiteral("yyyyMMddhh.mm.ss"));
    QVERIFY2(start >= before && start <= after, qPrintable(start.toString()));
}

void TestFiles::writerKeepsOtherSignalNames()
{
    EDFWriter writer;
    QVERIFY(writer.prepareWriter(path(), makeMontage({QStringLiteral("EDF Annotations"), QString()}), 1));
    const std::vector<float> block(2);
    QVERIFY(writer.writeData(1, block.data()));
    QVERIFY(writer.close());

    EDFReader reader(path());
    QVERIFY2(reader.open(), qPrintable(reader.lastError()));
    QCOMPARE(reader.getChannelCount(), 2);
}

void TestFiles::writerJoinsBlocks_data()
{
    QTest::addColumn<QList<unsigned>>("blocks");
    QTest::addColumn<unsigned>("rate");

    QTest::newRow("one record exactly") << QList<unsigned>{10} << 10u;
    QTest::newRow("exact end after a part") << QList<unsigned>{4, 6} << 10u;
    QTest::newRow("across the boundary") << QList<unsigned>{7, 7, 7, 9} << 10u;
    QTest::newRow("empty blocks between") << QList<unsigned>{0, 9, 0, 1, 0} << 10u;
    QTest::newRow("one by one") << QList<unsigned>{1, 1, 1, 1, 1, 1} << 3u;
    QTest::newRow("block of several records") << QList<unsigned>{35, 5} << 10u;
    QTest::newRow("several records after a part") << QList<unsigned>{9, 31} << 10u;
    QTest::newRow("one sample per record") << QList<unsigned>{5} << 1u;
    QTest::newRow("incomplete record is left out") << QList<unsigned>{8, 8, 8} << 10u;
}

void TestFiles::writerJoinsBlocks()
{
    QFETCH(QList<unsigned>, blocks);
    QFETCH(unsigned, rate);
    EDFWriter writer;
    QVERIFY(writer.prepareWriter(path(), makeMontage({QStringLiteral("C3"), QStringLiteral("C4")}),
                                 static_cast<int>(rate)));
    unsigned total = 0;
    for (const unsigned count : blocks) {
        QVERIFY(writer.writeData(count, signalBlock(total, count).data()));
        total += count;
    }
    QVERIFY(writer.close());

    const EdfParser file(path());
    QCOMPARE(file.records, static_cast<int>(total / rate));
    QCOMPARE(file.excessBytes, qint64{0});
    for (unsigned c = 0; c < 2; ++c) {
        const EdfParser::Signal &signal = file.signalList.at(static_cast<int>(c));
        QCOMPARE(signal.digital.size(), static_cast<std::size_t>(total - total % rate));
        for (unsigned i = 0; i < signal.digital.size(); ++i) {
            QVERIFY(std::fabs(signal.physicalAt(i) + static_cast<double>(signalAt(c, i))) <= kStep);
        }
    }
}

void TestFiles::writerPadsRemainder()
{
    EDFWriter writer(path(), 2, 500);
    QVERIFY(writer.writeData(500, std::vector<float>(1000, -7000.0f).data()));
    QVERIFY(writer.writeData(300, std::vector<float>(600, -7000.0f).data()));
    QVERIFY(writer.writeRemainderToFile());
    QVERIFY(writer.close());

    const EdfParser file(path());
    QCOMPARE(file.records, 2);
    for (const EdfParser::Signal &signal : file.signalList) {
        for (std::size_t i = 0; i < 1000; ++i) {
            QVERIFY(std::fabs(signal.physicalAt(i) - (i < 800 ? 7000.0 : 0.0)) <= kStep);
        }
    }
}

void TestFiles::writerStoresPatient()
{
    PatientInfo patient;
    patient.gender = 1;
    patient.birthYear = 1951;
    patient.birthMonth = 3;
    patient.birthDay = 2;
    patient.name = QString::fromUtf8("J\xc3\xa9r\xc3\xb4me Smith");
    patient.equipment = QStringLiteral("amp");
    EDFWriter writer(path(), 1, 1);
    writer.setPatientInfo(patient);
    const float sample = 0.0f;
    QVERIFY(writer.writeData(1, &sample));
    QVERIFY(writer.close());

    const EdfParser file(path());
    QCOMPARE(file.patient, QByteArray("X M 02-MAR-1951 Jerome_Smith"));
    QVERIFY(file.recording.endsWith(" X X amp"));

    EDFReader reader(path());
    QVERIFY(reader.open());
    PatientInfo read;
    QVERIFY(reader.getPatientInfo(read));
    QCOMPARE(read.name, QStringLiteral("Jerome Smith"));
    QCOMPARE(read.equipment, QStringLiteral("amp"));
    QCOMPARE(read.gender, 1);
    QCOMPARE(QDate(read.birthYear, read.birthMonth, read.birthDay), QDate(1951, 3, 2));
}

void TestFiles::writerRefusesFiles_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("rate");
    QTest::addColumn<QString>("reason");

    const QString file = QStringLiteral("new.edf");
    QTest::newRow("no channels") << file << 0 << 250 << QStringLiteral("0 channels");
    QTest::newRow("negative channels") << file << -1 << 250 << QStringLiteral("0 channels");
    QTest::newRow("more than a reader takes") << file << 640 << 250 << QStringLiteral("640 channels");
    QTest::newRow("no rate") << file << 8 << 0 << QStringLiteral("1 Hz");
    QTest::newRow("negative rate") << file << 8 << std::numeric_limits<int>::min() << QStringLiteral("1 Hz");
    QTest::newRow("record too large") << file << 600 << 10000 << QStringLiteral("10 MB");
    QTest::newRow("record far too large") << file << 639 << std::numeric_limits<int>::max() << QStringLiteral("10 MB");
    QTest::newRow("no such folder") << QStringLiteral("nowhere/new.edf") << 8 << 250 << QStringLiteral("o such file");
    QTest::newRow("a folder") << QString() << 8 << 250 << QStringLiteral("not a regular file");
}

void TestFiles::writerRefusesFiles()
{
    QFETCH(QString, name);
    QFETCH(int, channels);
    QFETCH(int, rate);
    QFETCH(QString, reason);
    TraceCapture trace;
    EDFWriter writer(path(name), channels, rate);
    QVERIFY(!writer.isFileOpened());
    QVERIFY2(writer.lastError().contains(reason), qPrintable(writer.lastError()));
    QVERIFY(writer.lastError().contains(path(name)));
    QCOMPARE(trace.count(reason), 1);
    QVERIFY(!QFile::exists(path(QStringLiteral("new.edf"))));
    QVERIFY(!writer.prepareWriter(path(QStringLiteral("new.edf")), {}, 250));
}

void TestFiles::writerSparesFileInUse()
{
    EDFWriter first(path(), 2, 10);
    QVERIFY(first.writeData(20, signalBlock(0, 20).data()));
    {
        EDFWriter second(path(), 2, 10);
        QVERIFY(!second.isFileOpened());
    }
    QVERIFY(first.writeData(10, signalBlock(20, 10).data()));
    QVERIFY(first.close());
    const EdfParser file(path());
    QCOMPARE(file.records, 3);
    QCOMPARE(file.excessBytes, qint64{0});
}

void TestFiles::writerWithoutFile()
{
    EDFWriter writer;
    const std::vector<float> block(10);
    TraceCapture trace;
    QVERIFY(!writer.writeData(10, block.data()));
    QVERIFY(!writer.writeRemainderToFile());
    QVERIFY(!writer.addAnnotationAt(5, QStringLiteral("label")).first);
    QVERIFY(!writer.addAnnotation(1.0, 1.0, QStringLiteral("label")));
    QVERIFY(!writer.close());
    QCOMPARE(trace.count(QStringLiteral("no file is open")), 5);
    writer.setPatientInfo(PatientInfo());
    writer.fillOutPutBuffer(10, block.data(), 10, 0);
}

void TestFiles::writerClosesFileBefore()
{
    const QSharedPointer<Montage> montage = makeMontage({QStringLiteral("C3"), QStringLiteral("C4")});
    {
        EDFWriter writer;
        QVERIFY(writer.prepareWriter(path(), montage, 10));
        QVERIFY(writer.writeData(15, signalBlock(0, 15).data()));
        QVERIFY(writer.prepareWriter(path(QStringLiteral("next.edf")), montage, 20));
        QVERIFY(writer.writeData(20, signalBlock(0, 20).data()));
    }
    QCOMPARE(EdfParser(path()).records, 1);
    const EdfParser next(path(QStringLiteral("next.edf")));
    QCOMPARE(next.records, 1);
    QVERIFY(std::fabs(next.signalList.at(0).physicalAt(0)) <= kStep); // nothing is left from the file before
}

void TestFiles::annotationsAllComeBack()
{
    EDFWriter writer;
    QVERIFY(writer.prepareWriter(path(), makeMontage({QStringLiteral("C3"), QStringLiteral("C4")}), 100));
    for (int i = 0; i < 100; ++i) {
        QVERIFY(writer.writeData(10, signalBlock(0, 10).data()));
        QVERIFY(writer.addAnnotationAt(i * 97 + 3, QStringLiteral("label %1").arg(i)).first);
    }
    QVERIFY(writer.close());

    const EdfParser file(path());
    QCOMPARE(file.annotations.size(), 100);
    EDFReader reader(path());
    QVERIFY(reader.open());
    const QList<AnnotationStrct> read = reader.annotations();
    QCOMPARE(read.size(), 100);
    for (int i = 0; i < 100; ++i) {
        const double onset = (i * 97 + 3) / 1000.0;
        QCOMPARE(file.annotations[i].onset, onset);
        QCOMPARE(file.annotations[i].text, QStringLiteral("label %1").arg(i).toUtf8());
        QCOMPARE(read[i].onset, onset);
        QCOMPARE(read[i].text, QStringLiteral("label %1").arg(i));
    }
    QCOMPARE(file.recordOnsets, (QList<double>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

void TestFiles::annotationsBeyondRoom()
{
    EDFWriter writer(path(), 2, 10);
    for (int i = 0; i < 20; ++i) {
        QVERIFY(writer.addAnnotationAt(i, QString::number(i)).first);
    }
    QVERIFY(writer.writeData(10, signalBlock(0, 10).data()));
    TraceCapture trace;
    QVERIFY(writer.close());
    QCOMPARE(trace.count(QStringLiteral("4 annotations did not fit")), 1);
    QCOMPARE(EdfParser(path()).annotations.size(), 16);
}

void TestFiles::annotationText_data()
{
    QTest::addColumn<QByteArray>("encoding");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("read");

    const QString zhe = QString::fromUtf8("\xd0\x96");
    const QString smile = QString::fromUtf8("\xf0\x9f\x99\x82");
    QTest::newRow("cut after 40 bytes") << QByteArray("UTF-8") << QStringLiteral("0123456789").repeated(6)
                                        << QStringLiteral("0123456789").repeated(4);
    QTest::newRow("two-byte characters") << QByteArray("UTF-8") << zhe.repeated(30) << zhe.repeated(20);
    QTest::newRow("no half character") << QByteArray("UTF-8") << QLatin1Char('a') + zhe.repeated(30)
                                       << QLatin1Char('a') + zhe.repeated(19);
    QTest::newRow("no half surrogate pair")
        << QByteArray("UTF-8") << QStringLiteral("ab") + smile.repeated(30) << QStringLiteral("ab") + smile.repeated(9);
    QTest::newRow("empty") << QByteArray("UTF-8") << QString() << QString();
    QTest::newRow("separators of the format") << QByteArray("UTF-8")
                                              << QStringLiteral("a\x14"
                                                                "b\x15"
                                                                "c\n")
                                              << QStringLiteral("a.b.c.");
    QTest::newRow("another local encoding") << QByteArray("windows-1251") << zhe.repeated(50) << zhe.repeated(40);
}

void TestFiles::annotationText()
{
    QFETCH(QByteArray, encoding);
    QFETCH(QString, text);
    QFETCH(QString, read);
    const QString file = path();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName(encoding));
    EDFWriter writer(file, 2, 10);
    writer.addAnnotationAt(1, text);
    QVERIFY(writer.writeData(10, signalBlock(0, 10).data()));
    QVERIFY(writer.close());
    EDFReader reader(file);
    const bool opened = reader.open();
    const QList<AnnotationStrct> annotations = reader.annotations();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));

    QVERIFY2(opened, qPrintable(reader.lastError()));
    QCOMPARE(annotations.size(), 1);
    QCOMPARE(annotations[0].text, read);
}

void TestFiles::annotationTimes()
{
    EDFWriter writer(path(), 2, 10);
    QCOMPARE(writer.addAnnotation(QStringLiteral("before the start mark")), (std::pair<bool, long long>(false, 0)));
    QVERIFY(writer.addAnnotation(5.0, 2.0, QStringLiteral("a tenth of the time")));
    QVERIFY(!writer.addAnnotation(std::numeric_limits<double>::quiet_NaN(), 0.0, QStringLiteral("no time")));
    QVERIFY(!writer.addAnnotation(1e30, 0.0, QStringLiteral("too late")));
    QCOMPARE(writer.addAnnotationAt(-20, QStringLiteral("negative")), (std::pair<bool, long long>(true, 0)));
    QCOMPARE(writer.addAnnotationAt(123456, QStringLiteral("given")), (std::pair<bool, long long>(true, 123456)));
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    writer.takeStartTime();
    const auto measured = writer.addAnnotation(QStringLiteral("measured"));
    QVERIFY(measured.first);
    QVERIFY(measured.second >= 0 && measured.second <= QDateTime::currentMSecsSinceEpoch() - before);
    writer.resetStartTime();
    QVERIFY(!writer.addAnnotation(QStringLiteral("after the reset")).first);
    QVERIFY(writer.writeData(10, signalBlock(0, 10).data()));
    QVERIFY(writer.close());

    const EdfParser file(path());
    QCOMPARE(file.annotations.size(), 4);
    QCOMPARE(file.annotations[0].onset, 0.5);
    QCOMPARE(file.annotations[0].duration, 0.2);
    QCOMPARE(file.annotations[1].onset, 0.0);
    QCOMPARE(file.annotations[2].onset, 123.456);
    QCOMPARE(file.annotations[2].duration, 0.0001);
    QCOMPARE(file.annotations[3].onset, static_cast<double>(measured.second) / 1000.0);
}

void TestFiles::lostRecords_data()
{
    QTest::addColumn<double>("recordsOnDisk");
    QTest::addColumn<int>("expected");

    QTest::newRow("cut within a record") << 3.5 << 3;
    QTest::newRow("cut behind a record") << 4.0 << 4;
    QTest::newRow("no record") << 0.9 << 0;
}

// A file whose end has not reached the disk: a shortened copy takes its place while it is being written.
void TestFiles::lostRecords()
{
    QFETCH(double, recordsOnDisk);
    QFETCH(int, expected);
    EDFWriter writer(path(), 2, 1000);
    QVERIFY(writer.writeData(6000, signalBlock(0, 6000).data()));
    for (int i = 0; i < 40; ++i) {
        QVERIFY(writer.addAnnotationAt(111LL * i, QStringLiteral("label %1").arg(i)).first);
    }

    const QString copy = path(QStringLiteral("copy.edf"));
    QVERIFY(QFile::copy(path(), copy));
    const EdfParser unfinished(copy);
    const qint64 onDisk = unfinished.header.size() + static_cast<qint64>(recordsOnDisk * unfinished.recordBytes);
    QVERIFY(QFile::resize(copy, onDisk));
    if (!QFile::remove(path())) {
        QSKIP("This system does not replace a file that is open.");
    }
    QVERIFY(QFile::rename(copy, path()));

    TraceCapture trace;
    QVERIFY(!writer.close());
    QCOMPARE(trace.count(QStringLiteral("%1 of 6 records").arg(expected)), 1);
    QVERIFY2(writer.lastError().contains(QStringLiteral("first %1 s").arg(expected)), qPrintable(writer.lastError()));
    const EdfParser file(path());
    QCOMPARE(file.records, expected);
    QCOMPARE(file.excessBytes, qint64{0});
    QCOMPARE(file.annotations.size(), expected == 0 ? 0 : 40);
    for (int i = 0; i < file.annotations.size(); ++i) {
        QCOMPARE(file.annotations[i].onset, i * 0.111);
        QCOMPARE(file.annotations[i].duration, 0.0001);
        QCOMPARE(file.annotations[i].text, "label " + QByteArray::number(i));
    }
    QCOMPARE(file.recordOnsets, (QList<double>{0, 1, 2, 3, 4, 5}).mid(0, expected));
    EDFReader reader(path());
    if (expected == 0) {
        QTest::ignoreMessage(QtDebugMsg, "the file is not EDF(+) or BDF(+) compliant\r\n(it contains format errors)");
    }
    QCOMPARE(reader.open(), expected > 0);
}

void TestFiles::recordsOfOtherThreads()
{
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < 20; ++i) {
                EDFWriter writer(path(QStringLiteral("%1-%2.edf").arg(t).arg(i)), 2, 10);
                writer.writeData(10, signalBlock(0, 10).data());
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (int i = 0; i < 80; ++i) {
        const EdfParser file(path(QStringLiteral("%1-%2.edf").arg(i / 20).arg(i % 20)));
        QCOMPARE(file.records, 1);
        QCOMPARE(file.signalList.size(), 2);
    }
}

void TestFiles::readerRestoresInput()
{
    EDFWriter writer(path(), 2, 3);
    const std::vector<float> block{12.5f, -300.0f, 7.0f, 1.0f, 2.0f, 30000.0f};
    QVERIFY(writer.writeData(3, block.data()));
    QVERIFY(writer.close());

    EDFReader reader(path());
    QVERIFY(reader.open());
    std::vector<double> all(6);
    QCOMPARE(reader.getBuffData(0, 3, all.data()), 0);
    const std::vector<float> second = reader.getChannelDataFloat(1, 0, 3);
    for (std::size_t i = 0; i < 6; ++i) {
        QVERIFY(std::fabs(all[i] - static_cast<double>(block[i])) <= kStep);
    }
    for (std::size_t i = 0; i < 3; ++i) {
        QCOMPARE(second.at(i), static_cast<float>(all[3 + i]));
    }
}

void TestFiles::readerReadsPastEnd()
{
    record(path(), 10, 20);
    EDFReader reader(path());
    std::vector<double> values(30, 77.0);
    QCOMPARE(reader.getChannelBuffData(0, 0, 1, values.data()), -2);
    QCOMPARE(reader.getBuffData(0, 1, values.data()), -2);
    QVERIFY(reader.getChannelData(0, 0, 5).empty());
    QVERIFY(reader.open());

    QCOMPARE(reader.getChannelBuffData(2, 0, 1, values.data()), -2);
    QCOMPARE(reader.getChannelBuffData(std::numeric_limits<unsigned>::max(), 0, 1, values.data()), -2);
    QVERIFY(reader.getChannelData(2, 0, 5).empty());
    QCOMPARE(values[0], 77.0);

    QCOMPARE(reader.getChannelBuffData(1, 15, 30, values.data()), 0);
    QVERIFY(std::fabs(values[4] - static_cast<double>(signalAt(1, 19))) <= kStep);
    QCOMPARE(values[5], 0.0);
    QCOMPARE(values[29], 0.0);
    QCOMPARE(reader.getChannelBuffData(1, 4000000000u, 30, values.data()), 0);
    QCOMPARE(values[0], 0.0);
    QCOMPARE(reader.getChannelData(0, 18, std::numeric_limits<unsigned>::max()).size(), std::size_t{2});
    QVERIFY(reader.getChannelData(0, 20, 1).empty());
    QCOMPARE(reader.getChannelBuffData(0, 3, 0, nullptr), 0);
}

void TestFiles::readerHeaderFacts_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("type");
    QTest::addColumn<long long>("seconds");
    QTest::addColumn<float>("rate");
    QTest::addColumn<double>("second"); // physical value of the second sample, as read

    const double edfStep = 10.0 / 65535.0;
    const double bdfStep = 10.0 / 16777215.0;
    const auto value = [](double step, double lowest) { return -(-5.0 + (1.0 - lowest) * step); };
    const double edf = value(edfStep, -32768.0);
    QTest::newRow("90 minutes") << EdfBytes{false, 5400, "1", 2}.make() << "EDF" << 5400LL << 2.0f << edf;
    QTest::newRow("part of a second") << EdfBytes{false, 5, "0.5", 4}.make() << "EDF" << 2LL << 8.0f << edf;
    QTest::newRow("fractional rate") << EdfBytes{false, 3, "10", 128}.make() << "EDF" << 30LL << 12.8f << edf;
    QTest::newRow("24 bits") << EdfBytes{true, 3, "1", 100}.make() << "BDF" << 3LL << 100.0f
                             << value(bdfStep, -8388608.0);
}

void TestFiles::readerHeaderFacts()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, type);
    QFETCH(long long, seconds);
    QFETCH(float, rate);
    QFETCH(double, second);
    writeBytes(path(), bytes);
    EDFReader reader(path());
    QVERIFY2(reader.open(), qPrintable(reader.lastError()));
    QCOMPARE(reader.fileTypeText(), type);
    QCOMPARE(reader.getDuration(), seconds);
    QCOMPARE(reader.getSampleRate(), rate);
    QCOMPARE(reader.getChannelSampleRate(0), rate);
    QCOMPARE(reader.getPhysicalDimension(0), QStringLiteral("mV"));
    QCOMPARE(reader.getPatientName(), QStringLiteral("Jane Doe"));
    QCOMPARE(reader.getStartDateTime(), QDateTime(QDate(2021, 3, 2), QTime(4, 5, 6)));
    QVERIFY(std::fabs(reader.getChannelData(0, 1, 1).at(0) - second) < 1e-9);
    QVERIFY(reader.annotations().isEmpty());
    const AmplifierChannel *channel = (*reader.getFileMontage())[0];
    QCOMPARE(channel->getName(), QStringLiteral("ECG MLII"));
    QCOMPARE(channel->getChannelType(), BPCommon::ECG);
    QCOMPARE(channel->getGroup1(), 1u);
}

void TestFiles::readerDescribesRecording()
{
    record(path(), 250, 18250);
    EDFReader reader(path());
    QVERIFY(reader.open());
    const QString start = reader.getStartDateTime().toString(QStringLiteral("yyyy/MM/dd hh:mm:ss"));
    const QString full = reader.infoFull();
    for (const QString &part : {QStringLiteral("Duration"), QStringLiteral("00:01:13"), QStringLiteral("Channels"),
                                QStringLiteral("250.00 Hz"), QStringLiteral("Subject"), start}) {
        QVERIFY2(full.contains(part), qPrintable(part));
    }
    QVERIFY(reader.infoShort().startsWith(QStringLiteral("2 ch, ")));
    QVERIFY(!reader.infoShort().contains(QLatin1Char('\n')));
    QCOMPARE(reader.getFileMontage()->getChannelNames(), (QStringList{QStringLiteral("C3"), QStringLiteral("ECG")}));
    QCOMPARE(reader.getFileMontage()->getCurrentSampleFreq(), 250.0f);
    reader.close();

    const EDFInfo info = EDFReader::fileInfo(path());
    QVERIFY(info.valid);
    QCOMPARE(info.durationSeconds, qint64{73});
    QCOMPARE(info.channelNames.size(), 2);

    // A second file: nothing of the first is left, whether it can be read or not.
    writeBytes(path(QStringLiteral("other.edf")), EdfBytes().make());
    reader.setPath(path(QStringLiteral("other.edf")));
    QVERIFY(reader.open());
    QCOMPARE(reader.getFileMontage()->size(), 1u);
    reader.setPath(path(QStringLiteral("missing.edf")));
    QVERIFY(!reader.open());
    QCOMPARE(reader.getFileMontage()->size(), 0u);
    QCOMPARE(reader.getDuration(), 0LL);
    QVERIFY(!reader.isFileOpened());
}

void TestFiles::readerMendsHeaders_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QStringList>("labels");

    record(path(), 10, 20);
    QFile file(path());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray recording = file.readAll();
    const int signalCount = recording.mid(252, 4).trimmed().toInt();
    QByteArray transducer = recording;
    transducer.replace(256 + signalCount * 16 + 2 * 80, 80, QByteArray("amp").leftJustified(80));
    QByteArray prefilter = recording;
    prefilter.replace(256 + signalCount * 136 + 5 * 80, 80, QByteArray("HP:0Hz").leftJustified(80));
    const QByteArray unfinished = QByteArray(recording).replace(236, 8, "-1      ");
    const QStringList labels{QStringLiteral("begin")};
    QTest::newRow("not closed") << unfinished << "EDF+" << labels;
    QTest::newRow("not closed, in a record") << unfinished + QByteArray(9, 'x') << "EDF+" << labels;
    QTest::newRow("transducer of annotations") << transducer << "EDF+" << labels;
    QTest::newRow("prefilter of annotations") << prefilter << "EDF+" << labels;
    QTest::newRow("no annotation signal") << EdfBytes{false, 2, "1", 10, "EDF+C"}.make() << "EDF" << QStringList();
}

void TestFiles::readerMendsHeaders()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, type);
    QFETCH(QStringList, labels);
    writeBytes(path(), bytes);
    QString copy;
    {
        TraceCapture trace;
        EDFReader reader(path());
        QVERIFY2(reader.open(), qPrintable(reader.lastError()));
        copy = trace.lines().filter(QStringLiteral("mended header")).value(0).section(QStringLiteral("header: "), 1);
        QVERIFY(QFile::exists(copy));
        QCOMPARE(reader.fileTypeText(), type);
        QCOMPARE(reader.getChannelData(0, 0, 100).size(), std::size_t{20});
        QStringList read;
        for (const AnnotationStrct &annotation : reader.annotations()) {
            read << annotation.text;
        }
        QCOMPARE(read, labels);
    }
    QVERIFY(!QFile::exists(copy));
    QFile file(path());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), bytes);
}

void TestFiles::readerRefusesFiles_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QString>("reason");

    const QByteArray sound = EdfBytes{false, 4, "1", 4}.make();
    const QByteArray format = "the file is not EDF(+) or BDF(+) compliant\r\n(it contains format errors)";
    const QString formatReason = QStringLiteral("format errors");
    const QByteArray read = "a read error occurred";
    const QString readReason = QStringLiteral("shorter than its header");
    QTest::newRow("empty") << QByteArray() << read << readReason;
    QTest::newRow("cut in the header") << sound.left(100) << read << readReason;
    QTest::newRow("cut in the signals' header") << sound.left(400) << read << readReason;
    QTest::newRow("no data") << sound.left(512) << format << formatReason;
    QTest::newRow("cut in a record") << sound.left(sound.size() - 3) << format << formatReason;
    QTest::newRow("one byte too many") << sound + 'x' << format << formatReason;
    QTest::newRow("web page") << QByteArray("<!DOCTYPE html><html><body>Not found</body></html>").repeated(40) << format
                              << formatReason;
    QTest::newRow("zeros") << QByteArray(2000, '\0') << format << formatReason;
    QTest::newRow("huge record count") << QByteArray(sound).replace(236, 8, "99999999") << format << formatReason;
    QTest::newRow("no date") << QByteArray(sound).replace(168, 8, "99.99.99") << format << formatReason;
}

void TestFiles::readerRefusesFiles()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, message);
    QFETCH(QString, reason);
    writeBytes(path(), bytes);
    QTest::ignoreMessage(QtDebugMsg, message.constData());
    EDFReader reader(path());
    QVERIFY(!reader.open());
    QVERIFY(!reader.isFileOpened());
    QVERIFY2(reader.lastError().contains(reason) && reader.lastError().contains(path()),
             qPrintable(reader.lastError()));
    QVERIFY(reader.getChannelName(0).isEmpty());
    QVERIFY(reader.fileTypeText().isEmpty());
}

void TestFiles::readerRefusesDiscontinuousFile()
{
    record(path(), 10, 20);
    QFile file(path());
    QVERIFY(file.open(QIODevice::ReadWrite) && file.seek(192) && file.write("EDF+D") == 5);
    file.close();
    QTest::ignoreMessage(QtDebugMsg, "unknown error");
    EDFReader reader(path());
    QVERIFY(!reader.open());
    QVERIFY2(reader.lastError().contains(QStringLiteral("discontinuous")), qPrintable(reader.lastError()));
}

void TestFiles::readerRefusesFileTwice()
{
    record(path(), 10, 20);
    EDFReader first(path());
    EDFReader second(path());
    QVERIFY(first.open());
    QVERIFY(first.open()); // closes before
    QTest::ignoreMessage(QtDebugMsg, "file has already been opened");
    QVERIFY(!second.open());
    first.close();
    QVERIFY(second.open());
}

BP_TEST_MAIN(TestFiles)
#include "TestFiles.moc"
