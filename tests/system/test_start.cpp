#include <functional>
#include <memory>

#include <QtTest>

#include <QDir>

#include "ProgramEnd.h"
#include "shipped/Expectations.h"
#include "support/Patience.h"
#include "support/XServer.h"

namespace {

using Variables = QMap<QString, QString>;

const int kAtOnce_ms = patient_ms(5000); // generous: the machine may be busy
const int kRunLimit_ms = patient_ms(60000);
constexpr int kUsageError = 2, kFailure = 1;
const char* const kHelp =
    "Usage: orla-verifier [options]\n\n"
    "Verifies and calibrates an image-based cell-counting instrument, full screen on its\n"
    "panel. Without an option the window opens and the instrument's hardware is driven: LED,\n"
    "stage, camera. The window's button Exit ends the program in order, and so does SIGTERM.\n\n"
    "Options:\n"
    "  -h, --help, --help-all  shows this text and ends\n"
    "  -v, --version           shows name and version and ends\n\n"
    "The options of every Qt program are taken as well, such as -platform NAME.\n";
const QString kNameAndVersion = QStringLiteral("orla-verifier " ORLA_VERSION);
const QString kSimulatorNameAndVersion = QStringLiteral("orla-verifier-simulator " ORLA_VERSION);
// A display number beyond any that a server takes.
const Variables kNoDisplay{{"QT_QPA_PLATFORM", "xcb"}, {"DISPLAY", ":32123"}};

Ended runSimulator(const QStringList& arguments, const Variables& variables, const QString& folder = {})
{
    QProcess program;
    program.setWorkingDirectory(folder);
    startSimulator(program, arguments, variables);
    return {program, kRunLimit_ms};
}

void questionRows()
{
    QTest::addColumn<QString>("question");
    QTest::addColumn<bool>("asksVersion");
    for (const char* question : {"--help", "-h", "--help-all"})
        QTest::newRow(question) << question << false;
    for (const char* question : {"--version", "-v"})
        QTest::newRow(question) << question << true;
}

void screenRows()
{
    // Qt's own sentence: what it says before the advice that follows.
    const QString noPlugin =
        "This application failed to start because no Qt platform plugin could be initialized";
    QTest::addColumn<Variables>("screen");
    QTest::addColumn<QString>("cause");
    QTest::newRow("no X server") << kNoDisplay << noPlugin;
    QTest::newRow("DISPLAY is empty") << Variables{{"QT_QPA_PLATFORM", "xcb"}, {"DISPLAY", ""}} << noPlugin;
    QTest::newRow("no frame buffer") << Variables{{"QT_QPA_PLATFORM", "linuxfb:fb=/dev/no-such-buffer"}}
                                     << "linuxfb";
    QTest::newRow("no such platform") << Variables{{"QT_QPA_PLATFORM", "nonsense"}} << noPlugin;
}

QString lineWithoutScreen(const char* program, const QString& cause)
{
    return QString("%1: no screen can be used; QT_QPA_PLATFORM, and for an X server DISPLAY, name one (%2)")
        .arg(program, cause);
}

/// The controls beside the live view, whose picture never changes by itself.
QImage controls(const QImage& window)
{
    constexpr int liveViewWidth_px = 640;
    return window.copy(liveViewWidth_px, 0, window.width() - liveViewWidth_px, window.height());
}

/// Whether the text cursor is just to be seen makes so many pixels at the most.
constexpr int kBlinking_px = 32;

/// How often a picture has to be the same before the window counts as standing still.
constexpr int kStill = 10;
constexpr int kBetweenPictures_ms = 30;

struct Difference
{
    int count = 0;
    QRect around;
};

Difference difference(const QImage& one, const QImage& other)
{
    Difference found;
    for (int y = 0; y < one.height(); ++y)
        for (int x = 0; x < one.width(); ++x)
            if (one.pixel(x, y) != other.pixel(x, y)) {
                ++found.count;
                found.around |= QRect(x, y, 1, 1);
            }
    return found;
}

bool areAlike(const QImage& one, const QImage& other)
{
    return one.size() == other.size() && difference(one, other).count <= kBlinking_px;
}

/// The controls once nothing changes in them any more: the steps of the start each lock the
/// window for a moment, and a request may come in just then. Null when they do not come to rest.
QImage controlsAtRest(ShippedProgram& program)
{
    QImage seen;
    int times = 0;
    const bool stands = QTest::qWaitFor(
        [&] {
            const QImage next = controls(program.picture());
            times = program.ask({{"do", "look"}})["enabled"].toBool() && areAlike(next, seen) ? times + 1 : 0;
            seen = next;
            QThread::msleep(kBetweenPictures_ms);
            return times == kStill;
        },
        kRunLimit_ms);
    return stands ? seen : QImage();
}

} // namespace

/// What both programs do before their window: questions that are answered at once, options that
/// they do not know, screens that are missing or of another resolution.
class TestStart : public ShippedProgramTest
{
    Q_OBJECT

private slots:
    void aQuestionIsAnsweredWithoutScreenAndDevices_data() { questionRows(); }

    void aQuestionIsAnsweredWithoutScreenAndDevices()
    {
        QFETCH(QString, question);
        QFETCH(bool, asksVersion);
        ShippedProgram program;
        program.setVariables(kNoDisplay);
        QElapsedTimer time;
        time.start();
        QCOMPARE(program.run({question}), 0);
        QVERIFY(time.elapsed() < kAtOnce_ms);
        QCOMPARE(QString(program.output()), asksVersion ? kNameAndVersion + '\n' : QString(kHelp));
        QCOMPARE(program.calls(), QStringList());
        QCOMPARE(program.commands(), QByteArray());
        QCOMPARE(program.boardLines(), QStringList());
    }

    void theSimulatorAnswersWithoutAScreen_data() { questionRows(); }

    void theSimulatorAnswersWithoutAScreen()
    {
        QFETCH(QString, question);
        QFETCH(bool, asksVersion);
        QElapsedTimer time;
        time.start();
        const Ended ended = runSimulator({question}, kNoDisplay);
        QCOMPARE(ended.status, 0);
        QVERIFY(time.elapsed() < kAtOnce_ms);
        QCOMPARE(ended.errors, QString());
        if (asksVersion)
            QCOMPARE(ended.output, kSimulatorNameAndVersion + '\n');
        else
            QVERIFY2(ended.output.startsWith("Usage: orla-verifier-simulator [options]\n"),
                     qPrintable(ended.output));
    }

    void anUnknownArgumentIsRefused_data()
    {
        QTest::addColumn<QString>("argument");
        for (const char* argument : {"--no-such-option", "-x", "word", "--helpme"})
            QTest::newRow(argument) << argument;
    }

    void anUnknownArgumentIsRefused()
    {
        QFETCH(QString, argument);
        ShippedProgram program;
        QCOMPARE(program.run({argument}), kUsageError);
        const QString lastLine = QString(program.output()).trimmed().section('\n', -1);
        QCOMPARE(lastLine,
                 "orla-verifier does not understand \"" + argument + "\"; --help lists its options.");
        QCOMPARE(program.calls(), QStringList());
    }

    void theSimulatorRefusesAnUnknownArgument_data() { anUnknownArgumentIsRefused_data(); }

    void theSimulatorRefusesAnUnknownArgument()
    {
        QFETCH(QString, argument);
        const Ended ended = runSimulator({argument}, kNoDisplay);
        QCOMPARE(ended.status, kUsageError);
        QCOMPARE(ended.output, QString());
        QCOMPARE(ended.errors.count('\n'), 1);
        const QString name = QString(argument).remove(QRegularExpression("^-+"));
        QVERIFY2(ended.errors.contains(name), qPrintable(ended.errors));
    }

    void theOptionsOfEveryQtProgramAreTaken()
    {
        ShippedProgram program;
        program.setVariables({{"QT_QPA_PLATFORM", "nonsense"}});
        QVERIFY2(program.start({"-platform", "offscreen"}), program.output());
        QCOMPARE(program.exit(), 0);
    }

    void withoutAScreenNoDeviceIsTouched_data() { screenRows(); }

    void withoutAScreenNoDeviceIsTouched()
    {
        QFETCH(Variables, screen);
        QFETCH(QString, cause);
        ShippedProgram program;
        program.setVariables(screen);
        QCOMPARE(program.run({}), kFailure);
        const QByteArray lastLine = program.output().trimmed().split('\n').last();
        QCOMPARE(QString(lastLine), lineWithoutScreen("orla-verifier", cause));
        QCOMPARE(program.calls(), QStringList());
        QCOMPARE(program.commands(), QByteArray());
        QCOMPARE(program.boardLines(), QStringList());
    }

    void withoutAScreenTheSimulatorLeavesNothing_data() { screenRows(); }

    void withoutAScreenTheSimulatorLeavesNothing()
    {
        QFETCH(Variables, screen);
        QFETCH(QString, cause);
        const QTemporaryDir temporary, runtime;
        screen["TMPDIR"] = temporary.path();
        screen["XDG_RUNTIME_DIR"] = runtime.path(); // Qt makes one of its own otherwise
        const Ended ended = runSimulator({"--session", "--out", temporary.filePath("out")}, screen);
        QCOMPARE(ended.status, kFailure);
        const QString lastLine = ended.errors.trimmed().split('\n').last();
        QCOMPARE(lastLine, lineWithoutScreen("orla-verifier-simulator", cause));
        QCOMPARE(QDir(temporary.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList());
    }

    void theVersionIsLoggedOnce()
    {
        ShippedProgram program;
        QVERIFY(program.start());
        QCOMPARE(program.exit(), 0);
        const QStringList lines = QString(program.output()).split('\n');
        QCOMPARE(lines.count(kNameAndVersion), 1);
        QVERIFY(lines.indexOf(kNameAndVersion) < lines.indexOf(QRegularExpression(".*OV5642Camera::open.*")));
    }

    void theSimulatorLogsTheVersionOnce()
    {
        const QTemporaryDir out;
        const Ended ended = runSimulator({"--instant", "--steps", "window,exit,ended", "--out", "."},
                                         {{"QT_QPA_PLATFORM", "offscreen"}}, out.path());
        QVERIFY2(ended.status == 0, qPrintable(ended.output + ended.errors));
        QFile log(out.filePath("latest/verifier.log"));
        QVERIFY(log.open(QIODevice::ReadOnly));
        QCOMPARE(QString(log.readAll()).split('\n').count(kSimulatorNameAndVersion), 1);
    }

    void pointsAreAsLargeOnEveryScreen()
    {
        compareOnEveryScreen([](const Variables& screen) {
            ShippedProgram program;
            program.setVariables(screen);
            if (!program.start() ||
                !QTest::qWaitFor([&] { return program.text("EDIT_Z_REFERENCE") == "30000"; }, kRunLimit_ms))
                return QImage();
            const QImage seen = controlsAtRest(program);
            return program.exit() == 0 ? seen : QImage();
        });
    }

    void pointsAreAsLargeOnEveryScreenOfTheSimulator()
    {
        compareOnEveryScreen([](const Variables& screen) {
            const QTemporaryDir out;
            const Ended ended =
                runSimulator({"--instant", "--steps", "window,exit,ended", "--out", "."}, screen, out.path());
            return ended.status == 0 ? controls(QImage(out.filePath("latest/01-window.png"))) : QImage();
        });
    }

    void theEndOfTheScreenParksTheBoard_data()
    {
        QTest::addColumn<QByteArray>("zigMode");
        QTest::addColumn<QStringList>("parking");
        QTest::newRow("parks") << QByteArray("Off") << QStringList{"LED4,OFF,,", "STM1,ORIGIN,,"};
        QTest::newRow("in Zig mode") << QByteArray("On") << QStringList();
    }

    // Qt ends a program whose X server has gone on the spot.
    void theEndOfTheScreenParksTheBoard()
    {
        QFETCH(QByteArray, zigMode);
        QFETCH(QStringList, parking);
        auto server = std::make_unique<XServer>(800, 480);
        if (server->display().empty())
            QSKIP("no X server here");
        ShippedProgram program;
        program.setVariables(
            {{"QT_QPA_PLATFORM", "xcb"}, {"DISPLAY", QString::fromStdString(server->display())}});
        program.write(kMainSettings, "[ORLA-III]\nZig%20mode=" + zigMode + '\n');
        QVERIFY(program.start());
        const int before = program.boardLines().size();
        server.reset();
        QCOMPARE(program.waitForEnd(), kFailure);
        QCOMPARE(program.boardLines(before), parking);
        QVERIFY2(QDir(program.file("lock")).isEmpty(), "the serial port is given back");
    }

private:
    /// Holds what a program shows on screens of several resolutions against each other.
    static void compareOnEveryScreen(const std::function<QImage(const Variables& screen)>& controlsOn)
    {
        QImage usual;
        for (const int resolution_dpi : {96, 144, 60}) {
            const XServer server(800, 480, resolution_dpi);
            if (server.display().empty())
                QSKIP("no X server here");
            const QImage seen = controlsOn(
                {{"QT_QPA_PLATFORM", "xcb"}, {"DISPLAY", QString::fromStdString(server.display())}});
            QVERIFY(!seen.isNull());
            if (usual.isNull())
                usual = seen;
            QCOMPARE(seen.size(), usual.size());
            const QRect different = difference(seen, usual).around;
            QVERIFY2(areAlike(seen, usual), qPrintable(QString("%1 dpi: other pixels within %2, %3, %4 x %5")
                                                           .arg(resolution_dpi)
                                                           .arg(different.x())
                                                           .arg(different.y())
                                                           .arg(different.width())
                                                           .arg(different.height())));
        }
    }
};

QTEST_GUILESS_MAIN(TestStart)
#include "test_start.moc"
