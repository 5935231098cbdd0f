#include "platform/InstrumentPath.h"

#include <QDir>
#include <QFileInfo>

namespace {

// Without a trailing slash, so that a fixed path can be appended; empty for "/".
QString& root()
{
    static QString directory;
    return directory;
}

} // namespace

QString instrumentPath(const QString& fixedPath)
{
    return fixedPath.isEmpty() ? fixedPath : root() + fixedPath;
}

std::string instrumentPath(const std::string& fixedPath)
{
    if (root().isEmpty() || fixedPath.empty())
        return fixedPath;
    return QFile::encodeName(root()).toStdString() + fixedPath;
}

QString fixedPathOf(const QString& machinePath)
{
    if (!root().isEmpty() && machinePath.startsWith(root() + QLatin1Char('/')))
        return machinePath.mid(root().size());
    return machinePath;
}

void setInstrumentRoot(const QString& directory)
{
    const QString canonical = QFileInfo(directory).canonicalFilePath();
    const QString resolved = canonical.isEmpty() ? QDir::cleanPath(directory) : canonical;
    root() = resolved == QLatin1String("/") || resolved == QLatin1String(".") ? QString() : resolved;
}
