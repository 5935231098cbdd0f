#pragma once

/// Fixed paths of the instrument's settings files.
constexpr char kMainSettingsFile[] = "/opt/ORLA3/conf/ORLA3.ini";
constexpr char kCusCalibrationFile[] = "/opt/ORLA3/conf/Calibration_CUS.ini";
constexpr char kBfnCalibrationFile[] = "/opt/ORLA3/conf/Calibration_BFN.ini";
constexpr char kAutoExposureFile[] = "/opt/ORLA3/conf/AutoExposure.ini"; ///< loaded by nothing so far
constexpr char kStageFile[] = "/root/Orla2/Orla2.ini"; ///< kept by the instrument's previous generation

/// Machine path for a QSettings of no file: it can be neither read nor created, whoever runs the
/// program.
constexpr char kNoSettingsFile[] = "/dev/null/settings";
