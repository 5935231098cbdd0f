#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/mman.h>

#include <QtTest>

#include "simulator/camera/SimulatedDeviceCalls.h"

inline constexpr unsigned long kForcedAddress = 0x0706;
inline constexpr unsigned long kSensor = 0x3C;
inline constexpr std::size_t kVgaBytes = 640UL * 480UL * 2UL;

inline SimulatedCameraParameters quickParameters()
{
    SimulatedCameraParameters parameters;
    parameters.instantPauses = true;
    return parameters;
}

/// A simulated camera whose stage and light the test sets.
struct SimulatedCameraBench
{
    explicit SimulatedCameraBench(const SimulatedCameraParameters& parameters = quickParameters())
        : calls(parameters, [this](InstrumentTime) {
              return LightPath{stagePosition_steps.load(), true, ledLevel.load()};
          })
    {
    }

    int openSensor()
    {
        const int fd = calls.open("/dev/i2c-1", O_RDWR);
        return calls.ioctl(fd, kForcedAddress, kSensor) == 0 ? fd : -1;
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
    /// Opens the video device, maps and queues four buffers and starts; -1 if a step fails.
    int startStream()
    {
        const int fd = calls.open("/dev/video0", O_RDWR | O_NONBLOCK);
        v4l2_requestbuffers request{};
        request.count = 4;
        request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        request.memory = V4L2_MEMORY_MMAP;
        int failures = calls.captureIoctl(fd, VIDIOC_REQBUFS, &request);
        for (unsigned index = 0; index < 4; ++index) {
            v4l2_buffer buffer = bufferOf(index);
            failures += calls.captureIoctl(fd, VIDIOC_QUERYBUF, &buffer);
            memory[index] =
                calls.mmap(buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, buffer.m.offset);
            failures += memory[index] == MAP_FAILED ? -1 : 0;
            failures += calls.captureIoctl(fd, VIDIOC_QBUF, &buffer);
        }
        int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        failures += calls.captureIoctl(fd, VIDIOC_STREAMON, &type);
        return failures == 0 ? fd : -1;
    }
    void stopStream(int fd)
    {
        int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        QCOMPARE(calls.captureIoctl(fd, VIDIOC_STREAMOFF, &type), 0);
        for (void* address : memory)
            QCOMPARE(calls.munmap(address, kVgaBytes), 0);
        QCOMPARE(calls.close(fd), 0);
    }
    static v4l2_buffer bufferOf(unsigned index)
    {
        v4l2_buffer buffer{};
        buffer.index = index;
        buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffer.memory = V4L2_MEMORY_MMAP;
        return buffer;
    }
    int dequeue(int fd, v4l2_buffer& buffer)
    {
        buffer = bufferOf(0);
        return calls.captureIoctl(fd, VIDIOC_DQBUF, &buffer);
    }

    std::atomic<double> stagePosition_steps{32000.0};
    std::atomic<int> ledLevel{225};
    SimulatedDeviceCalls calls;
    void* memory[4] = {};
};
