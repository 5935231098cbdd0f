#include "settings/IniFile.h"

#include <QByteArray>
#include <QSettings>
#include <QString>
#include <QStringList>

#include "platform/InstrumentPath.h"
#include "settings/FileReplacement.h"
#include "settings/SaveFailure.h"
#include "settings/ScratchSettings.h"
#include "settings/StoredObjects.h"
#include "settings/UnreadFiles.h"

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

// Arguments by value are part of the interface.
// NOLINTBEGIN(performance-unnecessary-value-param)
bool ini_read(std::string section, std::string key, std::string defaultValue, std::string& value,
              std::string fileName)
{
    constexpr int kAttempts = 2; // one that could not open the file is not the file's answer
    const QString path = readableSettingsPath(text(fileName));
    QString joined;
    bool answered = false;
    for (int attempt = 0; attempt < kAttempts && !answered; ++attempt) {
        QSettings settings(path, QSettings::NativeFormat);
        settings.beginGroup(text(section));
        joined = settings.value(text(key)).toStringList().join(QStringLiteral(", "));
        answered = settings.status() != QSettings::AccessError;
    }
    value = joined.isEmpty() ? std::move(defaultValue) : joined.toStdString();
    return !joined.isEmpty();
}

void ini_write(std::string section, std::string key, std::string value, std::string fileName)
{
    writeIniEntries({{std::move(section), std::move(key), std::move(value)}}, fileName);
}

// NOLINTEND(performance-unnecessary-value-param)

bool writeIniEntries(const std::vector<IniEntry>& entries, const std::string& fileName)
{
    if (entries.empty())
        return true;
    const QString fixedPath = text(fileName);
    if (isUnread(fixedPath))
        return saveFailed(fixedPath, kNotRead);
    FileReplacement file(instrumentPath(fixedPath));
    QByteArray content;
    if (!file.begin() || !file.read(content))
        return saveFailed(fixedPath, file.reason());
    if (holdsUnsafeObject(content))
        return saveFailed(fixedPath, kUnsafeObjectReason);

    // All at once is one by one where a further reading finds what was written. It finds
    // something else where a "%20" at the edge of a text became a blank: QSettings drops that
    // blank, and then the rest may mean another value, key or section.
    const QByteArray old = content;
    QString reason;
    bool written = applyEntries(file, entries.begin(), entries.end(), content, reason);
    QByteArray readAgain = content;
    written = written && applyEntries(file, entries.end(), entries.end(), readAgain, reason);
    if (written && readAgain != content) {
        content = old;
        for (auto entry = entries.begin(); written && entry != entries.end(); ++entry)
            written = applyEntries(file, entry, entry + 1, content, reason);
    }
    if (!written)
        return saveFailed(fixedPath, reason);
    return file.commit(content) || saveFailed(fixedPath, file.reason());
}
