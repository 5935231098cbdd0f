// Another slide under the running microscope.

#include <algorithm>
#include <atomic>
#include <thread>

#include <QImage>
#include <QTemporaryDir>

#include "CameraFixture.h"
#include "simulator/optics/SlidePicture.h"

namespace {

/// The darkest luma of the next frame; -1 if none comes.
int darkestOfNextFrame(CameraFixture& camera)
{
    v4l2_buffer buffer{};
    if (!camera.video.take(buffer))
        return -1;
    const std::uint8_t* bytes = camera.video.bytes(buffer.index);
    int darkest = 255;
    for (std::size_t i = 0; i < kVgaBytes; i += 2)
        darkest = std::min<int>(darkest, bytes[i]);
    return camera.video.queue(buffer.index) == 0 ? darkest : -1;
}

SlideParameters another(SlideParameters slide, SlideKind kind)
{
    slide.kind = kind;
    return slide;
}

} // namespace

class TestSlideChange : public QObject
{
    Q_OBJECT

private slots:
    void theNextFramesShowTheNewSlide()
    {
        SimulatedCameraParameters parameters = quickParameters();
        parameters.optics.bestFocus_steps = 32000.0;
        CameraFixture camera(parameters);
        camera.startStream();
        const int cells = darkestOfNextFrame(camera);
        camera.calls.changeSlide(another(parameters.slide, SlideKind::Empty));
        int empty = cells;
        for (int frame = 0; frame < 8 && empty < cells + 50; ++frame)
            empty = darkestOfNextFrame(camera);
        QVERIFY(cells >= 0 && empty >= cells + 50);
        // One for each slide, and one more if a frame ends while this test holds the only other
        // buffer with the new picture.
        const std::uint64_t drawings = camera.calls.counters().drawings;
        QVERIFY2(drawings == 2 || drawings == 3, qPrintable(QString::number(drawings)));
        QCOMPARE(int(camera.calls.slide().kind()), int(SlideKind::Empty));
        camera.stopStream();
    }

    void theSeedDecidesTheSlideAsEver()
    {
        SimulatedCameraParameters parameters = parametersWithSeed9();
        CameraFixture changed(parameters);
        const double focus_steps = changed.calls.bestFocus_steps();
        changed.calls.changeSlide(another(parameters.slide, SlideKind::Target));
        parameters.slide.kind = SlideKind::Target;
        const CameraFixture fresh(parameters);
        QCOMPARE(changed.calls.slide().targetDistance_px(), fresh.calls.slide().targetDistance_px());
        QCOMPARE(changed.calls.bestFocus_steps(), focus_steps);
        changed.calls.changeSlide(another(parameters.slide, SlideKind::Cells));
        QCOMPARE(changed.calls.slide().discs().size(),
                 CameraFixture(parametersWithSeed9()).calls.slide().discs().size());
    }

    void aPictureIsDrawnAgainOnlyWhenSomethingChanges()
    {
        SimulatedCameraParameters parameters = quickParameters();
        parameters.slide = pictureSlide();
        QVERIFY(parameters.slide.picture != nullptr);
        CameraFixture camera(parameters);
        camera.startStream();
        int darkest = -1;
        for (int frame = 0; frame < 12; ++frame)
            darkest = darkestOfNextFrame(camera);
        QVERIFY(darkest >= 0 && darkest < 60);
        QCOMPARE(camera.calls.counters().drawings, std::uint64_t(1));
        // The calibration takes it away, and it may come back.
        camera.calls.changeSlide(another(parameters.slide, SlideKind::Target));
        QCOMPARE(camera.calls.slide().targetDots().size(), std::size_t(2));
        QVERIFY(camera.calls.slide().picture() == nullptr);
        camera.calls.changeSlide(parameters.slide);
        QVERIFY(camera.calls.slide().picture() != nullptr);
        QCOMPARE(camera.calls.slide().targetDots().size(), std::size_t(0));
        camera.stopStream();
    }

    void theFieldHasTheColourThatThePictureShows()
    {
        CameraFixture camera;
        const auto bright = camera.calls.fieldColour({32000.0, true, 225});
        const auto dim = camera.calls.fieldColour({32000.0, true, 100});
        const auto dark = camera.calls.fieldColour({32000.0, false, 225});
        for (std::size_t channel = 0; channel < 3; ++channel)
            QVERIFY(bright[channel] > dim[channel] && dim[channel] > dark[channel]);
        QCOMPARE(dark[0], 2.0);
    }

    void slidesMayChangeWhileFramesAreDrawn()
    {
        CameraFixture camera;
        camera.startStream();
        std::atomic<bool> ending{false};
        std::atomic<int> frames{0};
        std::thread capture([&] {
            while (!ending)
                frames += darkestOfNextFrame(camera) >= 0 ? 1 : 0;
        });
        bool right = true;
        const SlideKind kinds[] = {SlideKind::Target, SlideKind::Empty, SlideKind::Cells};
        for (int change = 0; change < 30; ++change) {
            camera.calls.changeSlide(another({}, kinds[change % 3]));
            right = right && camera.calls.slide().kind() == kinds[change % 3];
            QTest::qSleep(10);
        }
        right = QTest::qWaitFor([&] { return frames > 3; }) && right;
        ending = true;
        capture.join();
        QVERIFY(right);
        camera.stopStream();
    }

private:
    static SlideParameters pictureSlide()
    {
        const QTemporaryDir directory;
        QImage picture(80, 60, QImage::Format_RGB32);
        picture.fill(qRgb(20, 30, 40));
        const QString file = directory.filePath("slide.png");
        std::string error;
        SlideParameters slide;
        slide.kind = SlideKind::Picture;
        slide.picture = picture.save(file) ? SlidePicture::read(file.toStdString(), error) : nullptr;
        return slide;
    }

    static SimulatedCameraParameters parametersWithSeed9()
    {
        SimulatedCameraParameters parameters = quickParameters();
        parameters.slide.seed = 9;
        parameters.optics.seed = 9;
        return parameters;
    }
};

QTEST_GUILESS_MAIN(TestSlideChange)
#include "test_slide_change.moc"
