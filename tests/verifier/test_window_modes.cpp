#include <QCheckBox>
#include <QDir>
#include <QPainter>
#include <QThread>
#include <QtTest>

#include "camera/OV5642Camera.h"
#include "support/FileBytes.h"
#include "support/WindowFixture.h"
#include "verifier/WithoutGrabThread.h"

namespace {

struct ModePress
{
    const char* button;
    unsigned width_px;
};

// Every mode after itself and after another, and both stainings.
constexpr ModePress kPresses[] = {
    {"BUTTON_RESOLUTION_1280", 1280}, {"BUTTON_RESOLUTION_1280", 1280}, {"BUTTON_RESOLUTION_VGA", 640},
    {"BUTTON_RESOLUTION_5M", 2592},   {"BUTTON_RESOLUTION_1280", 1280}, {"BUTTON_STAINING_TB", 1280},
    {"BUTTON_STAINING_NTB", 1280},
};

WindowFixture::Options withoutBoard()
{
    WindowFixture::Options options;
    options.withBoard = false;
    return options;
}

std::size_t requests(WindowFixture& fixture, const char* name)
{
    std::size_t count = 0;
    for (const TracedCall& call : fixture.camera().trace().calls(CallKind::Request))
        count += call.name == name ? 1 : 0;
    return count;
}

std::string lastFormat(WindowFixture& fixture)
{
    std::string format;
    for (const TracedCall& call : fixture.camera().trace().calls(CallKind::Request))
        if (call.name == "VIDIOC_S_FMT" && call.error == 0)
            format = call.details;
    return format;
}

/// How many threads of the process take frames for a live view.
int grabThreads()
{
    int count = 0;
    for (const QString& thread : QDir("/proc/self/task").entryList(QDir::Dirs | QDir::NoDotAndDotDot))
        count += bytesOf("/proc/self/task/" + thread + "/comm") == "GrabThread\n" ? 1 : 0;
    return count;
}

/// Waits without a turn of the event loop: a thread that has ended is there for a moment.
bool noGrabThreadIsLeft()
{
    constexpr int kRounds = 100;
    for (int round = 0; round < kRounds && grabThreads() > 0; ++round)
        QThread::msleep(10);
    return grabThreads() == 0;
}

} // namespace

/// The camera's switches at the panel, on drivers that differ.
class TestWindowModes : public QObject
{
    Q_OBJECT

private slots:
    void everySwitchBringsFrames_data()
    {
        QTest::addColumn<bool>("held");
        QTest::addColumn<int>("padding");
        QTest::newRow("buffers hold the format") << true << 0;
        QTest::newRow("only the stream holds it") << false << 0;
        QTest::newRow("padded rows") << true << 64;
    }

    void everySwitchBringsFrames()
    {
        QFETCH(bool, held);
        QFETCH(int, padding);
        WindowFixture::Options options = withoutBoard();
        options.camera.capture.formatHeldByBuffers = held;
        options.camera.capture.rowPadding_bytes = padding;
        WindowFixture fixture(options);
        QVERIFY(fixture.waitForFrames());
        for (const ModePress& press : kPresses) {
            fixture.camera().trace().clear();
            fixture.click(press.button);
            QVERIFY2(fixture.waitForFrames(2), press.button);
            QCOMPARE(lastFormat(fixture).substr(0, lastFormat(fixture).find('x')),
                     std::to_string(press.width_px));
            // What a driver is not asked for where it does not refuse.
            QCOMPARE(requests(fixture, "VIDIOC_REQBUFS"), std::size_t(held ? 2 : 1));
            QCOMPARE(requests(fixture, "VIDIOC_S_FMT"), std::size_t(held ? 2 : 1));
            // The ten calibration registers, then the addresses of those that are read back.
            QCOMPARE(fixture.camera().trace().calls(CallKind::BusWrite).size(), std::size_t(20));
        }
        QVERIFY(!fixture.messages().contains("VIDIOC_S_FMT !"));
        QCOMPARE(fixture.messages().contains("bytes per line: "), padding > 0);
    }

    void aSmallerPictureThanAskedForIsRefused()
    {
        WindowFixture::Options options = withoutBoard();
        options.camera.capture.mostRows_px = 720;
        WindowFixture fixture(options);
        QVERIFY(fixture.waitForPaints(2));
        QVERIFY(fixture.messages().contains("[Error] asked: 1280 x 960 YUYV , granted: 1280 x 720 YUYV"));
        QCOMPARE(fixture.camera().counters().framesDelivered, std::uint64_t(0));
        // What fits is shown.
        fixture.click("BUTTON_RESOLUTION_VGA");
        QVERIFY(fixture.waitForFrames(2));
    }

    void stoppingTheCameraStopsTheStreamOnceAndOnlyAStream()
    {
        WindowFixture fixture(withoutBoard());
        QVERIFY(fixture.waitForFrames());
        fixture.click("BUTTON_RESOLUTION_5M");
        QVERIFY(fixture.waitForFrames());
        const auto pausesOf = [&fixture] { return fixture.camera().counters().paused_us; };

        fixture.camera().trace().clear();
        fixture.click("BUTTON_QC_CAPTURE");
        QTRY_COMPARE(fixture.find<QPushButton>("BUTTON_QC_CAPTURE")->text(), QString("Live"));
        QCOMPARE(requests(fixture, "VIDIOC_STREAMOFF"), std::size_t(1));
        QCOMPARE(fixture.camera().trace().calls(CallKind::Unmap).size(), std::size_t(4));
        QCOMPARE(fixture.camera().openMappings(), std::size_t(0));

        // A camera that is closed already is left alone: no request, no pause.
        fixture.camera().trace().clear();
        const std::uint64_t paused_us = pausesOf();
        fixture.clearConsoles();
        fixture.window().stopCamera();
        QVERIFY(fixture.camera().trace().calls().empty());
        QCOMPARE(pausesOf(), paused_us);
        QCOMPARE(fixture.messages().count("stopCamera()"), 1);
    }

    // Nobody may read the camera's memory while it is made anew or given back.
    void nothingGrabsWhereTheCameraIsOpenedOrClosed()
    {
        WindowFixture fixture(withoutBoard());
        QVector<bool> alone;
        connect(fixture.programCamera(), &OV5642Camera::sig_debug_Message, &fixture.window(),
                [&](const QStringList& parts) {
                    if (parts.first().contains("OV5642Camera::open") && parts.contains("camera_mode:"))
                        alone << noGrabThreadIsLeft();
                });
        QVERIFY(fixture.waitForFrames());
        QCOMPARE(grabThreads(), 1);
        fixture.camera().faults().enable("ioctl:VIDIOC_STREAMON");
        fixture.click("BUTTON_RESOLUTION_VGA");
        // Without a stream it takes frames all the same.
        QTRY_COMPARE(grabThreads(), 1);
        fixture.camera().faults().clear();
        fixture.click("BUTTON_RESOLUTION_5M");
        QVERIFY(fixture.waitForFrames());
        QCOMPARE(alone, QVector<bool>({true, true}));
        fixture.click("BUTTON_QC_CAPTURE");
        QTRY_COMPARE(fixture.find<QPushButton>("BUTTON_QC_CAPTURE")->text(), QString("Live"));
        QVERIFY(noGrabThreadIsLeft());
    }

    void aModeOfWhichNoFrameHasComeIsBlack_data()
    {
        QTest::addColumn<bool>("scaled");
        QTest::newRow("scaled to fit") << true;
        QTest::newRow("1:1") << false;
    }

    void aModeOfWhichNoFrameHasComeIsBlack()
    {
        QFETCH(bool, scaled);
        WindowFixture fixture(withoutBoard());
        QVERIFY(fixture.waitForFrames(2));
        fixture.find<QCheckBox>("CHECK_SCALED_TO_FIT")->setChecked(scaled);
        QVERIFY(clickWithoutAGrabThread(fixture, "BUTTON_RESOLUTION_5M"));

        QImage view(640, 480, QImage::Format_RGB32);
        view.fill(Qt::magenta);
        fixture.window().render(&view, QPoint(), QRegion(view.rect()), QWidget::RenderFlags());
        QImage expected(view.size(), view.format());
        expected.fill(Qt::black);
        if (!scaled) {
            QPainter painter(&expected);
            painter.setPen(Qt::yellow);
            painter.drawRect(0, 0, 80, 60);
            painter.drawRect(0, 0, 20, 15);
        }
        QCOMPARE(view, expected);
    }

    void aCameraThatIsUnpluggedIsToldOnceAndComesBackWithAPress()
    {
        WindowFixture fixture(withoutBoard());
        QVERIFY(fixture.waitForFrames());
        const QString told = "[Error] /dev/video0: No such device";
        QVERIFY(fixture.camera().faults().enable("unplugged"));
        QVERIFY(fixture.waitUntil([&] { return fixture.messages().contains(told); }));
        // Nothing is drawn, and what waits for a delivery gets its buffer.
        int paints = 0;
        const auto counting = QObject::connect(&fixture.window(), &ORLA_II_Plus_Verifier::updateFrameDone,
                                               &fixture.window(), [&paints] { ++paints; });
        QTest::qWait(300);
        QVERIFY(paints <= 3);
        QObject::disconnect(counting);
        fixture.click("BUTTON_INTENSITY");
        QVERIFY(!fixture.text("EDIT_INTENSITY_GREEN").isEmpty());
        QCOMPARE(fixture.messages().count(told), 1);

        fixture.camera().faults().clear();
        fixture.click("BUTTON_RESOLUTION_VGA");
        QVERIFY(!fixture.messages().contains("[Error] VIDIOC_S_FMT !"));
        QVERIFY(fixture.waitForFrames(2));
    }
};

QTEST_MAIN(TestWindowModes)
#include "test_window_modes.moc"
