#pragma once

#include <memory>

#include <QString>

class QApplication;

// What every program with the verifier's window does before that window exists.

/// How a program of ours ends that could not do its work, or did not understand its command line.
enum ProgramStatus { kProgramFailed = 1, kCommandLineWrong = 2 };

/// Name and version, "orla-verifier 1.2.3", as --version and the log show them.
QString programAndVersion(const char* program);

/// Logs name and version, so that a log that is sent in tells what it is the log of.
void logProgramVersion(const char* program);

/// Makes the application, with the same number of pixels on every screen, whatever its resolution
/// and the environment's scale factors. Takes Qt's own options out of the arguments; argumentCount has to
/// outlive what is returned. Without a screen that can be used a line on standard error says so, and either
/// nothing is returned or the process ends with kProgramFailed right here, for Qt leaves no way
/// back from a platform that fails: call it before any device or file is touched. Main thread.
std::unique_ptr<QApplication> startApplication(const char* program, int& argumentCount, char* arguments[]);
