#pragma once

#include <functional>

#include <QString>

#include "settings/GlobalIni.h"
#include "settings/SettingsFiles.h"

/// The sensor registers in the column order of the record's tables: g_RegIdx.
using RegisterIndex = quint16[kCalibrationRegisterCount];

/// A calibration file and the table of the record that it fills. Sections are the
/// rows, named after the capture modes ("VGA", "1280", "5M"); the keys are register addresses
/// ("0x3501"), the values register bytes.
struct CalibrationFile
{
    const char* fileName;
    const char* logTag;
    quint16 (global_ini_t::*table)[kCameraModeCount][kCalibrationRegisterCount];
};

/// In the order in which they are loaded and saved.
constexpr CalibrationFile kCalibrationFiles[] = {
    {kCusCalibrationFile, "[CUS_CAL_INI]", &global_ini_t::CUS_reg},
    {kBfnCalibrationFile, "[BFN_CAL_INI]", &global_ini_t::BFN_reg},
};

/// Loads all rows. Values are hexadecimal with or without "0x"; what is missing, no such number
/// or larger than 16 bits becomes 0. log gets one line for each register, "TAG 0x3501, 0x001E".
void loadCalibration(const CalibrationFile& file, const RegisterIndex& registers, global_ini_t& record,
                     const std::function<void(const QString& line)>& log);

/// Saves all rows as "0x%02X", in one replacement of the file. Returns whether it succeeded;
/// if not, the debug stream says why.
bool saveCalibration(const CalibrationFile& file, const RegisterIndex& registers, const global_ini_t& record);
