#pragma once

#include <string>

#include <QString>

/// The instrument's fixed paths ("/dev/ttyS2", "/opt/ORLA3/conf/ORLA3.ini", "/mnt", ...)
/// stay as they are in the code, on the screen and in the log. Only when the system is called
/// are they turned, here, into paths of the machine that the program runs on.
///
/// The root is "/" in the shipped program, and a private directory where the whole instrument
/// is simulated. Any thread, once the root is set.

/// Fixed path at which a USB disk is mounted.
constexpr char kDiskMountPoint[] = "/mnt";

/// fixedPath below the root; an empty path stays empty.
std::string instrumentPath(const std::string& fixedPath);
QString instrumentPath(const QString& fixedPath);

/// The fixed path that a machine path stands for: the opposite of instrumentPath(), for
/// paths that the machine hands back (link targets, names chosen in a file dialog).
/// A path outside the root is returned as it is.
QString fixedPathOf(const QString& machinePath);

/// Sets the directory that stands in for "/"; "" or "/" is the machine itself.
/// A symbolic link in it is resolved once, here.
void setInstrumentRoot(const QString& directory);
