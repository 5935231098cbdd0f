#include "settings/ScratchSettings.h"

#include <QFile>
#include <QFileInfo>

#include "settings/SettingsFiles.h"

namespace {

// QSettings forces its lock file and all that it writes to the disk. Nobody wants that of a copy
// that goes again at once, and a card takes its time for each: in memory it costs nothing.
const QString kInMemory = QStringLiteral("/dev/shm/orla-scratch-XXXXXX");

// A key in a group that sorts behind all others, and how the two stand in a file.
const QString kEndMark = QStringLiteral("\uFFFF/end");
constexpr char kEndLines[] = "[%UFFFF]\nend=1\n";

// Why the file could not be made with that content; empty if it was.
QString writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    const bool written =
        file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.flush();
    return written ? QString() : file.errorString();
}

// Takes the end mark away, with the empty line that parts its group from the last one.
// False if the content does not end with it.
bool takeEndMark(QByteArray& content)
{
    if (!content.endsWith(kEndLines))
        return false;
    content.chop(static_cast<int>(qstrlen(kEndLines)));
    if (!content.isEmpty())
        content.chop(1);
    return true;
}

} // namespace

ScratchSettings::ScratchSettings(const QString& path, const QByteArray& content, QSettings::Format format)
    : m_memory(kInMemory)
{
    makeCopy(path, content, format);
    // A copy that QSettings failed to read looks like one without a key, and without the old keys
    // the new content would take the file's place. So such a one is looked at a second time, under
    // another name: QSettings remembers what it has found under the first one.
    if (m_reason.isEmpty() && !content.isEmpty() && m_settings->allKeys().isEmpty())
        makeCopy(path + QStringLiteral("-again"), content, format);
}

void ScratchSettings::makeCopy(const QString& path, const QByteArray& content, QSettings::Format format)
{
    m_path = path;
    const QString inMemory = m_memory.filePath(QFileInfo(path).fileName());
    // Nobody wants Qt's own word about a file without a name in the log.
    if (path.isEmpty())
        m_reason = QFile().errorString();
    else if (m_memory.isValid() && writeFile(inMemory, content).isEmpty())
        m_path = inMemory;
    else
        m_reason = writeFile(path, content);
    m_settings = std::make_unique<QSettings>(m_reason.isEmpty() ? m_path : QString(kNoSettingsFile), format);
}

ScratchSettings::~ScratchSettings() = default;

bool ScratchSettings::finish(QByteArray& content, QString& reason)
{
    // The status does not tell: QSettings passes over a write that fails in the last block,
    // and after a format error over every failure. What ends with the mark is complete.
    m_settings->setValue(kEndMark, 1);
    m_settings->sync();
    reason = m_reason;
    if (!reason.isEmpty())
        return false;

    QFile written(m_path);
    if (written.open(QIODevice::ReadOnly))
        content = written.readAll();
    if (written.error() != QFileDevice::NoError)
        reason = written.errorString();
    else if (!takeEndMark(content))
        reason = QStringLiteral("scratch file cannot be written");
    return reason.isEmpty();
}
