#include <cerrno>
#include <csignal>

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include "platform/ChildProcess.h"
#include "support/FileBytes.h"
#include "support/LogRecorder.h"

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
        QVERIFY(writeScript(
            script, "#!/bin/sh\nout=$1; shift\nfor a in \"$@\"; do echo \"<$a>\" >> \"$out\"; done\n"));
        runChildProcess(script, {record, "a b", "$HOME; x", "", "\"q\""});
        QCOMPARE(bytesOf(record), QByteArray("<a b>\n<$HOME; x>\n<>\n<\"q\">\n"));
    }

    void whatWouldLeadItAstrayIsNotHandedOn_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QByteArray>("value");
        const QByteArray names =
            "LD_PRELOAD LD_LIBRARY_PATH LD_AUDIT IFS BASH_ENV BASHOPTS ENV CDPATH FPATH GLOBIGNORE "
            "PROMPT_COMMAND SHELLOPTS PS4 ZDOTDIR GCONV_PATH GETCONF_DIR GLIBC_TUNABLES "
            "HOSTALIASES LOCALDOMAIN LOCPATH NIS_PATH NLSPATH RES_OPTIONS RESOLV_HOST_CONF "
            "TERMINFO TERMINFO_DIRS TZDIR LIBMOUNT_FSTAB LIBMOUNT_MTAB BLKID_FILE PERL5LIB "
            "PYTHONPATH RUBYOPT TMPDIR MALLOC_TRACE BASH_FUNC_mount%%";
        for (const QByteArray& name : names.split(' '))
            QTest::newRow(name.constData()) << name << QByteArray();
        QTest::newRow("a shell's function") << QByteArray("mount") << QByteArray("() { echo theirs; }");
    }

    void whatWouldLeadItAstrayIsNotHandedOn()
    {
        QFETCH(QByteArray, name);
        QFETCH(QByteArray, value);
        qputenv(name.constData(), value);
        const QByteArrayList environment = environmentOfAChild();
        qunsetenv(name.constData());
        QVERIFY(environment.size() > 1);
        for (const QByteArray& variable : environment)
            QVERIFY2(!variable.startsWith(name + '='), variable.constData());
    }

    void itFindsTheSystemsOwnProgramsOnly()
    {
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", "/nowhere:" + path);
        const QByteArrayList environment = environmentOfAChild();
        qputenv("PATH", path);
        const QByteArray own = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
        QCOMPARE(environment.count(own), 1);
    }

    void languageAndHomeAreHandedOn()
    {
        const QByteArray home = qgetenv("HOME");
        qputenv("HOME", "/a home");
        qputenv("LANG", "C.UTF-8");
        const QByteArrayList environment = environmentOfAChild();
        qputenv("HOME", home);
        QVERIFY(environment.contains("HOME=/a home"));
        QVERIFY(environment.contains("LANG=C.UTF-8"));
    }

    // A stick's folder, say, from which somebody started this program.
    void aNameIsNotLookedUpInTheFolderAtHand()
    {
        QTemporaryDir directory;
        const QString record = directory.filePath("record");
        QVERIFY(writeScript(directory.filePath("mount"), "#!/bin/sh\n: > \"$1\"\n"));
        const QString before = QDir::currentPath();
        const QByteArray path = qgetenv("PATH");
        QVERIFY(QDir::setCurrent(directory.path()));
        qputenv("PATH", "/nowhere");
        runChildProcess("mount", {record});
        qputenv("PATH", path);
        QVERIFY(QDir::setCurrent(before));
        QVERIFY(!QFile::exists(record));
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
        const LogRecorder log;
        QElapsedTimer timer;
        timer.start();
        runChildProcess("sh", {"-c", "echo $$ > \"$0\"; exec cat", record}, kShortTimeout_ms);
        QCOMPARE(log.messages(), QStringList());
        QVERIFY2(timer.elapsed() >= kShortTimeout_ms, qPrintable(QString::number(timer.elapsed())));
        const auto process = static_cast<pid_t>(bytesOf(record).trimmed().toInt());
        QVERIFY(process > 0);
        QVERIFY(::kill(process, 0) == -1 && errno == ESRCH);
    }

private:
    static bool writeScript(const QString& path, const QByteArray& text)
    {
        putBytes(path, text);
        return QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner);
    }

    // As the kernel handed it over, before a shell has had its say.
    static QByteArrayList environmentOfAChild()
    {
        QTemporaryDir directory;
        const QString record = directory.filePath("record");
        runChildProcess("cp", {"/proc/self/environ", record});
        return bytesOf(record).split('\0');
    }
};

QTEST_GUILESS_MAIN(TestChildProcess)
#include "test_child_process.moc"
