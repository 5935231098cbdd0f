// Autofocus: run control, progress, review, graph.

#include "ORLA_II_Plus_Verifier.h"

#include <stdexcept>

#include <QCoreApplication>
#include <QMessageBox>
#include <QPainter>

#include "Algorithm/alg_Autofocus.h"
#include "Controller/Controller.h"
#include "FocusGraph.h"
#include "WindowStyle.h"
#include "platform/DebugLog.h"
#include "settings/GlobalIni.h"
#include "ui_ORLA_II_Plus_Verifier.h"

namespace {

constexpr int kRunSamples = 15;
constexpr int kSeparatorLength = 25;

} // namespace

void ORLA_II_Plus_Verifier::on_BUTTON_AUTOFOCUS_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    const bool saveImages = m_form->CHECK_DEBUG_AUTOFOCUS->isChecked();
    if (saveImages && !isUsbDiskMounted())
        return;

    const int centre_steps = m_form->EDIT_Z_POSITION->text().toInt();
    // A run that never ends makes room for the next.
    delete m_autofocus;
    m_autofocus =
        new alg_Autofocus(this, m_camera, centre_steps, m_frameWidth_px, m_frameHeight_px, saveImages);
    connectAutofocus();
    m_focusDoubtful = false;
    m_unconfirmedBefore = Controller::getInstance()->unconfirmedStageCommands();
    m_autofocusProgress = 0;
    m_form->PROGRESS_AUTOFOCUS->setValue(0);
    for (auto& samples : m_reviewSamples)
        samples.clear();
    m_reviewBestIndex.fill(0);
    updateGraph();

    enableRunControls(false);
    QCoreApplication::processEvents();
    // The stage that Exit has just parked stays where it is.
    if (!m_quitting)
        m_autofocus->process();
}

/// All that can move the stage or restart the camera; Exit and the consoles stay usable should
/// the run never end.
void ORLA_II_Plus_Verifier::enableRunControls(bool on)
{
    m_form->TAB_MENU->setEnabled(on);
    m_form->BUTTON_CONNECT->setEnabled(on && global_ini()->bZig_mode);
}

void ORLA_II_Plus_Verifier::connectAutofocus()
{
    using Window = ORLA_II_Plus_Verifier;
    connect(m_autofocus, &alg_Autofocus::sig_move_z_position, this, &Window::slot_move_z_position);
    connect(m_autofocus, &alg_Autofocus::sig_endAutoFocusing, this, &Window::slot_endAutoFocusing);
    connect(m_autofocus, &alg_Autofocus::sig_debug_Message, this, &Window::slot_debug_Message);
    connect(m_autofocus, &alg_Autofocus::sig_progress_AutoFocusing, this,
            &Window::slot_progress_AutoFocusing);
    connect(m_autofocus, &alg_Autofocus::sig_review_AutoFocusing, this, &Window::slot_review_AutoFocusing);
}

void ORLA_II_Plus_Verifier::slot_move_z_position(int position_steps)
{
    logMessage(this, {Q_FUNC_INFO, QString::number(position_steps)});
    showStagePosition(position_steps);
}

void ORLA_II_Plus_Verifier::slot_progress_AutoFocusing(int step)
{
    ++m_autofocusProgress;
    const double percent = (m_autofocusProgress / static_cast<double>(kRunSamples)) * 100.0;
    m_form->PROGRESS_AUTOFOCUS->setValue(static_cast<int>(percent));
    logMessage(this,
               {Q_FUNC_INFO, QString("[%1]").arg(step),
                QString("%1/%2").arg(m_autofocusProgress).arg(kRunSamples), QString("%1%").arg(percent)});
}

void ORLA_II_Plus_Verifier::slot_review_AutoFocusing(int step, std::vector<AutoFocusingData_t> samples,
                                                     int bestIndex)
{
    logMessage(this, {Q_FUNC_INFO, QString(kSeparatorLength, '#')});
    if (step < 1 || step > kReviewSteps)
        return;
    logMessage(this, {Q_FUNC_INFO, QString("[%1] best_index:").arg(step), QString::number(bestIndex)});
    for (std::size_t i = 0; i < samples.size(); ++i) {
        logMessage(this, {Q_FUNC_INFO, QString("[%1](%2) focus_value:").arg(step).arg(i),
                          QString::number(samples[i].focusValue),
                          ", position:", QString::number(samples[i].zPosition)});
    }
    const auto review = static_cast<std::size_t>(step - 1);
    m_reviewSamples[review] = std::move(samples);
    m_reviewBestIndex[review] = bestIndex;
    updateGraph();
}

void ORLA_II_Plus_Verifier::slot_endAutoFocusing(int position_steps)
{
    logMessage(this, {Q_FUNC_INFO, QString::number(position_steps)});
    if (m_autofocus != nullptr) {
        m_autofocus->disconnect(this);
        // It is still in the middle of telling us.
        m_autofocus->deleteLater();
        m_autofocus = nullptr;
    }
    m_focusDoubtful = Controller::getInstance()->unconfirmedStageCommands() != m_unconfirmedBefore;
    refreshNotice();
    enableRunControls(true);
    QMessageBox::information(this, kMessageTitle, "Finish AutoFocus !", QMessageBox::Ok);
}

/// No frame repaints the view while the graph is on.
void ORLA_II_Plus_Verifier::updateGraph()
{
    if (m_graphDisplayed)
        update(m_viewRect);
}

/// A sweep with fewer than fifteen samples cannot be drawn to its end; what can be is.
void ORLA_II_Plus_Verifier::paintFocusGraph(QPainter& painter)
{
    try {
        drawFocusGraph(painter, m_viewRect, m_cameraMode, m_reviewSamples[0], m_reviewBestIndex[0]);
    } catch (const std::out_of_range& error) {
        logMessage(this, {Q_FUNC_INFO, "[Error]", error.what()});
    }
}
