#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include <linux/i2c-dev.h>

#include "CaptureFixture.h"
#include "simulator/camera/SimulatedDeviceCalls.h"

inline constexpr unsigned long kSensor = 0x3C;

inline SimulatedCameraParameters quickParameters()
{
    SimulatedCameraParameters parameters;
    parameters.instantPauses = true;
    return parameters;
}

/// A simulated camera whose stage and light the test sets.
struct CameraFixture
{
    explicit CameraFixture(const SimulatedCameraParameters& parameters = quickParameters())
        : calls(parameters, [this](InstrumentTime) {
              return LightPath{stagePosition_steps.load(), true, ledLevel.load()};
          })
    {
    }

    int openSensor()
    {
        const int fd = calls.open("/dev/i2c-1", O_RDWR);
        return calls.ioctl(fd, I2C_SLAVE_FORCE, kSensor) == 0 ? fd : -1;
    }
    ssize_t write(int fd, std::vector<std::uint8_t> bytes)
    {
        return calls.write(fd, bytes.data(), bytes.size());
    }
    int readRegister(int fd, unsigned address)
    {
        std::uint8_t value = 0;
        if (write(fd, {std::uint8_t(address >> 8U), std::uint8_t(address)}) != 2 ||
            calls.read(fd, &value, 1) != 1)
            return -1;
        return value;
    }
    /// Opens the video device, starts its stream and maps its buffers.
    void startStream()
    {
        QVERIFY(video.open());
        video.start();
        for (unsigned index = 0; index < kBuffers; ++index)
            QCOMPARE(video.map(index), 0);
    }
    void stopStream()
    {
        QCOMPARE(video.stream(false), 0);
        QVERIFY(video.unmap());
        QCOMPARE(video.close(), 0);
    }

    std::atomic<double> stagePosition_steps{32000.0};
    std::atomic<int> ledLevel{225};
    SimulatedDeviceCalls calls;
    OpenedDevice video{calls};
};
