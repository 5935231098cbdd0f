#include <cstdio>
#include <cstdlib>

#include <QtTest>

namespace {

#ifdef START_SKIPS
constexpr bool kStartSkips = true;
#else
constexpr bool kStartSkips = false;
#endif
#if defined(ALL_CASES_PASS) || defined(ONE_CASE_PASSES)
constexpr bool kFirstPasses = true;
#else
constexpr bool kFirstPasses = false;
#endif
#ifdef ALL_CASES_PASS
constexpr bool kSecondPasses = true;
#else
constexpr bool kSecondPasses = false;
#endif
#ifdef ONE_CASE_FAILS
constexpr bool kFirstFails = true;
#else
constexpr bool kFirstFails = false;
#endif
#ifdef SKIPS_THEN_LEAKS
constexpr bool kLeaks = true;
#else
constexpr bool kLeaks = false;
#endif

/// What a sanitizer does that looks for leaks when the program is over.
void reportLeak()
{
    std::fputs("ERROR: memory was lost\n", stderr);
    std::_Exit(EXIT_FAILURE);
}

} // namespace

/// Two cases that pass, skip or fail as the definitions have it.
class Sample : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (kLeaks)
            std::atexit(reportLeak);
        if (kStartSkips)
            QSKIP("not here");
    }
    void first()
    {
        QVERIFY(!kFirstFails);
        if (!kFirstPasses)
            QSKIP("not here");
    }
    void second()
    {
        if (!kSecondPasses)
            QSKIP("not here");
    }
};

QTEST_GUILESS_MAIN(Sample)
#include "sample.moc"
