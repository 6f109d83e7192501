#include "files/EDFConverter.h"
#include "files/EDFReader.h"
#include "files/EDFRescue.h"
#include "files/EDFWriter.h"
#include "support/EdfParser.h"
#include "support/HandmadeEdf.h"
#include "support/HostProgram.h"
#include "support/TestMain.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTextCodec>

#include <algorithm>

namespace {

QByteArrayList texts(const QString &path)
{
    QByteArrayList list;
    for (const EdfParser::Annotation &annotation : EdfParser(path).annotations) {
        list << annotation.text;
    }
    return list;
}

} // namespace

/// Recordings that were not closed, and files as others write them.
class TestRescue : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void unclosedRecording();
    void killedWhileClosing();
    void isNeverOverwritten_data();
    void isNeverOverwritten();
    void foreignJournal();
    void emptyTail();
    void cutFile();
    void oddRecords_data();
    void oddRecords();
    void labelsAreAdded();
    void advisesWhatHelps();
    void infoTellsTimes();
    void refusesInOneSentence();
    void hostKilled();

    void gapsAreListed();
    void contradictingTimes();
    void oddHeaders_data();
    void oddHeaders();
    void malformedAnnotations();
    void longAndMixedFiles();
    void annotationsOnly();

private:
    QString path(const QString &name = QStringLiteral("test.edf")) const { return m_folder.filePath(name); }
    QString repaired() const { return path(QStringLiteral("test_repaired.edf")); }
    QString journal() const { return path(QStringLiteral("test.edf.labels")); }
    QByteArray recordUnclosed(int labels, unsigned samples);

    QTemporaryDir m_folder;
    QByteArray m_closed; ///< the recording of recordUnclosed(), closed
};

void TestRescue::initTestCase()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
}

void TestRescue::cleanup()
{
    for (const QString &file : QDir(m_folder.path()).entryList(QDir::Files)) {
        QVERIFY(QFile::remove(path(file)));
    }
}

/// Leaves at path() what a program leaves that is killed while it records one channel at 10 Hz, with label i at i · 40
/// ms, and returns its bytes.
QByteArray TestRescue::recordUnclosed(int labels, unsigned samples)
{
    const QString recording = path(QStringLiteral("going_on.edf"));
    for (const QString &file : {path(), journal()}) {
        QFile::remove(file);
    }
    EDFWriter writer(recording, 1, 10);
    for (int i = 0; i < labels; ++i) {
        writer.addAnnotationAt(40LL * i, QStringLiteral("label %1").arg(i));
    }
    std::vector<float> values(samples);
    for (unsigned i = 0; i < samples; ++i) {
        values[i] = -10.0f * static_cast<float>(i);
    }
    writer.writeData(samples, values.data());
    QFile::copy(recording, path());
    QFile::copy(recording + QStringLiteral(".labels"), journal());
    writer.close();
    m_closed = EdfParser(recording).bytes;
    return EdfParser(path()).bytes;
}

void TestRescue::unclosedRecording()
{
    for (const int labels : {0, 3, 32, 45}) { // two records have 32 slots
        const QByteArray bytes = recordUnclosed(labels, 25);
        QVERIFY(!QFile::exists(path(QStringLiteral("going_on.edf.labels"))));
        QVERIFY(EDFReader(path(QStringLiteral("going_on.edf"))).open());
        {
            EDFReader reader(path());
            QVERIFY2(reader.open(), qPrintable(reader.lastError()));
            QVERIFY(reader.notice().contains(QStringLiteral("not closed")));
            QVERIFY(reader.notice().contains(QStringLiteral("bioprocessing repair")));
            QCOMPARE(reader.annotations().size(), labels);
            QCOMPARE(reader.getChannelData(0, 0, 100).size(), std::size_t{20});
        }
        const EDFRescue::Result result = EDFRescue::repair(path(), EDFRescue::repairedPath(path()));
        QVERIFY2(result.done, qPrintable(result.text));
        QCOMPARE(result.path, repaired());
        QCOMPARE(EdfParser(path()).bytes, bytes);
        const EdfParser file(repaired());
        if (labels <= 32) {
            QCOMPARE(file.bytes, m_closed);
        }
        QCOMPARE(file.excessBytes, qint64{0});
        QCOMPARE(file.recordOnsets, (QList<double>{0, 1}));
        QCOMPARE(file.annotations.size(), labels);
        for (int i = 0; i < labels; ++i) {
            QCOMPARE(file.annotations[i].onset, i * 0.04);
            QCOMPARE(file.annotations[i].text, QByteArray("label ") + QByteArray::number(i));
        }
        cleanup();
    }
}

void TestRescue::killedWhileClosing()
{
    recordUnclosed(5, 25);
    HandmadeEdf::write(m_closed.replace("label 3", QByteArray(7, '\0')), path());
    // A list without its text, as EDFlib leaves none; what matters is a file that is closed and lacks a label.
    m_closed.replace(QByteArray("+0.1200\x15") + "0.0001\x14" + QByteArray(7, '\0') + '\x14', QByteArray(23, '\0'));
    HandmadeEdf::write(m_closed, path());
    EDFReader reader(path());
    QVERIFY2(reader.open(), qPrintable(reader.lastError()));
    QVERIFY2(reader.notice().contains(QStringLiteral("lacks 1")), qPrintable(reader.notice()));
    QCOMPARE(reader.annotations().size(), 5);
    QCOMPARE(reader.annotations().at(3).text, QStringLiteral("label 3"));
    reader.close();
    QVERIFY(EDFRescue::repair(path(), repaired()).done);
    QCOMPARE(texts(repaired()).size(), 5);
}

void TestRescue::isNeverOverwritten_data()
{
    QTest::addColumn<bool>("isClosed");
    QTest::addColumn<int>("labels");
    QTest::addColumn<int>("bytes"); // −1: all
    QTest::addColumn<bool>("isSetAside");
    QTest::newRow("not closed") << false << 0 << -1 << true;
    QTest::newRow("not closed, with labels") << false << 3 << -1 << true;
    QTest::newRow("killed in its first second") << false << 3 << 0 << false;
    QTest::newRow("closed, but not its labels") << true << 3 << -1 << true;
    QTest::newRow("closed") << true << 0 << -1 << false;
}

void TestRescue::isNeverOverwritten()
{
    QFETCH(bool, isClosed);
    QFETCH(int, labels);
    QFETCH(int, bytes);
    QFETCH(bool, isSetAside);
    const QByteArray left =
        (isClosed ? (recordUnclosed(labels, 25), m_closed) : recordUnclosed(labels, 25)).mid(0, bytes);
    const QByteArray labelsLeft = EdfParser(journal()).bytes;
    for (const char *kept : {"test_unclosed.edf", "test_unclosed2.edf"}) {
        HandmadeEdf::write(left, path());
        QVERIFY(labels == 0 || !HandmadeEdf::write(labelsLeft, journal()).isEmpty());
        EDFWriter writer(path(), 1, 10);
        QVERIFY2(writer.isFileOpened(), qPrintable(writer.lastError()));
        const QString name = path(QLatin1String(kept));
        QCOMPARE(EdfParser(name).bytes, isSetAside ? left : QByteArray());
        QCOMPARE(EdfParser(name + QStringLiteral(".labels")).bytes, labelsLeft);
        QVERIFY2(writer.notice().contains(name) == (isSetAside || labels > 0), qPrintable(writer.notice()));
        QVERIFY(writer.writeData(10, std::vector<float>(10).data()) && writer.close());
        QCOMPARE(EdfParser(path()).records, 1);
        QVERIFY(!QFile::exists(journal()));
        EDFConverter converter;
        const QString source = path(QStringLiteral("going_on.edf"));
        QVERIFY2(!isSetAside || !converter.crop(source, name, 0.0, 1.0), kept);
        QCOMPARE(EdfParser(name).bytes, isSetAside ? left : QByteArray());
    }
}

void TestRescue::foreignJournal()
{
    const QByteArray notes = "my own notes\n";
    HandmadeEdf::write(notes, journal());
    {
        EDFWriter writer(path(), 1, 10);
        QVERIFY(writer.addAnnotationAt(5, QStringLiteral("label")).first);
        QVERIFY(writer.writeData(10, std::vector<float>(10).data()) && writer.close());
    }
    QCOMPARE(EdfParser(journal()).bytes, notes); // neither written nor removed
    QCOMPARE(texts(path()), QByteArrayList{"label"});

    // The journal of another recording of that name.
    recordUnclosed(2, 25);
    HandmadeEdf::write("BioProcessing labels 1 01.01.0000.00.00\n0 1 label\n", journal());
    EDFReader reader(path());
    QVERIFY(reader.open());
    QVERIFY(reader.annotations().isEmpty());
}

// A file that got its length but not its bytes when the power failed.
void TestRescue::emptyTail()
{
    const QByteArray bytes = recordUnclosed(1, 30);
    const EdfParser parsed(path(QStringLiteral("going_on.edf")));
    HandmadeEdf::write(bytes.left(parsed.headerBytes + 2 * parsed.recordBytes) + QByteArray(parsed.recordBytes, '\0'),
                       path());
    EDFReader reader(path());
    QVERIFY(reader.open());
    QCOMPARE(reader.getDuration(), 2LL);
}

void TestRescue::cutFile()
{
    const HandmadeEdf whole{{{"EEG Cz"}, {"ECG", "mV", 7}}, 4, "0.5", {{"0.25", "kept"}}};
    whole.writeTo(path());
    const EdfParser parsed(path());
    for (const int excess : {-1, -parsed.recordBytes - 3, 5}) {
        HandmadeEdf::write((whole.make() + QByteArray(5, 'x')).left(parsed.bytes.size() + excess), path());
        EDFReader reader(path());
        QTest::ignoreMessage(QtDebugMsg, "the file is not EDF(+) or BDF(+) compliant\r\n(it contains format errors)");
        QVERIFY(!reader.open());
        QVERIFY2(reader.lastError().contains(QStringLiteral("%1 bytes").arg(std::abs(excess))),
                 qPrintable(reader.lastError()));
        QVERIFY(reader.lastError().contains(QStringLiteral("bioprocessing repair")));
        QVERIFY(EDFRescue::repair(path(), repaired()).done);
        const EdfParser file(repaired());
        const int records = excess == 5 ? 4 : excess == -1 ? 3 : 2;
        QCOMPARE(file.records, records);
        QCOMPARE(file.excessBytes, qint64{0});
        QCOMPARE(file.bytes.mid(file.headerBytes), parsed.bytes.mid(parsed.headerBytes, records * parsed.recordBytes));
        QVERIFY(QFile::remove(repaired()));
    }
}

void TestRescue::oddRecords_data()
{
    QTest::addColumn<int>("firstTimeless"); ///< record
    QTest::addColumn<QByteArray>("count");
    QTest::addColumn<QByteArray>("behind");
    QTest::newRow("the last records tell no time") << 2 << QByteArray("4") << QByteArray();
    QTest::newRow("no record tells its time") << 0 << QByteArray("4") << QByteArray();
    QTest::newRow("no record tells its time, not closed") << 0 << QByteArray("-1") << QByteArray();
    QTest::newRow("as much noise behind") << 4 << QByteArray("4") << QByteArray(2000, 'x');
    QTest::newRow("no count") << 4 << QByteArray("0") << QByteArray();
}

void TestRescue::oddRecords()
{
    QFETCH(int, firstTimeless);
    QFETCH(QByteArray, count);
    QFETCH(QByteArray, behind);
    const HandmadeEdf file{{{"EEG Cz"}}, 4, "1", {{"0.5", "here"}}};
    file.writeTo(path());
    const EdfParser sound(path());
    constexpr int kSignalBytes = 200;
    QByteArray bytes = HandmadeEdf::changed(file.make(), 236, count.leftJustified(8)) + behind;
    for (int record = firstTimeless; record < 4; ++record) {
        const int lists = sound.headerBytes + record * sound.recordBytes + kSignalBytes;
        bytes.replace(lists, sound.recordBytes - kSignalBytes, QByteArray(sound.recordBytes - kSignalBytes, '\0'));
    }
    EDFReader reader(HandmadeEdf::write(bytes, path()));
    if (count == "4" && behind.isEmpty()) {
        QVERIFY2(reader.open() && reader.notice().isEmpty(), qPrintable(reader.lastError() + reader.notice()));
        QCOMPARE(reader.getDuration(), 4LL);
        reader.close();
    }
    const EDFRescue::Result result = EDFRescue::repair(path(), repaired());
    QVERIFY2(result.done && result.path == repaired(), qPrintable(result.text));
    const EdfParser mended(repaired());
    QCOMPARE(mended.records, 4);
    QCOMPARE(mended.excessBytes, qint64{0});
    QCOMPARE(mended.recordOnsets, (QList<double>{0, 1, 2, 3}));
    QCOMPARE(mended.signalList[0].values, sound.signalList[0].values);
    QCOMPARE(mended.annotations.size(), firstTimeless == 0 ? 0 : 1);
    QVERIFY(EDFRescue::repair(repaired(), path(QStringLiteral("again.edf"))).text.contains(QStringLiteral("sound")));
}

// A journal that was kept because the file had no room in its slots: what is there stays, and is not there twice.
void TestRescue::labelsAreAdded()
{
    recordUnclosed(35, 25);
    const QByteArray journalOfAll = EdfParser(journal()).bytes;
    recordUnclosed(32, 25);
    HandmadeEdf::write(m_closed, path());
    HandmadeEdf::write(journalOfAll, journal());
    QVERIFY(EDFRescue::repair(path(), repaired()).done);
    QByteArrayList labels = texts(repaired());
    QCOMPARE(labels.size(), 35);
    std::sort(labels.begin(), labels.end());
    QVERIFY(std::adjacent_find(labels.begin(), labels.end()) == labels.end());
}

void TestRescue::advisesWhatHelps()
{
    HandmadeEdf file{{{"EEG Cz", "uV", 4}}, 3};
    file.onsets = {"0", "1", "1.5"};
    EDFReader reader(HandmadeEdf::write(file.make().chopped(3) + "xxxx", path()));
    QTest::ignoreMessage(QtDebugMsg, "the file is not EDF(+) or BDF(+) compliant\r\n(it contains format errors)");
    QVERIFY(!reader.open());
    QVERIFY2(!reader.lastError().contains(QStringLiteral("bioprocessing repair"))
                 && reader.lastError().contains(QStringLiteral("record 3")),
             qPrintable(reader.lastError()));
    const HandmadeEdf sound{{{"EEG Cz"}}, 2, "1", {{"x", "malformed"}}};
    const EDFRescue::Result result = EDFRescue::repair(sound.writeTo(path()), repaired());
    QVERIFY(result.done && result.text.contains(QStringLiteral("1 malformed")) && result.path.isEmpty());
    QVERIFY(!QFile::exists(repaired()));
}

void TestRescue::infoTellsTimes()
{
    HandmadeEdf{{{"EEG Cz"}},
                3,
                "0.5",
                {{"0.25\x15"
                  "12345.678",
                  "long"},
                 {"1234567.5", "late"}}}
        .writeTo(path());
    const Outcome info = runHost({QStringLiteral("info"), path()});
    for (const char *text : {"1.5 s from", "at 0.25 s for 12345.678 s: long", "at 1234567.5 s: late"}) {
        QVERIFY2(info.output.contains(text), info.output.constData());
    }
}

void TestRescue::refusesInOneSentence()
{
    HandmadeEdf{{{"EEG Cz"}}}.writeTo(path());
    const QString page = HandmadeEdf::write(QByteArray(3000, '<'), path(QStringLiteral("page.edf")));
    const QString early = HandmadeEdf::write({}, path(QStringLiteral("early.edf")));
    const auto repair = QStringLiteral("repair");
    const Outcome sound = runHost({repair, path()});
    QCOMPARE(sound.status, 0);
    QVERIFY(sound.output.contains("nothing to repair"));
    QVERIFY(!QFile::exists(repaired()));
    recordUnclosed(1, 25);
    QVERIFY(runHost({repair, path(QStringLiteral("nothing.edf"))}).error.contains("no such file"));
    QVERIFY(runHost({repair, page}).error.contains("does not begin as EDF"));
    QVERIFY(runHost({repair, early}).error.contains("is empty"));
    QVERIFY(runHost({repair, path(QStringLiteral("test.edf")), page}).error.contains("it exists already"));
    QCOMPARE(QFile(page).size(), 3000);
    QVERIFY(runHost({repair, path(), path(QStringLiteral("nowhere/x.edf"))}).error.startsWith("bioprocessing: Cannot"));
    QCOMPARE(runHost({repair}).status, 2);
}

void TestRescue::hostKilled()
{
    QStringList arguments = QStringLiteral("acquire --seconds 60 --device Simulator --record").split(QLatin1Char(' '));
    arguments << path();
    for (int tenth = 1; tenth < 30; ++tenth) {
        arguments << QStringLiteral("--label") << QStringLiteral("%1:at %2").arg(tenth / 10.0).arg(tenth);
    }
    for (const int labels : {1, 11, 13, 16, 19}) {
        QProcess host;
        host.start(hostProgram(), arguments);
        // As soon as so many labels are there, which is at any place of a record.
        const auto inFile = [this] { return EdfParser(journal()).bytes.count('\n') - 1; };
        QTRY_VERIFY_WITH_TIMEOUT(host.state() == QProcess::NotRunning || inFile() >= labels, 20000);
        QVERIFY2(host.state() == QProcess::Running, host.readAllStandardError().constData());
        host.kill();
        QVERIFY(host.waitForFinished());
        const int inJournal = inFile();
        const bool hasRecord = QFile(path()).size() > 0;
        const Outcome outcome = runHost({QStringLiteral("repair"), path()});
        QVERIFY2(outcome.status == (hasRecord ? 0 : 1), outcome.error.constData());
        QVERIFY(hasRecord || labels < 16); // labels are timed by the clock, records by the signal
        if (hasRecord) {
            const EdfParser file(repaired());
            QCOMPARE(file.excessBytes, qint64{0});
            QCOMPARE(texts(repaired()).size(), inJournal);
            QCOMPARE(file.annotations[labels - 1].text, QByteArray("at ") + QByteArray::number(labels));
            QVERIFY(runHost({QStringLiteral("info"), path()}).error.contains("not closed"));
            QVERIFY(runHost({QStringLiteral("info"), repaired()}).error.isEmpty());
        }
        cleanup();
    }
}

void TestRescue::gapsAreListed()
{
    for (const QByteArray type : {"EDF+D", "BDF+D", "BDF that says EDF+D"}) {
        const bool bdf = type.startsWith("BDF");
        HandmadeEdf file{{{"EEG Cz", "uV", 4}}, 4, "0.5", {{"1.75", "in the gap"}, {"3.125", "behind"}}, bdf};
        file.onsets = {"0.25", "0.75", "2.75", "3.25"};
        EDFReader reader(HandmadeEdf::write(HandmadeEdf::changed(file.make(), 192, type.right(5)), path()));
        QVERIFY2(reader.open(), qPrintable(reader.lastError()));
        QCOMPARE(reader.getChannelCount(), 1);
        QCOMPARE(reader.fileTypeText(), bdf ? QStringLiteral("BDF+") : QStringLiteral("EDF+"));
        QVERIFY(reader.notice().isEmpty());
        QCOMPARE(reader.getStartDateTime(), QDateTime(QDate(2020, 1, 2), QTime(3, 4, 5, 250)));
        QCOMPARE(reader.getExactDuration(), 2.0);
        QCOMPARE(reader.gaps().size(), 1);
        QCOMPARE(reader.gaps()[0].position, 1.0);
        QCOMPARE(reader.gaps()[0].start, 1.0);
        QCOMPARE(reader.gaps()[0].duration, 1.5);
        // Onsets count from the first sample.
        QCOMPARE(reader.annotations().size(), 2);
        QCOMPARE(reader.annotations()[0].onset, 1.5);
        QCOMPARE(reader.annotations()[1].onset, 2.875);
        const QList<double> times{0.5, 1.0, 2.5, 2.875, 3.5};
        const QList<double> inSignal{0.5, 1.0, 1.0, 1.375, 2.0};
        for (int i = 0; i < times.size(); ++i) {
            QCOMPARE(reader.signalTime(times[i]), inSignal[i]);
        }
        const std::vector<double> values = reader.getChannelData(0, 0, 100);
        QCOMPARE(values.size(), std::size_t{16});
        const double step = bdf ? 6553.5 / 16777215.0 : 0.1;
        QVERIFY(std::abs(values[9] - values[0] + 9.0 * step) < 1e-9);
        QVERIFY(!reader.takeCurrentAnnotations() || reader.annotations().size() == 2);
    }
}

void TestRescue::contradictingTimes()
{
    HandmadeEdf file{{{"EEG Cz", "uV", 4}}, 3};
    file.onsets = {"0", "1", "1.5"};
    EDFReader reader(file.writeTo(path()));
    QTest::ignoreMessage(QtDebugMsg, "unknown error");
    QVERIFY(!reader.open());
    QVERIFY2(reader.lastError().contains(QStringLiteral("record 3")), qPrintable(reader.lastError()));

    // One that calls itself continuous is read as such, and says so.
    HandmadeEdf::write(HandmadeEdf::changed(file.make(), 192, "EDF+C"), path());
    QVERIFY2(reader.open(), qPrintable(reader.lastError()));
    QVERIFY(!reader.notice().isEmpty());
    QVERIFY(reader.gaps().isEmpty());
    QCOMPARE(reader.getDuration(), 3LL);
}

void TestRescue::oddHeaders_data()
{
    QTest::addColumn<int>("at");
    QTest::addColumn<QByteArray>("field");
    constexpr int kSignals = 256; // of two signals, that of the annotations included
    QTest::newRow("umlaut of Latin-1 in the label") << kSignals << QByteArray("EEG C\xfc");
    QTest::newRow("micro sign of Latin-1") << kSignals + 2 * 96 << QByteArray("\xb5V ");
    QTest::newRow("micro sign of UTF-8") << kSignals + 2 * 96 << QByteArray("\xc2\xb5V");
    QTest::newRow("zeros instead of blanks") << kSignals + 2 * 136 << QByteArray(80, '\0');
    QTest::newRow("decimal commas") << kSignals + 2 * 104 << QByteArray("-3276,8 ");
    QTest::newRow("number at the right") << kSignals + 2 * 216 << QByteArray("     100");
    QTest::newRow("date with slashes") << 168 << QByteArray("02/01/20");
    QTest::newRow("blanks in date and time") << 168 << QByteArray(" 2. 1.20 3: 4: 5");
    QTest::newRow("patient without fields") << 8 << QByteArray("John Smith, M, 1951").leftJustified(80);
    QTest::newRow("recording without fields") << 88 << QByteArray("ward 7").leftJustified(80);
    QTest::newRow("another day in the recording") << 88 << QByteArray("Startdate 03-JAN-2020");
    QTest::newRow("another month in the recording") << 88 << QByteArray("Startdate 02-FEB-2020");
    QTest::newRow("another year in the recording") << 88 << QByteArray("Startdate 02-JAN-1920");
    QTest::newRow("a month in small letters") << 88 << QByteArray("Startdate 02-Jan-2020");
}

void TestRescue::oddHeaders()
{
    QFETCH(int, at);
    QFETCH(QByteArray, field);
    const HandmadeEdf sound{{{"EEG Cz"}}, 2, "1", {{"0.5", "here"}}};
    const QByteArray bytes = HandmadeEdf::changed(sound.make(), at, field);
    EDFReader reader(HandmadeEdf::write(bytes, path()));
    QVERIFY2(reader.open(), qPrintable(reader.lastError()));
    QCOMPARE(reader.getPhysicalDimension(0), QStringLiteral("uV"));
    QVERIFY(reader.getChannelName(0).startsWith(QStringLiteral("EEG C")));
    QCOMPARE(reader.getStartDateTime(), QDateTime(QDate(2020, 1, 2), QTime(3, 4, 5)));
    QVERIFY(std::abs(reader.getChannelData(0, 150, 1).at(0) + 15.0) < 1e-9);
    QCOMPARE(reader.annotations().size(), 1);
    QVERIFY(!field.startsWith("John") || reader.getPatientName() == QStringLiteral("John Smith, M, 1951"));
    reader.close();
    QCOMPARE(EdfParser(path()).bytes, bytes);
    // A conversion writes what can be read.
    EDFConverter converter;
    QVERIFY2(converter.crop(path(), repaired(), 0.5, -1.0), qPrintable(converter.lastError()));
    reader.setPath(repaired());
    QVERIFY2(reader.open() && reader.annotations().size() == 1, qPrintable(reader.lastError()));
}

void TestRescue::malformedAnnotations()
{
    const HandmadeEdf sound{{{"EEG Cz"}}, 2, "1", {{"0.5", "first"}, {"1", "second"}}};
    for (const char *onset : {"x0.5", "++.5", "+ .5", "+0.\x15"}) {
        EDFReader reader(HandmadeEdf::write(sound.make().replace("+0.5\x14", QByteArray(onset) + '\x14'), path()));
        QVERIFY2(reader.open(), qPrintable(reader.lastError()));
        QVERIFY(reader.notice().contains(QStringLiteral("1 malformed")));
        QCOMPARE(reader.annotations().size(), 1);
        QCOMPARE(reader.annotations()[0].text, QStringLiteral("second"));
    }
}

// Records in pieces of a quarter of a megabyte, signals for themselves, rates that are no whole numbers.
void TestRescue::longAndMixedFiles()
{
    const auto digital = [](int i) { return (i * 31) % 30011 - 15000; };
    for (const int samples : {100, 128, 5000}) {
        const HandmadeEdf file{
            {{"one", "uV", samples, digital}, {"two", "uV", 2500, digital}, {"three", "uV", 2500}}, 60, "2.5"};
        EDFReader reader(file.writeTo(path()));
        QVERIFY2(reader.open(), qPrintable(reader.lastError()));
        QCOMPARE(reader.getChannelSampleRate(0), static_cast<float>(samples / 2.5));
        QCOMPARE(reader.getChannelSampleRate(1), 1000.0f);
        QCOMPARE(reader.getExactDuration(), 150.0);
        const auto isRight = [&](int i, double value) { return std::abs(value + 0.1 * digital(i)) < 1e-9; };
        const std::vector<double> whole = reader.getChannelData(0, 3, 1000000);
        QCOMPARE(whole.size(), static_cast<std::size_t>(60 * samples - 3));
        for (int i = 0; i < static_cast<int>(whole.size()); ++i) {
            QVERIFY(isRight(i + 3, whole[static_cast<std::size_t>(i)]));
        }
        constexpr unsigned kCount = 6000;
        std::vector<double> all(3 * kCount, 77.0);
        QCOMPARE(reader.getBuffData(1000, kCount, all.data()), 0);
        for (unsigned i = 0; i < kCount; ++i) {
            const bool exists = static_cast<int>(i) + 1000 < 60 * samples;
            QVERIFY(exists ? isRight(static_cast<int>(i) + 1000, all[i]) : all[i] == 0.0);
            QVERIFY(isRight(static_cast<int>(i) + 1000, all[kCount + i]));
        }
    }
}

void TestRescue::annotationsOnly()
{
    const HandmadeEdf file{{}, 1, "0", {{"0", "Sleep stage W"}, {"30", "Sleep stage 1"}}};
    file.writeTo(path());
    EDFReader reader(path());
    QVERIFY2(reader.open(), qPrintable(reader.lastError()));
    QCOMPARE(reader.getChannelCount(), 0);
    QCOMPARE(reader.annotations().size(), 2);
    reader.close();
    const Outcome info = runHost({QStringLiteral("info"), path()});
    QCOMPARE(info.status, 0);
    QVERIFY(info.output.contains("Sleep stage 1"));
    const Outcome played = runHost({QStringLiteral("acquire"), QStringLiteral("--playback"), path()});
    QVERIFY2(played.status == 1 && played.error.contains("no signal"), played.error.constData());
}

BP_TEST_MAIN(TestRescue)
#include "TestRescue.moc"
