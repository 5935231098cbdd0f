// Settings: load at construction, apply on every acknowledgement, save what the open tab shows.

#include "ORLA_II_Plus_Verifier.h"

#include <algorithm>
#include <iterator>

#include <QMessageBox>
#include <QSettings>
#include <QSignalBlocker>

#include "Controller/Controller.h"
#include "WindowStyle.h"
#include "camera/CalibrationRegisters.h"
#include "platform/DebugLog.h"
#include "platform/InstrumentPath.h"
#include "settings/CalibrationFile.h"
#include "settings/MainSettings.h"
#include "settings/SafeSettingsFile.h"
#include "settings/StageFile.h"
#include "settings/StoredObjects.h"
#include "settings/UnreadFiles.h"
#include "ui_ORLA_II_Plus_Verifier.h"

namespace {

/// What the pages of TAB_MENU show.
SettingsPart partOfTab(int tab)
{
    static constexpr SettingsPart kParts[] = {SettingsPart::Stage, SettingsPart::Camera, SettingsPart::Qc};
    return tab >= 0 && tab < static_cast<int>(std::size(kParts)) ? kParts[tab] : SettingsPart::None;
}

} // namespace

void ORLA_II_Plus_Verifier::get_INI_value(QSettings& settings)
{
    logMessage(this, {Q_FUNC_INFO});
    global_ini_t& record = *global_ini();
    for (const CalibrationFile& file : kCalibrationFiles)
        loadCalibration(file, g_RegIdx, record, [this](const QString& line) { logMessage(this, {line}); });
    loadStageFile(record);

    // What could not be opened may be opened now; what was read is not read again.
    if (settings.status() == QSettings::AccessError)
        settings.sync();
    const MainSettingsTexts texts = loadMainSettings(settings, record);
    m_form->EDIT_SKIP_FRAME->setText(QString::number(record.Skip_frame));
    m_form->EDIT_SERIAL_MIDFIX->setText(texts.serial.midfix);
    m_form->EDIT_SERIAL_SUFFIX->setText(texts.serial.suffix);
    logMessage(this, {"----> global_ini()->bZig_mode :", record.bZig_mode ? "true" : "false"});
    m_form->LABEL_VERSION->setText(texts.version);

    // What is there but could not be read is left alone by Save, until the next start.
    const char* const signature = Q_FUNC_INFO;
    const auto note = [this, signature](const QString& fixedPath, const QSettings& loaded) {
        if (!noteLoad(fixedPath, loaded))
            logMessage(this, {signature, "[Error] not read:", fixedPath});
    };
    const bool isMainFile = settings.fileName() == readableSettingsPath(m_settingsFile);
    note(isMainFile ? m_settingsFile : fixedPathOf(settings.fileName()), settings);
    for (const char* file : {kCusCalibrationFile, kBfnCalibrationFile, kStageFile})
        note(file, QSettings(readableSettingsPath(file), QSettings::NativeFormat));
}

void ORLA_II_Plus_Verifier::apply_INI_value()
{
    logMessage(this, {Q_FUNC_INFO});
    getCamera_reg();

    const global_ini_t& record = *global_ini();
    m_form->EDIT_LED->setText(QString::number(record.LED_brightness));
    Controller::getInstance()->led_brightness(record.LED_brightness);
    // The steps of an LED that is switched off stay locked. A file's level may be below 0.
    if (!m_form->BUTTON_LED->isChecked())
        enableLedSteps(std::max(record.LED_brightness, 0));

    m_form->SPIN_Z_STEP->setValue(record.Z_step);
    {
        const QSignalBlocker blocker(m_form->SPIN_Z_SPEED);
        m_form->SPIN_Z_SPEED->setValue(record.Z_speed);
    }

    m_form->EDIT_Z_REFERENCE->setText(QString::number(record.Z_reference));
    on_BUTTON_Z_MOVE_REFERENCE_clicked();
}

void ORLA_II_Plus_Verifier::on_BUTTON_SAVE_INI_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    settleTypedNumbers();
    {
        SafeSettingsFile file(m_settingsFile);
        set_INI_value(file.settings());
        // A failure is in the log; the box only says that Save is over.
        if (!file.commit())
            logUnsaved(Q_FUNC_INFO, m_settingsFile);
    }
    QMessageBox::information(this, kMessageTitle, "INI saved !", QMessageBox::Ok);
}

void ORLA_II_Plus_Verifier::set_INI_value(QSettings& settings)
{
    const int tab = m_form->TAB_MENU->currentIndex();
    logMessage(this, {Q_FUNC_INFO, "----> current tab :", QString::number(tab)});
    const global_ini_t& record = *global_ini();
    const MainSettingsTexts texts{{m_form->EDIT_SERIAL_MIDFIX->text(), m_form->EDIT_SERIAL_SUFFIX->text()},
                                  m_form->LABEL_VERSION->text()};
    const SettingsPart part = partOfTab(tab);
    if (part == SettingsPart::Stage) {
        if (!saveStageFile(record))
            logUnsaved(Q_FUNC_INFO, kStageFile);
    } else if (part == SettingsPart::Camera) {
        for (const CalibrationFile& file : kCalibrationFiles)
            if (!saveCalibration(file, g_RegIdx, record))
                logUnsaved(Q_FUNC_INFO, file.fileName);
    } else if (part == SettingsPart::Qc) {
        logSavedQC(Q_FUNC_INFO, composeSerialNumber(texts.serial));
    }
    saveMainSettings(settings, record, part, texts);
}

void ORLA_II_Plus_Verifier::logSavedQC(const char* signature, const QString& serial)
{
    logMessage(this, {signature, "------> Serial number :", serial});
    const global_ini_t& record = *global_ini();
    if (isMeasurementWithoutResult(record))
        logMessage(this, {signature, "[Error] magnification and volume factor not saved: not measured"});
    if (!hasOpticalCalibration(record))
        return;
    logMessage(this, {signature, "------> global_ini()->System.Magnification :",
                      QString::number(savedMagnification(record))});
    logMessage(this, {signature, "------> global_ini()->System.Volume_factor :",
                      QString::number(savedVolumeFactor(record))});
}

/// The reason stands in the debug stream, where the failed step wrote it.
void ORLA_II_Plus_Verifier::logUnsaved(const char* signature, const QString& fixedPath)
{
    logMessage(this, {signature, "[Error] not saved:", fixedPath});
}
