#include "simulator/camera/SensorRegisters.h"

namespace {

constexpr std::uint16_t kSystemControl = 0x3008;
constexpr std::uint8_t kSoftwareReset = 0x80;
constexpr std::uint8_t kRunning = 0x02;
constexpr std::uint16_t kChipIdHigh = 0x300A;
constexpr std::uint16_t kChipIdLow = 0x300B;

constexpr std::uint16_t kRedGain = 0x3400;
constexpr std::uint16_t kWhiteBalanceMode = 0x3406;
constexpr std::uint8_t kManualWhiteBalance = 0x01;
constexpr unsigned kColourGainMask = 0x0FFF;
constexpr double kUnitColourGain = 0x400;

constexpr std::uint16_t kExposureTop = 0x3500;
constexpr std::uint16_t kExposureHigh = 0x3501;
constexpr std::uint16_t kExposureLow = 0x3502;
constexpr double kExposureUnitsPerLine = 16.0;
constexpr std::uint16_t kManualFlags = 0x3503;
constexpr std::uint8_t kManualExposure = 0x01;
constexpr std::uint8_t kManualGain = 0x02;
constexpr std::uint16_t kGain = 0x350A;

struct RegisterDefault
{
    std::uint16_t address;
    std::uint8_t value;
};

// A sensor that streams its whole field with manual controls: gain 1, colour gains 1. The
// exposure follows the parameters.
constexpr RegisterDefault kDefaults[] = {
    {kSystemControl, kRunning},
    {kChipIdHigh, 0x56},
    {kChipIdLow, 0x42},
    {kManualFlags, 0x07},
    {0x3400, 0x04},
    {0x3402, 0x04},
    {0x3404, 0x04},
    {kWhiteBalanceMode, kManualWhiteBalance},
    {0x350C, 0x07},
    {0x350D, 0xD0},
    {0x3804, 0x0A},
    {0x3805, 0x20},
    {0x3806, 0x07},
    {0x3807, 0x98},
    {0x4300, 0x30},
};

// The low nibble n stands for 1 + n/16, and each set bit of 7..4 doubles it. Bit 8 is taken
// as one more doubling.
double gainOfCode(unsigned code)
{
    double gain = 1.0 + (code & 0x0FU) / 16.0;
    for (unsigned bit = 0x10; bit <= 0x100; bit <<= 1U)
        if ((code & bit) != 0)
            gain *= 2.0;
    return gain;
}

} // namespace

SensorRegisters::SensorRegisters(const SensorParameters& parameters) : m_parameters(parameters)
{
    loadDefaults();
}

void SensorRegisters::write(std::uint16_t address, std::uint8_t value)
{
    m_pointer = address;
    if (address == kChipIdHigh || address == kChipIdLow)
        return;
    if (address == kSystemControl && (value & kSoftwareReset) != 0) {
        loadDefaults();
        return;
    }
    m_values[address] = value;
}

SensorSettings SensorRegisters::settings() const
{
    SensorSettings settings;
    settings.exposure_lines = m_parameters.defaultExposure_lines;
    const std::uint8_t manual = value(kManualFlags);
    if ((manual & kManualExposure) != 0) {
        const unsigned units = (value(kExposureTop) & 0x0FU) << 16U | pairAt(kExposureHigh);
        settings.exposure_lines = units / kExposureUnitsPerLine;
    }
    if ((manual & kManualGain) != 0)
        settings.gain = gainOfCode(pairAt(kGain) & 0x1FFU);
    if ((value(kWhiteBalanceMode) & kManualWhiteBalance) != 0) {
        for (unsigned channel = 0; channel < settings.colourGains.size(); ++channel) {
            const unsigned code = pairAt(static_cast<std::uint16_t>(kRedGain + 2 * channel));
            settings.colourGains[channel] = (code & kColourGainMask) / kUnitColourGain;
        }
    }
    return settings;
}

void SensorRegisters::loadDefaults()
{
    m_values.fill(0);
    for (const RegisterDefault& entry : kDefaults)
        m_values[entry.address] = entry.value;
    const unsigned units = static_cast<unsigned>(m_parameters.defaultExposure_lines) *
                           static_cast<unsigned>(kExposureUnitsPerLine);
    m_values[kExposureTop] = static_cast<std::uint8_t>(units >> 16U & 0x0FU);
    m_values[kExposureHigh] = static_cast<std::uint8_t>(units >> 8U);
    m_values[kExposureLow] = static_cast<std::uint8_t>(units);
}

unsigned SensorRegisters::pairAt(std::uint16_t highAddress) const
{
    return static_cast<unsigned>(value(highAddress)) << 8U |
           value(static_cast<std::uint16_t>(highAddress + 1));
}
