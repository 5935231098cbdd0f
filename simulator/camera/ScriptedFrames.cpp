#include "simulator/camera/ScriptedFrames.h"

#include <cstring>

namespace {

constexpr std::uint8_t kDarkLuma = 40;
constexpr std::uint8_t kNoColour = 128;
// Picture numbers: never 0, and different for stripes and for pictures of a single value.
constexpr std::uint64_t kFirstPicture = 1;
constexpr std::uint64_t kFirstStripes = 1000;

} // namespace

void ScriptedFrames::add(const Frame& frame)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_frames.push_back(frame);
}

void ScriptedFrames::showEndlessly(bool on)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_endless = on;
}

void ScriptedFrames::showStripes(int contrast)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_contrast = contrast;
}

bool ScriptedFrames::hasFrame()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_endless || m_contrast != kNoStripes || !m_frames.empty();
}

std::uint64_t ScriptedFrames::look(InstrumentTime /*time*/, const PictureMode& mode)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_bytes = static_cast<std::size_t>(mode.frameBytes());
    m_shownContrast = m_frames.empty() ? m_contrast : kNoStripes;
    if (!m_frames.empty()) {
        m_shown = m_frames.front();
        m_frames.pop_front();
    } else if (m_contrast == kNoStripes) {
        m_nextValue = m_nextValue == 255 ? 1 : m_nextValue + 1;
        m_shown = {m_nextValue};
    } else {
        m_shown = {0};
        return kFirstStripes + static_cast<std::uint64_t>(m_contrast);
    }
    return kFirstPicture + m_shown.value;
}

void ScriptedFrames::draw(std::uint8_t* yuyv)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_shownContrast == kNoStripes) {
        std::memset(yuyv, m_shown.value, m_bytes);
        return;
    }
    const auto bright = static_cast<std::uint8_t>(kDarkLuma + m_shownContrast);
    for (std::size_t i = 0; i < m_bytes; i += 2) {
        yuyv[i] = (i / 2) % 4 < 2 ? kDarkLuma : bright;
        yuyv[i + 1] = kNoColour;
    }
}

FrameReport ScriptedFrames::report()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_shown.report;
}
