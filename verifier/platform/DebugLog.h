#pragma once

#include <QObject>
#include <QStringList>

/// Writes the parts, separated by blanks and unquoted, to the Qt debug stream. Any thread.
void writeDebugStream(const QStringList& parts);

/// Logs one message in both of its places: the Qt debug stream and the sender's
/// sig_debug_Message(QStringList), which ends in the message console. The first part is
/// the emitting function's signature text (Q_FUNC_INFO); labels and values follow; error
/// texts begin with "[Error]". Any thread; the signal is emitted on the caller's.
template <class Sender>
void logMessage(Sender* sender, const QStringList& parts)
{
    writeDebugStream(parts);
    emit sender->sig_debug_Message(parts);
}
