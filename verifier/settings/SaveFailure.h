#pragma once

#include <QString>

/// Reports a save that failed by one line in the debug stream: the file, by its fixed path,
/// and the reason. Returns false, for the caller to return in turn.
bool saveFailed(const QString& fixedPath, const QString& reason);

/// Why a file that was not read (UnreadFiles.h) is not saved either.
constexpr char kNotRead[] = "its values could not be read at the start";
