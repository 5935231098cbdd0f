// The camera tab's sensor settings and LED.

#include "ORLA_II_Plus_Verifier.h"

#include <algorithm>

#include "Controller/Controller.h"
#include "camera/OV5642Camera.h"
#include "platform/DebugLog.h"
#include "settings/GlobalIni.h"
#include "ui_ORLA_II_Plus_Verifier.h"

ORLA_II_Plus_Verifier::SettingWidgets ORLA_II_Plus_Verifier::settingWidgets(SensorSetting setting) const
{
    const Ui_ORLA_II_Plus_Verifier& f = *m_form;
    const std::array<SettingWidgets, kSensorSettings.size()> widgets{{
        {f.EDIT_EXPOSURE, f.BUTTON_EXPOSURE_FINE_DOWN, f.BUTTON_EXPOSURE_FINE_UP,
         f.BUTTON_EXPOSURE_COARSE_DOWN, f.BUTTON_EXPOSURE_COARSE_UP},
        {f.EDIT_GAIN, f.BUTTON_GAIN_FINE_DOWN, f.BUTTON_GAIN_FINE_UP, f.BUTTON_GAIN_COARSE_DOWN,
         f.BUTTON_GAIN_COARSE_UP},
        {f.EDIT_COLOR_RED, f.BUTTON_COLOR_RED_FINE_DOWN, f.BUTTON_COLOR_RED_FINE_UP,
         f.BUTTON_COLOR_RED_COARSE_DOWN, f.BUTTON_COLOR_RED_COARSE_UP},
        {f.EDIT_COLOR_GREEN, f.BUTTON_COLOR_GREEN_FINE_DOWN, f.BUTTON_COLOR_GREEN_FINE_UP,
         f.BUTTON_COLOR_GREEN_COARSE_DOWN, f.BUTTON_COLOR_GREEN_COARSE_UP},
        {f.EDIT_COLOR_BLUE, f.BUTTON_COLOR_BLUE_FINE_DOWN, f.BUTTON_COLOR_BLUE_FINE_UP,
         f.BUTTON_COLOR_BLUE_COARSE_DOWN, f.BUTTON_COLOR_BLUE_COARSE_UP},
    }};
    return widgets[static_cast<std::size_t>(setting)];
}

/// Shows, writes and keeps a value: sensor first high then low byte, then the entry of the
/// current staining's table and resolution.
void ORLA_II_Plus_Verifier::setSensorSetting(SensorSetting setting, unsigned int value, const char* signature)
{
    const QString text = QString::asprintf("0x%04X", value);
    settingWidgets(setting).edit->setText(text);
    logMessage(this, {signature, text});

    const quint16 high = (value & 0xFF00u) >> 8;
    const quint16 low = value & 0xFFu;
    const int column = sensorSettingInfo(setting).column;
    m_camera->set(g_RegIdx[column], high);
    m_camera->set(g_RegIdx[column + 1], low);
    refreshNotice();

    Q_ASSERT(m_cameraMode >= 0); // the constructor starts the camera before anything is trimmed
    auto& table = m_stained ? global_ini()->CUS_reg : global_ini()->BFN_reg;
    table[m_cameraMode][column] = high;
    table[m_cameraMode][column + 1] = low;
}

void ORLA_II_Plus_Verifier::set_EXPOSURE(unsigned int value)
{
    setSensorSetting(SensorSetting::Exposure, value, Q_FUNC_INFO);
}

void ORLA_II_Plus_Verifier::set_GAIN(unsigned int value)
{
    setSensorSetting(SensorSetting::Gain, value, Q_FUNC_INFO);
}

void ORLA_II_Plus_Verifier::set_COLOR_RED(unsigned int value)
{
    setSensorSetting(SensorSetting::Red, value, Q_FUNC_INFO);
}

void ORLA_II_Plus_Verifier::set_COLOR_GREEN(unsigned int value)
{
    setSensorSetting(SensorSetting::Green, value, Q_FUNC_INFO);
}

void ORLA_II_Plus_Verifier::set_COLOR_BLUE(unsigned int value)
{
    setSensorSetting(SensorSetting::Blue, value, Q_FUNC_INFO);
}

void ORLA_II_Plus_Verifier::enableSteps(const SettingWidgets& widgets, const StepsEnabled& enabled)
{
    widgets.fineDown->setEnabled(enabled.fineDown);
    widgets.coarseDown->setEnabled(enabled.coarseDown);
    widgets.fineUp->setEnabled(enabled.fineUp);
    widgets.coarseUp->setEnabled(enabled.coarseUp);
}

void ORLA_II_Plus_Verifier::stepSensorSetting(SensorSetting setting, SettingStep step)
{
    using Setter = void (ORLA_II_Plus_Verifier::*)(unsigned int);
    static constexpr std::array<Setter, kSensorSettings.size()> kSetters{
        &ORLA_II_Plus_Verifier::set_EXPOSURE, &ORLA_II_Plus_Verifier::set_GAIN,
        &ORLA_II_Plus_Verifier::set_COLOR_RED, &ORLA_II_Plus_Verifier::set_COLOR_GREEN,
        &ORLA_II_Plus_Verifier::set_COLOR_BLUE};

    const SettingWidgets widgets = settingWidgets(setting);
    const unsigned int maximum = sensorSettingInfo(setting).maximum;
    unsigned int value = shownRegisterValue(widgets.edit->text());
    if (const auto stepped = steppedValue(value, step, kSensorCoarseStep, maximum)) {
        value = *stepped;
        (this->*kSetters[static_cast<std::size_t>(setting)])(value);
    }
    enableSteps(widgets, stepsEnabledAfterClick(value, maximum));
}

void ORLA_II_Plus_Verifier::getCamera_reg()
{
    logMessage(this, {Q_FUNC_INFO});
    for (std::size_t i = 0; i < kSensorSettings.size(); ++i) {
        const SensorSettingInfo& info = kSensorSettings[i];
        quint16 high = 0;
        quint16 low = 0;
        m_camera->get(g_RegIdx[info.column], high);
        m_camera->get(g_RegIdx[info.column + 1], low);

        const SettingWidgets widgets = settingWidgets(static_cast<SensorSetting>(i));
        widgets.edit->setText(QString::asprintf("0x%02X%02X", high, low));
        enableSteps(widgets, stepsEnabledAfterRead(high * 256u + low, info.maximum));
    }
    refreshNotice();
}

void ORLA_II_Plus_Verifier::set_LED(unsigned int level)
{
    logMessage(this, {Q_FUNC_INFO, QString::number(level)});
    global_ini()->LED_brightness = static_cast<int>(level);
    m_form->EDIT_LED->setText(QString::number(level));
    Controller::getInstance()->led_brightness(static_cast<int>(level));
}

/// Follows the number that is shown, which need not be in range.
void ORLA_II_Plus_Verifier::enableLedSteps(int level)
{
    const bool down = level != 0;
    const bool up = level < static_cast<int>(kLedMaximum);
    m_form->BUTTON_LED_FINE_DOWN->setEnabled(down);
    m_form->BUTTON_LED_COARSE_DOWN->setEnabled(down);
    m_form->BUTTON_LED_FINE_UP->setEnabled(up);
    m_form->BUTTON_LED_COARSE_UP->setEnabled(up);
}

void ORLA_II_Plus_Verifier::stepLED(SettingStep step)
{
    int level = m_form->EDIT_LED->text().toInt();
    const bool down = step == SettingStep::FineDown || step == SettingStep::CoarseDown;
    // Unlike a sensor setting, a dark LED is not written dark again.
    if (level > 0 || !down) {
        const unsigned int from = level > 0 ? static_cast<unsigned int>(level) : 0u;
        if (const auto stepped = steppedValue(from, step, kLedCoarseStep, kLedMaximum)) {
            // Down from a level beyond the range, typed without Return, ends at most at its top.
            const unsigned int sent = std::min(*stepped, kLedMaximum);
            level = static_cast<int>(sent);
            set_LED(sent);
        }
    }
    enableLedSteps(level);
}

void ORLA_II_Plus_Verifier::on_EDIT_LED_returnPressed()
{
    const int level = m_form->EDIT_LED->text().toInt();
    if (level < 0 || level >= static_cast<int>(kLedMaximum))
        return;
    set_LED(static_cast<unsigned int>(level));
    enableLedSteps(level);
}

void ORLA_II_Plus_Verifier::on_BUTTON_LED_clicked(bool checked)
{
    logMessage(this, {Q_FUNC_INFO, checked ? "off" : "on"});
    const std::array<QWidget*, 5> widgets{m_form->EDIT_LED, m_form->BUTTON_LED_COARSE_DOWN,
                                          m_form->BUTTON_LED_COARSE_UP, m_form->BUTTON_LED_FINE_UP,
                                          m_form->BUTTON_LED_FINE_DOWN};
    for (QWidget* widget : widgets)
        widget->setEnabled(!checked);
    if (checked) {
        Controller::getInstance()->led_off();
        return;
    }
    enableLedSteps(m_form->EDIT_LED->text().toInt());
    Controller::getInstance()->led_on();
}

void ORLA_II_Plus_Verifier::on_BUTTON_EXPOSURE_FINE_DOWN_clicked()
{
    stepSensorSetting(SensorSetting::Exposure, SettingStep::FineDown);
}

void ORLA_II_Plus_Verifier::on_BUTTON_EXPOSURE_FINE_UP_clicked()
{
    stepSensorSetting(SensorSetting::Exposure, SettingStep::FineUp);
}

void ORLA_II_Plus_Verifier::on_BUTTON_EXPOSURE_COARSE_DOWN_clicked()
{
    stepSensorSetting(SensorSetting::Exposure, SettingStep::CoarseDown);
}

void ORLA_II_Plus_Verifier::on_BUTTON_EXPOSURE_COARSE_UP_clicked()
{
    stepSensorSetting(SensorSetting::Exposure, SettingStep::CoarseUp);
}

void ORLA_II_Plus_Verifier::on_BUTTON_GAIN_FINE_DOWN_clicked()
{
    stepSensorSetting(SensorSetting::Gain, SettingStep::FineDown);
}

void ORLA_II_Plus_Verifier::on_BUTTON_GAIN_FINE_UP_clicked()
{
    stepSensorSetting(SensorSetting::Gain, SettingStep::FineUp);
}

void ORLA_II_Plus_Verifier::on_BUTTON_GAIN_COARSE_DOWN_clicked()
{
    stepSensorSetting(SensorSetting::Gain, SettingStep::CoarseDown);
}

void ORLA_II_Plus_Verifier::on_BUTTON_GAIN_COARSE_UP_clicked()
{
    stepSensorSetting(SensorSetting::Gain, SettingStep::CoarseUp);
}

void ORLA_II_Plus_Verifier::on_BUTTON_COLOR_RED_FINE_DOWN_clicked()
{
    stepSensorSetting(SensorSetting::Red, SettingStep::FineDown);
}

void ORLA_II_Plus_Verifier::on_BUTTON_COLOR_RED_FINE_UP_clicked()
{
    stepSensorSetting(SensorSetting::Red, SettingStep::FineUp);
}

void ORLA_II_Plus_Verifier::on_BUTTON_COLOR_RED_COARSE_DOWN_clicked()
{
    stepSensorSetting(SensorSetting::Red, SettingStep::CoarseDown);
}

void ORLA_II_Plus_Verifier::on_BUTTON_COLOR_RED_COARSE_UP_clicked()
{
    stepSensorSetting(SensorSetting::Red, SettingStep::CoarseUp);
}

void ORLA_II_Plus_Verifier::on_BUTTON_COLOR_GREEN_FINE_DOWN_clicked()
{
    stepSensorSetting(SensorSetting::Green, SettingStep::FineDown);
}

void ORLA_II_Plus_Verifier::on_BUTTON_COLOR_GREEN_FINE_UP_clicked()
{
    stepSensorSetting(SensorSetting::Green, SettingStep::FineUp);
}

void ORLA_II_Plus_Verifier::on_BUTTON_COLOR_GREEN_COARSE_DOWN_clicked()
{
    stepSensorSetting(SensorSetting::Green, SettingStep::CoarseDown);
}

void ORLA_II_Plus_Verifier::on_BUTTON_COLOR_GREEN_COARSE_UP_clicked()
{
    stepSensorSetting(SensorSetting::Green, SettingStep::CoarseUp);
}

void ORLA_II_Plus_Verifier::on_BUTTON_COLOR_BLUE_FINE_DOWN_clicked()
{
    stepSensorSetting(SensorSetting::Blue, SettingStep::FineDown);
}

void ORLA_II_Plus_Verifier::on_BUTTON_COLOR_BLUE_FINE_UP_clicked()
{
    stepSensorSetting(SensorSetting::Blue, SettingStep::FineUp);
}

void ORLA_II_Plus_Verifier::on_BUTTON_COLOR_BLUE_COARSE_DOWN_clicked()
{
    stepSensorSetting(SensorSetting::Blue, SettingStep::CoarseDown);
}

void ORLA_II_Plus_Verifier::on_BUTTON_COLOR_BLUE_COARSE_UP_clicked()
{
    stepSensorSetting(SensorSetting::Blue, SettingStep::CoarseUp);
}

void ORLA_II_Plus_Verifier::on_BUTTON_LED_FINE_DOWN_clicked()
{
    stepLED(SettingStep::FineDown);
}

void ORLA_II_Plus_Verifier::on_BUTTON_LED_FINE_UP_clicked()
{
    stepLED(SettingStep::FineUp);
}

void ORLA_II_Plus_Verifier::on_BUTTON_LED_COARSE_DOWN_clicked()
{
    stepLED(SettingStep::CoarseDown);
}

void ORLA_II_Plus_Verifier::on_BUTTON_LED_COARSE_UP_clicked()
{
    stepLED(SettingStep::CoarseUp);
}
