#include "support/FileTime.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <QFile>

namespace FileTime {

bool setChanged(const QString& path, std::int64_t time_ms)
{
    timespec times[2] = {};
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = static_cast<time_t>(time_ms / 1000);
    times[1].tv_nsec = static_cast<long>(time_ms % 1000) * 1000000;
    return ::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0) == 0;
}

} // namespace FileTime
