#include "support/LogRecorder.h"

#include <QMutexLocker>

namespace {

LogRecorder* g_recorder = nullptr;

} // namespace

LogRecorder::LogRecorder()
{
    g_recorder = this;
    m_previous = qInstallMessageHandler(&LogRecorder::record);
}

LogRecorder::~LogRecorder()
{
    qInstallMessageHandler(m_previous);
    g_recorder = nullptr;
}

void LogRecorder::record(QtMsgType, const QMessageLogContext&, const QString& message)
{
    const QMutexLocker lock(&g_recorder->m_mutex);
    g_recorder->m_messages << message;
}

QStringList LogRecorder::messages() const
{
    const QMutexLocker lock(&m_mutex);
    return m_messages;
}

void LogRecorder::clear()
{
    const QMutexLocker lock(&m_mutex);
    m_messages.clear();
}
