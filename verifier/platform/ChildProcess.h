#pragma once

#include <QString>
#include <QStringList>

/// How long the program lets a child process take, in milliseconds, before it is killed.
constexpr int kChildProcessTimeout_ms = 30000;

/// Runs a program without a shell and waits for its end. A bare name is looked up on PATH;
/// the arguments reach the program one by one, blanks and all. Exit status, output, a
/// program that cannot be started and one that had to be killed are all passed over.
/// Blocks the calling thread; no events are processed meanwhile.
void runChildProcess(const QString& program, const QStringList& arguments,
                     int timeout_ms = kChildProcessTimeout_ms);
