#pragma once

#include <QJsonObject>
#include <QString>

struct SessionRecord;

// Both reports are one page, report.html of this folder, which shows a record that is put into
// it whole; without scripts it is read as a plain table.

/// Writes "report.html" into a directory that holds the session's pictures: one file for
/// people, with everything it shows in it, below about six megabytes. False if it cannot be
/// written. Any thread.
bool writeSessionReport(const SessionRecord& record, const QString& directory);

/// Writes "report.html" of a repetition, as its "repeatability.json" tells it, into a
/// directory. False if it cannot be written. Any thread.
bool writeRepetitionReport(const QJsonObject& record, const QString& directory);
