#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>

#include "simulator/optics/FrameSource.h"

/// Frames that a test queues one by one, or stripes of a given contrast. After a change, call
/// CameraDevices::clockMoved() of the devices that show them. Any thread.
class ScriptedFrames : public FrameSource
{
public:
    /// One picture of a single value, and what the driver says of it.
    struct Frame
    {
        std::uint8_t value; ///< every byte of the picture
        FrameReport report{};
    };

    /// Queues one more frame.
    void add(const Frame& frame);
    /// on: shows frames of the values 1 to 255 in turn whenever none is queued.
    void showEndlessly(bool on);
    /// Shows stripes two pixels wide from now on; contrast: their difference in luma, 0 to 200.
    void showStripes(int contrast);

    bool hasFrame() override;
    std::uint64_t look(InstrumentTime time, const PictureMode& mode) override;
    void draw(std::uint8_t* yuyv) override;
    FrameReport report() override;

private:
    static constexpr int kNoStripes = -1;

    std::mutex m_mutex;
    std::deque<Frame> m_frames;
    bool m_endless = false;
    std::uint8_t m_nextValue = 1;
    int m_contrast = kNoStripes;
    /// The picture last looked at.
    Frame m_shown{0};
    int m_shownContrast = kNoStripes;
    std::size_t m_bytes = 0;
};
