#include "camera/SensorBus.h"

#include <fcntl.h>

#include "platform/DeviceCalls.h"

namespace {

// Addresses a chip even where a kernel driver has claimed it, as the capture driver has.
constexpr unsigned long kAddressRequest = 0x0706;

// 7-bit bus address of the sensor.
constexpr unsigned long kSensorAddress = 0x3C;

} // namespace

SensorBus::~SensorBus()
{
    if (m_fd >= 0)
        deviceCalls().close(m_fd);
}

bool SensorBus::open()
{
    m_fd = deviceCalls().open(kDevice, O_RDWR);
    return m_fd >= 0;
}

bool SensorBus::address()
{
    return deviceCalls().ioctl(m_fd, kAddressRequest, kSensorAddress) == 0 && m_fd >= 0;
}

void SensorBus::abandon()
{
    m_fd = -1;
}

bool SensorBus::writeAddress(quint16 reg)
{
    const quint8 bytes[] = {static_cast<quint8>(reg >> 8), static_cast<quint8>(reg & 0xFF)};
    return send(bytes, sizeof bytes);
}

bool SensorBus::writeRegister(const SensorRegister& record)
{
    const quint8 bytes[] = {static_cast<quint8>(record.address >> 8),
                            static_cast<quint8>(record.address & 0xFF), record.value};
    return send(bytes, sizeof bytes);
}

bool SensorBus::readByte(quint8& byte)
{
    return deviceCalls().read(m_fd, &byte, 1) == 1;
}

void SensorBus::settle()
{
    deviceCalls().pause(kSettleTime_us);
}

bool SensorBus::send(const quint8* bytes, std::size_t count)
{
    return deviceCalls().write(m_fd, bytes, count) == static_cast<ssize_t>(count);
}
