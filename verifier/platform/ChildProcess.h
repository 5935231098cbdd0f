#pragma once

#include <QString>
#include <QStringList>

/// How long the program lets a child process take, in milliseconds, before it is killed.
constexpr int kChildProcessTimeout_ms = 30000;

/// Runs a program without a shell and waits for its end. A bare name is looked up on PATH;
/// the arguments reach the program one by one, blanks and all. The caller learns neither its exit
/// status nor its output, nor that it could not be started or had to be killed.
/// It gets this process's environment with a PATH of the system's own folders, and without what
/// would have a loader, a shell, an interpreter or a library do something else (LD_..., IFS,
/// BASH_ENV, ...).
/// Any thread; blocks it, and processes no events meanwhile.
void runChildProcess(const QString& program, const QStringList& arguments,
                     int timeout_ms = kChildProcessTimeout_ms);
