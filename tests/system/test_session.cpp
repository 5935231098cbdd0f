#include <cmath>

#include <QtTest>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "ProgramRun.h"

/// The unattended session, its report and record, on a good and on faulty instruments, and
/// its repetition over seeds.
class TestSession : public QObject
{
    Q_OBJECT

private slots:
    void everyStepHoldsAndIsReported();
    void aFaultySessionEndsWithAReport_data();
    void aFaultySessionEndsWithAReport();
    void aRepetitionTellsBiasAndSpread();
    void wrongOptionsGetOneSentenceAndStatus2_data();
    void wrongOptionsGetOneSentenceAndStatus2();

private:
    static void judgeFigures(const QJsonObject& session);
    static void judgeSettings(const QJsonObject& session);
};

namespace {

QByteArray fileOf(const ProgramRun& run, const QString& name)
{
    QFile file(run.out.filePath(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QJsonObject sessionOf(const ProgramRun& run)
{
    return QJsonDocument::fromJson(fileOf(run, "session.json")).object();
}

QStringList textsOf(const QJsonValue& list)
{
    QStringList texts;
    const QJsonArray values = list.toArray();
    for (const QJsonValue& value : values)
        texts.append(value.toString());
    return texts;
}

} // namespace

void TestSession::everyStepHoldsAndIsReported()
{
    const ProgramRun run({"--session", "--instant", "--seed", "4"});
    QVERIFY2(run.exitStatus == 0, run.all());
    QVERIFY2(run.output.contains("40 of 40 steps as they should be"), run.all());
    const QJsonObject session = sessionOf(run);
    QVERIFY(session["holds"].toBool());
    QCOMPARE(session["seed"].toInt(), 4);
    QCOMPARE(session["steps"].toArray().size(), 40);
    QCOMPARE(session["focusCurve"].toObject()["samples"].toArray().size(), 15);
    QCOMPARE(textsOf(session["lockedControls"]), QStringList());
    QCOMPARE(textsOf(session["settingsHarm"]), QStringList());
    judgeFigures(session);
    judgeSettings(session);

    const QByteArray report = fileOf(run, "report.html");
    QVERIFY(report.size() > 300'000 && report.size() < 6'500'000);
    QVERIFY(report.contains("<svg class=\"curve\""));
    QVERIFY(!report.contains("src=\"http") && !report.contains("href=\"http"));
    const int pictures = run.pictures().size();
    QVERIFY(pictures > 30);
    QCOMPARE(report.count("src=\"data:image/jpeg;base64,/9j/"), pictures);
    const QJsonArray steps = session["steps"].toArray();
    for (const QJsonValue& step : steps)
        QVERIFY(report.contains("id=\"" + step.toObject()["name"].toString().toUtf8() + '"'));
}

void TestSession::judgeFigures(const QJsonObject& session)
{
    QStringList names;
    const QJsonArray steps = session["steps"].toArray();
    for (const QJsonValue& step : steps) {
        const QJsonArray figures = step.toObject()["figures"].toArray();
        for (const QJsonValue& each : figures) {
            const QJsonObject figure = each.toObject();
            names.append(figure["name"].toString());
            const double error = figure["found"].toDouble() - figure["truth"].toDouble();
            QVERIFY2(std::abs(error) <= figure["tolerance"].toDouble(), qPrintable(names.last()));
        }
    }
    for (const char* expected : {"brightness", "best Z", "length", "magnification", "volume factor",
                                 "point 1 x", "point 2 y", "green of the TIFF", "intensity blue"})
        QVERIFY2(names.contains(expected), expected);
}

void TestSession::judgeSettings(const QJsonObject& session)
{
    QStringList lines;
    const QJsonArray files = session["settings"].toArray();
    QCOMPARE(files.size(), 4);
    for (const QJsonValue& file : files)
        lines += textsOf(file.toObject()["difference"]);
    for (const char* expected : {"-Serial=OR3-01-00042", "+Serial=OR3-07-01234", "-Z%20reference=32000",
                                 "-LED=225", "-Skip%20frame=5", "+Skip%20frame=7"})
        QVERIFY2(lines.contains(expected), expected);
}

void TestSession::aFaultySessionEndsWithAReport_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("failed"); // step
    QTest::addColumn<QString>("error");  // in the log; none: no matter
    QTest::newRow("refused moves") << QStringList{"--fault", "failure:MVP", "--steps",
                                                  "window,jog,serial,save-stage,stay,exit,ended"}
                                   << "jog"
                                   << "";
    QTest::newRow("no camera") << QStringList{"--fault", "no-camera", "--steps",
                                              "window,vga,save-camera,stay,exit,ended"}
                               << "vga"
                               << "[Error] VIDIOC_S_FMT";
    QTest::newRow("no settings files")
        << QStringList{"--fault", "no-settings", "--steps", "window,handshake,save-qc,exit,ended"}
        << "save-qc"
        << "";
    // A dark picture, which no TIFF and no dot was ever taken from.
    QTest::newRow("no power") << QStringList{"--fault", "no-power", "--steps",
                                             "window,capture,slide,points,measure,exit,ended"}
                              << "slide"
                              << "";
}

void TestSession::aFaultySessionEndsWithAReport()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, failed);
    QFETCH(QString, error);
    const ProgramRun run(QStringList{"--session", "--instant"} + arguments);
    QCOMPARE(run.exitStatus, 1);
    const QJsonObject session = sessionOf(run);
    QVERIFY(!session["holds"].toBool());
    QCOMPARE(textsOf(session["faults"]), QStringList(arguments[1]));
    QCOMPARE(textsOf(session["settingsHarm"]), QStringList());
    bool found = false;
    const QJsonArray steps = session["steps"].toArray();
    for (const QJsonValue& step : steps) {
        if (step.toObject()["name"].toString() == failed)
            found = !step.toObject()["holds"].toBool();
        const QJsonArray figures = step.toObject()["figures"].toArray();
        for (const QJsonValue& figure : figures)
            QVERIFY2(!figure.toObject()["holds"].toBool(), qPrintable(figure.toObject()["name"].toString()));
    }
    QVERIFY2(found, run.all());
    QVERIFY(session["steps"].toArray().last().toObject()["holds"].toBool());
    if (!error.isEmpty())
        QVERIFY(textsOf(session["errorLines"]).join('\n').contains(error));
    const QByteArray report = fileOf(run, "report.html");
    QVERIFY(report.contains("fault: " + arguments[1].toUtf8()));
    QVERIFY(report.contains("not as it should be"));
}

void TestSession::aRepetitionTellsBiasAndSpread()
{
    const ProgramRun run({"--repeat", "2", "--seed", "5", "--instant"});
    QVERIFY2(run.exitStatus == 0, run.all());
    QVERIFY2(run.output.contains("2 of 2 runs as they should be"), run.all());
    const QStringList lines = QString::fromLatin1(fileOf(run, "repeatability.csv")).split('\n');
    QCOMPARE(lines.size(), 4);
    const int columns = lines[0].split(',').size();
    QCOMPARE(columns, 14);
    for (int i = 0; i < 2; ++i) {
        const QStringList fields = lines[i + 1].split(',');
        QCOMPARE(fields.size(), columns);
        QCOMPARE(fields[0], QString::number(5 + i));
        QCOMPARE(fields[1], QString("ok"));
        for (int first = 2; first < columns; first += 3) {
            const double error = fields[first].toDouble() - fields[first + 1].toDouble();
            QVERIFY(std::abs(error - fields[first + 2].toDouble()) < 0.01);
        }
        QVERIFY(fields[2].toDouble() > 20000.0 && fields[5].toDouble() > 100.0);
    }
    QVERIFY(lines[1].section(',', 2) != lines[2].section(',', 2));
    const QByteArray picture = fileOf(run, "repeatability.svg");
    QCOMPARE(picture.count("<circle"), 8);
    QVERIFY(!QJsonDocument::fromJson(fileOf(run, "seed-6/session.json")).isEmpty());
}

void TestSession::wrongOptionsGetOneSentenceAndStatus2_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("named");
    QTest::newRow("no repetition") << QStringList{"--repeat", "0"} << "\"0\"";
    QTest::newRow("repetitions") << QStringList{"--repeat", "often"} << "\"often\"";
    QTest::newRow("step") << QStringList{"--session", "--steps", "lunch"} << "\"lunch\"";
    QTest::newRow("step of the session only")
        << QStringList{"--visit", "--steps", "measure"} << "\"measure\"";
}

void TestSession::wrongOptionsGetOneSentenceAndStatus2()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, named);
    const ProgramRun run(arguments, 20000);
    QCOMPARE(run.exitStatus, 2);
    QVERIFY2(run.errors.contains(named), run.all());
    QCOMPARE(run.errors.count('\n'), 1);
}

QTEST_GUILESS_MAIN(TestSession)
#include "test_session.moc"
