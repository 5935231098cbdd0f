// The band over the live view that says what the instrument is missing.

#include "ORLA_II_Plus_Verifier.h"

#include <QTimer>

#include "Controller/Controller.h"
#include "LiveViewNotice.h"
#include "WindowStyle.h"
#include "camera/GrabThread.h"
#include "camera/OV5642Camera.h"
#include "ui_ORLA_II_Plus_Verifier.h"

void ORLA_II_Plus_Verifier::createNotice()
{
    m_notice = new LiveViewNotice(kLiveViewRect.width(), this);
    m_noticeClock.start();
    connect(m_syncTimer, &QTimer::timeout, this, &ORLA_II_Plus_Verifier::refreshNotice);
    // Queued: a line is told when it goes out; by then it has been answered, or has not.
    connect(Controller::getInstance(), &Controller::sig_debug_Controller, this,
            &ORLA_II_Plus_Verifier::refreshNotice, Qt::QueuedConnection);
    refreshNotice();
}

/// What is shown of the board without its word for it. The best focus of a sweep in which a
/// move was not confirmed stays in doubt until the next run.
QStringList ORLA_II_Plus_Verifier::boardDoubts() const
{
    const BoardDoubts& doubts = Controller::getInstance()->doubts();
    QStringList words;
    if (doubts.position)
        words += "Z position";
    if (doubts.diagnosis)
        words += "diagnosis";
    if (doubts.ledLevel)
        words += "LED level";
    if (doubts.ledSwitch)
        words += "LED";
    if (m_focusDoubtful)
        words += "best focus";
    return words;
}

void ORLA_II_Plus_Verifier::refreshNotice()
{
    // The constructor opens the camera before it makes the notice.
    if (m_notice == nullptr)
        return;
    // Over a frozen frame or the graph nobody waits for the live picture.
    const bool framesExpected =
        m_camera->isStreaming() && !m_graphDisplayed && m_form->QC_MEASURE->isHidden();
    // Nobody sees what the camera delivers where no thread takes it.
    const bool framesTaken = m_grabThread != nullptr && m_grabThread->isRunning();
    InstrumentCondition condition;
    condition.cameraOpenFailure = m_camera->openFailure();
    condition.cameraGone = m_camera->isGone();
    condition.framesOverdue = m_frameWatch.isOverdue(
        framesExpected, framesTaken ? m_camera->framesCaptured() : 0, m_noticeClock.elapsed());
    condition.sensorAnswers = m_camera->sensorAnswers();
    condition.sensorSettingsInForce = m_camera->settingsInForce();
    condition.boardAnswers = Controller::getInstance()->answers();
    condition.boardDoubts = boardDoubts();
    condition.fullSizeFrameMissing = m_fullSizeFrameMissing;
    m_notice->showLines(noticeLines(condition));
}
