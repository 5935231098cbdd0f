#pragma once

#include <QSettings>
#include <QString>

#include "settings/GlobalIni.h"
#include "settings/SerialNumber.h"

/// The part of the settings that a save is about.
enum class SettingsPart {
    None,   ///< nothing beyond what every save writes
    Stage,  ///< Z reference and the four values derived from it
    Camera, ///< LED
    Qc,     ///< serial number, skip frame; magnification and volume factor if both were measured
};

/// What the main settings file holds beyond the record: texts that only the window shows.
struct MainSettingsTexts
{
    SerialParts serial;
    QString version;
};

/// Loads the record's values and returns the texts. Where a key is missing: skip frame 5, LED
/// 225, Z reference 32000, serial "OR3-00-00000", Zig mode "On" (only exactly that text is
/// on), version "0.0.1". An integer that is no number becomes 0. GUI thread.
MainSettingsTexts loadMainSettings(QSettings& settings, global_ini_t& record);

/// Sets what belongs to the part, and the version in any case. GUI thread.
void saveMainSettings(QSettings& settings, const global_ini_t& record, SettingsPart part,
                      const MainSettingsTexts& texts);

/// Whether magnification and volume factor were both measured, and neither is 0, infinite or
/// not-a-number: they are saved together or not at all.
bool hasOpticalCalibration(const global_ini_t& record);

/// Whether the last measurement gave infinities or not-a-number, as one without points does.
bool isMeasurementWithoutResult(const global_ini_t& record);

/// The record's value as it is saved: rounded to 4 decimals, half away from zero.
double savedMagnification(const global_ini_t& record);

/// The record's value as it is saved: rounded to 5 decimals, half away from zero.
double savedVolumeFactor(const global_ini_t& record);
