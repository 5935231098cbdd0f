#include "LiveViewGeometry.h"

#include <algorithm>

#include "WindowStyle.h"

namespace {

bool isMode(int mode)
{
    return mode >= 0 && mode < static_cast<int>(kCaptureModes.size());
}

int clampedOffset(int offset, int frame_px, int view_px)
{
    if (offset < 0)
        return 0;
    return offset >= frame_px - view_px + 1 ? frame_px - view_px : offset;
}

} // namespace

QRect navigatorPosition(int mode, const QPoint& viewOffset)
{
    if (!isMode(mode))
        return {};
    if (mode == kModeVga)
        return kNavigatorRect;
    const CaptureMode& frame = kCaptureModes[static_cast<std::size_t>(mode)];
    const int x = std::max(0, viewOffset.x() * kNavigatorRect.width() / frame.width_px);
    const int y = std::max(0, viewOffset.y() * kNavigatorRect.height() / frame.height_px);
    return {x, y, frame.navigatorWidth_px, frame.navigatorHeight_px};
}

QPoint pannedOffset(const QPoint& viewOffset, const QPoint& from, const QPoint& to, const QSize& frame)
{
    const QPoint moved = viewOffset + from - to;
    return {clampedOffset(moved.x(), frame.width(), kLiveViewRect.width()),
            clampedOffset(moved.y(), frame.height(), kLiveViewRect.height())};
}

QSize modeFrameSize(int mode)
{
    if (!isMode(mode))
        return {0, 0};
    const CaptureMode& frame = kCaptureModes[static_cast<std::size_t>(mode)];
    return {frame.width_px, frame.height_px};
}
