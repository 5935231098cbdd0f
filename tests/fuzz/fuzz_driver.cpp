// A capture driver that answers as it likes: format, buffers, lengths, frames and their numbers.
#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include <QCoreApplication>

#include "FuzzInput.h"
#include "camera/OV5642Camera.h"
#include "camera/ScriptedCamera.h"
#include "camera/YuvConversion.h"

namespace {

constexpr std::size_t kWidth_px = 640;
constexpr std::size_t kHeight_px = 480;
constexpr std::size_t kRow_bytes = kWidth_px * kYuyvBytesPerPixel;
constexpr std::size_t kFrame_bytes = kRow_bytes * kHeight_px;
constexpr int kMostFrames = 6;

using Bytes = std::vector<uchar>;

// What a driver grants.
struct Format
{
    bool isWanted = true;
    std::size_t rowDistance_bytes = kRow_bytes;
};

// Has the driver grant something else than it is asked for.
Format adjustFormat(ScriptedCamera& machine, std::uint8_t choice, std::uint32_t value)
{
    Format format;
    switch (choice % 6) {
    case 1:
        machine.setFormatAdjustment([value](v4l2_pix_format& pix) { pix.width = value; });
        format.isWanted = value == kWidth_px;
        break;
    case 2:
        machine.setFormatAdjustment([value](v4l2_pix_format& pix) { pix.height = value; });
        format.isWanted = value == kHeight_px;
        break;
    case 3:
        machine.setFormatAdjustment([value](v4l2_pix_format& pix) { pix.pixelformat = value; });
        format.isWanted = value == V4L2_PIX_FMT_YUYV;
        break;
    case 4: {
        // Longer rows, but not longer than a buffer: they are the simulated device's memory.
        const std::uint32_t padded = static_cast<std::uint32_t>(kRow_bytes) + value % 4096;
        machine.setFormatAdjustment([padded](v4l2_pix_format& pix) { pix.bytesperline = padded; });
        format.rowDistance_bytes = padded;
        break;
    }
    case 5: {
        // Shorter than the pixels are long: it does not pad then.
        const std::uint32_t shorter = value % kRow_bytes;
        machine.setFormatAdjustment([shorter](v4l2_pix_format& pix) { pix.bytesperline = shorter; });
        break;
    }
    default:
        break;
    }
    return format;
}

Bytes rgbOf(const Bytes& yuyv)
{
    Bytes rgb(kWidth_px * kHeight_px * kRgbBytesPerPixel);
    sws_yuv2rgb24(kWidth_px, kHeight_px, yuyv.data(), rgb.data());
    return rgb;
}

bool waitFor(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    return true;
}

// What a slot holds after a frame of one value, of which the driver says the length.
void fill(Bytes& slot, uchar value, std::size_t said_bytes, std::size_t buffer_bytes, const Format& format)
{
    const std::size_t length = std::min(said_bytes, buffer_bytes);
    for (std::size_t row = 0; row < kHeight_px; ++row) {
        const std::size_t begin = row * format.rowDistance_bytes;
        if (begin >= length)
            break;
        std::fill_n(slot.begin() + static_cast<std::ptrdiff_t>(row * kRow_bytes),
                    std::min(kRow_bytes, length - begin), value);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const FuzzedProgram<QCoreApplication> program;

    FuzzInput input(data, size);
    ScriptedCamera machine;
    const std::uint8_t choice = input.byte();
    const Format format = adjustFormat(machine, choice, input.word());
    const unsigned int buffers = input.byte() % 33;
    machine.grantBuffers(buffers);
    std::size_t bufferLength_bytes = format.rowDistance_bytes * kHeight_px;
    if ((choice & 0x80U) != 0) {
        bufferLength_bytes = 1 + input.word() % (2 * kFrame_bytes);
        machine.driver.bufferLength_bytes = bufferLength_bytes;
        machine.applyDriver();
    }

    OV5642Camera camera;
    const bool opened = camera.open(0, "", false);
    require(opened == (format.isWanted && buffers > 0), "the mode streams exactly where it was granted");
    if (!opened) {
        require(!camera.isStreaming() && camera.getFrame() == nullptr, "what did not open shows nothing");
        require(!camera.openFailure().isEmpty(), "what did not open says why");
        require(machine.openMappings() == 0, "what did not open keeps no buffer");
        return 0;
    }

    std::vector<Bytes> copies(FrameSlots::kCount, Bytes(kFrame_bytes));
    std::size_t newest = 0;
    unsigned int newestIndex = 0;
    for (int count = 0; count < kMostFrames && !input.isEmpty(); ++count) {
        const uchar value = input.byte();
        const std::uint8_t kind = input.byte();
        ScriptedCamera::Frame frame{value, static_cast<quint32>(bufferLength_bytes)};
        if ((kind & 1U) != 0)
            frame.bytesUsed = input.word();
        // An index that the driver never granted is given back to it, and refused: that buffer
        // is lost to both, so it is the last frame that this input can wait for.
        const bool wrongIndex = (kind & 2U) != 0;
        if (wrongIndex)
            frame.index = input.word();
        const int before = machine.requeued();
        machine.hand(frame);
        require(waitFor([&] { return machine.requeued() > before; }), "every frame is taken");
        if (!wrongIndex)
            newestIndex = static_cast<unsigned int>(count) % buffers;
        else if (*frame.index < buffers)
            break; // which of two buffers of that number is shown is the driver's secret
        if (!wrongIndex) {
            newest = newestIndex % FrameSlots::kCount;
            fill(copies[newest], value, frame.bytesUsed, bufferLength_bytes, format);
        }
        unsigned int index = 0;
        const uchar* shown = camera.getFrame(index);
        require(shown != nullptr, "there is a picture as long as it streams");
        require(index == newestIndex, "a picture bears the number of its buffer");
        const Bytes wanted = rgbOf(copies[newest]);
        require(std::equal(wanted.begin(), wanted.end(), shown), "the picture is the driver's newest frame");
        if (wrongIndex)
            break;
    }
    require(camera.close(), "a stream can be closed");
    require(machine.openMappings() == 0 && machine.misuses().isEmpty(), "the driver gets back what it gave");
    return 0;
}
