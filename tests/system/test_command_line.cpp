#include <csignal>

#include <QImage>
#include <QPainter>
#include <QtTest>

#include "ProgramEnd.h"
#include "ProgramRun.h"
#include "tests/support/Emulation.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Patience.h"

namespace {

const int kLimit_ms = patient_ms(60000);
const int kAnswer_ms = patient_ms(20000);

/// Whether a program that was started tells in time that the board has answered, which comes last
/// of what its window's construction waits for.
bool hasStarted(QProcess& program)
{
    const QByteArray answered = "slot_connected_controller";
    program.setReadChannel(QProcess::StandardError);
    // What an event loop has read before is not told a second time.
    QByteArray log = program.readAllStandardError();
    while (!log.contains(answered) && program.waitForReadyRead(kLimit_ms))
        log += program.readAllStandardError();
    return log.contains(answered);
}

} // namespace

/// The simulator program's command line: what each option does to instrument, window and run.
class TestCommandLine : public QObject
{
    Q_OBJECT

private slots:
    void zigModeLeavesTheInstrumentAsItIs()
    {
        const ProgramRun run(
            {"--instant", "--parameter", "zig-mode=on", "--steps", "window,handshake,exit,ended,parked"});
        QVERIFY2(run.exitStatus == 0, run.all());
        QVERIFY2(run.output.contains("received nothing, LED on at 225, stage at 32000"), run.all());
    }

    void aBrokenInstrumentFailsAStep_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("failedStep");
        QTest::newRow("a board without power") << "no-power"
                                               << "handshake";
        QTest::newRow("refused homing") << "failure:ORIGIN:2"
                                        << "home";
        QTest::newRow("no frames") << "stall"
                                   << "1280";
    }

    void aBrokenInstrumentFailsAStep()
    {
        QFETCH(QString, fault);
        QFETCH(QString, failedStep);
        const ProgramRun run({"--instant", "--fault", fault, "--steps", failedStep + ",exit,ended"});
        QCOMPARE(run.exitStatus, 1);
        QVERIFY2(run.output.contains(QRegularExpression("FAILED " + failedStep)), run.all());
        QVERIFY2(run.output.contains("2 of 3 steps as they should be"), run.all());
    }

    void anotherSeedHasAnotherFocus()
    {
        const QRegularExpression truth("focus at (\\d+)");
        QStringList positions;
        for (const char* seed : {"2", "3"}) {
            const ProgramRun run({"--instant", "--seed", seed, "--steps", "focus,exit,ended"});
            QVERIFY2(run.exitStatus == 0, run.all());
            positions.append(truth.match(run.output).captured(1));
        }
        QVERIFY(positions[0] != positions[1]);
    }

    void aPictureMayLieUnderTheMicroscope()
    {
        SKIP_UNDER_EMULATION("the window paints too few of the frames for the mode's step");
        QTemporaryDir directory;
        const QString file = directory.filePath("micrograph.png");
        QImage picture(1296, 972, QImage::Format_RGB32);
        picture.fill(qRgb(240, 235, 245));
        {
            QPainter painter(&picture);
            painter.setBrush(QColor(90, 60, 150));
            for (int cell = 0; cell < 150; ++cell)
                painter.drawEllipse(QPoint(cell * 397 % 1296, cell * 641 % 972), 14, 11);
        }
        QVERIFY(picture.save(file));
        const ProgramRun run(
            {"--session", "--instant", "--slide", file, "--steps", "window,1280,focus,exit,ended"});
        QVERIFY2(run.exitStatus == 0, run.all());
        QVERIFY2(run.output.contains("5 of 5 steps as they should be"), run.all());
        QVERIFY(run.contentOf("session.json").contains("--slide " + file.toUtf8()));
    }

    // Without an autofocus before it, for the focus is where it is expected.
    void theTargetMayLieUnderTheMicroscope()
    {
        const ProgramRun run({"--instant", "--slide", "target", "--seed", "8", "--parameter",
                              "best-focus=32000", "--steps", "centre,freeze,points,measure,exit,ended"});
        QVERIFY2(run.exitStatus == 0, run.all());
        QVERIFY2(
            run.output.contains(QRegularExpression("magnification \\d\\.\\d{3}, volume factor 0\\.\\d{5}")),
            run.all());
    }

    void wrongOptionsGetOneSentenceAndStatus2_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("named");
        QTest::newRow("unknown option") << QStringList{"--nonsense"} << "nonsense";
        QTest::newRow("missing value") << QStringList{"--slide"} << "slide";
        QTest::newRow("argument") << QStringList{"file.ini"} << "file.ini";
        QTest::newRow("seed") << QStringList{"--seed", "one"} << "\"one\"";
        QTest::newRow("negative seed") << QStringList{"--seed=-1"} << "\"-1\"";
        QTest::newRow("slide") << QStringList{"--slide", "blood"} << "\"blood\"";
        QTest::newRow("slide's folder") << QStringList{"--slide", "/"} << "\"/\"";
        QTest::newRow("slide's text") << QStringList{"--slide", "/proc/version"} << "\"/proc/version\"";
        QTest::newRow("fault") << QStringList{"--fault", "rain"} << "\"rain\"";
        QTest::newRow("fault's count") << QStringList{"--fault", "mmap:0"} << "\"mmap:0\"";
        QTest::newRow("fault's command count") << QStringList{"--fault", "late:MVP:x"} << "\"late:MVP:x\"";
        QTest::newRow("parameter") << QStringList{"--parameter", "weight=3"} << "\"weight\"";
        QTest::newRow("parameter without value") << QStringList{"--parameter", "noise"} << "\"noise\"";
        QTest::newRow("parameter's value") << QStringList{"--parameter", "noise=much"} << "noise";
        QTest::newRow("parameter's range") << QStringList{"--parameter", "led-level=1001"} << "1000";
        QTest::newRow("disk") << QStringList{"--disk", "floppy"} << "\"floppy\"";
        QTest::newRow("disk's place") << QStringList{"--disk", "good,in"} << "\"good,in\"";
        QTest::newRow("third disk") << QStringList{"--disk", "good", "--disk", "good", "--disk", "good"}
                                    << "two USB sockets";
        QTest::newRow("step") << QStringList{"--steps", "window,lunch"} << "\"lunch\"";
        QTest::newRow("no repetition") << QStringList{"--repeat", "0"} << "\"0\"";
        QTest::newRow("repetitions") << QStringList{"--repeat", "often"} << "\"often\"";
    }

    void wrongOptionsGetOneSentenceAndStatus2()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, named);
        const ProgramRun run(arguments, kAnswer_ms);
        QCOMPARE(run.exitStatus, 2);
        QVERIFY2(run.errors.contains(named), run.all());
        QCOMPARE(run.errors.count('\n'), 1);
        QCOMPARE(run.output, QString());
    }

    void helpNamesEveryOptionParameterAndFault()
    {
        const ProgramRun run({"--help"}, kAnswer_ms);
        QCOMPARE(run.exitStatus, 0);
        for (const char* expected : {"--slide",
                                     "--seed",
                                     "--parameter",
                                     "--fault",
                                     "--settings",
                                     "--root",
                                     "--instant",
                                     "--session",
                                     "--repeat",
                                     "--steps",
                                     "--out",
                                     "--faults",
                                     "stage-maximum = 64000 steps",
                                     "--disk",
                                     "USR1",
                                     "USR2",
                                     "best-focus = from the seed",
                                     "zig-mode = off",
                                     "no-answer[:COMMAND[:N]]",
                                     "ioctl:REQUEST[:ERRNO[:N]]",
                                     "consoles"})
            QVERIFY2(run.output.contains(expected), expected);
    }

    void theListOfFaultsExplainsEach()
    {
        const ProgramRun run({"--faults"}, kAnswer_ms);
        QCOMPARE(run.exitStatus, 0);
        for (const char* expected :
             {"no-serial", "no-power", "no-settings", "garbled", "no-camera", "i2c-short", "worn-out"})
            QVERIFY2(run.output.contains(QRegularExpression(QString("  %1\\S* +\\S+").arg(expected))),
                     expected);
        QVERIFY(!run.output.contains("stage-maximum"));
    }

    void theUsersOwnSettingsAreUsedAndNotWritten()
    {
        QTemporaryDir folder;
        const QByteArray content = "[Calibration]\nZ%20reference=31000\n[ORLA-III]\nZig%20mode=Off\n"
                                   "[Software]\nVersion%20QC=0.0.9\n";
        putBytes(folder.filePath("ORLA3.ini"), content);
        const ProgramRun run({"--instant", "--settings", folder.path(), "--steps", "ended,window,exit"});
        QVERIFY2(run.exitStatus == 0, run.all());
        QVERIFY2(run.output.contains("version 0.0.9"), run.all());
        QVERIFY2(run.output.contains("3 of 3 steps as they should be"), run.all());
        QCOMPARE(bytesOf(folder.filePath("ORLA3.ini")), content);
        QCOMPARE(ProgramRun({"--session", "--settings", folder.filePath("missing")}, kAnswer_ms).exitStatus,
                 1);
    }

    void signalsPlugAndPullDisksDuringARun()
    {
        QTemporaryDir root;
        QTemporaryDir runtime;
        QProcess program;
        startSimulator(program,
                       {"--instant", "--root", root.path(), "--disk", "good", "--disk", "unmountable,out"},
                       {{"XDG_RUNTIME_DIR", runtime.path()}});
        const auto table = [&root] { return bytesOf(root.filePath("etc/mtab")); };
        const auto commands = [&root] { return bytesOf(root.filePath("usb/commands")).split('\n'); };
        const auto signal = [&program](int number) {
            ::kill(static_cast<pid_t>(program.processId()), number);
        };
        QTRY_VERIFY_WITH_TIMEOUT(table().contains("/dev/sda1 /mnt"), kLimit_ms);
        QVERIFY(hasStarted(program));

        // A second disk beside the mounted one changes nothing.
        signal(SIGUSR2);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(root.filePath("dev/sdb1")) ||
                                     QFileInfo(root.filePath("dev/sdb1")).isSymLink(),
                                 kLimit_ms);
        QTest::qWait(300);
        QCOMPARE(table(), QByteArray("/dev/sda1 /mnt vfat rw,relatime 0 0\n"));
        // The first one goes: the second is tried, and does not mount.
        signal(SIGUSR1);
        QTRY_VERIFY_WITH_TIMEOUT(commands().contains("mount /dev/sdb1 /mnt"), kLimit_ms);
        QCOMPARE(table(), QByteArray());
        QVERIFY(commands().contains("umount /dev/sda1"));
        // The second one goes, and the first comes back.
        signal(SIGUSR2);
        QTRY_VERIFY_WITH_TIMEOUT(commands().contains("umount /dev/sdb1"), kLimit_ms);
        signal(SIGUSR1);
        QTRY_VERIFY_WITH_TIMEOUT(table().contains("/dev/sda1 /mnt"), kLimit_ms);

        program.terminate();
        QVERIFY(program.waitForFinished(kLimit_ms));
        QCOMPARE(program.exitCode(), 128 + 15);
    }

    void aTerminatedProgramCleansUp()
    {
        QTemporaryDir temporary;
        QProcess program;
        // Qt would make one in the temporary directory, and leave it there.
        QTemporaryDir runtime;
        startSimulator(program, {"--instant"},
                       {{"TMPDIR", temporary.path()}, {"XDG_RUNTIME_DIR", runtime.path()}});
        QVERIFY(hasStarted(program));
        QTest::qWait(500);
        QVERIFY(!QDir(temporary.path()).isEmpty());
        program.terminate();
        QVERIFY(program.waitForFinished(kLimit_ms));
        QCOMPARE(program.exitCode(), 128 + 15);
        QVERIFY(QDir(temporary.path()).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "test_command_line.moc"
