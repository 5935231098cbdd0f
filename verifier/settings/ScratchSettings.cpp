#include "settings/ScratchSettings.h"

#include <sys/stat.h>

#include <QFile>

namespace {

// Can be neither read nor created, whoever runs the program.
const QString kNowhere = QStringLiteral("/dev/null/settings");

// 0 if there is no such file.
ino_t fileNumber(const QString& path)
{
    struct stat file = {};
    return ::stat(QFile::encodeName(path).constData(), &file) == 0 ? file.st_ino : 0;
}

} // namespace

ScratchSettings::ScratchSettings(const QString& path, const QByteArray& content, QSettings::Format format)
    : m_path(path)
{
    QFile copy(path);
    if (path.isEmpty() || !copy.open(QIODevice::WriteOnly) || copy.write(content) != content.size() ||
        !copy.flush())
        m_reason = copy.errorString();
    m_copy = fileNumber(path);
    m_settings = std::make_unique<QSettings>(m_reason.isEmpty() ? path : kNowhere, format);
}

ScratchSettings::~ScratchSettings() = default;

bool ScratchSettings::finish(QByteArray& content, QString& reason)
{
    m_settings->sync();
    // After a format error QSettings keeps silent about a failed write; but a successful
    // one has put another file in the copy's place.
    const bool refused = m_settings->status() == QSettings::AccessError ||
                         (m_settings->status() == QSettings::FormatError && fileNumber(m_path) == m_copy);
    if (m_reason.isEmpty() && refused)
        m_reason = QStringLiteral("scratch file cannot be written");

    QFile written(m_path);
    if (m_reason.isEmpty() && written.open(QIODevice::ReadOnly))
        content = written.readAll();
    if (m_reason.isEmpty() && written.error() != QFileDevice::NoError)
        m_reason = written.errorString();
    reason = m_reason;
    return m_reason.isEmpty();
}
