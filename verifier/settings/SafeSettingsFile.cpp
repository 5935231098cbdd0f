#include "settings/SafeSettingsFile.h"

#include "platform/InstrumentPath.h"
#include "settings/SaveFailure.h"
#include "settings/StoredObjects.h"
#include "settings/UnreadFiles.h"

SafeSettingsFile::SafeSettingsFile(const QString& fixedPath)
    : m_fixedPath(fixedPath), m_file(instrumentPath(fixedPath))
{
    QByteArray content;
    m_ready = m_file.begin() && m_file.read(content);
    m_reason = m_file.reason();
    if (m_ready && holdsUnsafeObject(content)) {
        m_ready = false;
        m_reason = kUnsafeObjectReason;
    }
    m_scratch = std::make_unique<ScratchSettings>(m_ready ? m_file.scratchFile() : QString(), content,
                                                  QSettings::IniFormat);
}

bool SafeSettingsFile::commit()
{
    if (!m_ready)
        return saveFailed(m_fixedPath, m_reason);
    if (isUnread(m_fixedPath))
        return saveFailed(m_fixedPath, kNotRead);
    QByteArray content;
    QString reason;
    if (!m_scratch->finish(content, reason))
        return saveFailed(m_fixedPath, reason);
    return m_file.commit(content) || saveFailed(m_fixedPath, m_file.reason());
}
