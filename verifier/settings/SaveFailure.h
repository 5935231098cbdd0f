#pragma once

#include <QString>

/// Writes the one line of a save that failed to the debug stream: the file, by its fixed
/// path, and the reason. Returns false, the caller's answer.
bool saveFailed(const QString& fixedPath, const QString& reason);

/// Why a file that was not read (UnreadFiles.h) is not saved either.
constexpr char kNotRead[] = "its values could not be read at the start";
