#include "simulator/session/SessionSteps.h"

#include <array>

#include <QFile>
#include <QGuiApplication>
#include <QScreen>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "platform/InstrumentPath.h"
#include "simulator/instrument/SimulatedInstrument.h"
#include "simulator/session/PictureMeasures.h"

namespace {

constexpr QSize kFrame(1280, 960);
constexpr double kBrightnessTolerance = 4.0;
constexpr std::array<double, 3> kNoColour{kNotTaken, kNotTaken, kNotTaken};
const QString kCaptureName = QStringLiteral("sample");
const QString kScreenshotName = QStringLiteral("KorvexCap-0001.png");

} // namespace

StepResult steps::capture(SessionContext& session)
{
    const std::array<double, 3> live = session.settle() ? meanColour(session.user.liveView()) : kNoColour;
    session.user.expectFileDialog(kCaptureName);
    session.user.click("BUTTON_CAPTURE");
    session.waitUntilEnabled(QStringLiteral("the window stays disabled after the capture"));
    const QString file = session.instrument.usb().filesOf() + '/' + kCaptureName + ".tif";
    const cv::Mat saved = QFile::exists(file) ? cv::imread(QFile::encodeName(file).toStdString()) : cv::Mat();
    const cv::Scalar mean = saved.empty() ? cv::Scalar::all(kNotTaken) : cv::mean(saved);
    if (saved.empty())
        session.findings.failedSaves.append(QStringLiteral("%1.tif is not there").arg(kCaptureName));
    return {saved.cols == kFrame.width() && saved.rows == kFrame.height(),
            QStringLiteral("%1.tif of %2 x %3").arg(kCaptureName).arg(saved.cols).arg(saved.rows),
            QStringLiteral("frames of %1 x %2").arg(kFrame.width()).arg(kFrame.height()),
            {{"red of the TIFF", "", mean[2], live[0], kBrightnessTolerance},
             {"green of the TIFF", "", mean[1], live[1], kBrightnessTolerance},
             {"blue of the TIFF", "", mean[0], live[2], kBrightnessTolerance}}};
}

StepResult steps::screenshot(SessionContext& session)
{
    session.user.expectBox("OK");
    session.user.pressKey(Qt::Key_Print);
    const QString onDisk = QLatin1String(kDiskMountPoint) + '/' + kScreenshotName;
    const QImage picture(session.instrument.usb().filesOf() + '/' + kScreenshotName);
    // Without a display there is no screen to take a picture of, and the program has to say so.
    if (QGuiApplication::platformName() == QLatin1String("offscreen")) {
        const bool told = session.boxWas("Error", onDisk + " saving failed !!!");
        return {told && picture.isNull(), told ? "told that it failed" : "not told that it failed",
                QStringLiteral("no display here")};
    }
    if (picture.isNull())
        session.findings.failedSaves.append(kScreenshotName + " is not there");
    const bool told = session.boxWas("ORLA-III", onDisk + " saved !");
    const QSize screen = QGuiApplication::primaryScreen()->size();
    return {told && picture.size() == screen && measurePicture(picture).contrast > 1.0,
            QStringLiteral("%1 of %2 x %3, %4")
                .arg(kScreenshotName)
                .arg(picture.width())
                .arg(picture.height())
                .arg(told ? "told" : "not told"),
            QStringLiteral("screen of %1 x %2").arg(screen.width()).arg(screen.height())};
}
