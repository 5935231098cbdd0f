#include "settings/MainSettings.h"

#include <cmath>

#include "settings/SettingsFiles.h"

namespace {

constexpr int kNotLoaded = -1;

// The integers of the file; a key with a default is loaded too, the others are derived.
struct IntegerKey
{
    const char* key;
    int global_ini_t::*field;
    int defaultValue;
    int offset; // saved is the field plus this
    SettingsPart part;
};

constexpr IntegerKey kIntegerKeys[] = {
    {"Cell counting/Skip frame", &global_ini_t::Skip_frame, 5, 0, SettingsPart::Qc},
    {"Ch. BF/LED", &global_ini_t::LED_brightness, 225, 0, SettingsPart::Camera},
    {"Calibration/Z reference", &global_ini_t::Z_reference, 32000, 0, SettingsPart::Stage},
    {"Calibration/Z reset pos", &global_ini_t::Z_reference, kNotLoaded, 0, SettingsPart::Stage},
    {"Calibration/Z ref 2ch", &global_ini_t::Z_reference, kNotLoaded, 2560, SettingsPart::Stage},
    {"Calibration/Z ref Reusable", &global_ini_t::Z_reference, kNotLoaded, 5120, SettingsPart::Stage},
    {"Calibration/Z ref Validation", &global_ini_t::Z_reference, kNotLoaded, 0, SettingsPart::Stage},
};

struct TextKey
{
    const char* key;
    const char* defaultValue;
};

constexpr TextKey kSerial{"ORLA-III/Serial", "OR3-00-00000"};
constexpr TextKey kZigMode{"ORLA-III/Zig mode", "On"};
constexpr TextKey kVersion{"Software/Version QC", "0.0.1"};
constexpr char kMagnification[] = "ORLA-III/Magnification";
constexpr char kVolumeFactor[] = "ORLA-III/Volume factor";

QString loadText(const QSettings& settings, const TextKey& key)
{
    return settings.value(QLatin1String(key.key), QLatin1String(key.defaultValue)).toString();
}

} // namespace

MainSettingsTexts loadMainSettings(QSettings& settings, global_ini_t& record)
{
    for (const IntegerKey& key : kIntegerKeys)
        if (key.defaultValue != kNotLoaded)
            record.*key.field = settings.value(QLatin1String(key.key), key.defaultValue).toInt();
    record.bZig_mode = loadText(settings, kZigMode) == QLatin1String(kZigMode.defaultValue);
    return {splitSerialNumber(loadText(settings, kSerial)), loadText(settings, kVersion)};
}

void saveMainSettings(QSettings& settings, const global_ini_t& record, SettingsPart part,
                      const MainSettingsTexts& texts)
{
    if (part == SettingsPart::Qc)
        settings.setValue(QLatin1String(kSerial.key), composeSerialNumber(texts.serial));
    if (part == SettingsPart::Qc && hasOpticalCalibration(record)) {
        settings.setValue(QLatin1String(kMagnification), savedMagnification(record));
        settings.setValue(QLatin1String(kVolumeFactor), savedVolumeFactor(record));
    }
    for (const IntegerKey& key : kIntegerKeys)
        if (key.part == part)
            settings.setValue(QLatin1String(key.key), qint64(record.*key.field) + key.offset);
    settings.setValue(QLatin1String(kVersion.key), texts.version);
}

bool hasOpticalCalibration(const global_ini_t& record)
{
    return record.System.Magnification != 0 && record.System.Volume_factor != 0 &&
           !isMeasurementWithoutResult(record);
}

bool isMeasurementWithoutResult(const global_ini_t& record)
{
    return !std::isfinite(record.System.Magnification) || !std::isfinite(record.System.Volume_factor);
}

double savedMagnification(const global_ini_t& record)
{
    return std::round(record.System.Magnification * 10000) / 10000;
}

double savedVolumeFactor(const global_ini_t& record)
{
    return std::round(record.System.Volume_factor * 100000) / 100000;
}
