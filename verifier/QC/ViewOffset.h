#pragma once

/// Keeps a view inside its image, along one axis: offset (first visible image pixel) limited
/// to what a widget of widget_px pixels at zoom scale can show of image_px pixels; 0 when
/// the whole image fits. Any thread.
int clampedViewOffset(int offset, int image_px, int widget_px, double scale);
