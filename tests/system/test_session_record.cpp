#include <cmath>
#include <limits>

#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QtTest>

#include "simulator/session/RepeatabilityTable.h"
#include "simulator/session/RunFolder.h"
#include "simulator/session/SessionRecord.h"
#include "simulator/session/SettingsFiles.h"
#include "support/FileBytes.h"

namespace {

/// A session's record with one figure in it, whose truth is 100, and which may be 9 off.
QJsonObject sessionThatFound(const char* name, double found)
{
    const QJsonObject figure{{"name", name}, {"found", found}, {"truth", 100.0}, {"tolerance", 9.0}};
    return {{"steps", QJsonArray{QJsonObject{{"figures", QJsonArray{figure}}}}}};
}

} // namespace

/// What is judged and kept of a session: measurements, settings files, log, and many seeds together.
class TestSessionRecord : public QObject
{
    Q_OBJECT

private slots:
    void aNumberThatIsNoneFailsItsStep()
    {
        StepReport report;
        report.result = {true, {}, {}, {{"length", "px", std::nan(""), 10.0, 0.5}}};
        QVERIFY(!report.holds());
        SessionRecord record;
        record.steps = {report};
        const QByteArray text = QJsonDocument(record.toJson()).toJson();
        const QJsonArray steps = QJsonDocument::fromJson(text).object()["steps"].toArray();
        const QJsonObject measurement = steps[0].toObject()["figures"].toArray()[0].toObject();
        QVERIFY(measurement["found"].isNull());
        QCOMPARE(measurement["lowest"].toDouble(), 9.5);
        QCOMPARE(measurement["highest"].toDouble(), 10.5);
        QCOMPARE(measurement["verdict"].toString(), QString("fail"));
        QCOMPARE(measurement["truth"].toDouble(), 10.0);
    }

    void aStepHoldsWithItsFigure_data()
    {
        QTest::addColumn<double>("found");
        QTest::addColumn<double>("truth");
        QTest::addColumn<double>("tolerance");
        QTest::addColumn<bool>("holds");
        const double endless = std::numeric_limits<double>::infinity();
        QTest::newRow("three numbers") << 10.0 << 10.5 << 1.0 << true;
        QTest::newRow("as far off as may be") << 10.5 << 10.0 << 0.5 << true;
        QTest::newRow("too large") << 10.51 << 10.0 << 0.5 << false;
        QTest::newRow("too small") << 9.49 << 10.0 << 0.5 << false;
        QTest::newRow("endless truth and limit") << 0.0 << endless << endless << false;
        QTest::newRow("endless limit") << 0.0 << 10.0 << endless << false;
        QTest::newRow("endless result") << endless << 10.0 << endless << false;
        QTest::newRow("no truth") << 10.0 << kNotTaken << 1.0 << false;
        QTest::newRow("no limit") << 10.0 << 10.0 << kNotTaken << false;
        QTest::newRow("never taken") << Measurement().found << 0.0 << 4.0 << false;
    }

    void aStepHoldsWithItsFigure()
    {
        QFETCH(double, found);
        QFETCH(double, truth);
        QFETCH(double, tolerance);
        QFETCH(bool, holds);
        StepReport report;
        report.result = {true, {}, {}, {{"length", "px", found, truth, tolerance}}};
        QCOMPARE(report.result.measurements[0].holds(), holds);
        QCOMPARE(report.holds(), holds);
    }

    void settingsFilesTellWhatChanged()
    {
        QTemporaryDir root;
        const QStringList paths{"/a.ini", "/b.ini", "/missing.ini"};
        putBytes(root.filePath("a.ini"), "[One]\nKey%20a=1\nKey b=2\n");
        putBytes(root.filePath("b.ini"), "[Two]\nx=y\n");
        const SettingsFiles before = SettingsFiles::read(root.path(), paths);
        putBytes(root.filePath("a.ini"), "[One]\nKey%20a=3\nKey b=2\nNew=4\n");
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

    void settingsFilesTellWhatTheySuffered()
    {
        QTemporaryDir root;
        const QStringList paths{"/gone.ini", "/empty.ini", "/cut.ini",
                                "/lost.ini", "/value.ini", "/whole.ini"};
        for (const QString& path : paths)
            putBytes(root.path() + path, "[G]\na=1\nb=2\n");
        const SettingsFiles before = SettingsFiles::read(root.path(), paths);
        QFile::remove(root.filePath("gone.ini"));
        putBytes(root.filePath("empty.ini"), "");
        putBytes(root.filePath("cut.ini"), "[G]\na=1\nb=");
        putBytes(root.filePath("lost.ini"), "[G]\na=1\n");
        putBytes(root.filePath("value.ini"), "[G]\na=\nb=2\n");
        putBytes(root.filePath("whole.ini"), "[G]\na=5\nb=6\nc=7\n");
        const QStringList harm = SettingsFiles::harm(before, SettingsFiles::read(root.path(), paths));
        QCOMPARE(harm, QStringList({"/gone.ini is gone", "/empty.ini is empty", "empty.ini: G/a is lost",
                                    "empty.ini: G/b is lost", "/cut.ini is cut off",
                                    "cut.ini: G/b has lost its value", "lost.ini: G/b is lost",
                                    "value.ini: G/a has lost its value"}));
    }

    void errorLinesAreToldOnce()
    {
        QTemporaryDir directory;
        putBytes(directory.filePath("log"), "fine\nf() [Error] one\nf() [Error] two\nf() [Error] one\n");
        const auto lines = errorLinesOf(directory.filePath("log"));
        QVERIFY(lines.has_value());
        QCOMPARE(*lines, QStringList({"f() [Error] one", "f() [Error] two"}));
        QVERIFY(!errorLinesOf(directory.filePath("none")).has_value());
    }

    void repeatabilityIsBiasAndSpread()
    {
        RepeatabilityTable table;
        for (const double found : {101.0, 103.0, 105.0})
            table.add(7, Answers::HeldBack, true, sessionThatFound("length", found));
        const auto length = table.statistics(1, Answers::HeldBack);
        QVERIFY(length.has_value());
        QCOMPARE(length->count, std::size_t(3));
        QCOMPARE(length->bias, 3.0);
        QCOMPARE(length->spread, 2.0);
        QCOMPARE(length->allowed, 9.0);
        QVERIFY(table.summary().contains("bias 3.00, spread 2.00 px over 3 runs"));
        QCOMPARE(table.csv().split('\n')[3], QString("7,ok,,,,105.000,100.000,5.000,,,,,,,held back"));
        const QJsonObject json = table.toJson();
        QCOMPARE(json["runs"].toArray().size(), 3);
        QCOMPARE(
            json["quantities"].toArray()[1].toObject()["columns"].toArray()[0].toObject()["bias"].toDouble(),
            3.0);
    }

    void aQuantityThatNoRunHasIsNone()
    {
        RepeatabilityTable table;
        table.add(7, Answers::HeldBack, false, {});
        QVERIFY(!table.statistics(0, Answers::HeldBack).has_value());
        QCOMPARE(table.summary(), QString("best Z         none\nlength         none\nmagnification  none\n"
                                          "volume factor  none\n"));
    }

    void plainAnswersHaveAColumnOfTheirOwn()
    {
        RepeatabilityTable table;
        table.add(7, Answers::HeldBack, true, sessionThatFound("best Z", 101.0));
        table.add(7, Answers::Plain, true, sessionThatFound("best Z", 104.0));
        QCOMPARE(table.statistics(0, Answers::HeldBack)->bias, 1.0);
        QCOMPARE(table.statistics(0, Answers::Plain)->bias, 4.0);
        QVERIFY(
            table.summary().startsWith("best Z         bias 1.0, spread 0.0 steps over 1 runs\n"
                                       "best Z         plain answers: bias 4.0, spread 0.0 steps over 1"));
        QVERIFY(table.csv().contains(",held back\n7,ok,104.00,100.00,4.00,"));
        QVERIFY(table.csv().endsWith(",plain\n"));
        const QJsonArray columns = table.toJson()["quantities"].toArray()[0].toObject()["columns"].toArray();
        QCOMPARE(columns.size(), 2);
        QCOMPARE(columns[1].toObject()["answers"].toString(), QString("plain"));
    }

    void theFactsTellWhatIsNotByDefault()
    {
        InstrumentParameters parameters;
        QVERIFY(changedParameters(parameters).empty());
        parameters.setSeed(9);
        QVERIFY(changedParameters(parameters).empty());
        QCOMPARE(setParameter(parameters, "noise=2.5"), std::string());
        QCOMPARE(setParameter(parameters, "best-focus=31000"), std::string());
        RunFacts facts;
        facts.version = "program 1.2.3";
        facts.host = "desk";
        facts.seed = 4000000000U;
        facts.begun = QDateTime(QDate(2026, 11, 21), QTime(19, 30, 5), Qt::OffsetFromUTC, 3600);
        facts.parameters = changedParameters(parameters);
        facts.answersHeldBack = false;
        const QJsonObject json = facts.toJson();
        QCOMPARE(json["simulated"].toBool(), true);
        QCOMPARE(json["version"].toString(), QString("program 1.2.3"));
        QCOMPARE(json["host"].toString(), QString("desk"));
        QCOMPARE(json["begun"].toString(), QString("2026-11-21T19:30:05+01:00"));
        QCOMPARE(json["seed"].toDouble(), 4e9);
        QCOMPARE(json["answersHeldBack"].toBool(true), false);
        QCOMPARE(json["signedBy"].toObject().keys(), QStringList({"date", "name", "signature"}));
        const QJsonArray changed = json["parameters"].toArray();
        QCOMPARE(changed.size(), 2);
        QCOMPARE(changed[0].toObject(), QJsonObject({{"name", "best-focus"},
                                                     {"unit", "steps"},
                                                     {"value", "31000"},
                                                     {"default", "from the seed"}}));
        QCOMPARE(changed[1].toObject()["value"].toString(), QString("2.5"));
    }

    void nothingIsWellBesideAFailedSave()
    {
        SessionRecord record;
        record.errorLines = QStringList();
        QCOMPARE(record.logVerdict(), QString("No line tells an error."));
        QCOMPARE(record.settingsVerdict(),
                 QString("Every file is as it was, or was changed as it should be."));
        record.findings.failedSaves = QStringList("TAB_QC: not told that it is saved");
        QCOMPARE(record.logVerdict(), QString("A save failed, and no line tells it."));
        QCOMPARE(record.settingsVerdict(),
                 QString("No settings file was lost or cut off, but not all was saved."));
        record.errorLines->append("f() [Error] disk");
        QCOMPARE(record.logVerdict(), QString("Lines that tell an error: 1."));
        record.harm = QStringList("a file is gone");
        QCOMPARE(record.settingsVerdict(), QString("Settings files suffered."));
        record.errorLines.reset();
        QCOMPARE(record.logVerdict(), QString("The log cannot be read."));
        QCOMPARE(record.toJson()["failedSaves"].toArray().size(), 1);
    }

    void everyRunHasAFolderOfItsOwn()
    {
        QTemporaryDir directory;
        const QString out = directory.filePath("new/out");
        const QDateTime begun(QDate(2026, 11, 21), QTime(19, 30, 0));
        QCOMPARE(makeRunFolder(out, begun), out + "/2026-11-21_193000");
        QCOMPARE(makeRunFolder(out, begun), out + "/2026-11-21_193000_2");
        QCOMPARE(makeRunFolder(out, begun), out + "/2026-11-21_193000_3");
        putBytes(directory.filePath("file"), "mine");
        QCOMPARE(makeRunFolder(directory.filePath("file"), begun), QString());
        QCOMPARE(makeRunFolder("/proc", begun), QString());
    }

    void onlyLinksToRunsAreReplaced()
    {
        QTemporaryDir directory;
        const QString out = directory.path();
        const QDateTime begun(QDate(2026, 11, 21), QTime(19, 30, 0));
        const QString first = makeRunFolder(out, begun);
        const QString second = makeRunFolder(out, begun);
        for (const QString& folder : {first, second})
            putBytes(folder + "/report.html", folder.toUtf8());
        const auto shown = [&out] { return bytesOf(out + "/report.html"); };
        QCOMPARE(showResults(out, first, {"report.html"}), out + "/report.html");
        QCOMPARE(shown(), first.toUtf8());
        QCOMPARE(showResults(out, second, {"report.html"}), out + "/report.html");
        QCOMPARE(shown(), second.toUtf8());
        QCOMPARE(QFileInfo(out + "/latest").canonicalFilePath(), QFileInfo(second).canonicalFilePath());
        // What a run did not make stays: a file, a folder, a link to elsewhere.
        QFile::remove(out + "/report.html");
        putBytes(out + "/report.html", "mine");
        QFile::remove(out + "/latest");
        QVERIFY(QDir(out).mkdir("latest"));
        QCOMPARE(showResults(out, first, {"report.html"}), first + "/report.html");
        QCOMPARE(shown(), QByteArray("mine"));
        QVERIFY(!QFileInfo(out + "/latest").isSymLink());
        QVERIFY(QFile::link("elsewhere", out + "/session.json"));
        QVERIFY(!linkToRun(out, "session.json", "2026-11-21_193000/session.json"));
        QCOMPARE(QDir(out).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size(), 5);
    }

    void aFailedRunLeavesItsFieldsEmpty()
    {
        RepeatabilityTable table;
        table.add(5, Answers::HeldBack, false, {});
        QCOMPARE(table.csv().split('\n')[1], QString("5,failed,,,,,,,,,,,,,held back"));
        QVERIFY(table.lastRunText().startsWith("seed 5 FAILED"));
        QVERIFY(table.toJson()["runs"].toArray()[0].toObject()["values"].toArray()[0].isNull());
    }

    void theRecordHoldsOnlyWhenAllDoes()
    {
        SessionRecord record;
        QVERIFY(!record.holds());
        StepReport good;
        good.result.holds = true;
        good.name = "one";
        record.steps = {good, good};
        record.steps[1].name = "two";
        record.plannedSteps = QStringList{"one", "two"};
        QVERIFY(record.holds());
        record.harm = QStringList("a file is gone");
        QVERIFY(!record.holds());
        record.harm.clear();
        record.stopped = "Step x";
        QVERIFY(!record.holds());
        record.stopped.clear();
        record.plannedSteps.append("three");
        QVERIFY(!record.holds());
        QCOMPARE(record.stepsNotMade(), QStringList("three"));
        record.steps[1].interrupted = true;
        record.plannedSteps.removeLast();
        QVERIFY(!record.holds());
        const QJsonObject json = record.toJson();
        QCOMPARE(json["steps"].toArray()[0].toObject()["verdict"].toString(), QString("pass"));
        QCOMPARE(json["steps"].toArray()[1].toObject()["verdict"].toString(), QString("interrupted"));
    }
};

QTEST_GUILESS_MAIN(TestSessionRecord)
#include "test_session_record.moc"
