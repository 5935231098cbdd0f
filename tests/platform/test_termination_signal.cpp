#include <cerrno>
#include <csignal>
#include <functional>
#include <utility>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDir>
#include <QSignalSpy>
#include <QtTest>

#include "platform/TerminationSignal.h"

namespace {

using Second = TerminationSignal::Second;

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
volatile std::sig_atomic_t g_othersCount = 0;

void othersHandler(int)
{
    g_othersCount = g_othersCount + 1;
}

/// Handlers as a platform plugin sets them, put back at the end.
class OthersHandlers
{
public:
    explicit OthersHandlers(void (*handler)(int))
    {
        g_othersCount = 0;
        for (const int number : kSignals)
            m_before.push_back({number, ::signal(number, handler)});
    }
    ~OthersHandlers()
    {
        for (const auto& [number, handler] : m_before)
            ::signal(number, handler);
    }
    OthersHandlers(const OthersHandlers&) = delete;
    OthersHandlers& operator=(const OthersHandlers&) = delete;

private:
    std::vector<std::pair<int, void (*)(int)>> m_before;
};

/// While it lives, nothing can be opened.
class NoMoreDescriptors
{
public:
    NoMoreDescriptors()
    {
        ::getrlimit(RLIMIT_NOFILE, &m_usual);
        const int lowestFree = ::dup(0);
        ::close(lowestFree);
        const rlimit none{rlim_t(lowestFree), m_usual.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoMoreDescriptors() { ::setrlimit(RLIMIT_NOFILE, &m_usual); }
    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

private:
    rlimit m_usual{};
};

/// How a process of its own ends that does this: the number of the signal, or 0.
int signalThatEnds(const std::function<void()>& work)
{
    const pid_t child = ::fork();
    if (child == 0) {
        work();
        ::_exit(0);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

} // namespace

class TestTerminationSignal : public QObject
{
    Q_OBJECT

private slots:
    void aSignalIsToldFromTheEventLoop_data()
    {
        QTest::addColumn<int>("number");
        QTest::addColumn<int>("exitStatus");
        QTest::addColumn<QString>("name");
        QTest::newRow("SIGTERM") << SIGTERM << 143 << "The signal SIGTERM";
        QTest::newRow("SIGINT") << SIGINT << 130 << "Ctrl-C (SIGINT)";
        QTest::newRow("SIGHUP") << SIGHUP << 129 << "The end of the terminal (SIGHUP)";
    }

    void aSignalIsToldFromTheEventLoop()
    {
        QFETCH(int, number);
        QFETCH(int, exitStatus);
        QFETCH(QString, name);
        const OthersHandlers others(othersHandler);
        TerminationSignal termination(Second::IsAbsorbed);
        QCOMPARE(termination.name(), QString());
        QSignalSpy spy(&termination, &TerminationSignal::received);
        ::raise(number);
        QVERIFY2(spy.isEmpty(), "not from within the handler");
        QVERIFY(!termination.isReceived());
        QTRY_COMPARE(spy.count(), 1);
        QVERIFY(termination.isReceived());
        QCOMPARE(termination.exitStatus(), exitStatus);
        QCOMPARE(termination.name(), name);
        QCOMPARE(int(g_othersCount), 0);
    }

    // A window lets events in while it is made, and can be told to end only afterwards.
    void aSignalWaitsUntilSomebodyListens()
    {
        const OthersHandlers others(othersHandler);
        TerminationSignal termination(Second::IsAbsorbed);
        ::raise(SIGTERM);
        QTest::qWait(50);
        QVERIFY(!termination.isReceived());
        QSignalSpy spy(&termination, &TerminationSignal::received);
        QTRY_COMPARE(spy.count(), 1);
        QCOMPARE(termination.exitStatus(), 143);
    }

    void whatASignalInterruptsGoesOn()
    {
        const OthersHandlers others(othersHandler);
        for (const Second second : {Second::IsAbsorbed, Second::EndsTheProcess}) {
            const TerminationSignal termination(second);
            for (const int number : kSignals) {
                struct sigaction action = {};
                QCOMPARE(::sigaction(number, nullptr, &action), 0);
                QVERIFY((action.sa_flags & SA_RESTART) != 0);
            }
        }
    }

    void nothingStaysOpen()
    {
        const OthersHandlers others(othersHandler);
        const auto descriptors = [] {
            return QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
        };
        const QStringList before = descriptors();
        {
            const TerminationSignal termination(Second::IsAbsorbed);
            QCOMPARE(descriptors().size(), before.size() + 2);
        }
        QCOMPARE(descriptors(), before);
    }

    void moreSignalsAreAbsorbed()
    {
        const OthersHandlers others(othersHandler);
        TerminationSignal termination(Second::IsAbsorbed);
        QSignalSpy spy(&termination, &TerminationSignal::received);
        // More than a pipe holds: the handler must not block.
        for (int i = 0; i < 100000; ++i)
            ::raise(SIGTERM);
        errno = ENOENT;
        ::raise(SIGINT);
        QCOMPARE(errno, ENOENT); // what was interrupted keeps its own
        QTRY_COMPARE(spy.count(), 1);
        ::raise(SIGHUP);
        QTest::qWait(50);
        QCOMPARE(spy.count(), 1);
        QCOMPARE(termination.exitStatus(), 143);
    }

    void aSignalDuringTheAnswerIsToldOnce()
    {
        const OthersHandlers others(othersHandler);
        TerminationSignal termination(Second::IsAbsorbed);
        int told = 0;
        connect(&termination, &TerminationSignal::received, this, [&told] {
            ++told;
            ::raise(SIGTERM);
            QTest::qWait(50);
        });
        ::raise(SIGTERM);
        QTRY_COMPARE(told, 1);
        QTest::qWait(50);
        QCOMPARE(told, 1);
    }

    void whatWasIgnoredStaysIgnored()
    {
        const OthersHandlers others(SIG_IGN);
        TerminationSignal termination(Second::IsAbsorbed);
        QSignalSpy spy(&termination, &TerminationSignal::received);
        for (const int number : kSignals)
            ::raise(number);
        QTest::qWait(50);
        QVERIFY(spy.isEmpty());
    }

    void whereNoPipeCanBeMadeNothingIsTakenOver()
    {
        const OthersHandlers others(othersHandler);
        {
            const NoMoreDescriptors none;
            const TerminationSignal termination(Second::IsAbsorbed);
            QVERIFY(!termination.isWatching());
            for (const int number : kSignals)
                ::raise(number);
            QCOMPARE(int(g_othersCount), 3);
            QVERIFY(!termination.isReceived());
        }
        ::raise(SIGTERM);
        QCOMPARE(int(g_othersCount), 4);
        const TerminationSignal termination(Second::IsAbsorbed);
        QVERIFY(termination.isWatching());
    }

    void theHandlersOfBeforeAreBackAfterwards()
    {
        const OthersHandlers others(othersHandler);
        for (const Second second : {Second::IsAbsorbed, Second::EndsTheProcess}) {
            g_othersCount = 0;
            {
                const TerminationSignal termination(second);
                ::raise(SIGTERM);
            }
            QCOMPARE(int(g_othersCount), 0);
            for (const int number : kSignals)
                ::raise(number);
            QCOMPARE(int(g_othersCount), 3);
        }
    }

    void aSecondSignalMayEndAProcessThatHangs()
    {
        const OthersHandlers others(SIG_DFL);
        const auto twice = [](Second second, int first, int again) {
            return signalThatEnds([=] {
                const TerminationSignal termination(second);
                ::raise(first);
                ::raise(again);
            });
        };
        QCOMPARE(twice(Second::EndsTheProcess, SIGINT, SIGINT), SIGINT);
        QCOMPARE(twice(Second::EndsTheProcess, SIGTERM, SIGTERM), SIGTERM);
        QCOMPARE(twice(Second::EndsTheProcess, SIGTERM, SIGINT), 0);
        QCOMPARE(twice(Second::IsAbsorbed, SIGTERM, SIGTERM), 0);
    }
};

QTEST_GUILESS_MAIN(TestTerminationSignal)
#include "test_termination_signal.moc"
