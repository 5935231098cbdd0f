#pragma once

#include <memory>

#include <QString>

class QApplication;

// What every program with the verifier's window does before that window exists.

/// Exit status of a program that could not do its work, and of one that did not understand its
/// command line.
enum ProgramStatus { kProgramFailed = 1, kCommandLineWrong = 2 };

/// Name and version, "orla-verifier 1.2.3", as --version and the log show them.
QString programAndVersion(const char* program);

/// Logs name and version, so that a log tells which program wrote it.
void logProgramVersion(const char* program);

/// Makes the application. It has the same size in pixels on every screen, whatever the screen's
/// resolution and the environment's scale factors. Takes Qt's own options out of the arguments;
/// argumentCount has to outlive what is returned.
///
/// Without a screen that can be used, a line on standard error says so. Then either nothing is
/// returned, or the process ends right here with kProgramFailed, for Qt leaves no way back from
/// a platform that fails. So call it before any device or file is touched. GUI thread.
std::unique_ptr<QApplication> startApplication(const char* program, int& argumentCount, char* arguments[]);
