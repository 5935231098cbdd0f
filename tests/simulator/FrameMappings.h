#pragma once

#include <QFile>

/// How often the memory of a simulated frame is mapped in this process; -1 where nobody knows.
inline int frameMappings()
{
    QFile mappings(QStringLiteral("/proc/self/maps"));
    return mappings.open(QIODevice::ReadOnly) ? int(mappings.readAll().count("/memfd:frame ")) : -1;
}
