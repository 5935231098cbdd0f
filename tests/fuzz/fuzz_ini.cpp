// One key at a time of an INI file: any content, any section, key and value.
#include <algorithm>
#include <string>

#include <QByteArray>
#include <QByteArrayList>
#include <QString>

#include "FuzzInput.h"
#include "SettingsRoot.h"
#include "settings/IniFile.h"
#include "settings/StoredObjects.h"

namespace {

const QString kFile = QStringLiteral("/root/Orla2/Orla2.ini");
const std::string kFileName = kFile.toStdString();
constexpr int kMostRounds = 4;

// The functions take C strings of UTF-8.
QString text(const QByteArray& bytes)
{
    return QString::fromUtf8(bytes.constData());
}

// A name under which a key is found again. Names are paths to QSettings, and a blank in one is
// written plainly, as the instrument's other programs want it: at the edge of a name it is lost.
bool isPlainName(const QString& name)
{
    if (name.isEmpty() || name != name.trimmed() || name.contains("//") || name.startsWith('/') ||
        name.endsWith('/') || name.contains('\\'))
        return false;
    const QStringList parts = name.split('/');
    return std::all_of(parts.begin(), parts.end(),
                       [](const QString& part) { return part == part.trimmed(); });
}

// Takes away from the lines each one that stands in others too.
QByteArrayList without(QByteArrayList lines, const QByteArrayList& others)
{
    for (const QByteArray& other : others)
        lines.removeOne(other);
    return lines;
}

bool isSectionOrEmpty(const QByteArray& line)
{
    return line.isEmpty() || (line.startsWith('[') && line.endsWith(']'));
}

// ini_write(), which does not tell. False if it was refused, which only a file may be that an object
// may begin in.
bool write(const std::string& section, const std::string& key, const std::string& value)
{
    const QByteArray before = SettingsRoot::bytesOf(kFile);
    const bool written = writeIniEntries({{section, key, value}}, kFileName);
    const QByteArray after = SettingsRoot::bytesOf(kFile);
    require(written || (after == before && SettingsRoot::mayHoldObject(before)), "a key is written");
    require(!holdsUnsafeObject(after), "what is written can be read");
    return written;
}

// Writing a key that is there already leaves the file in the form in which QSettings keeps it;
// false where it takes more rounds, as for blanks that come loose one by one.
bool settle(const std::string& section, const std::string& key)
{
    for (int round = 0; round < kMostRounds; ++round) {
        const QByteArray before = SettingsRoot::bytesOf(kFile);
        if (!write(section, key, "settled"))
            return false;
        if (SettingsRoot::bytesOf(kFile) == before)
            return true;
    }
    return false;
}

void writeAndRead(const std::string& section, const std::string& key, const std::string& value, bool isPlain)
{
    const QByteArray before = SettingsRoot::bytesOf(kFile);
    if (!write(section, key, value))
        return;
    const QByteArray after = SettingsRoot::bytesOf(kFile);
    require(!after.contains("%20"), "after a write no blank is coded");
    if (!isPlain)
        return;

    std::string read;
    const bool found = ini_read(section, key, "default", read, kFileName);
    // QSettings quotes a value with blanks at its edges; one that was written as "%20" becomes
    // a blank afterwards, is not quoted, and the reader drops it.
    const QString wanted = QString::fromUtf8(value.c_str());
    if (!wanted.contains("%20")) {
        require(found == !wanted.isEmpty(), "a key is found unless it is empty");
        require(QString::fromStdString(read) == (found ? wanted : "default"),
                "a key is read as it was written");
    }
    const QByteArrayList old = before.split('\n');
    const QByteArrayList now = after.split('\n');
    require(without(old, now).size() <= 1, "at most the key's old line goes");
    QByteArrayList added = without(now, old);
    added.erase(std::remove_if(added.begin(), added.end(), isSectionOrEmpty), added.end());
    require(added.size() <= 1, "at most the key's new line comes");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static SettingsRoot root;
    FuzzInput input(data, size);
    const QByteArray section = input.upTo('\n');
    const QByteArray key = input.upTo('\n');
    const QByteArray value = input.upTo('\n');
    const std::string sectionName = section.toStdString();
    const std::string keyName = key.toStdString();
    SettingsRoot::put(kFile, input.rest());

    const QByteArray content = SettingsRoot::bytesOf(kFile);
    std::string read;
    const bool found = ini_read(sectionName, keyName, "default", read, kFileName);
    require(found ? !read.empty() : read == "default", "what is not there is the default");
    require(SettingsRoot::bytesOf(kFile) == content, "reading changes nothing");

    if (holdsUnsafeObject(content)) {
        ini_write(sectionName, keyName, value.toStdString(), kFileName);
        require(!found && SettingsRoot::bytesOf(kFile) == content, "what cannot be read is left alone");
        return 0;
    }

    const bool isPlain = isPlainName(text(section)) && isPlainName(text(key));
    if (settle(sectionName, keyName))
        writeAndRead(sectionName, keyName, value.toStdString(), isPlain);
    require(root.files() == QStringList(kFile), "nothing is written beside the file");
    return 0;
}
