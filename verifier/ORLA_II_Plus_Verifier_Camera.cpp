// Camera start and stop, the resolution and staining buttons.

#include "ORLA_II_Plus_Verifier.h"

#include "camera/GrabThread.h"
#include "camera/OV5642Camera.h"
#include "platform/DebugLog.h"
#include "platform/DeviceCalls.h"
#include "settings/SettingsFiles.h"
#include "ui_ORLA_II_Plus_Verifier.h"

namespace {

/// What the sensor needs between a stop and the next start.
constexpr unsigned int kPauseAfterClose_us = 500000;

} // namespace

void ORLA_II_Plus_Verifier::startCamera(int mode)
{
    logMessage(this, {Q_FUNC_INFO, QString::number(mode)});
    m_cameraMode = mode;
    m_grabThread = std::make_unique<GrabThread>(nullptr);
    connect(m_grabThread.get(), &GrabThread::grabDone, this, &ORLA_II_Plus_Verifier::updateFrame);
    connect(this, &ORLA_II_Plus_Verifier::updateFrameDone, m_grabThread.get(), &GrabThread::grab);
    connect(m_grabThread.get(), &GrabThread::sig_debug_Message, this,
            &ORLA_II_Plus_Verifier::slot_debug_Message);
    m_grabThread->registerCamera(m_camera, m_frameBuffers[static_cast<std::size_t>(mode)]);
    m_grabThread->start(QThread::InheritPriority);
    if (!m_grabThread->isRunning())
        logMessage(this, {Q_FUNC_INFO, "[Error] the grab thread could not be started"});
}

void ORLA_II_Plus_Verifier::stopCamera()
{
    logMessage(this, {Q_FUNC_INFO});
    discardGrabThread();
    if (m_camera->isStreaming()) {
        m_camera->close();
        deviceCalls().pause(kPauseAfterClose_us);
    }
}

void ORLA_II_Plus_Verifier::discardGrabThread()
{
    if (m_grabThread == nullptr)
        return;
    if (m_grabThread->isRunning()) {
        m_grabThread->stop();
        m_grabThread->wait();
    }
    disconnect(m_grabThread.get(), &GrabThread::sig_debug_Message, this,
               &ORLA_II_Plus_Verifier::slot_debug_Message);
    m_grabThread.reset();
}

/// Makes sure that nothing reads the camera's buffers while it is opened anew. A failed
/// open leaves a grab thread without a streaming camera: that one goes without the pause.
void ORLA_II_Plus_Verifier::stopForSwitch()
{
    if (m_camera->isStreaming())
        stopCamera();
    else
        discardGrabThread();
}

/// Opens the camera with the staining's register file and starts the live view. A camera
/// that cannot be opened starts it all the same: the view shows what its buffer holds.
void ORLA_II_Plus_Verifier::openCamera(int mode)
{
    if (m_quitting)
        return;
    m_registerFile = m_stained ? kCusCalibrationFile : kBfnCalibrationFile;
    m_camera->open(mode, m_registerFile, false);
    m_frameWidth_px = m_camera->width();
    m_frameHeight_px = m_camera->height();
    startCamera(mode);
    getCamera_reg();
}

void ORLA_II_Plus_Verifier::switchResolution(int mode)
{
    setEnabled(false);
    stopForSwitch();
    markButton(m_form->BUTTON_RESOLUTION_VGA, mode == kModeVga);
    markButton(m_form->BUTTON_RESOLUTION_1280, mode == kMode1280);
    markButton(m_form->BUTTON_RESOLUTION_5M, mode == kMode5M);
    openCamera(mode);
    setEnabled(true);
}

void ORLA_II_Plus_Verifier::switchStaining(bool stained)
{
    setEnabled(false);
    stopForSwitch();
    markButton(m_form->BUTTON_STAINING_NTB, !stained);
    markButton(m_form->BUTTON_STAINING_TB, stained);
    m_stained = stained;
    openCamera(m_cameraMode);
    setEnabled(true);
}

void ORLA_II_Plus_Verifier::on_BUTTON_RESOLUTION_VGA_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    switchResolution(kModeVga);
}

void ORLA_II_Plus_Verifier::on_BUTTON_RESOLUTION_1280_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    switchResolution(kMode1280);
}

void ORLA_II_Plus_Verifier::on_BUTTON_RESOLUTION_5M_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    switchResolution(kMode5M);
}

void ORLA_II_Plus_Verifier::on_BUTTON_STAINING_NTB_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    switchStaining(false);
}

void ORLA_II_Plus_Verifier::on_BUTTON_STAINING_TB_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    switchStaining(true);
}
