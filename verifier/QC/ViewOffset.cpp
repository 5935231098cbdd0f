#include "QC/ViewOffset.h"

#include <algorithm>

int clampedViewOffset(int offset, int image_px, int widget_px, double scale)
{
    const double last = scale >= 1.0 ? image_px - widget_px / scale : scale * image_px - widget_px;
    return std::max(0, offset > last ? static_cast<int>(last) : offset);
}
