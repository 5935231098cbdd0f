#pragma once

#include <QtGlobal>

#include "settings/CaptureModes.h"

/// Registers of the sensor that are calibrated for each capture mode.
constexpr int kCalibrationRegisterCount = 10;

/// The values that several parts of the program share once the settings are loaded.
/// Widgets change it directly; only Save writes it to the files.
///
/// Register tables: the row is a capture mode (CameraMode), the column a position in g_RegIdx
/// (0, 1 exposure; 2, 3 gain; 4, 5 red; 6, 7 green; 8, 9 blue; high byte first), one byte each.
struct global_ini_t
{
    quint16 CUS_reg[kCameraModeCount][kCalibrationRegisterCount]; ///< Calibration_CUS.ini: staining TB
    quint16 BFN_reg[kCameraModeCount][kCalibrationRegisterCount]; ///< Calibration_BFN.ini: staining NTB
    quint16 AE_reg[kCameraModeCount]
                  [kCalibrationRegisterCount]; ///< AutoExposure.ini, which is never loaded: zero
    int LED_brightness;                        ///< 0..1000, the controller's LED level
    int Z_step;                                ///< motor steps of one jog
    int Z_speed;                               ///< the controller's speed value
    int Z_reference;                           ///< motor steps
    struct
    {
        double Magnification; ///< 0 until measured; infinite or not-a-number if measured without points
        double Volume_factor; ///< the same
    } System;
    bool bZig_mode; ///< Connect is usable, and Exit leaves the instrument unparked
    int Skip_frame; ///< 1..30, used by the instrument's cell counting
};

/// The one record, zero at process start, never freed. GUI thread, hence no lock.
extern global_ini_t g_global_ini;

/// Address of g_global_ini. GUI thread.
global_ini_t* global_ini();
