// The QC tab: frozen frame, target, points, measurement, intensity.

#include "ORLA_II_Plus_Verifier.h"

#include <QMessageBox>
#include <QThread>
#include <QTimer>

#include <opencv2/core.hpp>

#include "WindowStyle.h"
#include "camera/GrabThread.h"
#include "camera/OV5642Camera.h"
#include "platform/DebugLog.h"
#include "settings/GlobalIni.h"
#include "ui_ORLA_II_Plus_Verifier.h"

namespace {

/// What the sensor needs after a switch to 5M until it delivers full-size frames.
constexpr int kFullSizeDelay_ms = 2500;

/// Waits until a running grab thread has filled its buffer: at most a round and a conversion.
void waitForDelivery(const GrabThread& grabThread)
{
    constexpr unsigned long kPause_ms = 1;
    while (grabThread.isRunning() && !grabThread.frameDelivered())
        QThread::msleep(kPause_ms);
}

/// Has a running grab thread fill its buffer with the frame of now, and waits for it. Elsewhere a
/// repaint of the live view asks for the next frame. Under the frozen frame and behind the graph
/// none comes: the buffer would keep the frame that was the newest when the camera started, none
/// at all. A delivery that has begun already is of a frame of before, and is waited for first.
void fetchNewestFrame(GrabThread* grabThread)
{
    if (grabThread == nullptr || !grabThread->isRunning())
        return;
    waitForDelivery(*grabThread);
    grabThread->grab();
    waitForDelivery(*grabThread);
}

} // namespace

void ORLA_II_Plus_Verifier::setState_QC_widget(QC_widget_e state)
{
    if (state < QC_WIDGET_HIDDEN || state > QC_WIDGET_TARGETING)
        return;
    if (state == QC_WIDGET_HIDDEN)
        m_form->QC_MEASURE->hide();
    else if (state == QC_WIDGET_POINTS && m_form->QC_MEASURE->isHidden())
        m_form->QC_MEASURE->show();

    const bool frozen = state != QC_WIDGET_HIDDEN;
    const bool targeting = state == QC_WIDGET_TARGETING;
    m_form->CHECK_TARGET->setEnabled(frozen);
    m_form->BUTTON_POINT_1->setEnabled(targeting);
    m_form->BUTTON_POINT_2->setEnabled(targeting);
    // Usable before any point is found: the measurement does not refuse it.
    m_form->BUTTON_QC_MEASURE->setEnabled(frozen);
}

void ORLA_II_Plus_Verifier::on_BUTTON_QC_CAPTURE_clicked()
{
    m_QC_mode = m_QC_mode == 1 ? 0 : 1;
    logMessage(this, {Q_FUNC_INFO, "m_QC_mode:", QString("%1").arg(m_QC_mode)});
    if (m_QC_mode == 1)
        enterQC();
    else
        leaveQC();
}

void ORLA_II_Plus_Verifier::enterQC()
{
    if (m_cameraMode == kMode5M) {
        disableAndPaint();
        slot_prepare_QC_measure();
        return;
    }
    on_BUTTON_RESOLUTION_5M_clicked();
    disableAndPaint();
    m_fullSizeTimer->start(kFullSizeDelay_ms);
}

/// Without a full-size frame (no camera) the QC widget gets none: an older picture must not
/// be measured as if it were this one.
void ORLA_II_Plus_Verifier::slot_prepare_QC_measure()
{
    m_form->BUTTON_QC_CAPTURE->setText("Live");
    unsigned char* frame = m_camera->mode() == kMode5M ? m_camera->getFrame() : nullptr;
    m_fullSizeFrameMissing = frame == nullptr;
    if (m_fullSizeFrameMissing)
        logMessage(this, {Q_FUNC_INFO, "[Error] no 5M frame"});
    m_form->QC_MEASURE->setImageData(frame);
    m_form->QC_MEASURE->setTargetingMode(false);
    stopCamera();
    setState_QC_widget(QC_WIDGET_POINTS);
    refreshNotice();
    setEnabled(true);
}

void ORLA_II_Plus_Verifier::leaveQC()
{
    m_fullSizeTimer->stop();
    disableAndPaint();
    m_form->BUTTON_QC_CAPTURE->setText("Capture");
    // A resolution or staining press while the frame was frozen has started the camera.
    stopForSwitch();
    openCamera(m_cameraMode);
    setState_QC_widget(QC_WIDGET_HIDDEN);
    m_fullSizeFrameMissing = false;
    refreshNotice();
    setEnabled(true);
}

void ORLA_II_Plus_Verifier::on_CHECK_TARGET_clicked(bool checked)
{
    logMessage(this, {Q_FUNC_INFO});
    m_form->QC_MEASURE->setTargetingMode(checked);
    setState_QC_widget(checked ? QC_WIDGET_TARGETING : QC_WIDGET_POINTS);
}

void ORLA_II_Plus_Verifier::on_BUTTON_POINT_1_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    findPoint(0);
}

void ORLA_II_Plus_Verifier::on_BUTTON_POINT_2_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    findPoint(1);
}

/// The window is enabled again by slot_measure_point() or slot_measure_error().
void ORLA_II_Plus_Verifier::findPoint(int index)
{
    disableAndPaint();
    m_form->QC_MEASURE->setPoint(index);
}

void ORLA_II_Plus_Verifier::slot_measure_point(int index, int x, int y)
{
    const QString text = QString::asprintf("%d, %d", x, y);
    logMessage(this, {Q_FUNC_INFO, QString::number(index), text});
    if (index == 0)
        m_form->EDIT_POINT_1->setText(text);
    else if (index == 1)
        m_form->EDIT_POINT_2->setText(text);
    setEnabled(true);
}

void ORLA_II_Plus_Verifier::slot_measure_error(TargetingError_e error)
{
    logMessage(this, {Q_FUNC_INFO, QString::number(error)});
    if (error == TARGETING_NO_CELL)
        QMessageBox::critical(this, kErrorTitle, "Cell not detected !", QMessageBox::Ok);
    else if (error == TARGETING_TOO_MANY_CELLS)
        QMessageBox::critical(this, kErrorTitle, "Too many Cells detected !", QMessageBox::Ok);
    setEnabled(true);
}

void ORLA_II_Plus_Verifier::on_BUTTON_QC_MEASURE_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    disableAndPaint();
    m_form->QC_MEASURE->measure2Point();
}

void ORLA_II_Plus_Verifier::slot_measure_result(MeasureInfo_t result)
{
    auto& system = global_ini()->System;
    system.Magnification = static_cast<double>(result.Magnification);
    logMessage(this, {Q_FUNC_INFO,
                      "------> global_ini()->System.Magnification :", QString::number(system.Magnification)});
    m_form->EDIT_MAGNIFICATION->setText(QString::asprintf("%.3f", system.Magnification));
    system.Volume_factor = static_cast<double>(result.Volume_factor);
    logMessage(this, {Q_FUNC_INFO,
                      "------> global_ini()->System.Volume_factor :", QString::number(system.Volume_factor)});
    m_form->EDIT_VOLUME_FACTOR->setText(QString::asprintf("%.5f", system.Volume_factor));
    setEnabled(true);
}

void ORLA_II_Plus_Verifier::on_BUTTON_INTENSITY_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    Q_ASSERT(m_cameraMode >= 0); // the constructor starts the camera before anything is pressed
    fetchNewestFrame(m_grabThread.get());
    float red = 0.0F;
    float green = 0.0F;
    float blue = 0.0F;
    try {
        // Not the form's widget: the mean is of the live frame, and what that one holds, a frozen
        // frame with its points, has no part in it.
        QC_measure(nullptr).getIntensityMean(m_frameBuffers[static_cast<std::size_t>(m_cameraMode)],
                                             m_frameWidth_px, m_frameHeight_px, red, green, blue);
    } catch (const cv::Exception& exception) {
        logMessage(this, {Q_FUNC_INFO, "[Error]", exception.what()});
    }
    m_form->EDIT_INTENSITY_RED->setText(QString::asprintf("%.1f", static_cast<double>(red)));
    m_form->EDIT_INTENSITY_GREEN->setText(QString::asprintf("%.1f", static_cast<double>(green)));
    m_form->EDIT_INTENSITY_BLUE->setText(QString::asprintf("%.1f", static_cast<double>(blue)));
}
