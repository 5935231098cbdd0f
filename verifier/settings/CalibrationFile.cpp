#include "settings/CalibrationFile.h"

#include <string>
#include <vector>

#include "settings/IniFile.h"

namespace {

constexpr char kDefaultValue[] = "0x0000";

QString address(quint16 registerAddress)
{
    return QString::asprintf("0x%04X", registerAddress);
}

} // namespace

void loadCalibration(const CalibrationFile& file, const RegisterIndex& registers, global_ini_t& record,
                     const std::function<void(const QString& line)>& log)
{
    for (int row = 0; row < kCameraModeCount; ++row) {
        for (int column = 0; column < kCalibrationRegisterCount; ++column) {
            const QString key = address(registers[column]);
            std::string value;
            ini_read(kCaptureModes[row].name, key.toStdString(), kDefaultValue, value, file.fileName);
            const quint16 byte = QString::fromStdString(value).toUShort(nullptr, 16);
            (record.*file.table)[row][column] = byte;
            log(QStringLiteral("%1 %2, %3").arg(QLatin1String(file.logTag), key, address(byte)));
        }
    }
}

bool saveCalibration(const CalibrationFile& file, const RegisterIndex& registers, const global_ini_t& record)
{
    std::vector<IniEntry> entries;
    for (int row = 0; row < kCameraModeCount; ++row)
        for (int column = 0; column < kCalibrationRegisterCount; ++column)
            entries.push_back({kCaptureModes[row].name, address(registers[column]).toStdString(),
                               QString::asprintf("0x%02X", (record.*file.table)[row][column]).toStdString()});
    return writeIniEntries(entries, file.fileName);
}
