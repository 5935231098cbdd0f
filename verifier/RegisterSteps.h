#pragma once

#include <array>
#include <optional>

#include <QString>

/// The five sensor settings of the camera tab, in the order of the form.
enum class SensorSetting { Exposure, Gain, Red, Green, Blue };

/// What is fixed about a sensor setting. Its two registers are neighbours in the
/// ten-entry register table: the high byte at column, the low byte at column + 1.
struct SensorSettingInfo
{
    int column;           ///< of the high byte in g_RegIdx and in the calibration tables
    unsigned int maximum; ///< largest value that the buttons reach
};

/// Exposure is the sensor's middle and low byte (sixteenths of a line), gain a 9-bit
/// code, the white-balance gains 12 bits with 0x400 = 1.0.
constexpr std::array<SensorSettingInfo, 5> kSensorSettings{{
    {0, 65535}, // exposure, 0x3501 and 0x3502
    {2, 511},   // gain, 0x350A and 0x350B
    {4, 4095},  // red, 0x3400 and 0x3401
    {6, 4095},  // green, 0x3402 and 0x3403
    {8, 4095},  // blue, 0x3404 and 0x3405
}};

/// The row of a setting in kSensorSettings.
constexpr const SensorSettingInfo& sensorSettingInfo(SensorSetting setting)
{
    return kSensorSettings[static_cast<std::size_t>(setting)];
}

constexpr unsigned int kFineStep = 1;
constexpr unsigned int kSensorCoarseStep = 16;
constexpr unsigned int kLedCoarseStep = 10;
/// Largest LED level; reachable by the buttons only, typing ends one below.
constexpr unsigned int kLedMaximum = 1000;

/// The four step buttons of a setting.
enum class SettingStep { FineDown, FineUp, CoarseDown, CoarseUp };

/// The value after a press of a step button, kept within 0 and maximum; nothing when the
/// press writes nothing. A coarse step down from 0 writes 0 again. All values are in the
/// setting's own unit. Pure; any thread.
std::optional<unsigned int> steppedValue(unsigned int value, SettingStep step, unsigned int coarseStep,
                                         unsigned int maximum);

/// Which step buttons can be pressed.
struct StepsEnabled
{
    bool fineDown;
    bool coarseDown;
    bool fineUp;
    bool coarseUp;
};

/// The rule after a click: both buttons of a direction go together.
StepsEnabled stepsEnabledAfterClick(unsigned int value, unsigned int maximum);

/// The rule after a read-back: a coarse button only where a whole coarse step is left.
StepsEnabled stepsEnabledAfterRead(unsigned int value, unsigned int maximum);

/// The value that an edit shows: its last four characters as hexadecimal, 0 when they are none.
unsigned int shownRegisterValue(const QString& text);
