// Saving what is seen: a frame as TIFF, the screen as PNG; and the skip-frame count.

#include "ORLA_II_Plus_Verifier.h"

#include <cerrno>
#include <exception>

#include <QBuffer>
#include <QFileDialog>
#include <QGuiApplication>
#include <QImageWriter>
#include <QKeyEvent>
#include <QMessageBox>
#include <QScreen>
#include <QSettings>

#include <opencv2/core.hpp>

#include "WindowStyle.h"
#include "camera/OV5642Camera.h"
#include "picture/PictureFile.h"
#include "platform/DebugLog.h"
#include "platform/DeviceCalls.h"
#include "platform/DiskFile.h"
#include "platform/InstrumentPath.h"
#include "settings/GlobalIni.h"
#include "ui_ORLA_II_Plus_Verifier.h"

namespace {

constexpr const char* kScreenshotName = "%s/KorvexCap-%04d.png";
constexpr const char* kCaptureEnding = ".tif";
// Below which nothing can be made or found.
constexpr const char* kNoFolder = "/dev/null";

constexpr int kSkipFrameMinimum = 1;
constexpr int kSkipFrameMaximum = 30;

} // namespace

/// Whether the USB disk can be written to; asks for it when it is missing.
bool ORLA_II_Plus_Verifier::isUsbDiskMounted()
{
    if (m_mediaMonitor.searchUSB())
        return true;
    QMessageBox::critical(this, kErrorTitle, kInsertDiskText, QMessageBox::Ok);
    return false;
}

void ORLA_II_Plus_Verifier::keyPressEvent(QKeyEvent* event)
{
    if (event->key() != Qt::Key_Print) {
        event->ignore();
        return;
    }
    event->accept();
    if (!isUsbDiskMounted())
        return;

    const QPixmap screen = QGuiApplication::primaryScreen()->grabWindow(0);
    const QString fileName = QString::asprintf(kScreenshotName, kDiskMountPoint, m_screenshotNumber);
    QBuffer picture;
    QImageWriter writer(&picture, "png");
    const bool encoded = writer.write(screen.toImage());
    const QByteArray& bytes = picture.data();
    if (!encoded || !disk_file::write(fileName, bytes.constData(), static_cast<std::size_t>(bytes.size()))) {
        const QString reason = encoded ? qt_error_string(errno) : writer.errorString();
        logMessage(this, {Q_FUNC_INFO, "[Error]", fileName, reason});
        QMessageBox::critical(this, kErrorTitle, QString("%1 saving failed !!!").arg(fileName),
                              QMessageBox::Ok);
        return;
    }
    QMessageBox::information(this, kMessageTitle, QString("%1 saved !").arg(fileName), QMessageBox::Ok);
    ++m_screenshotNumber;
    deviceCalls().syncFileSystems();
}

void ORLA_II_Plus_Verifier::on_BUTTON_CAPTURE_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    if (!isUsbDiskMounted())
        return;
    // Else the dialog keeps the folders that were visited in a file of root's, written anew each time.
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, kNoFolder);
    const QString fileName = QFileDialog::getSaveFileName(
        this, tr("Save image"), instrumentPath(QString(kDiskMountPoint)), tr("TIFF image (*.tif)"));
    if (fileName.isEmpty())
        return;
    disableAndPaint();
    // Always appended: a name that already ends in .tif gets a second one.
    writeFrame(fileName + kCaptureEnding);
    setEnabled(true);
}

/// Writes the current frame. The technician is told nothing of a failure; the log is.
void ORLA_II_Plus_Verifier::writeFrame(const QString& fileName)
{
    try {
        const cv::Mat frame(m_frameHeight_px, m_frameWidth_px, CV_8UC3, m_camera->getFrame(),
                            static_cast<std::size_t>(m_frameWidth_px) * kRgbBytesPerPixel);
        if (!writePicture(fixedPathOf(fileName), frame))
            logMessage(this, {Q_FUNC_INFO, "[Error]", fixedPathOf(fileName)});
    } catch (const std::exception& exception) {
        logMessage(this, {Q_FUNC_INFO, "[Error]", fixedPathOf(fileName), exception.what()});
    }
}

void ORLA_II_Plus_Verifier::on_BUTTON_SKIP_FRAME_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    const int frames = m_form->EDIT_SKIP_FRAME->text().toInt();
    if (frames < kSkipFrameMinimum || frames > kSkipFrameMaximum) {
        QMessageBox::critical(this, kErrorTitle, "Possible range: 1 to 30", QMessageBox::Ok);
        return;
    }
    global_ini()->Skip_frame = frames;
    QMessageBox::information(this, kMessageTitle,
                             "Skip frame value is set. \nPress [Save Ini] to save the value.",
                             QMessageBox::Ok);
}
