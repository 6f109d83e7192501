#include "support/EdfParser.h"
#include "support/HandmadeEdf.h"
#include "support/HostProgram.h"
#include "support/TestMain.h"

#include <QDir>
#include <QTemporaryDir>

#include <xlsxdocument.h>

#include <cmath>

/// "convert", "export" and "repair" as a user runs them.
class TestConvertCommand : public QObject
{
    Q_OBJECT
private slots:
    void init() { m_folder = std::make_unique<QTemporaryDir>(); }

    void fromTextToSheet();
    void stretchesBetweenGaps();
    void exportsTrueTimes();
    void unclosedAndRepaired();
    void refusesInOneSentence_data();
    void refusesInOneSentence();
    void leavesNothingWhenInterrupted();

private:
    QString path(const char *name) const { return m_folder->path() + QLatin1Char('/') + QLatin1String(name); }
    /// Words with "@" stand for files in the folder.
    Outcome run(const char *line) const { return runHost(words(line).replaceInStrings(QStringLiteral("@"), path(""))); }
    void writeGapped() const;

    std::unique_ptr<QTemporaryDir> m_folder;
};

#define VERIFY_RUN(line)                                                                                               \
    do {                                                                                                               \
        const Outcome outcome = run(line);                                                                             \
        QVERIFY2(outcome.status == 0, outcome.error.constData());                                                      \
    } while (false)

void TestConvertCommand::fromTextToSheet()
{
    constexpr int kRows = 1000;
    const std::vector<std::function<double(int)>> columns{[](int i) { return 0.5 * i - 200.0; },
                                                          [](int i) { return (i * 7) % 1001 - 500; },
                                                          [](int i) { return 0.01 * i; }};
    QByteArray text = "# three channels\nFp1;Fp2;ECG\n";
    for (int i = 0; i < kRows; ++i) {
        for (std::size_t c = 0; c < columns.size(); ++c) {
            text += QByteArray::number(columns[c](i), 'g', 6).replace('.', ',') + (c == 2 ? "\n" : ";");
        }
    }
    HandmadeEdf::write(text, path("in.csv"));
    VERIFY_RUN("convert text @in.csv @all.edf --header --rate 100 --start 2024-02-28T23:59:58");
    VERIFY_RUN("convert crop @all.edf @part.edf --from 2.5 --to 7.43");
    VERIFY_RUN("convert channels @part.edf @two.edf --choose ECG,Fp1 --rename Fp1=Cz --scale ECG=0.001:mV");
    VERIFY_RUN("export @two.edf @two.xlsx");

    const EdfParser all(path("all.edf"));
    for (int c = 0; c < 3; ++c) {
        QCOMPARE(all.signalList[c].label, QByteArrayList({"Fp1", "Fp2", "ECG"})[c]);
        for (int i = 0; i < kRows; ++i) {
            const double value = columns[static_cast<std::size_t>(c)](i);
            QVERIFY(std::fabs(all.signalList[c].values.at(static_cast<std::size_t>(i)) - value) < 1e-6);
        }
    }
    const EdfParser two(path("two.edf"));
    QCOMPARE(two.field(168, 16), QByteArray("29.02.2400.00.00"));
    QVERIFY(two.field(88, 80).startsWith("Startdate 29-FEB-2024"));
    QCOMPARE(two.recordOnsets.first(), 0.5);
    QCOMPARE(two.signalList.size(), 2);
    QXlsx::Document book(path("two.xlsx"));
    QVERIFY(book.selectSheet(QStringLiteral("Data")));
    QCOMPARE(book.read(1, 2).toString(), QStringLiteral("ECG, mV"));
    QCOMPARE(book.read(1, 3).toString(), QStringLiteral("Cz, uV"));
    for (int i = 0; i < 493; ++i) {
        const double ecg = 0.001 * columns[2](250 + i);
        const double cz = columns[0](250 + i);
        const auto at = static_cast<std::size_t>(i);
        QVERIFY(std::fabs(two.signalList[0].values.at(at) - ecg) < 1e-6);
        QVERIFY(std::fabs(two.signalList[1].values.at(at) - cz) < 1e-6);
        QVERIFY(std::fabs(book.read(i + 2, 1).toDouble() - 0.01 * i) < 1e-6);
        QVERIFY(std::fabs(book.read(i + 2, 2).toDouble() - ecg) < 1e-6);
        QVERIFY(std::fabs(book.read(i + 2, 3).toDouble() - cz) < 1e-6);
    }
    QVERIFY(!book.read(495, 1).isValid());
}

/// Two seconds, a pause of three, and two seconds.
void TestConvertCommand::writeGapped() const
{
    HandmadeEdf file{{{"A", "uV", 10}, {"B", "uV", 5}}, 4, "1", {{"0.5", "first"}, {"3", "within"}, {"5.5", "second"}}};
    file.onsets = {"0", "1", "5", "6"};
    file.writeTo(path("gap.edf"));
}

void TestConvertCommand::stretchesBetweenGaps()
{
    writeGapped();
    struct Case
    {
        const char *range;
        int first, count; ///< samples of A
        const char *start;
        QByteArrayList notes;
    };
    const Case cases[]{{"--from 5 --to 6.6", 20, 16, "02.01.2003.04.10", {"second"}},
                       {"--from 1 --to 2", 10, 10, "02.01.2003.04.06", {}},
                       {"--to 1.2", 0, 12, "02.01.2003.04.05", {"first"}},
                       {"--from 5.4", 24, 16, "02.01.2003.04.10", {"second"}}};
    for (const Case &row : cases) {
        VERIFY_RUN((QByteArray("convert crop @gap.edf @out.edf --force ") + row.range).constData());
        const EdfParser out(path("out.edf"));
        QCOMPARE(out.field(168, 16), QByteArray(row.start));
        QCOMPARE(out.field(192, 5), QByteArray("EDF+C"));
        QCOMPARE(out.signalList[0].values.size(), static_cast<std::size_t>(row.count));
        QCOMPARE(out.signalList[1].values.size(), static_cast<std::size_t>(row.count / 2));
        for (int i = 0; i < row.count; ++i) {
            QVERIFY(std::fabs(out.signalList[0].values[static_cast<std::size_t>(i)] - 0.1 * (row.first + i)) < 1e-9);
        }
        QByteArrayList notes;
        for (const EdfParser::Annotation &annotation : out.annotations) {
            notes << annotation.text;
        }
        QCOMPARE(notes, row.notes);
    }
    for (const char *line : {"convert crop @gap.edf @no.edf --from 1.5 --to 5.5", "convert crop @gap.edf @no.edf",
                             "convert crop @gap.edf @no.edf --from 3 --to 4", "convert channels @gap.edf @no.edf",
                             "convert crop @gap.edf @no.edf --from 4.5 --to 6"}) {
        const Outcome outcome = run(line);
        QCOMPARE(outcome.status, 1);
        QVERIFY2(outcome.error.contains("from 2 to 5 s"), outcome.error.constData());
        QVERIFY2(outcome.error.count('\n') == 1, outcome.error.constData());
        QVERIFY(!QFile::exists(path("no.edf")));
    }
}

void TestConvertCommand::exportsTrueTimes()
{
    writeGapped();
    VERIFY_RUN("export @gap.edf @gap.xlsx");
    VERIFY_RUN("export @gap.edf @gap.csv");
    QFile csv(path("gap.csv"));
    QVERIFY(csv.open(QIODevice::ReadOnly));
    const QByteArrayList lines = csv.readAll().split('\n');
    QCOMPARE(lines.size(), 42); // the last is empty
    QCOMPARE(lines[0], QByteArray("Time (s),A (uV),B (uV)"));
    QCOMPARE(lines[2], QByteArray("0.1,0.1,"));
    QCOMPARE(lines[20], QByteArray("1.9,1.9,"));
    QCOMPARE(lines[21], QByteArray("5,2,1"));
    QXlsx::Document book(path("gap.xlsx"));
    QVERIFY(book.selectSheet(QStringLiteral("Data 10 Hz")));
    for (int i = 0; i < 40; ++i) {
        const double time = 0.1 * i + (i < 20 ? 0.0 : 3.0);
        QVERIFY(std::fabs(book.read(i + 2, 1).toDouble() - time) < 1e-6);
        QVERIFY(std::fabs(book.read(i + 2, 2).toDouble() - 0.1 * i) < 1e-6);
    }
    QVERIFY(book.selectSheet(QStringLiteral("Annotations")));
    const double onsets[]{0.5, 3.0, 5.5};
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(book.read(i + 2, 1).toDouble(), onsets[i]);
    }
    QCOMPARE(book.read(3, 3).toString(), QStringLiteral("within"));
}

void TestConvertCommand::unclosedAndRepaired()
{
    const HandmadeEdf file{{{"A", "uV", 100}}, 5, "1", {{"2.5", "here"}}};
    HandmadeEdf::write(HandmadeEdf::changed(file.make(), 236, "-1      ").append("half a record"), path("a.edf"));
    VERIFY_RUN("repair @a.edf @b.edf");
    VERIFY_RUN("convert crop @a.edf @fromA.edf --from 1 --to 4");
    VERIFY_RUN("convert crop @b.edf @fromB.edf --from 1 --to 4");
    const EdfParser part(path("fromA.edf"));
    QCOMPARE(part.bytes, EdfParser(path("fromB.edf")).bytes);
    QCOMPARE(part.signalList[0].values.size(), std::size_t{300});
    QCOMPARE(part.annotations.size(), 1);
    QCOMPARE(part.annotations[0].onset, 1.5);
}

void TestConvertCommand::refusesInOneSentence_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("fragment");
    const auto row = [](const char *line, int status, const char *fragment) {
        QTest::newRow(line) << QByteArray(line) << status << QByteArray(fragment);
    };
    row("convert", 2, "Say what to do");
    row("convert crop @in.edf", 2, "takes a file");
    row("convert crop @in.edf @out.edf --from x", 2, "--from takes a number");
    row("convert crop @in.edf @out.edf --from 2 --to 1", 2, "--to");
    row("convert crop @in.edf @out.edf --from 2 --to 99", 1, "lasts 3 s");
    row("convert crop @none.edf @out.edf", 1, "no such file");
    row("convert crop @long.edf @out.edf", 1, "1 bytes longer");
    row("convert crop @in.edf @in.edf", 1, "the file that is read");
    row("convert crop @in.edf @out.bdf", 2, "of an EDF file writes .edf");
    row("convert crop @in.edf @out.edf --unit uV", 2, "convert crop has no option --unit");
    row("convert text @out.edf @in.txt --rate 10", 2, ".edf or .bdf");
    row("convert channels @in.edf @out.edf --choose C", 1, "only A, A");
    row("convert channels @in.edf @out.edf --choose A", 1, "#1 for the first");
    row("convert channels @in.edf @out.edf --choose #1 --rename B=C", 1, "\"B\"");
    row("convert channels @in.edf @out.edf --rate 0", 2, "above 0 Hz");
    row("convert text @in.txt @out.edf", 2, "--rate");
    row("convert text @in.txt @out.edf --rate 10", 1, "in.txt, line 3: \"x\"");
    row("convert text @short.txt @longer.txt @out.edf --rate 10", 1, "short.txt, line 1: the file ends");
    row("export @in.edf", 2, "export takes");
    row("export @in.txt @out.xlsx", 1, "does not begin as EDF");
    row("repair @in.edf @in.txt @out.edf", 2, "repair takes");
}

void TestConvertCommand::refusesInOneSentence()
{
    QFETCH(QByteArray, line);
    QFETCH(int, status);
    QFETCH(QByteArray, fragment);
    const HandmadeEdf file{{{"A"}, {"A"}}, 3};
    file.writeTo(path("in.edf"));
    HandmadeEdf::write(file.make() + 'x', path("long.edf"));
    HandmadeEdf::write("# " + QByteArray(300, '-') + "\n1 2\n3 x\n", path("in.txt"));
    HandmadeEdf::write("1\n", path("short.txt"));
    HandmadeEdf::write("1\n2\n", path("longer.txt"));
    const QStringList before = QDir(m_folder->path()).entryList(QDir::Files);
    const Outcome outcome = run(line.constData());
    QVERIFY2(outcome.status == status, outcome.error.constData());
    QVERIFY2(outcome.error.contains(fragment), outcome.error.constData());
    QVERIFY2(outcome.error.count('\n') == 1, outcome.error.constData());
    QCOMPARE(QDir(m_folder->path()).entryList(QDir::Files), before);
}

void TestConvertCommand::leavesNothingWhenInterrupted()
{
#ifdef Q_OS_WIN
    QSKIP("A console program cannot be asked to end there");
#endif
    HandmadeEdf{{{"A", "uV", 5000}}, 200}.writeTo(path("in.edf"));
    // A signal may come before the program can take it, and then ends it at once.
    bool isCancelled = false;
    for (int attempt = 1; attempt <= 6 && !isCancelled; ++attempt) {
        QProcess process;
        process.start(
            hostProgram(),
            words("convert channels @in.edf @out.edf --rate 19997").replaceInStrings(QStringLiteral("@"), path("")));
        QVERIFY(process.waitForStarted());
        QVERIFY(!process.waitForFinished(400 * attempt)); // it takes seconds
        const QString id = QString::number(process.processId());
        QCOMPARE(QProcess::execute(QStringLiteral("kill"), {QStringLiteral("-INT"), id}), 0);
        QVERIFY(process.waitForFinished(20000));
        isCancelled = process.exitStatus() == QProcess::NormalExit && process.exitCode() == 1
            && process.readAllStandardError().contains("Cancelled");
        QCOMPARE(QDir(m_folder->path()).entryList(QDir::Files), QStringList{QStringLiteral("in.edf")});
    }
    QVERIFY(isCancelled);
}

BP_TEST_MAIN(TestConvertCommand)
#include "TestConvertCommand.moc"
