#include <cmath>
#include <limits>

#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QtTest>

#include "simulator/session/RepeatabilityTable.h"
#include "simulator/session/SessionRecord.h"
#include "simulator/session/SettingsFiles.h"

/// What is judged and kept of a session: figures, settings files, log, and many seeds together.
class TestSessionRecord : public QObject
{
    Q_OBJECT

private slots:
    void aFigureOutsideItsToleranceFailsItsStep();
    void aNumberThatIsNoneFailsItsStep();
    void aFigureWithoutThreeFiniteNumbersNeverHolds_data();
    void aFigureWithoutThreeFiniteNumbersNeverHolds();
    void settingsFilesTellWhatChanged();
    void settingsFilesTellWhatTheySuffered();
    void errorLinesAreToldOnce();
    void repeatabilityIsBiasAndSpread();
    void aFailedRunLeavesItsFieldsEmpty();
    void theRecordHoldsOnlyWhenAllDoes();
};

namespace {

void writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("a test's file cannot be written");
}

} // namespace

void TestSessionRecord::aFigureOutsideItsToleranceFailsItsStep()
{
    StepReport report;
    report.result = {true, {}, {}, {{"length", "px", 10.5, 10.0, 0.5}}};
    QVERIFY(report.holds());
    report.result.figures[0].found = 10.51;
    QVERIFY(!report.holds());
    report.result.figures[0].found = 9.49;
    QVERIFY(!report.holds());
}

void TestSessionRecord::aNumberThatIsNoneFailsItsStep()
{
    StepReport report;
    report.result = {true, {}, {}, {{"length", "px", std::nan(""), 10.0, 0.5}}};
    QVERIFY(!report.holds());
    SessionRecord record;
    record.steps = {report};
    const QByteArray text = QJsonDocument(record.toJson()).toJson();
    const QJsonArray steps = QJsonDocument::fromJson(text).object()["steps"].toArray();
    const QJsonObject figure = steps[0].toObject()["figures"].toArray()[0].toObject();
    QVERIFY(figure["found"].isNull());
    QCOMPARE(figure["truth"].toDouble(), 10.0);
}

void TestSessionRecord::aFigureWithoutThreeFiniteNumbersNeverHolds_data()
{
    QTest::addColumn<double>("found");
    QTest::addColumn<double>("truth");
    QTest::addColumn<double>("tolerance");
    QTest::addColumn<bool>("holds");
    const double endless = std::numeric_limits<double>::infinity();
    QTest::newRow("three numbers") << 10.0 << 10.5 << 1.0 << true;
    QTest::newRow("endless truth and limit") << 0.0 << endless << endless << false;
    QTest::newRow("endless limit") << 0.0 << 10.0 << endless << false;
    QTest::newRow("endless result") << endless << 10.0 << endless << false;
    QTest::newRow("no truth") << 10.0 << kNotTaken << 1.0 << false;
    QTest::newRow("no limit") << 10.0 << 10.0 << kNotTaken << false;
    QTest::newRow("never taken") << Figure().found << 0.0 << 4.0 << false;
}

void TestSessionRecord::aFigureWithoutThreeFiniteNumbersNeverHolds()
{
    QFETCH(double, found);
    QFETCH(double, truth);
    QFETCH(double, tolerance);
    QFETCH(bool, holds);
    QCOMPARE((Figure{"length", "px", found, truth, tolerance}.holds()), holds);
}

void TestSessionRecord::settingsFilesTellWhatChanged()
{
    QTemporaryDir root;
    const QStringList paths{"/a.ini", "/b.ini", "/missing.ini"};
    writeFile(root.filePath("a.ini"), "[One]\nKey%20a=1\nKey b=2\n");
    writeFile(root.filePath("b.ini"), "[Two]\nx=y\n");
    const SettingsFiles before = SettingsFiles::read(root.path(), paths);
    writeFile(root.filePath("a.ini"), "[One]\nKey%20a=3\nKey b=2\nNew=4\n");
    const SettingsFiles after = SettingsFiles::read(root.path(), paths);
    QCOMPARE(before.entries().at("a.ini: One/Key a"), QString("1"));
    QCOMPARE(after.entries().at("a.ini: One/Key a"), QString("3"));
    QCOMPARE(after.entries().size(), std::size_t(4));
    QCOMPARE(SettingsFiles::harm(before, after), QStringList());
    const auto differences = SettingsFiles::differences(before, after);
    QCOMPARE(differences.size(), std::size_t(2));
    QStringList lines;
    for (const DifferenceLine& line : differences[0].lines)
        lines.append(QString(" -+"[line.kind]) + line.text);
    QCOMPARE(lines, QStringList({" [One]", "-Key%20a=1", "+Key%20a=3", " Key b=2", "+New=4"}));
    QVERIFY(!differences[0].isSame());
    QVERIFY(differences[1].isSame());
}

void TestSessionRecord::settingsFilesTellWhatTheySuffered()
{
    QTemporaryDir root;
    const QStringList paths{"/gone.ini", "/empty.ini", "/cut.ini", "/lost.ini", "/value.ini", "/whole.ini"};
    for (const QString& path : paths)
        writeFile(root.path() + path, "[G]\na=1\nb=2\n");
    const SettingsFiles before = SettingsFiles::read(root.path(), paths);
    QFile::remove(root.filePath("gone.ini"));
    writeFile(root.filePath("empty.ini"), "");
    writeFile(root.filePath("cut.ini"), "[G]\na=1\nb=");
    writeFile(root.filePath("lost.ini"), "[G]\na=1\n");
    writeFile(root.filePath("value.ini"), "[G]\na=\nb=2\n");
    writeFile(root.filePath("whole.ini"), "[G]\na=5\nb=6\nc=7\n");
    const QStringList harm = SettingsFiles::harm(before, SettingsFiles::read(root.path(), paths));
    QCOMPARE(harm,
             QStringList({"/gone.ini is gone", "/empty.ini is empty", "empty.ini: G/a is lost",
                          "empty.ini: G/b is lost", "/cut.ini is cut off", "cut.ini: G/b has lost its value",
                          "lost.ini: G/b is lost", "value.ini: G/a has lost its value"}));
}

void TestSessionRecord::errorLinesAreToldOnce()
{
    QTemporaryDir directory;
    writeFile(directory.filePath("log"), "fine\nf() [Error] one\nf() [Error] two\nf() [Error] one\n");
    QCOMPARE(errorLinesOf(directory.filePath("log")), QStringList({"f() [Error] one", "f() [Error] two"}));
    QCOMPARE(errorLinesOf(directory.filePath("none")), QStringList());
}

void TestSessionRecord::repeatabilityIsBiasAndSpread()
{
    RepeatabilityTable table;
    for (const double found : {101.0, 103.0, 105.0}) {
        const QJsonObject figure{{"name", "length"}, {"found", found}, {"truth", 100.0}, {"tolerance", 9.0}};
        const QJsonObject step{{"figures", QJsonArray{figure}}};
        table.add(7, true, {{"steps", QJsonArray{step}}});
    }
    const RepeatabilityTable::Statistics length = table.statistics(1);
    QCOMPARE(length.count, std::size_t(3));
    QCOMPARE(length.bias, 3.0);
    QCOMPARE(length.spread, 2.0);
    QCOMPARE(table.statistics(0).count, std::size_t(0));
    QVERIFY(table.summary().contains("bias 3.00, spread 2.00 px over 3 runs"));
    QCOMPARE(table.csv().split('\n')[3], QString("7,ok,,,,105.000,100.000,5.000,,,,,,"));
    QCOMPARE(table.svg().count("<circle"), 3);
}

void TestSessionRecord::aFailedRunLeavesItsFieldsEmpty()
{
    RepeatabilityTable table;
    table.add(5, false, {});
    QCOMPARE(table.csv().split('\n')[1], QString("5,failed,,,,,,,,,,,,"));
    QVERIFY(table.lastRunText().startsWith("seed 5 FAILED"));
    QCOMPARE(table.svg().count("<circle"), 0);
}

void TestSessionRecord::theRecordHoldsOnlyWhenAllDoes()
{
    SessionRecord record;
    QVERIFY(!record.holds());
    StepReport good;
    good.result.holds = true;
    record.steps = {good, good};
    record.plannedSteps = 2;
    QVERIFY(record.holds());
    record.harm = QStringList("a file is gone");
    QVERIFY(!record.holds());
    record.harm.clear();
    record.stopped = "Step x";
    QVERIFY(!record.holds());
    record.stopped.clear();
    record.plannedSteps = 3;
    QVERIFY(!record.holds());
}

QTEST_GUILESS_MAIN(TestSessionRecord)
#include "test_session_record.moc"
