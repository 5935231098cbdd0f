#pragma once

#include <QByteArray>
#include <QString>

/// QSettings keeps values that are no plain text as "@Variant(...)": bytes from which it builds
/// whatever object of Qt's they name, as soon as any key of the section is read. A list whose
/// length is not true then asks for more memory than there is, lists within lists use up the
/// stack, and either ends the program.
///
/// True if an INI file's content holds such a value that is not in order, or of a kind that no
/// settings need (a picture, say); QSettings must not see that content. Any thread.
bool holdsUnsafeObject(const QByteArray& content);

/// Machine path from which QSettings can read a settings file of that fixed path: the file's own,
/// or, for a file with an unsafe object and for what isSpecialFile(), that of none, so that every
/// key has its default; the debug stream says so. A file is looked into once, and again when it has
/// changed. GUI thread.
QString readableSettingsPath(const QString& fixedPath);

/// Whether something stands under a machine path that is neither a file nor a directory: a pipe,
/// which would keep its reader waiting, or a device, which may never come to an end. Any thread.
bool isSpecialFile(const QString& path);

/// What a save says of a file that holds an unsafe object, or would, and that it leaves alone.
extern const char* const kUnsafeObjectReason;
/// And of what isSpecialFile().
extern const char* const kSpecialFileReason;
