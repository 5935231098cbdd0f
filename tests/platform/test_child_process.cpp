#include <QTemporaryDir>
#include <QtTest>

#include "platform/ChildProcess.h"

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

    void aSlowProgramIsWaitedForUpToHalfAMinute()
    {
        QTemporaryDir directory;
        const QString file = directory.filePath("written late");
        runChildProcess("sh", {"-c", "sleep 1.5; : > \"$0\"", file});
        QVERIFY(QFile::exists(file));
        QCOMPARE(kChildProcessTimeout_ms, 30000);
    }

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

    // Its input stays open, so that a program which reads it waits: for half a minute.
    void aProgramThatDoesNotEndIsKilled()
    {
        QElapsedTimer timer;
        timer.start();
        runChildProcess("cat", {});
        QVERIFY2(timer.elapsed() >= 29900 && timer.elapsed() < 40000,
                 qPrintable(QString::number(timer.elapsed())));
    }
};

QTEST_GUILESS_MAIN(TestChildProcess)
#include "test_child_process.moc"
