#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

#include "settings/CaptureModes.h"

/// The navigator's frame: the whole picture at the top left of the live view.
constexpr QRect kNavigatorRect(0, 0, kNavigatorWidth_px, kNavigatorHeight_px);

/// Which part of the navigator the 1:1 view shows: mode 0 to 2 (anything else: an empty
/// rectangle), viewOffset = top-left frame pixel on screen. Pure; any thread.
QRect navigatorPosition(int mode, const QPoint& viewOffset);

/// The view offset after a drag from one window point to another: the frame is pulled
/// along with the finger and never leaves the 640 x 480 view. Pure; any thread.
QPoint pannedOffset(const QPoint& viewOffset, const QPoint& from, const QPoint& to, const QSize& frame);

/// Frame size of a capture mode, 0 x 0 outside 0 to 2.
QSize modeFrameSize(int mode);
