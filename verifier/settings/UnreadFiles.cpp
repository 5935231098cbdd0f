#include "settings/UnreadFiles.h"

#include <QStringList>
#include <QTemporaryFile>

#include "platform/InstrumentPath.h"
#include "settings/FileReplacement.h"
#include "settings/StoredObjects.h"

namespace {

QStringList& unreadFiles()
{
    static QStringList files;
    return files;
}

// From a copy: QSettings remembers what it has found under the file's own name. Where there is no
// room for one, nobody knows.
bool mayHoldKeys(const QByteArray& content)
{
    QTemporaryFile copy;
    return !copy.open() || copy.write(content) != content.size() || !copy.flush() ||
           !QSettings(copy.fileName(), QSettings::IniFormat).allKeys().isEmpty();
}

bool isLoadedWhole(const QString& fixedPath, const QSettings& loaded)
{
    if (!loaded.allKeys().isEmpty())
        return true;
    QByteArray content;
    return FileReplacement(instrumentPath(fixedPath)).read(content) &&
           (content.isEmpty() || (!holdsUnsafeObject(content) && !mayHoldKeys(content)));
}

} // namespace

bool noteLoad(const QString& fixedPath, const QSettings& loaded)
{
    const bool whole = isLoadedWhole(fixedPath, loaded);
    unreadFiles().removeAll(fixedPath);
    if (!whole)
        unreadFiles().append(fixedPath);
    return whole;
}

bool isUnread(const QString& fixedPath)
{
    return unreadFiles().contains(fixedPath);
}
