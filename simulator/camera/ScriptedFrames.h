#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>

#include "simulator/optics/FrameSource.h"

/// Pictures that somebody hands over one by one, or stripes of a contrast. Whoever changes
/// them tells the devices that show them, by CameraDevices::clockMoved(). Any thread.
class ScriptedFrames : public FrameSource
{
public:
    /// One picture of a single value, and what the driver says of it.
    struct Frame
    {
        std::uint8_t value; ///< every byte of the picture
        FrameReport report{};
    };

    /// Has one more frame shown.
    void add(const Frame& frame);
    /// Shows frames of the values 1 to 255 in turn whenever no other is there, or not any more.
    void showEndlessly(bool on);
    /// Shows stripes of two pixels from now on, whose luma differs by so much (0 to 200).
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
