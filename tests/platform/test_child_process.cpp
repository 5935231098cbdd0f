#include <cerrno>
#include <csignal>

#include <QTemporaryDir>
#include <QtTest>

#include "platform/ChildProcess.h"

namespace {

// Long enough for the program to have begun, also on a busy machine.
constexpr int kShortTimeout_ms = 1000;

} // namespace

class TestChildProcess : public QObject
{
    Q_OBJECT

private slots:
    void argumentsReachTheProgramOneByOne()
    {
        QTemporaryDir directory;
        const QString script = directory.filePath("a script");
        const QString record = directory.filePath("record");
        QFile file(script);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\nout=$1; shift\nfor a in \"$@\"; do echo \"<$a>\" >> \"$out\"; done\n");
        file.setPermissions(file.permissions() | QFile::ExeOwner);
        file.close();
        runChildProcess(script, {record, "a b", "$HOME; x", "", "\"q\""});
        QFile result(record);
        QVERIFY(result.open(QIODevice::ReadOnly));
        QCOMPARE(result.readAll(), QByteArray("<a b>\n<$HOME; x>\n<>\n<\"q\">\n"));
    }

    void aSlowProgramIsWaitedFor()
    {
        QTemporaryDir directory;
        const QString file = directory.filePath("written late");
        runChildProcess("sh", {"-c", "sleep 0.3; : > \"$0\"", file});
        QVERIFY(QFile::exists(file));
    }

    void theProgramWaitsUpToHalfAMinute() { QCOMPARE(kChildProcessTimeout_ms, 30000); }

    void aFailingOrMissingProgramIsPassedOver()
    {
        QElapsedTimer timer;
        timer.start();
        runChildProcess("false", {});
        runChildProcess("/nowhere/program", {});
        runChildProcess("", {});
        QVERIFY2(timer.elapsed() < kChildProcessTimeout_ms,
                 "a program that is missing must not be waited for");
    }

    // Its input stays open, so that a program which reads it waits.
    void aProgramThatDoesNotEndIsKilledAfterTheTimeout()
    {
        QTemporaryDir directory;
        const QString record = directory.filePath("process");
        QElapsedTimer timer;
        timer.start();
        runChildProcess("sh", {"-c", "echo $$ > \"$0\"; exec cat", record}, kShortTimeout_ms);
        QVERIFY2(timer.elapsed() >= kShortTimeout_ms, qPrintable(QString::number(timer.elapsed())));
        QFile file(record);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const auto process = static_cast<pid_t>(file.readAll().trimmed().toInt());
        QVERIFY(process > 0);
        QVERIFY(::kill(process, 0) == -1 && errno == ESRCH);
    }
};

QTEST_GUILESS_MAIN(TestChildProcess)
#include "test_child_process.moc"
