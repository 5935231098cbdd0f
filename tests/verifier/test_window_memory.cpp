// The window where memory for its frame buffers has run out, or for what a measurement needs. The
// linker sends what the program asks for through here (-Wl,--wrap).

#include <cstdlib>
#include <new>

#include <QtTest>

#include <opencv2/core.hpp>

#include "camera/OV5642Camera.h"
#include "support/WindowFixture.h"

namespace {

constexpr std::size_t kLargestFrame_bytes = 15116544;
bool g_noneForTheLargestFrame = false;
bool g_noneForTheMean = false;

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

extern "C" cv::Scalar __real__ZN2cv4meanERKNS_11_InputArrayES2_(cv::InputArray frame, cv::InputArray mask);
extern "C" cv::Scalar __wrap__ZN2cv4meanERKNS_11_InputArrayES2_(cv::InputArray frame, cv::InputArray mask)
{
    if (g_noneForTheMean)
        throw cv::Exception(cv::Error::StsNoMem, "no memory", "mean", "mean.cpp", 1);
    return __real__ZN2cv4meanERKNS_11_InputArrayES2_(frame, mask);
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

    void anIntensityThatTheLibraryCannotMeasureIsToldAndIsZero()
    {
        WindowFixture fixture;
        fixture.click("BUTTON_INTENSITY");
        QVERIFY(fixture.text("EDIT_INTENSITY_GREEN") != "0.0");
        fixture.clearConsoles();
        g_noneForTheMean = true;
        fixture.click("BUTTON_INTENSITY");
        g_noneForTheMean = false;
        for (const char* mean : {"EDIT_INTENSITY_RED", "EDIT_INTENSITY_GREEN", "EDIT_INTENSITY_BLUE"})
            QCOMPARE(fixture.text(mean), QString("0.0"));
        const QString slot = "void ORLA_II_Plus_Verifier::on_BUTTON_INTENSITY_clicked()() ";
        const QString reason(cv::Exception(cv::Error::StsNoMem, "no memory", "mean", "mean.cpp", 1).what());
        QVERIFY(reason.contains("no memory"));
        QCOMPARE(fixture.messages(), slot + '\n' + slot + "[Error] " + reason + " \n");
    }
};

QTEST_MAIN(TestWindowMemory)
#include "test_window_memory.moc"
