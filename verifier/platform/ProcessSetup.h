#pragma once

/// Undoes what a process may have inherited from who started it, for a program that drives devices:
///
/// - A standard stream that is closed leads to /dev/null. Else the next device or file that is
///   opened gets its number, and the log goes there.
/// - A write to a log whose reader has gone, or beyond the size that files may have, fails, and
///   that is all: the signal for it would end the process, with the LED on and the stage where it is.
/// - SIGTERM, SIGINT, SIGHUP and SIGCHLD come through, whoever blocked them. Without the first
///   three nobody can end the program in order; without the last the end of a child is not heard.
///
/// To be called first of all, while there is one thread and before anything is opened.
void setUpProcess();
