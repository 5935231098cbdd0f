#pragma once

#include <QString>

#include <opencv2/core.hpp>

/// Writes an RGB frame (rows x columns, 8-bit, 3 channels, R first) to a file of the USB disk, in
/// the format of the path's last ending, such as ".tif". The path is a fixed one, and no link of the
/// disk is followed. False where the frame cannot be encoded or written. Throws std::runtime_error
/// where the library for picture files cannot be loaded, and what OpenCV throws. Any thread.
///
/// That library, OpenCV's imgcodecs, brings more than a hundred others with it. It is
/// loaded by the first picture rather than by the start of the program: the technician waits for the
/// window each time, and takes a picture now and then.
bool writePicture(const QString& path, const cv::Mat& rgbFrame);
