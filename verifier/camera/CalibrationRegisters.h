#pragma once

#include <array>

#include <QtGlobal>

#include "settings/GlobalIni.h"

/// Addresses of the ten sensor registers that are calibrated per resolution mode, in the
/// column order of every register table: exposure, analogue gain, white-balance red,
/// green and blue gain, each high byte first.
constexpr std::array<quint16, kCalibrationRegisterCount> kCalibrationRegisters = {
    0x3501, 0x3502, // exposure bits 15..8, 7..0
    0x350A, 0x350B, // gain bit 8, bits 7..0
    0x3400, 0x3401, // red gain
    0x3402, 0x3403, // green gain
    0x3404, 0x3405, // blue gain
};

/// The address list that the settings and the camera controls go by. All zero until the
/// main window's constructor has copied kCalibrationRegisters into it; not changed after.
/// GUI thread.
extern quint16 g_RegIdx[kCalibrationRegisterCount];

/// One calibration value as it is cached per mode: the value is a byte, held in 16 bits.
struct CalibrationRecord
{
    quint16 address;
    quint16 value;
};
