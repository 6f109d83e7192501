#include "algorithms/ParamFactory.h"
#include "files/XLSReader.h"
#include "files/XLSWriter.h"
#include "support/HandmadeZip.h"
#include "support/TestMain.h"
#include "support/TraceCapture.h"

#include <QTemporaryDir>
#include <QTranslator>

#include <xlsxdocument.h>

#include <limits>

namespace {

UnitParams makeRhythm(const QString &descriptor, const QString &visible = QStringLiteral("1"))
{
    UnitParams params = ParamFactory::makeRhythmAlpha(QString());
    params.setParamDescriptor(descriptor);
    params.setParamValue(QStringLiteral("visible"), visible);
    return params;
}

/// A writer whose time stands still until it is told.
struct Recording
{
    QTemporaryDir folder;
    qint64 now = QDateTime(QDate(2024, 3, 5), QTime(10, 20, 30)).toMSecsSinceEpoch();
    XLSWriter writer{[this] { return now; }};
    QString path = folder.filePath(QStringLiteral("a_rt.xls"));

    explicit Recording(const std::vector<UnitParams> &params)
    {
        writer.setPath(folder.filePath(QStringLiteral("a.edf")));
        writer.setParamList(params);
    }
    void give(const QString &descriptor, float value)
    {
        writer.addData(QString(), makeRhythm(descriptor), 1, {value, 77.0f, 88.0f});
    }
    void wait(qint64 milliseconds)
    {
        now += milliseconds;
        writer.poll();
    }
};

/// The texts of a sheet's row, from column 1; absent cells are empty.
QStringList rowOf(const QString &path, int sheet, int row, int columns)
{
    QXlsx::Document document(path);
    document.selectSheet(sheet);
    QStringList texts;
    for (int column = 1; column <= columns; ++column) {
        texts << document.read(row, column).toString();
    }
    return texts;
}

QByteArray bytesOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeBytes(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), qint64{bytes.size()});
}

QByteArray soundWorkbook()
{
    Recording recording({makeRhythm(QStringLiteral("alpha"))});
    recording.writer.startWrite();
    recording.wait(2000);
    recording.writer.stopWrite();
    return bytesOf(recording.path);
}

/// A workbook of one sheet, which a spreadsheet library reads if nobody stops it.
QByteArray workbookAround(const QByteArray &sheet, bool deflated = false, qint64 claimedSize = -1)
{
    const QByteArray schema = "http://schemas.openxmlformats.org/";
    const QByteArray main =
        "xmlns=\"" + schema + "spreadsheetml/2006/main\" xmlns:r=\"" + schema + "officeDocument/2006/relationships\"";
    const auto relation = [&](const QByteArray &type, const QByteArray &target) {
        return "<Relationships xmlns=\"" + schema + "package/2006/relationships\"><Relationship Id=\"rId1\" Type=\""
            + schema + "officeDocument/2006/relationships/" + type + "\" Target=\"" + target + "\"/></Relationships>";
    };
    return HandmadeZip{
        {{"[Content_Types].xml", "<Types xmlns=\"" + schema + "package/2006/content-types\"/>"},
         {"_rels/.rels", relation("officeDocument", "xl/workbook.xml")},
         {"xl/workbook.xml",
          "<workbook " + main + "><sheets><sheet name=\"Data\" sheetId=\"1\" r:id=\"rId1\"/></sheets></workbook>"},
         {"xl/_rels/workbook.xml.rels", relation("worksheet", "worksheets/sheet1.xml")},
         {"xl/worksheets/sheet1.xml", "<worksheet " + main + ">" + sheet + "</worksheet>", deflated, claimedSize}}}
        .make();
}

} // namespace

class TestSpreadsheet : public QObject
{
    Q_OBJECT
private slots:
    void path_data();
    void path();
    void rounding_data();
    void rounding();
    void onlyVisibleRhythmsGetColumns();
    void valuesRepeatUntilChanged();
    void lateBlockGivesOneRowPerTick();
    void anHourDoesNotDrift();
    void timerServesAnEventLoop();
    void maximumAndAverage();
    void listIsKeptUntilTheStop();
    void nothingIsSavedBeforeTheStop();
    void withoutParametersThereIsNoFile();
    void failedSaveIsToldAndCanBeRepeated();
    void recordingIsNotReplaced();
    void informationSheet();
    void roundTrip_data();
    void roundTrip();
    void stepsByThemselves();
    void hostileTextsSurvive();
    void badFiles_data();
    void badFiles();
    void damagedWorkbooksAreRefused();
};

void TestSpreadsheet::path_data()
{
    QTest::addColumn<QString>("given");
    QTest::addColumn<QString>("expected");
    QTest::newRow("recording") << "rec.edf"
                               << "rec_rt.xls";
    QTest::newRow("with folder") << "/a.b/rec.edf"
                                 << "/a.b/rec_rt.xls";
    QTest::newRow("no suffix") << "rec"
                               << "rec";
    QTest::newRow("nothing before it") << ".edf"
                                       << ".edf";
    QTest::newRow("another suffix follows") << "rec.edf.bak"
                                            << "rec.edf_rt.xls";
    QTest::newRow("the last four go wherever it stands") << "x.edf/record"
                                                         << "x.edf/re_rt.xls";
}

void TestSpreadsheet::path()
{
    QFETCH(QString, given);
    XLSWriter writer;
    writer.setPath(given);
    QTEST(writer.getPath(), "expected");
}

void TestSpreadsheet::rounding_data()
{
    QTest::addColumn<float>("value");
    QTest::addColumn<QString>("expected");
    QTest::newRow("artefact mark") << -1.0f << "0";
    QTest::newRow("below minus one") << -1.5f << "-1";
    QTest::newRow("towards zero") << -2.75f << "-2";
    QTest::newRow("just below a half") << 12.25f << "12";
    QTest::newRow("a half") << 12.5f << "13";
    QTest::newRow("not a number") << std::numeric_limits<float>::quiet_NaN() << "0";
    QTest::newRow("too large") << 1e20f << "2147483647";
}

void TestSpreadsheet::rounding()
{
    QFETCH(float, value);
    Recording recording({makeRhythm(QStringLiteral("alpha"))});
    recording.writer.startWrite();
    recording.give(QStringLiteral("alpha"), value);
    recording.wait(200);
    QVERIFY(recording.writer.stopWrite());
    QTEST(rowOf(recording.path, 1, 2, 3).constLast(), "expected");
}

void TestSpreadsheet::onlyVisibleRhythmsGetColumns()
{
    Recording recording({makeRhythm(QStringLiteral("hidden"), QStringLiteral("0")), makeRhythm(QStringLiteral("beta")),
                         makeRhythm(QStringLiteral("odd"), QStringLiteral("01")), makeRhythm(QStringLiteral("alpha"))});
    recording.writer.startWrite();
    recording.give(QStringLiteral("alpha"), 5.0f);
    recording.give(QStringLiteral("beta"), 6.0f);
    recording.give(QStringLiteral("hidden"), 7.0f);
    recording.writer.addData(QString(), makeRhythm(QStringLiteral("alpha")), 1, {});
    recording.wait(200);
    QVERIFY(recording.writer.stopWrite());
    QCOMPARE(rowOf(recording.path, 1, 1, 5).join(QLatin1Char('|')), QStringLiteral("Time|Counts|beta|alpha|"));
    QCOMPARE(rowOf(recording.path, 1, 2, 5).join(QLatin1Char('|')), QStringLiteral("10:20:30.200|0|6|5|"));
}

void TestSpreadsheet::valuesRepeatUntilChanged()
{
    Recording recording({makeRhythm(QStringLiteral("alpha"))});
    recording.writer.startWrite();
    recording.wait(200);
    recording.give(QStringLiteral("alpha"), 3.0f);
    recording.give(QStringLiteral("alpha"), 9.0f);
    recording.wait(200);
    recording.wait(200);
    QVERIFY(recording.writer.stopWrite());
    QCOMPARE(rowOf(recording.path, 1, 2, 3).constLast(), QStringLiteral("0"));
    QCOMPARE(rowOf(recording.path, 1, 3, 3).constLast(), QStringLiteral("9"));
    QCOMPARE(rowOf(recording.path, 1, 4, 3).join(QLatin1Char('|')), QStringLiteral("10:20:30.600|400|9"));
}

void TestSpreadsheet::lateBlockGivesOneRowPerTick()
{
    Recording recording({makeRhythm(QStringLiteral("alpha"))});
    recording.writer.startWrite();
    recording.wait(199);
    recording.wait(650); // at 849 ms: ticks 200, 400, 600, 800
    recording.writer.poll();
    recording.wait(151); // tick 1000 is not late for that
    QVERIFY(recording.writer.stopWrite());
    QCOMPARE(rowOf(recording.path, 1, 5, 2).join(QLatin1Char('|')), QStringLiteral("10:20:30.800|600"));
    QCOMPARE(rowOf(recording.path, 1, 6, 2).join(QLatin1Char('|')), QStringLiteral("10:20:31.000|800"));
    QCOMPARE(rowOf(recording.path, 1, 7, 1).join(QString()), QStringLiteral("Maximum"));
}

void TestSpreadsheet::anHourDoesNotDrift()
{
    Recording recording({makeRhythm(QStringLiteral("alpha"))});
    recording.writer.startWrite();
    qint64 left = 3600 * 1000;
    for (int pass = 0; left > 0; ++pass) {
        const qint64 step = qMin<qint64>(left, 7 + pass % 301); // blocks shorter and longer than a tick
        recording.wait(step);
        left -= step;
    }
    QVERIFY(recording.writer.stopWrite());
    QCOMPARE(rowOf(recording.path, 1, 18001, 2).join(QLatin1Char('|')), QStringLiteral("11:20:30.000|3599800"));
    QCOMPARE(rowOf(recording.path, 1, 18002, 1).join(QString()), QStringLiteral("Maximum"));
    XLSReader reader(recording.path);
    QCOMPARE(reader.getDataCount(), 18000);
}

void TestSpreadsheet::timerServesAnEventLoop()
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("a.xls"));
    int asked = 0;
    XLSWriter writer([&asked] { return ++asked == 1 ? qint64{1000} : qint64{2000}; });
    writer.setPath(path);
    writer.setParamList({makeRhythm(QStringLiteral("alpha"))});
    writer.startWrite();
    QTRY_VERIFY(asked >= 3); // the timer's doing
    writer.poll();
    QVERIFY(writer.stopWrite());
    QCOMPARE(XLSReader(path).getDataCount(), 5); // what is due within a second, once
}

void TestSpreadsheet::maximumAndAverage()
{
    Recording recording({makeRhythm(QStringLiteral("silent")), makeRhythm(QStringLiteral("alpha"))});
    recording.writer.startWrite();
    recording.wait(200);
    for (const float value : {4.0f, 10.0f, 3.0f, -1.0f}) { // all within one tick
        recording.give(QStringLiteral("alpha"), value);
    }
    recording.wait(200);
    QVERIFY(recording.writer.stopWrite());
    QCOMPARE(rowOf(recording.path, 1, 4, 4).join(QLatin1Char('|')), QStringLiteral("Maximum||0|10"));
    QCOMPARE(rowOf(recording.path, 1, 5, 4).join(QLatin1Char('|')), QStringLiteral("Average||0|4.25"));
}

void TestSpreadsheet::listIsKeptUntilTheStop()
{
    Recording recording({makeRhythm(QStringLiteral("alpha"))});
    recording.give(QStringLiteral("alpha"), 50.0f);
    recording.writer.setParamList({makeRhythm(QStringLiteral("beta"))});
    recording.writer.startWrite();
    recording.give(QStringLiteral("alpha"), 60.0f);
    recording.give(QStringLiteral("beta"), 7.0f);
    recording.wait(200);
    recording.writer.setParamList({makeRhythm(QStringLiteral("gamma"))}); // while it writes
    recording.give(QStringLiteral("gamma"), 8.0f);
    recording.wait(200);
    QVERIFY(recording.writer.stopWrite());
    QCOMPARE(rowOf(recording.path, 0, 2, 2).constLast(), QStringLiteral("3"));
    QCOMPARE(rowOf(recording.path, 1, 1, 5).mid(2).join(QLatin1Char('|')), QStringLiteral("alpha|beta|gamma"));
    QCOMPARE(rowOf(recording.path, 1, 2, 5).mid(2).join(QLatin1Char('|')), QStringLiteral("60|7|"));
    // Each call forgets the values, and no column.
    QCOMPARE(rowOf(recording.path, 1, 3, 5).mid(2).join(QLatin1Char('|')), QStringLiteral("0|0|8"));

    QVERIFY(QFile::remove(recording.path));
    recording.writer.startWrite(); // the list is empty now
    QVERIFY(!recording.writer.isRunning());
    recording.writer.setParamList({makeRhythm(QStringLiteral("delta"))});
    recording.writer.startWrite();
    recording.wait(200);
    QVERIFY(recording.writer.stopWrite());
    QCOMPARE(rowOf(recording.path, 1, 1, 4).mid(2).join(QLatin1Char('|')), QStringLiteral("delta|"));
    QCOMPARE(rowOf(recording.path, 1, 2, 2).constLast(), QStringLiteral("0")); // counts begin anew
}

void TestSpreadsheet::nothingIsSavedBeforeTheStop()
{
    QTemporaryDir folder;
    {
        XLSWriter writer;
        writer.setPath(folder.filePath(QStringLiteral("a.edf")));
        writer.setParamList({makeRhythm(QStringLiteral("alpha"))});
        writer.startWrite();
        writer.slotWriteData();
        QVERIFY(QDir(folder.path()).isEmpty());
    }
    // A writer that is destroyed loses nothing.
    QCOMPARE(XLSReader(folder.filePath(QStringLiteral("a.edf"))).getDataCount(), 1);
    QCOMPARE(QDir(folder.path()).entryList(QDir::Files), QStringList{QStringLiteral("a_rt.xls")});
}

void TestSpreadsheet::withoutParametersThereIsNoFile()
{
    Recording recording({makeRhythm(QStringLiteral("alpha"), QStringLiteral("0"))});
    recording.writer.startWrite();
    recording.wait(1000);
    QVERIFY(recording.writer.stopWrite());
    QVERIFY(QDir(recording.folder.path()).isEmpty());
}

void TestSpreadsheet::failedSaveIsToldAndCanBeRepeated()
{
    Recording recording({makeRhythm(QStringLiteral("alpha"))});
    recording.writer.setPath(recording.folder.filePath(QStringLiteral("no such folder/a.edf")));
    recording.writer.startWrite();
    recording.wait(600);
    {
        TraceCapture trace;
        QVERIFY(!recording.writer.stopWrite());
        QCOMPARE(trace.count(QStringLiteral("XLSWriter::stopWrite")), 1);
        QCOMPARE(trace.lines().size(), 1);
    }
    QVERIFY(recording.writer.lastError().contains(QStringLiteral("no such folder/a_rt.xls")));
    recording.writer.setPath(recording.path);
    QVERIFY(recording.writer.stopWrite());
    QVERIFY(recording.writer.lastError().isEmpty());
    QCOMPARE(XLSReader(recording.path).getDataCount(), 3);
}

void TestSpreadsheet::recordingIsNotReplaced()
{
    Recording recording({makeRhythm(QStringLiteral("alpha"))});
    const QString edf = recording.folder.filePath(QStringLiteral("rec"));
    writeBytes(edf, "0       samples");
    recording.writer.setPath(edf);
    recording.writer.startWrite();
    recording.wait(200);
    QVERIFY(recording.writer.stopWrite());
    QCOMPARE(bytesOf(edf), QByteArray("0       samples"));
    QCOMPARE(XLSReader(edf + QStringLiteral("_rt.xls")).getDataCount(), 1);
}

void TestSpreadsheet::informationSheet()
{
    UnitParams off = ParamFactory::makeRhythmBeta(QStringLiteral("0")); // its first value, the channels
    Recording recording(
        {ParamFactory::makeRhythmAlpha(QStringLiteral("O1;O2")), off, ParamFactory::makeRhythmTheta(QString())});
    recording.writer.startWrite();
    QVERIFY(recording.writer.stopWrite());
    QCOMPARE(rowOf(recording.path, 0, 1, 2).join(QLatin1Char('|')), QStringLiteral("Start date|2024/03/05 10:20:30"));
    QCOMPARE(rowOf(recording.path, 0, 2, 2).join(QLatin1Char('|')), QStringLiteral("Rhythms amount|3"));
    QCOMPARE(rowOf(recording.path, 0, 3, 2).join(QLatin1Char('|')), QStringLiteral("№ 1 SpectrumNorm|alpha"));
    QCOMPARE(rowOf(recording.path, 0, 4, 3).join(QLatin1Char('|')), QStringLiteral("Read channels|O1;O2|channel"));
    QCOMPARE(rowOf(recording.path, 0, 22, 2).join(QLatin1Char('|')), QStringLiteral("№ 3 SpectrumNorm|theta"));

    XLSReader reader(recording.path);
    std::vector<UnitParams> params;
    reader.getParamList(params);
    QCOMPARE(params.size(), std::size_t{2});
    QHash<QString, RhythmData> data;
    QVERIFY(reader.readData(data));
    QCOMPARE(data.size(), 3);
    QVERIFY(data.value(QStringLiteral("beta")).params.isEmpty());
    QCOMPARE(data.value(QStringLiteral("theta")).params.getParamValue(QStringLiteral("min_freq")), QStringLiteral("4"));
}

void TestSpreadsheet::roundTrip_data()
{
    QTest::addColumn<bool>("writtenInRussian");
    QTest::addColumn<bool>("readInRussian");
    QTest::newRow("English") << false << false;
    QTest::newRow("Russian") << true << true;
    QTest::newRow("Russian file, English program") << true << false;
    QTest::newRow("English file, Russian program") << false << true;
}

void TestSpreadsheet::roundTrip()
{
    QFETCH(bool, writtenInRussian);
    QFETCH(bool, readInRussian);
    QTranslator russian;
    QVERIFY(russian.load(QCoreApplication::applicationDirPath() + QStringLiteral("/translations/bioprocessing_ru.qm")));

    UnitParams math = ParamFactory::makeCustomProperty(QStringLiteral("Math"));
    math.setParamDescriptor(QStringLiteral("ratio"));
    math.setParamValue(QStringLiteral("formula"), QStringLiteral("=alpha/2"));
    UnitParams alpha = ParamFactory::makeRhythmAlpha(QStringLiteral("O1;O2"));
    alpha.setParamValue(QStringLiteral("min_thres"), QStringLiteral("0.25"));
    if (writtenInRussian) {
        QCoreApplication::installTranslator(&russian);
    }
    Recording recording({alpha, math});
    recording.writer.startWrite();
    recording.give(QStringLiteral("alpha"), 41.0f);
    recording.wait(200);
    recording.give(QStringLiteral("ratio"), 20.5f);
    recording.give(QStringLiteral("alpha"), 30.0f);
    recording.wait(200);
    QVERIFY(recording.writer.stopWrite());
    QCoreApplication::removeTranslator(&russian);
    QCOMPARE(QXlsx::Document(recording.path).sheetNames().join(QLatin1Char('|')),
             writtenInRussian ? QStringLiteral("Информация|Данные") : QStringLiteral("Information|Data"));

    if (readInRussian) {
        QCoreApplication::installTranslator(&russian);
    }
    XLSReader reader(recording.folder.filePath(QStringLiteral("a.edf")));
    QVERIFY2(reader.isOpened(), qPrintable(reader.lastError()));
    std::vector<UnitParams> params;
    reader.getParamList(params);
    QCOMPARE(params.size(), std::size_t{2});
    QCOMPARE(params[0].getName(), QStringLiteral("SpectrumNorm"));
    QCOMPARE(params[0].getParamDescriptor(), QStringLiteral("alpha"));
    QVERIFY(!params[0].isChangedParam(alpha));
    QCOMPARE(params[1].getName(), QStringLiteral("Math"));
    QVERIFY(!params[1].isChangedParam(math));
    QHash<QString, RhythmData> data;
    QVERIFY(reader.readData(data));
    QCOMPARE(reader.getDataCount(), 2);
    const RhythmData alphas = data.value(QStringLiteral("alpha"));
    QCOMPARE(alphas.times, (QVector<qint64>{0, 200}));
    QCOMPARE(alphas.values, (QVector<int>{41, 30}));
    QCOMPARE(alphas.maximum, 41);
    QCOMPARE(alphas.average, 35.5);
    QCOMPARE(data.value(QStringLiteral("ratio")).values, (QVector<int>{0, 21}));
}

/// The steps by themselves, which hosts may take in any order.
void TestSpreadsheet::stepsByThemselves()
{
    Recording recording({makeRhythm(QStringLiteral("alpha"))});
    const QString text = QStringLiteral("noted");
    XLSWriter &writer = recording.writer;
    QVERIFY(!writer.setDataToFile(5, 7, text, text));
    writer.paramListToFile();
    writer.writeMaxAvgValues();
    writer.writeAlgorithmParametrs(9, custom_param());
    writer.startWrite();
    QVERIFY(writer.setDataToFile(5, 7, text, QStringLiteral("beside")));
    QVERIFY(!writer.setDataToFile(0, 0, text, text));
    QCOMPARE(writer.calclastClock(), 0LL);
    recording.now += 70;
    QCOMPARE(writer.calclastClock(), 70LL);
    recording.give(QStringLiteral("alpha"), 4.0f);
    recording.wait(130);
    QVERIFY(writer.stopWrite());
    QCOMPARE(rowOf(recording.path, 1, 5, 8).mid(6).join(QLatin1Char('|')), QStringLiteral("noted|beside"));
    QCOMPARE(rowOf(recording.path, 1, 2, 3).join(QLatin1Char('|')), QStringLiteral("10:20:30.200|200|4"));
    writer.setParamList({makeRhythm(QStringLiteral("alpha"))});
    writer.startWrite();
    recording.wait(200);
    writer.removeDocument();
    QVERIFY(writer.stopWrite());

    XLSReader reader(recording.path);
    QCOMPARE(reader.getDataCount(), 1); // the row outlived its document
    QString error;
    QVERIFY2(reader.readInformation(error) && reader.readRhythmData(error), qPrintable(error));
    reader.readRhythmsParam(-1);
    QCOMPARE(reader.makeParametrs(QStringLiteral("SpectrumNorm"), 3).getParamDescriptor(), QStringLiteral("alpha"));
    RhythmData data;
    reader.fillDataConteiner(data, 3);
    reader.fillDataConteiner(data, 3);
    QCOMPARE(data.values, QVector<int>{0});
    reader.removeDocument();
    QCOMPARE(reader.getDataCount(), 1);

    XLSReader nothing(QStringLiteral("nowhere.xls"));
    QVERIFY(!nothing.readInformation(error) && !nothing.readRhythmData(error));
    nothing.fillDataConteiner(data, 3);
    QVERIFY(data.values.isEmpty() && nothing.makeParametrs(QString(), 1).getParamDescriptor().isEmpty());
}

void TestSpreadsheet::hostileTextsSurvive()
{
    const QString descriptor = QString::fromUtf8("<a & \"b\"> µ 😀") + QChar(1) + QChar(0xD800);
    UnitParams params = makeRhythm(descriptor);
    params.setParamValue(QStringLiteral("channel"), QStringLiteral("  https://example.org\n=1+1 "));
    Recording recording({params});
    recording.writer.startWrite();
    recording.give(descriptor, 5.0f);
    recording.wait(200);
    QVERIFY(recording.writer.stopWrite());
    XLSReader reader(recording.path);
    QVERIFY2(reader.isOpened(), qPrintable(reader.lastError()));
    QHash<QString, RhythmData> data;
    QVERIFY(reader.readData(data));
    const QString readable = QString::fromUtf8("<a & \"b\"> µ 😀");
    QCOMPARE(data.keys().constFirst().left(readable.size()), readable);
    QCOMPARE(data.begin()->values, QVector<int>{5});
    QCOMPARE(data.begin()->params.getParamValue(QStringLiteral("channel")),
             QStringLiteral("  https://example.org\n=1+1 "));
}

void TestSpreadsheet::badFiles_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("content");
    const QString name = QStringLiteral("a.xls");
    QTest::newRow("empty") << name << QByteArray();
    QTest::newRow("text") << name << QByteArray("Time;Counts\n1;2\n");
    QTest::newRow("another name") << QStringLiteral("a.txt") << soundWorkbook();
    QTest::newRow("only the end of an archive") << name << HandmadeZip{}.make();
    QTest::newRow("archive of something else") << name << HandmadeZip{{{"a.txt", "hello"}}}.make();
    QTest::newRow("other sheets") << name << workbookAround("<sheetData/>");
    QTest::newRow("endless columns") << name << workbookAround("<cols><col min=\"1\" max=\"2000000000\"/></cols>");
    QTest::newRow("entities")
        << name << HandmadeZip{{{"[Content_Types].xml", "<!DOCTYPE a [<!ENTITY b \"c\">]><a>&b;</a>"}}}.make();
    const QByteArray blanks(8 * 1024 * 1024, ' ');
    QTest::newRow("bomb that hides its size") << name << workbookAround(blanks, true, 1000);
    QTest::newRow("bomb that admits its size") << name << workbookAround(blanks, true, 4'000'000'000);
}

void TestSpreadsheet::badFiles()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, content);
    QTemporaryDir folder;
    const QString path = folder.filePath(name);
    writeBytes(path, content);
    TraceCapture trace;
    XLSReader reader(path);
    QVERIFY(!reader.isOpened());
    QCOMPARE(trace.lines().size(), 1);
    QVERIFY(reader.lastError().contains(path));
    QHash<QString, RhythmData> data;
    QVERIFY(!reader.readData(data));
    QVERIFY(!reader.openFile(folder.filePath(QStringLiteral("missing.xls"))));
}

/// Cut anywhere, or with any one byte changed, a workbook is refused or gives what was written, and never crashes.
void TestSpreadsheet::damagedWorkbooksAreRefused()
{
    const QByteArray sound = soundWorkbook();
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("a.xls"));
    const auto countsIn = [&](const QByteArray &bytes) {
        writeBytes(path, bytes);
        XLSReader reader(path);
        return reader.isOpened() ? reader.getDataCount() : -1;
    };
    QCOMPARE(countsIn(sound), 10);
    for (int length = 0; length < sound.size(); length += 197) {
        QCOMPARE(countsIn(sound.left(length)), -1);
    }
    for (int at = 0; at < sound.size(); at += 29) {
        QByteArray damaged = sound;
        damaged[at] = static_cast<char>(~damaged.at(at));
        const int count = countsIn(damaged);
        QVERIFY2(count == 10 || count == -1, qPrintable(QString::number(at)));
    }
}

BP_TEST_MAIN(TestSpreadsheet)
#include "TestSpreadsheet.moc"
