#pragma once

#include <array>
#include <atomic>
#include <bitset>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <linux/videodev2.h>
#include <pthread.h>

#include <QObject>
#include <QString>
#include <QStringList>

#include "camera/CalibrationRegisters.h"
#include "camera/CaptureBuffers.h"
#include "camera/FrameSlots.h"
#include "camera/SensorInitTable.h"

class SensorBus;

/// The buffer record that the capture loop dequeues into and queues from. Touched by the
/// capture thread alone; what others need of it (which frame is the newest) goes through
/// the camera's frame slots.
extern v4l2_buffer g_v4l2_buffer;

/// Body of the capture thread: until the camera stops streaming, takes each filled buffer
/// from the driver, copies it into the frame copy of its index and gives it back.
/// \param camera the OV5642Camera whose thread this is
void* video_grabber_thread(void* camera);

/// The microscope camera: an OV5642 sensor, whose registers are reached over I2C, behind
/// the capture device "/dev/video0", which streams YUYV frames in one of three resolutions.
///
/// Closed after construction; open() makes it stream, close() ends that. The capture
/// device's descriptor lives as long as the object.
///
/// GUI thread, unless a function says otherwise. At open() and close() no other thread may
/// be in getFrame(), or use a frame that it returned.
class OV5642Camera : public QObject
{
    Q_OBJECT

public:
    explicit OV5642Camera(QObject* parent = nullptr);
    /// Ends streaming, should it still run, and closes the capture device.
    ~OV5642Camera() override;

    // ---- sensor registers: OV5642Camera_Registers.cpp ----

    // A bus device that cannot be opened is logged once, until it can be again.

    /// Reads a sensor register. On failure false; the cached value of the current mode is
    /// then handed out for the ten calibration registers, and out is untouched for others.
    /// Takes 10 ms.
    bool get(quint16 reg, quint16& out);
    /// Writes the low byte of value to a sensor register; a success is cached in the current
    /// mode's calibration set if the register is one of the ten. Takes 5 ms.
    bool set(quint16 reg, quint16 value);
    /// Position of a register in the order of g_RegIdx, 0 to 9; -1 for any other.
    int getRegisterIndex(quint16 reg) const;
    /// Fills the current mode's calibration set from the settings record's block of that
    /// settings file. False, with nothing changed, for a path that is none of the three.
    bool loadRegisters(const std::string& path);
    /// Writes the first count records of the work table (at most the whole table) to the
    /// sensor, 5 ms each. That count, -1 if any write failed (the others are still made), 0
    /// if the bus could not be opened or the sensor not addressed.
    int setRegisters(unsigned int count);
    /// Crops the picture to the middle of the sensor's field, or undoes it, in the modes VGA
    /// and 1280; writes nothing at 5M.
    void setCrop(bool on);
    /// The cached calibration value of a mode (0 to 2), index 0 to 9.
    const CalibrationRecord& calibrationRecord(int mode, int index) const
    {
        return m_calibration.at(mode).at(index);
    }

    // ---- capture: OV5642Camera_Capture.cpp ----

    /// Opens the capture device and clears the calibration sets; called once, on construction.
    void init();
    /// Switches sensor and capture device to a mode (0 to 2) and starts streaming.
    /// \param mode          index of the mode
    /// \param settingsFile  the settings file whose register values are written to the sensor
    /// \param withInitTable write the sensor's start-up table before them (2.5 s)
    /// False after a failure, which is logged; the camera is then closed. A sensor that does
    /// not answer is logged, but no failure. Streaming is ended first, should it still run.
    bool open(int mode, std::string settingsFile, bool withInitTable);
    /// Ends streaming and frees every buffer. False if the capture thread could not be joined
    /// or the driver refused to stop.
    bool close();

    /// The newest frame as RGB24: height() rows of width() x 3 bytes, R G B, no padding. A frame
    /// of YUYV zeros before the first one; null when the camera is not open.
    ///
    /// Any thread. The GUI thread has a buffer of its own and all other threads share a second
    /// one, so that GUI and grab thread may fetch at the same time. A buffer stays untouched
    /// until the next call from the same side, or close(). The arguments are ignored.
    /// A frame that the side has already is not converted again: its buffer holds it.
    uchar* getFrame(bool = false, uchar = 0, uchar = 0, uchar = 0);
    /// The same; bufferIndex receives the driver's number of the buffer the frame came in.
    uchar* getFrame(unsigned int& bufferIndex, bool = false, uchar = 0, uchar = 0, uchar = 0);
    /// Number of the frame that the calling side's last getFrame() returned: another one for
    /// every frame since construction, 0 for null. As getFrame(), of the caller's side.
    std::uint64_t frameNumber() { return frameOfCaller().number; }

    /// Current resolution mode, 0 to 2; 0 before the first open().
    int mode() const { return m_mode; }
    /// Frame size of the current mode in pixels; 0 before the first open().
    quint32 width() const { return m_width_px; }
    quint32 height() const { return m_height_px; }
    /// width x height x 3 bytes.
    quint32 rgbFrameSize() const { return m_rgbFrameSize_bytes; }
    /// True from a successful open() until close(). Any thread.
    bool isStreaming() const { return m_streaming.load(std::memory_order_acquire); }
    /// True after a failed open(), false after a successful one.
    bool openFailed() const { return m_openFailed; }

    // ---- what is missing, for the notice over the live view ----

    /// The call that the last open() failed with, such as "VIDIOC_S_FMT", "mmap" or
    /// "open /dev/video0"; empty after a successful open(), and before the first. GUI thread.
    QString openFailure() const { return m_openFailure; }
    /// Frames copied since construction; a camera that delivers raises it. Any thread.
    std::uint64_t framesCaptured() const { return m_frames.framesWritten(); }
    /// False after a register access (get(), set() or setRegisters()) whose transfer failed or
    /// whose bus could not be opened, until one succeeds; true before any. GUI thread.
    bool sensorAnswers() const { return m_sensorAnswers; }
    /// False while a calibration register does not hold what was last written to it, as far as
    /// is known: from a write that failed until that register is written or read again.
    bool settingsInForce() const { return m_unwritten.none(); }
    /// True once the driver has answered ENODEV since the last open(): the device is no longer
    /// there. The next open() looks for it anew. Any thread.
    bool isGone() const { return m_gone.load(std::memory_order_acquire); }

signals:
    /// One log message: the emitting function's signature text, then labels and values.
    void sig_debug_Message(QStringList parts);

private slots:
    void tellGone();

private:
    friend void* video_grabber_thread(void* camera);

    // Nobody waits on them: frames are handed over without a lock. They live from open()
    // to close() for a consumer that has to block for a frame.
    struct CaptureSync
    {
        CaptureSync();
        ~CaptureSync();
        CaptureSync(const CaptureSync&) = delete;
        CaptureSync& operator=(const CaptureSync&) = delete;

        pthread_mutex_t mutex;
        pthread_cond_t condition;
    };

    /// A frame as it is handed out, and the number of what it was converted from; 0: of nothing.
    struct RgbFrame
    {
        ZeroedBytes bytes;
        std::uint64_t number = 0;
    };

    static constexpr const char* kCaptureDevice = "/dev/video0";

    void openDevice();
    void closeDevice();
    void selectMode(int mode);
    void buildWorkTable(const std::string& settingsFile, bool withInitTable);
    const char* startStream();
    bool setFormat();
    bool requestFormat(v4l2_pix_format& granted);
    bool takeFormat(const v4l2_pix_format& granted);
    const char* mapBuffer(quint32 index);
    bool startCaptureThread();
    bool failOpen(const QString& call);
    bool request(unsigned long number, void* argument);
    bool switchStream(unsigned long request);
    bool openBus(SensorBus& bus);
    bool noteTransfer(bool good);
    void noteWritten(quint16 reg, bool good);
    void freeFrames();
    int captureFrame();
    void restWithoutDevice();
    void letGoOfMissingDevice();
    static QString errorText(const char* device, int error);
    RgbFrame& frameOfCaller();

    // Written by open() while no other thread runs; the start of the capture and grab
    // threads orders them before their use there.
    FrameSlots m_frames;
    CaptureBuffers m_buffers;
    pthread_t m_captureThread{};
    std::optional<CaptureSync> m_sync;
    int m_mode = kModeVga;
    quint32 m_width_px = 0;
    quint32 m_height_px = 0;
    quint32 m_rgbFrameSize_bytes = 0;
    // From row to row in the driver's buffers; more than two bytes a pixel where it pads them.
    std::size_t m_rowDistance_bytes = 0;
    std::array<std::array<CalibrationRecord, kCalibrationRegisterCount>, kCameraModeCount> m_calibration{};
    // Written by open() and close(), read by the capture thread on every round.
    std::atomic<bool> m_streaming{false};
    // Cleared by open() while no other thread runs, set by whichever thread the driver
    // answers ENODEV, read by any. It orders nothing else.
    std::atomic<bool> m_gone{false};
    // One for the object's own thread, one for the grab thread; each touched by its side only.
    RgbFrame m_ownFrame;
    RgbFrame m_grabFrame;
    // Whether the absence is reported, or about to be. Of the capture thread, and of open() before.
    bool m_goneTold = false;
    bool m_openFailed = false;
    QString m_openFailure;
    bool m_sensorAnswers = true;
    std::bitset<kCalibrationRegisterCount> m_unwritten; ///< by the order of g_RegIdx
    bool m_busFailureTold = false;
    // Of the capture thread, with the buffers, from its start until it is joined.
    int m_fd = -1;
    std::vector<SensorRegister> m_workTable;
};
