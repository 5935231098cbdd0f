#pragma once

#include <QtGlobal>

/// Converts one frame from YUYV 4:2:2 to RGB24 with libswscale.
///
/// \param width        pixels per row, even
/// \param height       rows
/// \param source       height rows of width x 2 bytes (Y0 U Y1 V), no padding
/// \param destination  height rows of width x 3 bytes (R G B), no padding; must not overlap
///
/// BT.601, limited range. Any thread: each call makes and frees a conversion context of its
/// own. Where none can be made (no memory, a null buffer, an impossible size) the destination
/// stays as it is.
void sws_yuv2rgb24(unsigned int width, int height, const uchar* source, uchar* destination);
