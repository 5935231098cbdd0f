// The stage tab: steps, absolute moves, rotation, homing, diagnosis, reference.

#include "ORLA_II_Plus_Verifier.h"

#include <QCoreApplication>

#include "Controller/Controller.h"
#include "platform/DebugLog.h"
#include "settings/GlobalIni.h"
#include "ui_ORLA_II_Plus_Verifier.h"

/// Highlights and locks a button around a step that blocks; the highlight is painted first.
/// What is pressed already has its turn after the step: carried out before it, inside of it, it
/// would come in the wrong order, and the step would take the answer that it waits for.
template <class Work>
void ORLA_II_Plus_Verifier::runBusy(QPushButton* button, Work work)
{
    markButton(button, true);
    button->setEnabled(false);
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
    work();
    markButton(button, false);
    button->setEnabled(true);
    repaint();
}

void ORLA_II_Plus_Verifier::showStagePosition(int position_steps)
{
    m_form->EDIT_Z_POSITION->setText(QString::number(position_steps));
}

void ORLA_II_Plus_Verifier::queryStagePosition()
{
    showStagePosition(Controller::getInstance()->z_stage_pos());
}

/// Takes the numbers that stand in the boxes, one out of range as the nearest within. The
/// buttons take no focus, so that a box is not told that typing is over.
void ORLA_II_Plus_Verifier::settleTypedNumbers()
{
    m_form->SPIN_Z_STEP->interpretText();
    m_form->SPIN_Z_SPEED->interpretText();
}

void ORLA_II_Plus_Verifier::on_SPIN_Z_STEP_valueChanged(int steps)
{
    global_ini()->Z_step = steps;
}

void ORLA_II_Plus_Verifier::on_SPIN_Z_SPEED_valueChanged(int speed)
{
    global_ini()->Z_speed = speed;
}

void ORLA_II_Plus_Verifier::on_BUTTON_Z_POSITION_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    queryStagePosition();
}

void ORLA_II_Plus_Verifier::on_BUTTON_Z_MOVE_PLUS_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    settleTypedNumbers();
    Controller* controller = Controller::getInstance();
    if (controller->z_stage_mvp(SERIAL_BLOCKING, global_ini()->Z_step))
        showStagePosition(controller->m_zStagePosition);
}

void ORLA_II_Plus_Verifier::on_BUTTON_Z_MOVE_MINUS_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    settleTypedNumbers();
    Controller* controller = Controller::getInstance();
    if (!controller->z_stage_mvn(SERIAL_BLOCKING, global_ini()->Z_step))
        return;
    // A tracked position below the origin is asked for again, but the display ends on it.
    const int tracked = controller->m_zStagePosition;
    if (tracked < 0)
        on_BUTTON_Z_POSITION_clicked();
    showStagePosition(tracked);
}

void ORLA_II_Plus_Verifier::on_BUTTON_Z_ROTATE_PLUS_pressed()
{
    logMessage(this, {Q_FUNC_INFO});
    settleTypedNumbers();
    Controller::getInstance()->z_stage_rop(m_form->SPIN_Z_SPEED->value());
}

void ORLA_II_Plus_Verifier::on_BUTTON_Z_ROTATE_MINUS_pressed()
{
    logMessage(this, {Q_FUNC_INFO});
    settleTypedNumbers();
    Controller::getInstance()->z_stage_ron(m_form->SPIN_Z_SPEED->value());
}

void ORLA_II_Plus_Verifier::on_BUTTON_Z_ROTATE_PLUS_released()
{
    logMessage(this, {Q_FUNC_INFO});
    Controller::getInstance()->z_stage_stop();
    on_BUTTON_Z_POSITION_clicked();
}

void ORLA_II_Plus_Verifier::on_BUTTON_Z_ROTATE_MINUS_released()
{
    logMessage(this, {Q_FUNC_INFO});
    Controller::getInstance()->z_stage_stop();
    on_BUTTON_Z_POSITION_clicked();
}

void ORLA_II_Plus_Verifier::on_BUTTON_Z_STOP_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    Controller::getInstance()->z_stage_stop();
}

void ORLA_II_Plus_Verifier::on_BUTTON_Z_ABS_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    // slot_z_stage_abs() enables the window again; a board that never answers leaves it locked.
    disableAndPaint();
    Controller::getInstance()->z_stage_abs(SERIAL_NON_BLOCKING, m_form->EDIT_Z_ABS->text().toInt());
}

void ORLA_II_Plus_Verifier::on_BUTTON_Z_ORIGIN_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    runBusy(m_form->BUTTON_Z_ORIGIN, [] { Controller::getInstance()->z_stage_origin(SERIAL_BLOCKING); });
}

void ORLA_II_Plus_Verifier::on_BUTTON_Z_MOVE_REFERENCE_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    runBusy(m_form->BUTTON_Z_MOVE_REFERENCE, [this] {
        Controller::getInstance()->z_stage_abs(SERIAL_BLOCKING, m_form->EDIT_Z_REFERENCE->text().toInt());
    });
}

void ORLA_II_Plus_Verifier::on_BUTTON_Z_DIAGNOSIS_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    runBusy(m_form->BUTTON_Z_DIAGNOSIS, [this] {
        const int result = Controller::getInstance()->z_stage_diagnosis();
        m_form->EDIT_Z_DIAGNOSIS->setText(QString::number(result));
    });
}

void ORLA_II_Plus_Verifier::on_BUTTON_Z_SET_REFERENCE_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    // The displayed position, not a fresh query: what the technician sees is what is kept.
    const QString position = m_form->EDIT_Z_POSITION->text();
    global_ini()->Z_reference = position.toInt();
    m_form->EDIT_Z_REFERENCE->setText(position);
}

/// An answer that comes late, when a 5M frame is waited for, leaves that lock alone.
void ORLA_II_Plus_Verifier::unlockAfterMove()
{
    const bool awaitsFrame = m_QC_mode == 1 && m_form->QC_MEASURE->isHidden();
    if (!awaitsFrame)
        setEnabled(true);
}

void ORLA_II_Plus_Verifier::slot_z_stage_mvn()
{
    logMessage(this, {Q_FUNC_INFO});
    queryStagePosition();
}

void ORLA_II_Plus_Verifier::slot_z_stage_mvp()
{
    logMessage(this, {Q_FUNC_INFO});
    queryStagePosition();
}

void ORLA_II_Plus_Verifier::slot_z_stage_abs()
{
    logMessage(this, {Q_FUNC_INFO});
    queryStagePosition();
    unlockAfterMove();
}

void ORLA_II_Plus_Verifier::slot_z_stage_origin()
{
    logMessage(this, {Q_FUNC_INFO});
    queryStagePosition();
    unlockAfterMove();
}
