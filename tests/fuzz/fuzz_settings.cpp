// All settings: four files of any content are loaded, saved, and loaded again.
#include <algorithm>
#include <cstring>

#include <QByteArray>
#include <QSettings>
#include <QStringList>

#include "FuzzInput.h"
#include "SettingsRoot.h"
#include "settings/CalibrationFile.h"
#include "settings/MainSettings.h"
#include "settings/SafeSettingsFile.h"
#include "settings/SettingsFiles.h"
#include "settings/StageFile.h"
#include "settings/StoredObjects.h"

namespace {

constexpr char kSeparator = '\x1E'; // between the files
constexpr RegisterIndex kRegisters = {0x3501, 0x3502, 0x350A, 0x350B, 0x3400,
                                      0x3401, 0x3402, 0x3403, 0x3404, 0x3405};
const QStringList kFiles = {kBfnCalibrationFile, kCusCalibrationFile, kMainSettingsFile, kStageFile};

struct Loaded
{
    global_ini_t record{};
    MainSettingsTexts texts;
    QStringList log;
};

Loaded load()
{
    Loaded loaded;
    for (const CalibrationFile& file : kCalibrationFiles)
        loadCalibration(file, kRegisters, loaded.record, [&](const QString& line) { loaded.log << line; });
    loadStageFile(loaded.record);
    QSettings settings(readableSettingsPath(kMainSettingsFile), QSettings::IniFormat);
    loaded.texts = loadMainSettings(settings, loaded.record);
    return loaded;
}

bool saveMain(const Loaded& loaded, SettingsPart part)
{
    SafeSettingsFile file(kMainSettingsFile);
    saveMainSettings(file.settings(), loaded.record, part, loaded.texts);
    return file.commit();
}

/// False if a save was refused, which only a file may be that an object may begin in.
bool save(const Loaded& loaded)
{
    bool all = true;
    const auto keep = [&](const QString& path, const auto& work) {
        const QByteArray before = SettingsRoot::bytesOf(path);
        const bool saved = work();
        const QByteArray after = SettingsRoot::bytesOf(path);
        require(saved || (after == before && SettingsRoot::mayHoldObject(before)), "a file is saved");
        require(!holdsUnsafeObject(after), "what is saved can be read");
        all = saved && all;
    };
    for (const CalibrationFile& file : kCalibrationFiles) {
        const auto work = [&] { return saveCalibration(file, kRegisters, loaded.record); };
        keep(file.fileName, work);
    }
    keep(kStageFile, [&] { return saveStageFile(loaded.record); });
    for (const SettingsPart part : {SettingsPart::Stage, SettingsPart::Camera, SettingsPart::Qc})
        keep(kMainSettingsFile, [&] { return saveMain(loaded, part); });
    return all;
}

QByteArrayList contents()
{
    QByteArrayList all;
    for (const QString& file : kFiles)
        all << SettingsRoot::bytesOf(file);
    return all;
}

void requireLog(const QStringList& log)
{
    require(log.size() == 2 * kCameraModeCount * kCalibrationRegisterCount, "a line for each register");
    int line = 0;
    for (const CalibrationFile& file : kCalibrationFiles)
        for (int row = 0; row < kCameraModeCount; ++row)
            for (const quint16 address : kRegisters)
                require(log[line++].startsWith(QString::asprintf("%s 0x%04X, 0x", file.logTag, address)),
                        "registers are told in their order");
}

bool sameNumbers(const global_ini_t& a, const global_ini_t& b)
{
    return std::memcmp(a.CUS_reg, b.CUS_reg, sizeof a.CUS_reg) == 0 &&
           std::memcmp(a.BFN_reg, b.BFN_reg, sizeof a.BFN_reg) == 0 && a.LED_brightness == b.LED_brightness &&
           a.Z_step == b.Z_step && a.Z_speed == b.Z_speed && a.Z_reference == b.Z_reference &&
           a.Skip_frame == b.Skip_frame && a.bZig_mode == b.bZig_mode;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static SettingsRoot root;
    FuzzInput input(data, size);
    for (const QString& file : kFiles)
        SettingsRoot::put(file, input.upTo(kSeparator));

    const QByteArrayList before = contents();
    const Loaded first = load();
    require(contents() == before, "loading changes no file");
    requireLog(first.log);
    require(!first.texts.serial.midfix.contains('-') && !first.texts.serial.suffix.contains('-'),
            "the parts of a serial number end at its dashes");

    // What holds an object that is not in order is left alone.
    if (std::any_of(before.begin(), before.end(), holdsUnsafeObject))
        return 0;
    const bool saved = save(first);
    require(root.files() == kFiles, "nothing is written beside the files");
    if (!saved)
        return 0;
    const Loaded second = load();
    require(sameNumbers(first.record, second.record), "what is saved is loaded again");
    require(first.texts.version == second.texts.version, "the version is loaded as it was saved");
    require(first.texts.serial.midfix.toInt() == second.texts.serial.midfix.toInt() &&
                first.texts.serial.suffix.toInt() == second.texts.serial.suffix.toInt(),
            "the serial number is loaded as it was saved");
    return 0;
}
