#pragma once

#include <QStringList>
#include <QtGlobal>

/// Keeps what is written to the Qt debug stream during its life, instead of printing it.
/// One at a time; messages may come from any thread.
class LogRecorder
{
public:
    LogRecorder();
    ~LogRecorder();
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    /// The messages so far, oldest first.
    QStringList messages() const;
    void clear();

private:
    static void record(QtMsgType type, const QMessageLogContext& context, const QString& message);

    QStringList m_messages;
    QtMessageHandler m_previous;
};
