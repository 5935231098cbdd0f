#pragma once

#include <cstddef>

#include <QtGlobal>

#include "camera/SensorInitTable.h"

/// One visit to the sensor on the I2C bus: opens the bus and addresses the sensor, closes
/// the bus at the end of its life. Register addresses go out high byte first.
///
/// The calls are made whether or not an earlier one succeeded; what counts is the result
/// of each. GUI thread.
class SensorBus
{
public:
    static constexpr const char* kDevice = "/dev/i2c-1";

    SensorBus() = default;
    ~SensorBus();
    SensorBus(const SensorBus&) = delete;
    SensorBus& operator=(const SensorBus&) = delete;

    /// Opens the bus; false and errno without a bus device.
    bool open();
    /// Addresses the sensor; false if the bus is not open or refuses the address.
    bool address();
    /// Forgets the descriptor without closing it.
    void abandon();

    /// Sends a register address alone, for a read to follow. True if both bytes went out.
    bool writeAddress(quint16 reg);
    /// Sends a register address and its byte. True if all three went out.
    bool writeRegister(const SensorRegister& record);
    /// Reads the byte of the register that was last addressed. True if one came.
    bool readByte(quint8& byte);
    /// The pause that the sensor needs after every transfer.
    static void settle();

private:
    static constexpr unsigned int kSettleTime_us = 5000;

    bool send(const quint8* bytes, std::size_t count);

    int m_fd = -1;
};
