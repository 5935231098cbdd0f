#include "platform/ChildProcess.h"

#include <algorithm>
#include <iterator>

#include <QLatin1String>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStandardPaths>

namespace {

const QString kSearchPath = QStringLiteral("/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin");

// Variables by which whoever started this program could have a loader, a shell, an interpreter
// or a library do something else in a program of root's: those that the C library takes from
// programs with special rights, and those of the shells and script languages.
const QLatin1String kNotHandedOn[] = {
    QLatin1String("BASHOPTS"),
    QLatin1String("CDPATH"),
    QLatin1String("ENV"),
    QLatin1String("FPATH"),
    QLatin1String("GCONV_PATH"),
    QLatin1String("GETCONF_DIR"),
    QLatin1String("GLIBC_TUNABLES"),
    QLatin1String("GLOBIGNORE"),
    QLatin1String("HOSTALIASES"),
    QLatin1String("IFS"),
    QLatin1String("LOCALDOMAIN"),
    QLatin1String("LOCPATH"),
    QLatin1String("NIS_PATH"),
    QLatin1String("NLSPATH"),
    QLatin1String("PROMPT_COMMAND"),
    QLatin1String("PS4"),
    QLatin1String("SHELLOPTS"),
    QLatin1String("TMPDIR"),
    QLatin1String("TZDIR"),
    QLatin1String("ZDOTDIR"),
};
const QLatin1String kBeginningsNotHandedOn[] = {
    QLatin1String("BASH_"),   QLatin1String("BLKID_"), QLatin1String("LD_"),      QLatin1String("LIBMOUNT_"),
    QLatin1String("MALLOC_"), QLatin1String("PERL"),   QLatin1String("PYTHON"),   QLatin1String("RES_"),
    QLatin1String("RESOLV_"), QLatin1String("RUBY"),   QLatin1String("TERMINFO"),
};
// How a shell hands a function of its own on.
const QLatin1String kShellFunction("()");

bool leadsAstray(const QString& name, const QString& value)
{
    return std::find(std::begin(kNotHandedOn), std::end(kNotHandedOn), name) != std::end(kNotHandedOn) ||
           std::any_of(
               std::begin(kBeginningsNotHandedOn), std::end(kBeginningsNotHandedOn),
               [&name](QLatin1String beginning) { return name.startsWith(beginning); }) ||
           value.startsWith(kShellFunction);
}

QProcessEnvironment cleanEnvironment()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QStringList names = environment.keys();
    for (const QString& name : names)
        if (leadsAstray(name, environment.value(name)))
            environment.remove(name);
    environment.insert(QStringLiteral("PATH"), kSearchPath);
    return environment;
}

/// QProcess itself makes processes with clone(), and does not notice when that fails: it takes
/// -1 for the process, waits for it, and ends it by a signal to -1, which for root is every
/// process of the machine. For a class derived from it, it uses fork(), whose failure it knows.
class ForkedProcess : public QProcess
{
};

} // namespace

void runChildProcess(const QString& program, const QStringList& arguments, int timeout_ms)
{
    // A name that is nowhere on PATH would be taken for a file of the folder at hand.
    const QString file = QStandardPaths::findExecutable(program);
    if (file.isEmpty())
        return;
    ForkedProcess process;
    process.setProcessEnvironment(cleanEnvironment());
    process.start(file, arguments, QIODevice::ReadWrite);
    process.waitForFinished(timeout_ms);
    process.close();
}
