#pragma once

#include <vector>

#include "Algorithm/AutoFocusingData.h"

class QPainter;
class QRect;

/// Draws the focus graph over the live view: axes, sample numbers, value labels and, when
/// there are samples, their curve, dots and Z positions with the best one in red.
///
/// One graph unit is one pixel; a focus value v is drawn at y = (int)(351 - v / divisor).
/// mode is the capture mode (0 VGA has a coarser value scale), bestIndex an index of samples.
/// The graph shows fifteen samples: fewer (but not none) throw std::out_of_range where the
/// first missing one is read. GUI thread.
void drawFocusGraph(QPainter& painter, const QRect& view, int mode,
                    const std::vector<AutoFocusingData_t>& samples, int bestIndex);
