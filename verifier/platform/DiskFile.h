#pragma once

#include <cstddef>

#include <QString>

/// Writing to the USB disk, whose content anybody may have made: its own links must not lead a
/// write, which root makes, to another place.
///
/// Below "/mnt" no symbolic link is followed, neither as the last name nor as a folder on the
/// way, and only what is an ordinary file is written: a link fails with ELOOP (as a folder
/// with ENOTDIR), a device node or a pipe with EPERM. "/mnt" itself is the machine's and may be
/// a link. Paths elsewhere are taken as the system takes them. Fixed paths throughout; any
/// thread.
namespace disk_file {

/// Creates the file, or empties it, and returns a descriptor for writing, which the caller
/// closes; -1 and errno if that is impossible.
int openForWriting(const QString& fixedPath);

/// Creates the file, or replaces its content. False, with the reason in errno, where it could
/// not be opened or not all of it be written.
bool write(const QString& fixedPath, const void* bytes, std::size_t count);

/// Creates the folder with those that it lies in, the mount point included. True if it is there afterwards.
bool makeFolder(const QString& fixedPath);

} // namespace disk_file
