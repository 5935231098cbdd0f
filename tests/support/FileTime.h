#pragma once

#include <cstdint>

#include <QString>

/**
 * The times of files, beyond 2038 on every machine: where the system's own time is of 32 bits, Qt
 * can read such a time but not set it.
 */
namespace FileTime {

/**
 * Sets when a file was changed last, in milliseconds since 1970; false, with errno set, where the
 * system refuses.
 */
bool setChanged(const QString& path, std::int64_t time_ms);

} // namespace FileTime
