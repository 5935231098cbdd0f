// A picture's file as what lies under the microscope.

#include <array>
#include <cmath>
#include <vector>

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "PictureMeasures.h"
#include "simulator/optics/Optics.h"
#include "simulator/optics/SlidePicture.h"

namespace {

constexpr double kDark = 2.0;
constexpr double kField = 205.0;

OpticsParameters withoutNoise()
{
    OpticsParameters parameters;
    parameters.noise_levels = 0.0;
    parameters.bestFocus_steps = 32000.0;
    return parameters;
}

constexpr int kPatch_px = 162;
constexpr int kPatchesAcross = kFullWidth_px / kPatch_px;
constexpr int kPatchesDown = kFullHeight_px / kPatch_px;

/// Red, green and blue of a patch.
std::array<int, 3> patchColour(int across, int down)
{
    const int number = down * kPatchesAcross + across;
    return {number * 89 % 256, number * 151 % 256, number * 211 % 256};
}

/// The full frame in patches of colours, no two of which are alike.
cv::Mat patches()
{
    cv::Mat picture(kFullHeight_px, kFullWidth_px, CV_8UC3);
    for (int down = 0; down < kPatchesDown; ++down)
        for (int across = 0; across < kPatchesAcross; ++across) {
            const auto colour = patchColour(across, down);
            picture(cv::Rect(across * kPatch_px, down * kPatch_px, kPatch_px, kPatch_px))
                .setTo(cv::Scalar(colour[2], colour[1], colour[0]));
        }
    return picture;
}

/// Half black, half white, with the edge down the middle.
cv::Mat edge(int width, int height)
{
    cv::Mat picture(height, width, CV_8UC3, cv::Scalar::all(255));
    picture.colRange(0, width / 2).setTo(cv::Scalar::all(0));
    return picture;
}

} // namespace

class TestSlidePicture : public QObject
{
    Q_OBJECT

private slots:
    void aPictureIsLitAsTheDrawnSlidesAre_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("depth");
        QTest::newRow("PNG") << "slide.png" << CV_8UC3;
        QTest::newRow("grey PNG") << "slide.png" << CV_8UC1;
        QTest::newRow("PNG of 16 bits") << "slide.png" << CV_16UC3;
        QTest::newRow("TIFF") << "slide.tif" << CV_8UC3;
        QTest::newRow("grey TIFF of 16 bits") << "slide.tif" << CV_16UC1;
        QTest::newRow("JPEG") << "slide.jpg" << CV_8UC3;
        QTest::newRow("grey JPEG") << "slide.jpg" << CV_8UC1;
    }

    void aPictureIsLitAsTheDrawnSlidesAre()
    {
        QFETCH(QString, file);
        QFETCH(int, depth);
        const bool grey = CV_MAT_CN(depth) == 1;
        const double unit = CV_MAT_DEPTH(depth) == CV_16U ? 257.0 : 1.0;
        // Blue, green and red, as the library keeps them.
        const cv::Scalar colour = grey ? cv::Scalar::all(128) : cv::Scalar(200, 128, 60);
        Optics optics = over(cv::Mat(300, 400, depth, colour * unit), file);
        for (const PictureMode& mode : kPictureModes)
            for (const int ledLevel : {225, 90}) {
                const auto mean = drawn(optics, mode, nominalInputs(optics, 0.0, ledLevel)).mean();
                for (std::size_t channel = 0; channel < 3; ++channel) {
                    const double passed = colour[2 - static_cast<int>(channel)] / 255.0;
                    const double expected = kDark + (kField - kDark) * ledLevel / 225.0 * passed;
                    QVERIFY2(std::abs(mean[channel] - expected) < 2.5,
                             qPrintable(QString("%1 for %2").arg(mean[channel]).arg(expected)));
                }
            }
    }

    void itsBlurIsThatOfTheDrawnSlides_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<double>("distance");
        for (const double distance : {0.0, -1200.0, 2500.0, 20000.0})
            for (const int mode : {0, 1, 2})
                QTest::addRow("mode %d, %g steps", mode, distance) << mode << distance;
    }

    // The edge's spread is measured by the part of the light beside it: a Gaussian's mean
    // distance from its middle is sigma times the root of 2 by pi.
    void itsBlurIsThatOfTheDrawnSlides()
    {
        QFETCH(int, mode);
        QFETCH(double, distance);
        Optics optics = over(edge(2592, 1944));
        const PictureMode& format = kPictureModes[static_cast<std::size_t>(mode)];
        const MeasuredPicture picture = drawn(optics, format, nominalInputs(optics, distance));
        const double middle = (kFullWidth_px / 2.0 - format.left_px) / format.scale;
        double beside = 0.0;
        for (int x = 0; x < format.width_px; ++x) {
            const double lit = (picture.green(x, format.height_px / 2) - kDark) / (kField - kDark);
            beside += x + 0.5 < middle ? lit : 1.0 - lit;
        }
        const double sigma_px = beside / std::sqrt(2.0 / M_PI) * format.scale;
        const double expected_px = optics.blur_px(32000.0 + distance, {});
        QVERIFY2(std::abs(sigma_px - expected_px) < 1.2 + 0.06 * expected_px,
                 qPrintable(QString("%1 px for %2 px").arg(sigma_px).arg(expected_px)));
    }

    void everyPatchOfAPictureIsAsTheFormulaSays()
    {
        Optics optics = over(patches());
        const PictureMode& mode = kPictureModes[2];
        const std::vector<std::uint8_t> yuyv = drawnBytes(optics, mode, nominalInputs(optics));
        for (int down = 0; down < kPatchesDown; ++down)
            for (int across = 0; across < kPatchesAcross; ++across) {
                std::array<double, 3> rgb{};
                for (std::size_t channel = 0; channel < 3; ++channel)
                    rgb[channel] = kDark + (kField - kDark) * patchColour(across, down)[channel] / 255.0;
                const double luma = 16.0 + 0.257 * rgb[0] + 0.504 * rgb[1] + 0.098 * rgb[2];
                const double blue = 128.0 - 0.148 * rgb[0] - 0.291 * rgb[1] + 0.439 * rgb[2];
                const double red = 128.0 + 0.439 * rgb[0] - 0.368 * rgb[1] - 0.071 * rgb[2];
                const std::array<double, 4> expected{luma, blue, luma, red};
                // The first row, the middle, and the last row of the patch's own light.
                const int x = across * kPatch_px + kPatch_px / 2 - 1;
                const int middle = down * kPatch_px + kPatch_px / 2;
                const int y = down == 0 ? 0 : down == kPatchesDown - 1 ? mode.height_px - 1 : middle;
                const std::size_t pair = (static_cast<std::size_t>(y) * kFullWidth_px + x) / 2 * 4;
                for (std::size_t i = 0; i < expected.size(); ++i)
                    QVERIFY2(std::abs(yuyv[pair + i] - expected[i]) < 0.52,
                             qPrintable(QString("%1 for %2").arg(yuyv[pair + i]).arg(expected[i])));
            }
    }

    void thePictureFillsTheFrameAsItIs()
    {
        const cv::Mat picture = patches();
        const auto slide = showing(picture).picture;
        for (const int y : {0, 1, 971, 1942, 1943})
            for (int x = 0; x < kFullWidth_px; ++x) {
                const auto& bgr = picture.at<cv::Vec3b>(y, x);
                const std::uint8_t* rgb = slide->row(y) + static_cast<std::size_t>(x) * 3;
                QVERIFY(rgb[0] == bgr[2] && rgb[1] == bgr[1] && rgb[2] == bgr[0]);
            }
    }

    void aWhitePictureIsAnEmptySlide()
    {
        const SlideParameters white = showing(cv::Mat(30, 40, CV_8UC3, cv::Scalar::all(255)));
        SlideParameters empty;
        empty.kind = SlideKind::Empty;
        // In its noise as well.
        OpticsParameters parameters = withoutNoise();
        parameters.noise_levels = 2.0;
        Optics optics(parameters, Slide(white));
        for (const PictureMode& mode : kPictureModes) {
            optics.setSlide(Slide(white));
            const std::vector<std::uint8_t> ofWhite = drawnBytes(optics, mode, nominalInputs(optics), 7);
            optics.setSlide(Slide(empty));
            QVERIFY(ofWhite == drawnBytes(optics, mode, nominalInputs(optics), 7));
        }
    }

    void anotherPictureIsNotMistakenForTheOneBefore()
    {
        const auto grey = [this](int level) {
            return Slide(showing(cv::Mat(30, 40, CV_8UC3, cv::Scalar::all(level))));
        };
        const Slide slides[] = {grey(200), grey(50)};
        Optics optics(withoutNoise(), slides[0]);
        const auto green = [&optics] {
            return drawn(optics, kPictureModes[0], nominalInputs(optics)).green(0, 0);
        };
        const int bright = green();
        optics.setSlide(slides[1]);
        const int dim = green();
        optics.setSlide(slides[0]);
        QCOMPARE(green(), bright);
        QVERIFY2(std::abs(bright - 161) <= 2 && std::abs(dim - 42) <= 2,
                 qPrintable(QString("%1 and %2").arg(bright).arg(dim)));
    }

    // Pixel for pixel a Gaussian's sum over those on the bright side.
    void anEdgeIsBlurredByAGaussian()
    {
        Optics optics = over(edge(2592, 1944));
        const PictureMode& mode = kPictureModes[2];
        for (const double distance : {0.0, 600.0}) {
            const double sigma_px = optics.blur_px(32000.0 + distance, {});
            QVERIFY(sigma_px < 4.0);
            const std::vector<std::uint8_t> yuyv = drawnBytes(optics, mode, nominalInputs(optics, distance));
            double sum = 0.0;
            for (int i = -40; i <= 40; ++i)
                sum += std::exp(-0.5 * i * i / (sigma_px * sigma_px));
            for (const int y : {0, 972, 1943})
                for (int x = 1296 - 20; x < 1296 + 20; ++x) {
                    double lit = 0.0;
                    for (int i = -40; i <= x - 1296; ++i)
                        lit += std::exp(-0.5 * i * i / (sigma_px * sigma_px)) / sum;
                    const double expected = 16.0 + 0.859 * (kDark + (kField - kDark) * lit);
                    const int luma = yuyv[(static_cast<std::size_t>(y) * kFullWidth_px + x) * 2];
                    QVERIFY2(std::abs(luma - expected) < 1.3,
                             qPrintable(
                                 QString("%1, %2: %3 for %4").arg(x).arg(sigma_px).arg(luma).arg(expected)));
                }
        }
    }

    void theSharpestPictureIsAtTheFocus()
    {
        cv::Mat picture(600, 800, CV_8UC3);
        cv::randu(picture, 0, 255);
        Optics optics = over(picture);
        const auto valueAt = [&optics](double distance) {
            return drawn(optics, kPictureModes[1], nominalInputs(optics, distance)).focusValue();
        };
        double last = valueAt(0.0);
        for (const double distance : {640.0, 1280.0, 2560.0, 5120.0}) {
            const double value = valueAt(distance);
            QVERIFY(value < last);
            QCOMPARE(valueAt(-distance), value);
            last = value;
        }
    }

    void onePixelOfAThinPictureFillsTheField_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::newRow("nothing else") << QSize(1, 1);
        QTest::newRow("a column") << QSize(1, 51);
        QTest::newRow("a row") << QSize(51, 1);
    }

    void onePixelOfAThinPictureFillsTheField()
    {
        QFETCH(QSize, size);
        cv::Mat picture(size.height(), size.width(), CV_8UC3, cv::Scalar::all(200));
        picture.at<cv::Vec3b>(size.height() / 2, size.width() / 2) = {30, 20, 10};
        const auto slide = showing(picture).picture;
        for (const int y : {0, kFullHeight_px - 1})
            for (const std::size_t x : {0, kFullWidth_px - 1}) {
                QCOMPARE(int(slide->row(y)[3 * x]), 10);
                QCOMPARE(int(slide->row(y)[3 * x + 2]), 30);
            }
    }

    void itFillsTheFieldInItsOwnProportions_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("height");
        QTest::newRow("wide") << 3000 << 1000;
        QTest::newRow("high") << 500 << 2000;
        QTest::newRow("small") << 40 << 30;
    }

    void itFillsTheFieldInItsOwnProportions()
    {
        QFETCH(int, width);
        QFETCH(int, height);
        // A dark square in the middle stays a square, whatever is cut off.
        cv::Mat picture(height, width, CV_8UC3, cv::Scalar::all(255));
        const int side = std::min(width, height) / 2;
        picture(cv::Rect((width - side) / 2, (height - side) / 2, side, side)).setTo(cv::Scalar::all(0));
        Optics optics = over(picture);
        const PictureMode& mode = kPictureModes[1];
        const MeasuredPicture seen = drawn(optics, mode, nominalInputs(optics));
        int across = 0;
        int down = 0;
        for (int x = 0; x < mode.width_px; ++x)
            across += seen.green(x, mode.height_px / 2) < 100 ? 1 : 0;
        for (int y = 0; y < mode.height_px; ++y)
            down += seen.green(mode.width_px / 2, y) < 100 ? 1 : 0;
        const double scale = std::max(1280.0 / width, 960.0 / height);
        QVERIFY2(std::abs(across - side * scale) < 4.0, qPrintable(QString::number(across)));
        QVERIFY2(std::abs(down - side * scale) < 4.0, qPrintable(QString::number(down)));
        QVERIFY(seen.green(mode.width_px / 2, mode.height_px / 2) < 10);
    }

    void whatCannotBeReadIsTold_data()
    {
        QTest::addColumn<QByteArray>("content");
        std::vector<std::uint8_t> png;
        cv::imencode(".png", edge(400, 300), png);
        const QByteArray whole(reinterpret_cast<const char*>(png.data()), static_cast<int>(png.size()));
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("text") << QByteArray("no picture at all\n");
        QTest::newRow("beginning only") << whole.left(30);
        // A header that asks for more than any memory has.
        QTest::newRow("endless size")
            << QByteArray(whole).replace(16, 8, QByteArray("\x7f\xff\xff\xff\x7f\xff\xff\xff", 8));
    }

    void whatCannotBeReadIsTold()
    {
        QFETCH(QByteArray, content);
        QFile file(m_directory.filePath("slide.png"));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
        file.close();
        std::string error;
        QVERIFY(SlidePicture::read(file.fileName().toStdString(), error) == nullptr);
        QCOMPARE(QString::fromStdString(error),
                 "The picture \"" + file.fileName() + "\" cannot be read; PNG, TIFF and JPEG can.");
    }

    void whatIsNoFileOfAPictureIsTold()
    {
        QFile huge(m_directory.filePath("huge.png"));
        QVERIFY(huge.open(QIODevice::WriteOnly) && huge.resize(3LL << 30));
        for (const QString& path : {m_directory.filePath("missing.png"), m_directory.path(),
                                    QString("/dev/zero"), huge.fileName()}) {
            std::string error;
            QVERIFY(SlidePicture::read(path.toStdString(), error) == nullptr);
            QCOMPARE(QString::fromStdString(error),
                     "The picture \"" + path + "\" " +
                         (path == huge.fileName() ? "cannot be read; it is larger than a gigabyte."
                                                  : "cannot be opened."));
        }
    }

private:
    /// A slide with this picture, by way of a file of that name.
    SlideParameters showing(const cv::Mat& picture, const QString& name = "slide.png") const
    {
        const std::string file = m_directory.filePath(name).toStdString();
        cv::imwrite(file, picture);
        std::string error;
        SlideParameters parameters;
        parameters.kind = SlideKind::Picture;
        parameters.picture = SlidePicture::read(file, error);
        if (!parameters.picture)
            qFatal("%s", error.c_str());
        return parameters;
    }

    Optics over(const cv::Mat& picture, const QString& name = "slide.png") const
    {
        return {withoutNoise(), Slide(showing(picture, name))};
    }

    QTemporaryDir m_directory;
};

QTEST_GUILESS_MAIN(TestSlidePicture)
#include "test_slide_picture.moc"
