#include <cerrno>
#include <csignal>
#include <cstdarg>

#include <dlfcn.h>
#include <linux/sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <QtTest>

#include "platform/ChildProcess.h"

namespace {

// What the calls below do, which take the C library's place in this program. Plain data: they
// are used before the static objects exist.
int g_forkError = 0;
int g_forksRefused = 0;
int g_quietDescriptor = -1; // never readable
constexpr int kShortTimeout_ms = 200;

template <class Function>
Function original(const char* name)
{
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

bool refuseFork()
{
    if (g_forkError == 0)
        return false;
    ++g_forksRefused;
    errno = g_forkError;
    return true;
}

} // namespace

extern "C" {

pid_t fork() noexcept
{
    return refuseFork() ? -1 : original<pid_t (*)()>("fork")();
}

// Another way to a new process.
long syscall(long number, ...) noexcept
{
    va_list list;
    va_start(list, number);
    long arguments[6];
    for (long& argument : arguments)
        argument = va_arg(list, long);
    va_end(list);
    if (number == SYS_clone && refuseFork()) {
        // What stands there, where the kernel would have told the new process's descriptor, may
        // be any number, another open descriptor's as well.
        if ((static_cast<unsigned long>(arguments[0]) & CLONE_PIDFD) != 0)
            *reinterpret_cast<int*>(arguments[2]) = g_quietDescriptor;
        return -1;
    }
    return original<long (*)(long, ...)>("syscall")(number, arguments[0], arguments[1], arguments[2],
                                                    arguments[3], arguments[4], arguments[5]);
}

// A signal to -1 goes to every process of the machine, one to 0 to the whole group. Whoever sends
// it waits for an end after that, and would wait for ever.
int kill(pid_t process, int signal) noexcept
{
    if (process <= 0)
        qFatal("signal %d to %d: to many processes", signal, process);
    return original<int (*)(pid_t, int)>("kill")(process, signal);
}

} // extern "C"

/// What a machine without room for another process does.
class TestChildProcessFaults : public QObject
{
    Q_OBJECT

private slots:
    void init() { g_forksRefused = 0; }
    void cleanup() { g_forkError = 0; }

    void aProcessThatCannotBeMadeIsPassedOverAndNobodyIsKilled_data()
    {
        QTest::addColumn<int>("error");
        QTest::newRow("too many processes") << EAGAIN;
        QTest::newRow("no memory") << ENOMEM;
    }

    void aProcessThatCannotBeMadeIsPassedOverAndNobodyIsKilled()
    {
        QFETCH(int, error);
        // How processes are made is found out with the first.
        runChildProcess("true", {});
        QElapsedTimer time;
        time.start();
        int quiet[2];
        QCOMPARE(::pipe(quiet), 0);
        g_quietDescriptor = quiet[0];
        g_forkError = error;
        runChildProcess("true", {}, kShortTimeout_ms);
        g_forkError = 0;
        ::close(quiet[0]);
        ::close(quiet[1]);
        QVERIFY(g_forksRefused > 0);
        QVERIFY2(time.elapsed() < kChildProcessTimeout_ms, "nothing is there to be waited for");
        // And there is a next time.
        runChildProcess("true", {});
    }
};

QTEST_GUILESS_MAIN(TestChildProcessFaults)
#include "test_child_process_faults.moc"
