#pragma once

#include <QString>
#include <QStringList>

/// One message of sig_debug_Message as the message console shows it: the first part, which
/// names the emitting function, reads as a call ("()" after it), a blank follows every part
/// and CR LF ends the line. A part of three or more characters that holds a CR LF, such as a
/// reply of the board, loses all its CR and LF; shorter parts and lone line feeds stay.
/// An empty list gives CR LF alone. Any thread.
QString formatDebugMessage(const QStringList& parts);
