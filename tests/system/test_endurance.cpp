#include <cerrno>
#include <memory>

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <QTimer>
#include <QtTest>

#include "support/Emulation.h"
#include "support/ResourceRecord.h"
#include "support/WindowFixture.h"

namespace {

/// How often each thing is done, and how often the books are looked at meanwhile.
struct Lengths
{
    int switches = 200;
    int runs = 20;
    int plugs = 20;
    int seconds = 600; ///< of live view
    int samples = 20;
};

constexpr Lengths kLong{10000, 1000, 1000, 24 * 3600, 200};

/// Frames a second of real time; each is one second of the live view's simulated time.
constexpr int kFramesPerSecond = 1000;
constexpr int kSecondOfTheWindow_ms = 1000;
constexpr int kSecondHere_ms = 1;
constexpr int kLongestRun_ms = 60000;

constexpr const char* kSwitches[] = {"BUTTON_RESOLUTION_5M", "BUTTON_STAINING_TB", "BUTTON_RESOLUTION_1280",
                                     "BUTTON_STAINING_NTB", "BUTTON_RESOLUTION_VGA"};

void dropMessage(QtMsgType, const QMessageLogContext&, const QString&) {}

Lengths chosenLengths()
{
    return qEnvironmentVariableIsSet("ORLA_TEST_ENDURANCE") ? kLong : Lengths();
}

} // namespace

// The grab thread rests 10 ms in each round, which would make a simulated day last a quarter
// of an hour. Here the rests of all threads are a twentieth as long.
extern "C" int clock_nanosleep(clockid_t clock, int flags, const timespec* wanted, timespec* left)
{
    constexpr long kShorter = 20;
    timespec rest = *wanted;
    if ((flags & TIMER_ABSTIME) == 0)
        rest = {wanted->tv_sec / kShorter,
                wanted->tv_sec % kShorter * (1000000000 / kShorter) + wanted->tv_nsec / kShorter};
    return ::syscall(SYS_clock_nanosleep, clock, flags, &rest, left) == 0 ? 0 : errno;
}

extern "C" int nanosleep(const timespec* wanted, timespec* left)
{
    errno = clock_nanosleep(CLOCK_REALTIME, 0, wanted, left);
    return errno == 0 ? 0 : -1;
}

/// The window does the same again and again, and holds no more of the machine in the end than
/// it held half-way. The two consoles are emptied each time: they keep all that they are told,
/// until Clear is pressed.
class TestEndurance : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        SKIP_UNDER_EMULATION("the memory is the emulator's, which keeps what it has translated");
        qInstallMessageHandler(dropMessage);
        WindowFixture::Options options;
        options.camera.capture.framesPerSecond = kFramesPerSecond;
        options.freshFrames = true;
        m_fixture = std::make_unique<WindowFixture>(options);
        // A mode keeps the picture that it has shown last, which is no growth.
        for (const char* button : kSwitches) {
            m_fixture->click(button);
            QVERIFY(m_fixture->waitForFrames(3));
        }
    }

    void cleanupTestCase()
    {
        m_fixture.reset();
        qInstallMessageHandler(nullptr);
    }

    void switchesOfModeAndStainingLeaveNothingBehind()
    {
        ResourceRecord record("switches");
        const int each = std::max(1, m_lengths.switches / m_lengths.samples);
        for (int times = 1; times <= m_lengths.switches; ++times) {
            m_fixture->click(kSwitches[times % std::size(kSwitches)]);
            // Half of them are pressed while frames come, half before the first one.
            if (times % 2 == 0)
                QVERIFY(m_fixture->waitForPaints(1));
            if (times % each == 0) {
                // A large frame that is half written when the books are looked at is chance.
                m_fixture->click("BUTTON_RESOLUTION_VGA");
                QVERIFY(m_fixture->waitForFrames(3));
                take(record, times);
            }
        }
        judge(record);
    }

    void autofocusRunsLeaveNothingBehind()
    {
        m_fixture->click("BUTTON_RESOLUTION_VGA");
        m_fixture->setText("EDIT_Z_POSITION", QString::number(qRound(m_fixture->camera().bestFocus_steps())));
        ResourceRecord record("autofocus runs");
        const int each = std::max(1, m_lengths.runs / m_lengths.samples);
        for (int times = 1; times <= m_lengths.runs; ++times) {
            m_fixture->boxes().clear();
            m_fixture->click("BUTTON_AUTOFOCUS");
            QVERIFY(m_fixture->waitUntil([this] { return !m_fixture->boxes().seen().isEmpty(); },
                                         kLongestRun_ms));
            QCOMPARE(m_fixture->boxes().texts(), QStringList("Finish AutoFocus !"));
            if (times % each == 0)
                take(record, times);
        }
        judge(record);
    }

    void disksThatComeAndGoLeaveNothingBehind()
    {
        ResourceRecord record("plugs");
        const int each = std::max(1, m_lengths.plugs / m_lengths.samples);
        for (int times = 1; times <= m_lengths.plugs; ++times) {
            QVERIFY(m_fixture->usb().plug());
            QVERIFY(m_fixture->waitUntil([this] { return m_fixture->usb().isMounted(); }));
            QVERIFY(m_fixture->usb().pull());
            QVERIFY(m_fixture->waitUntil([this] { return !m_fixture->usb().isMounted(); }));
            if (times % each == 0)
                take(record, times);
        }
        judge(record);
    }

    void aDayOfLiveViewLeavesNothingBehind()
    {
        m_fixture->click("BUTTON_RESOLUTION_VGA");
        QVERIFY(m_fixture->usb().plug());
        QVERIFY(m_fixture->waitUntil([this] { return m_fixture->usb().isMounted(); }));
        int ticks = 0;
        int frames = 0;
        QTimer* second = nullptr;
        for (QTimer* timer : m_fixture->window().findChildren<QTimer*>())
            if (timer->interval() == kSecondOfTheWindow_ms && timer->isActive())
                second = timer;
        QVERIFY(second != nullptr);
        connect(
            second, &QTimer::timeout, this, [&ticks] { ++ticks; });
        const auto painted = connect(&m_fixture->window(), &ORLA_II_Plus_Verifier::updateFrameDone, this,
                                     [&frames] { ++frames; });
        second->setInterval(kSecondHere_ms);
        ResourceRecord record("seconds of live view");
        const int each = std::max(1, m_lengths.seconds / m_lengths.samples);
        const auto syncs = m_fixture->camera().counters().fileSystemSyncs;
        const auto delivered = m_fixture->camera().counters().framesDelivered;
        for (int times = each; times <= m_lengths.seconds; times += each) {
            QVERIFY(m_fixture->waitUntil([&] { return std::min(ticks, frames) >= times; }, kLongestRun_ms));
            take(record, times);
        }
        second->setInterval(kSecondOfTheWindow_ms);
        disconnect(painted);
        disconnect(second, &QTimer::timeout, this, nullptr);
        std::printf("%d ticks of the clock, %d paints, %d frames delivered\n", ticks, frames,
                    static_cast<int>(m_fixture->camera().counters().framesDelivered - delivered));
        // The clock of a second did its work in each of them.
        QVERIFY(m_fixture->camera().counters().fileSystemSyncs - syncs >=
                static_cast<std::uint64_t>(m_lengths.seconds));
        judge(record);
    }

private:
    void take(ResourceRecord& record, int times)
    {
        m_fixture->clearConsoles();
        m_fixture->camera().trace().clear();
        m_fixture->boxes().clear();
        // What was put off is given back before the books are looked at.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        record.take(times);
    }

    static void judge(const ResourceRecord& record)
    {
        const QString folder = qEnvironmentVariable("ORLA_TEST_RESULTS", "endurance");
        std::printf("%s", qPrintable(record.table()));
        std::fflush(stdout);
        QVERIFY(record.write(folder));
        QVERIFY2(record.growth().isEmpty(), qPrintable(record.growth().join("; ")));
    }

    const Lengths m_lengths = chosenLengths();
    std::unique_ptr<WindowFixture> m_fixture;
};

QTEST_MAIN(TestEndurance)
#include "test_endurance.moc"
