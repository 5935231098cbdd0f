#include "settings/IniFile.h"

#include <QByteArray>
#include <QSettings>
#include <QString>
#include <QStringList>

#include "platform/InstrumentPath.h"
#include "settings/FileReplacement.h"
#include "settings/SaveFailure.h"
#include "settings/ScratchSettings.h"

namespace {

using Entries = std::vector<IniEntry>;

QString text(const std::string& bytes)
{
    return QString::fromUtf8(bytes.c_str());
}

// QSettings writes a blank in a key as "%20".
QByteArray withPlainBlanks(QByteArray content)
{
    return content.replace("%20", " ");
}

// What the file would hold after QSettings had set the entries and the blanks were plain.
bool applyEntries(const FileReplacement& file, Entries::const_iterator first, Entries::const_iterator last,
                  QByteArray& content, QString& reason)
{
    ScratchSettings scratch(file.scratchFile(), content, QSettings::NativeFormat);
    for (auto entry = first; entry != last; ++entry) {
        scratch.settings().beginGroup(text(entry->section));
        scratch.settings().setValue(text(entry->key), text(entry->value));
        scratch.settings().endGroup();
    }
    const bool written = scratch.finish(content, reason);
    content = withPlainBlanks(content);
    return written;
}

} // namespace

bool ini_read(std::string section, std::string key, std::string defaultValue, std::string& value,
              std::string fileName)
{
    QSettings settings(instrumentPath(text(fileName)), QSettings::NativeFormat);
    settings.beginGroup(text(section));
    const QString joined = settings.value(text(key)).toStringList().join(QStringLiteral(", "));
    settings.endGroup();
    value = joined.isEmpty() ? std::move(defaultValue) : joined.toStdString();
    return !joined.isEmpty();
}

void ini_write(std::string section, std::string key, std::string value, std::string fileName)
{
    writeIniEntries({{std::move(section), std::move(key), std::move(value)}}, fileName);
}

bool writeIniEntries(const std::vector<IniEntry>& entries, const std::string& fileName)
{
    if (entries.empty())
        return true;
    const QString fixedPath = text(fileName);
    FileReplacement file(instrumentPath(fixedPath));
    QByteArray content;
    if (!file.begin() || !file.read(content))
        return saveFailed(fixedPath, file.reason());

    // A "%20" at the edge of a value becomes a blank at the first write, and QSettings drops
    // that blank when it reads the file for the next one. A second pass does to all entries
    // but the last what writing them one by one would; a third would change nothing.
    const auto last = entries.end() - 1;
    QString reason;
    if ((entries.size() > 1 && !applyEntries(file, entries.begin(), last, content, reason)) ||
        !applyEntries(file, last, entries.end(), content, reason))
        return saveFailed(fixedPath, reason);
    return file.commit(content) || saveFailed(fixedPath, file.reason());
}
