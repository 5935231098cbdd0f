#pragma once

#include <cstddef>
#include <vector>

#include <QDateTime>
#include <QString>

#include <opencv2/core.hpp>

#include "Algorithm/AutoFocusingData.h"

/// What an autofocus run leaves on the USB disk: one TIFF file per sample and one CSV file
/// per sweep. Paths are the fixed ones, as they stand in the log; they become paths of the
/// machine where a file is touched. No function throws; false means that the file or
/// directory is not there, or not whole. Any thread.
namespace focus_log {

/// "/mnt/ORLA-II/Autofocus/yyyyMMdd_hhmmss" of the run's start.
QString directoryOf(const QDateTime& start);

/// "<directory>/Step<step>".
QString stepDirectory(const QString& directory, int step);

/// The frame's file in its step's directory: "Autofocus_<number>_<z>_<score>.tiff", the
/// number from 1 with two digits, the score with up to six significant digits.
QString frameFile(const QString& directory, int step, std::size_t number, int z, double score);

/// The sweep's file in its step's directory: "best_focus_value.csv".
QString scoreFile(const QString& directory, int step);

/// One line "index,z,score" per sample with the index from 0, an empty line, and the best
/// sample in the same form with the index from 1 and without a line end. The best sample
/// is left out if there is no such sample.
QString scoreTable(const std::vector<AutoFocusingData_s>& samples, std::size_t best);

/// Creates the directory with its parents.
bool createDirectory(const QString& path);

/// Writes an RGB frame (rows x columns, 8-bit, 3 channels, R first) as a TIFF file.
bool writeFrame(const QString& path, const cv::Mat& rgbFrame);

/// Writes text, replacing what the file held.
bool writeText(const QString& path, const QString& text);

} // namespace focus_log
