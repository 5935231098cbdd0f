#include "settings/StageFile.h"

#include <string>
#include <vector>

#include <QString>

#include "settings/IniFile.h"
#include "settings/SettingsFiles.h"

namespace {

constexpr char kSection[] = "Z stage";

struct StageKey
{
    const char* key;
    const char* defaultValue;
    int global_ini_t::*field;
};

constexpr StageKey kKeys[] = {
    {"Step", "256", &global_ini_t::Z_step},
    {"Speed", "250", &global_ini_t::Z_speed},
};

} // namespace

void loadStageFile(global_ini_t& record)
{
    for (const StageKey& key : kKeys) {
        std::string value;
        ini_read(kSection, key.key, key.defaultValue, value, kStageFile);
        record.*key.field = QString::fromStdString(value).toInt();
    }
}

bool saveStageFile(const global_ini_t& record)
{
    std::vector<IniEntry> entries;
    for (const StageKey& key : kKeys)
        entries.push_back({kSection, key.key, std::to_string(record.*key.field)});
    return writeIniEntries(entries, kStageFile);
}
