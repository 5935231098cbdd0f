#pragma once

#include <cerrno>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <linux/videodev2.h>

#include <QStringList>

#include "platform/DeviceCalls.h"

/// A sensor bus and a capture device in memory, in force as long as the object lives.
///
/// Behaves like the kernel's as far as the camera can tell, with the buffer handling that most
/// drivers share: buffers that are allocated hold the format, mapped ones their memory. Keeps a log of every
/// call and lets any call be scripted to fail. Pauses are logged, not slept. Log lines:
///   open <path> <flags>, close <device>, fcntl <command> <argument>, ioctl <request> <argument>,
///   write <bytes>, read <count>, pause <us>, S_FMT <width>x<height> <format>, REQBUFS <count>,
///   QUERYBUF <index>, mmap <length> <offset>, munmap <length>, QBUF <index>, STREAMON,
///   STREAMOFF, DQBUF, select <ms>
/// Numbers are decimal, requests, addresses and bytes hexadecimal. May be used from any thread.
class CameraCalls : public DeviceCalls
{
public:
    static constexpr const char* kBus = "/dev/i2c-1";
    static constexpr const char* kVideo = "/dev/video0";
    static constexpr int kAlways = 0;
    /// Distance of the buffers' mapping offsets.
    static constexpr quint32 kOffsetUnit = 0x1000000;

    struct Frame
    {
        quint8 value;      ///< every byte of the frame
        quint32 bytesUsed; ///< as the driver reports it
        int index = -1;    ///< buffer index as the driver reports it; -1: the real one
    };

    CameraCalls();
    ~CameraCalls() override;

    // ---- what the machine is like ----

    /// Takes a device away, or puts it back.
    void setMissing(const std::string& path, bool missing);
    /// Makes the n-th call from now of a kind (first word of its log line) return -1 and that
    /// errno, or the given short count, without any effect; kAlways: every one from now on.
    void failCall(const QString& kind, int n, ssize_t result = -1, int error = EIO);
    /// Forgets all failures.
    void healCalls();
    /// Lets the driver change its format under buffers that are only allocated, or not again.
    void setFormatHeld(bool held);
    /// What the driver does to a format that it is asked for.
    void setFormatAdjustment(std::function<void(v4l2_pix_format&)> adjust);
    /// How many buffers the driver grants whatever is asked; 0: what is asked.
    void grantBuffers(unsigned int count);
    /// Length of each buffer in bytes; 0: as the format needs.
    void setBufferLength(quint32 length);
    /// Lets the driver fill one buffer as soon as it owns one.
    void deliver(const Frame& frame);
    /// Lets it fill buffers without end, full frames of the values 1 to 255 in turn.
    void deliverEndlessly(bool on);
    void setRegister(quint16 reg, quint8 value);

    // ---- what happened ----

    /// The calls of the thread that made this object, and those of all others.
    QStringList calls() const;
    QStringList captureCalls() const;
    void clearLog();
    /// Buffers that the capture thread gave back.
    int requeued() const;
    quint8 registerValue(quint16 reg) const;
    int openDescriptors(const std::string& path) const;
    int liveMappings() const;
    bool isStreaming() const;
    /// Calls that no driver would have accepted, for want of a valid descriptor or mapping, and
    /// streams that were stopped under the capture thread.
    QStringList misuses() const;

    // ---- DeviceCalls ----

    int open(const char* path, int flags) override;
    int close(int fd) override;
    ssize_t read(int fd, void* buffer, std::size_t count) override;
    ssize_t write(int fd, const void* buffer, std::size_t count) override;
    int fcntl(int fd, int command, int argument) override;
    int ioctl(int fd, unsigned long request, unsigned long argument) override;
    int captureIoctl(int fd, unsigned long request, void* argument) override;
    void* mmap(std::size_t length, int protection, int flags, int fd, off_t offset) override;
    int munmap(void* address, std::size_t length) override;
    int waitReadable(int fd, int timeout_ms) override;
    void pause(unsigned int duration_us) override;
    void syncFileSystems() override;

private:
    struct Descriptor
    {
        std::string path;
        bool addressed = false;
    };
    struct Script
    {
        int n;
        bool always;
        ssize_t result;
        int error;
    };

    bool onOwnThread() const { return std::this_thread::get_id() == m_ownThread; }
    // Logs a call and tells whether it is scripted to fail, and with what.
    bool enter(const QString& line, ssize_t& result);
    bool isOpen(int fd, const char* path) const;
    int refuse(int error) const;
    int setFormat(v4l2_format& format);
    int requestBuffers(v4l2_requestbuffers& request);
    int queryBuffer(v4l2_buffer& buffer);
    int queueBuffer(v4l2_buffer& buffer);
    int dequeueBuffer(v4l2_buffer& buffer);
    int switchStream(bool on);
    bool frameReady() const;
    quint32 lineBytes() const;
    Frame nextFrame();

    const std::thread::id m_ownThread = std::this_thread::get_id();
    mutable std::mutex m_mutex;
    std::condition_variable m_frameCame;
    QStringList m_calls;
    QStringList m_captureCalls;
    QStringList m_misuses;
    std::map<QString, std::vector<Script>> m_scripts;
    std::set<std::string> m_missing;
    std::map<int, Descriptor> m_descriptors;
    int m_nextDescriptor = 3000;

    std::map<quint16, quint8> m_registers;
    quint16 m_pointer = 0;

    unsigned int m_granted = 0;
    quint32 m_fixedLength = 0;
    v4l2_pix_format m_format = {};
    bool m_formatHeld = true;
    std::function<void(v4l2_pix_format&)> m_adjust;
    unsigned int m_bufferCount = 0;
    std::map<unsigned int, uchar*> m_mapped;
    std::map<void*, std::size_t> m_mappings;
    std::deque<unsigned int> m_queued;
    std::deque<Frame> m_frames;
    bool m_endless = false;
    quint8 m_nextValue = 1;
    bool m_streaming = false;
    bool m_waiting = false;
    int m_requeued = 0;
};
