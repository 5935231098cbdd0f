#include "support/LogRecorder.h"

#include <mutex>

namespace {

// Another thread's message may be on its way while a recorder comes or goes.
std::mutex g_mutex;
LogRecorder* g_recorder = nullptr;

} // namespace

LogRecorder::LogRecorder()
{
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_recorder = this;
    m_previous = qInstallMessageHandler(&LogRecorder::record);
}

LogRecorder::~LogRecorder()
{
    qInstallMessageHandler(m_previous);
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_recorder = nullptr;
}

void LogRecorder::record(QtMsgType, const QMessageLogContext&, const QString& message)
{
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (g_recorder != nullptr)
        g_recorder->m_messages << message;
}

QStringList LogRecorder::messages() const
{
    const std::lock_guard<std::mutex> lock(g_mutex);
    return m_messages;
}

void LogRecorder::clear()
{
    const std::lock_guard<std::mutex> lock(g_mutex);
    m_messages.clear();
}
