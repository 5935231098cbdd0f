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
    int tab;
};

constexpr IntegerKey kIntegerKeys[] = {
    {"Cell counting/Skip frame", &global_ini_t::Skip_frame, 5, 0, kTabQc},
    {"Ch. BF/LED", &global_ini_t::LED_brightness, 225, 0, kTabCamera},
    {"Calibration/Z reference", &global_ini_t::Z_reference, 32000, 0, kTabStage},
    {"Calibration/Z reset pos", &global_ini_t::Z_reference, kNotLoaded, 0, kTabStage},
    {"Calibration/Z ref 2ch", &global_ini_t::Z_reference, kNotLoaded, 2560, kTabStage},
    {"Calibration/Z ref Reusable", &global_ini_t::Z_reference, kNotLoaded, 5120, kTabStage},
    {"Calibration/Z ref Validation", &global_ini_t::Z_reference, kNotLoaded, 0, kTabStage},
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

void saveMainSettings(QSettings& settings, const global_ini_t& record, int tab,
                      const MainSettingsTexts& texts)
{
    if (tab == kTabQc)
        settings.setValue(QLatin1String(kSerial.key), composeSerialNumber(texts.serial));
    if (tab == kTabQc && hasOpticalCalibration(record)) {
        settings.setValue(QLatin1String(kMagnification), savedMagnification(record));
        settings.setValue(QLatin1String(kVolumeFactor), savedVolumeFactor(record));
    }
    for (const IntegerKey& key : kIntegerKeys)
        if (key.tab == tab)
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
