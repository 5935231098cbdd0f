#include "ProgramRun.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include "ProgramEnd.h"

ProgramRun::ProgramRun(const QStringList& arguments, int limit_ms)
{
    QProcess program;
    program.setWorkingDirectory(out.path());
    startSimulator(program, QStringList{QStringLiteral("--out"), out.path()} + arguments);
    const Ended ended(program, limit_ms);
    exitStatus = ended.status;
    output = ended.output;
    errors = ended.errors;
}

QString ProgramRun::log() const
{
    return QString::fromLocal8Bit(contentOf(QStringLiteral("verifier.log")));
}

QByteArray ProgramRun::contentOf(const QString& name) const
{
    QFile file(filePath(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList ProgramRun::pictures() const
{
    return QDir(out.filePath(QStringLiteral("latest")))
        .entryList({QStringLiteral("*.png")}, QDir::Files, QDir::Name);
}

QByteArray ProgramRun::all() const
{
    // A failed test shows the first thousand characters, so what went wrong comes first.
    const QString text = output + errors;
    const QStringList wrong = text.split(QLatin1Char('\n')).filter(QRegularExpression("FAILED|Sanitizer:"));
    return QStringLiteral("status %1\n%2\n\n%3")
        .arg(exitStatus)
        .arg(wrong.join(QLatin1Char('\n')), text)
        .toLocal8Bit();
}
