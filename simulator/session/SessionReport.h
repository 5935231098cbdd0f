#pragma once

#include <QString>

struct SessionRecord;

/// Writes "report.html" into a directory that holds the session's pictures: one file for
/// people, with everything it shows in it, below about six megabytes. False if it cannot be
/// written. Any thread.
bool writeSessionReport(const SessionRecord& record, const QString& directory);
