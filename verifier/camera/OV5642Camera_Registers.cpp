#include "camera/OV5642Camera.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "camera/SensorBus.h"
#include "platform/DebugLog.h"
#include "settings/GlobalIni.h"
#include "settings/SettingsFiles.h"

quint16 g_RegIdx[kCalibrationRegisterCount] = {};

namespace {

using RegisterBlock = quint16[kCameraModeCount][kCalibrationRegisterCount];

struct SettingsBlock
{
    const char* file;
    RegisterBlock global_ini_t::*values;
};

// Which block of the settings record was loaded from which file.
constexpr SettingsBlock kSettingsBlocks[] = {
    {kCusCalibrationFile, &global_ini_t::CUS_reg},
    {kBfnCalibrationFile, &global_ini_t::BFN_reg},
    {kAutoExposureFile, &global_ini_t::AE_reg},
};

// Window width and height, then where the read-out starts; each high byte first.
constexpr quint16 kCropRegisters[] = {0x3804, 0x3805, 0x3806, 0x3807, 0x3824, 0x3825, 0x3826, 0x3827};

struct CropWindow
{
    bool on;
    int mode;
    quint8 values[std::size(kCropRegisters)];
};

constexpr CropWindow kCropWindows[] = {
    {true, kModeVga, {0x02, 0x80, 0x01, 0xE0, 0x13, 0x08, 0x01, 0x00}},   // 640 x 480
    {true, kMode1280, {0x05, 0x00, 0x03, 0xC0, 0x13, 0x06, 0x01, 0x06}},  // 1280 x 960
    {false, kModeVga, {0x05, 0x00, 0x03, 0xC0, 0x11, 0xB0, 0x00, 0x08}},  // 1280 x 960
    {false, kMode1280, {0x09, 0xFE, 0x07, 0x98, 0x11, 0xAC, 0x00, 0x0C}}, // 2558 x 1944
};

} // namespace

bool OV5642Camera::get(quint16 reg, quint16& out)
{
    bool good;
    quint8 byte = 0;
    {
        SensorBus bus;
        good = openBus(bus);
        good = bus.address() && good;
        good = bus.writeAddress(reg) && good;
        SensorBus::settle();
        good = bus.readByte(byte) && good;
        SensorBus::settle();
    }
    if (noteTransfer(good)) {
        noteWritten(reg, true);
        out = byte;
        return true;
    }
    const int index = getRegisterIndex(reg);
    if (index >= 0)
        out = calibrationRecord(m_mode, index).value;
    return false;
}

bool OV5642Camera::set(quint16 reg, quint16 value)
{
    const quint8 byte = value & 0xFF;
    bool good;
    {
        SensorBus bus;
        good = openBus(bus);
        good = bus.address() && good;
        good = bus.writeRegister({reg, byte}) && good;
        SensorBus::settle();
    }
    noteWritten(reg, good);
    if (!noteTransfer(good))
        return false;
    const int index = getRegisterIndex(reg);
    if (index >= 0)
        m_calibration.at(m_mode).at(index) = {reg, byte};
    return true;
}

int OV5642Camera::getRegisterIndex(quint16 reg) const
{
    const auto found = std::find(kCalibrationRegisters.begin(), kCalibrationRegisters.end(), reg);
    return found == kCalibrationRegisters.end() ? -1
                                                : static_cast<int>(found - kCalibrationRegisters.begin());
}

bool OV5642Camera::loadRegisters(const std::string& path)
{
    const auto* block = std::find_if(std::begin(kSettingsBlocks), std::end(kSettingsBlocks),
                                     [&path](const SettingsBlock& entry) { return path == entry.file; });
    if (block == std::end(kSettingsBlocks))
        return false;
    const RegisterBlock& values = global_ini()->*block->values;
    for (int i = 0; i < kCalibrationRegisterCount; ++i)
        m_calibration.at(m_mode).at(i) = {g_RegIdx[i], values[m_mode][i]};
    return true;
}

int OV5642Camera::setRegisters(unsigned int count)
{
    SensorBus bus;
    if (!openBus(bus)) {
        noteTransfer(false);
        return 0;
    }
    if (!bus.address()) {
        noteTransfer(false);
        // Kept on purpose: the descriptor stays open on this path.
        bus.abandon();
        return 0;
    }
    const auto records = std::min<std::size_t>(count, m_workTable.size());
    bool good = true;
    for (std::size_t i = 0; i < records; ++i) {
        const bool written = bus.writeRegister(m_workTable[i]);
        noteWritten(m_workTable[i].address, written);
        good = written && good;
        SensorBus::settle();
    }
    // Nothing sent tells nothing.
    if (records > 0)
        noteTransfer(good);
    return good ? static_cast<int>(records) : -1;
}

// A bus that cannot be opened is told once: each register of a mode change would tell it again.
bool OV5642Camera::openBus(SensorBus& bus)
{
    if (bus.open()) {
        m_busFailureTold = false;
        return true;
    }
    const QString text = errorText(SensorBus::kDevice, errno);
    if (!m_busFailureTold)
        logMessage(this, {Q_FUNC_INFO, text});
    m_busFailureTold = true;
    return false;
}

bool OV5642Camera::noteTransfer(bool good)
{
    m_sensorAnswers = good;
    return good;
}

// What a successful reading shows is what the register holds.
void OV5642Camera::noteWritten(quint16 reg, bool good)
{
    if (const int index = getRegisterIndex(reg); index >= 0)
        m_unwritten.set(static_cast<std::size_t>(index), !good);
}

void OV5642Camera::setCrop(bool on)
{
    for (const CropWindow& window : kCropWindows) {
        if (window.on != on || window.mode != m_mode)
            continue;
        for (std::size_t i = 0; i < std::size(kCropRegisters); ++i)
            set(kCropRegisters[i], window.values[i]);
    }
}
