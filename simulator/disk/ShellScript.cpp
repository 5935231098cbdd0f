#include "simulator/disk/ShellScript.h"

#include <QFile>

bool writeShellScript(const QString& root, const QString& fixedPath, const QByteArray& lines)
{
    QByteArray quoted = QFile::encodeName(root);
    quoted.replace('\'', "'\\''");
    const QByteArray text = "#!/bin/sh\nroot='" + quoted + "'\n" + lines;
    QFile script(root + fixedPath);
    return script.open(QIODevice::WriteOnly) && script.write(text) == text.size() &&
           script.setPermissions(script.permissions() | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
}
