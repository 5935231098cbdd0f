#pragma once

#include <cstdint>

#include "simulator/optics/SensorSettings.h"

/// Values that the sensor holds after power-on and after a software reset.
struct SensorParameters
{
    /// Exposure of the start-up defaults in lines; also what the automatic loop settles on.
    int defaultExposure_lines = 768;
};

/// The sensor's 16-bit register file: stores and returns any register, knows the few that
/// matter. A software reset (bit 7 of 0x3008) clears itself and brings back the defaults;
/// the chip id 0x300A/0x300B cannot be written. One thread at a
/// time.
class SensorRegisters
{
public:
    explicit SensorRegisters(const SensorParameters& parameters = {});

    /// Sets the address that the next read() takes its value from.
    void setPointer(std::uint16_t address) { m_pointer = address; }
    /// The value at the pointer, which stays where it is.
    std::uint8_t read() const { return value(m_pointer); }
    /// Writes one register and leaves the pointer on it.
    void write(std::uint16_t address, std::uint8_t value);
    /// The value of a register, whatever the pointer says.
    std::uint8_t value(std::uint16_t address) const { return m_values[address]; }

    /// Exposure, gain and white balance as the picture gets them. A control that is left to
    /// the automatic loop (0x3503 bit 0 or 1 clear, 0x3406 bit 0 clear) is taken to have
    /// settled on its start-up default.
    SensorSettings settings() const;

private:
    void loadDefaults();
    unsigned pairAt(std::uint16_t highAddress) const;

    SensorParameters m_parameters;
    std::uint16_t m_pointer = 0;
    std::array<std::uint8_t, 0x10000> m_values{};
};
