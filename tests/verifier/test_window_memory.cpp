// The window where memory for its frame buffers has run out. The linker sends what the program
// asks for through here (-Wl,--wrap).

#include <cstdlib>
#include <new>

#include <QtTest>

#include "camera/OV5642Camera.h"
#include "support/WindowFixture.h"

namespace {

constexpr std::size_t kLargestFrame_bytes = 15116544;
bool g_noneForTheLargestFrame = false;

} // namespace

// Names of the linker's making.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" void* __real_calloc(std::size_t count, std::size_t size);
extern "C" void* __wrap_calloc(std::size_t count, std::size_t size)
{
    if (g_noneForTheLargestFrame && count * size == kLargestFrame_bytes)
        return nullptr;
    return __real_calloc(count, size);
}
// NOLINTEND(bugprone-reserved-identifier)

class TestWindowMemory : public QObject
{
    Q_OBJECT

private slots:
    void aWindowWithoutItsFrameBuffersIsNotMade()
    {
        g_noneForTheLargestFrame = true;
        QVERIFY_EXCEPTION_THROWN(WindowFixture(), std::bad_alloc);
        g_noneForTheLargestFrame = false;
        // With memory there is one.
        WindowFixture fixture;
        fixture.click("BUTTON_RESOLUTION_5M");
        QVERIFY(fixture.waitForFrames());
        QVERIFY(fixture.programCamera()->isStreaming());
    }
};

QTEST_MAIN(TestWindowMemory)
#include "test_window_memory.moc"
