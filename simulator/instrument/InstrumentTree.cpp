#include "simulator/instrument/InstrumentTree.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "simulator/disk/ShellScript.h"

namespace {

// Bytes as the instrument's own programs leave them, so that a save changes only its keys.
// Exposure 0x1800 is 384 lines, gain 0x010 doubles, a colour gain of 0x0400 is one: well
// exposed at the LED level that the main file holds.
constexpr char kCalibration[] = R"([1280]
0x3400=0x04
0x3401=0x00
0x3402=0x04
0x3403=0x00
0x3404=0x04
0x3405=0x00
0x3501=0x18
0x3502=0x00
0x350A=0x00
0x350B=0x10

[5M]
0x3400=0x04
0x3401=0x00
0x3402=0x04
0x3403=0x00
0x3404=0x04
0x3405=0x00
0x3501=0x18
0x3502=0x00
0x350A=0x00
0x350B=0x10

[VGA]
0x3400=0x04
0x3401=0x00
0x3402=0x04
0x3403=0x00
0x3404=0x04
0x3405=0x00
0x3501=0x18
0x3502=0x00
0x350A=0x00
0x350B=0x10
)";

constexpr char kMainSettings[] = R"([Calibration]
Z%20ref%202ch=34560
Z%20ref%20Reusable=37120
Z%20ref%20Validation=32000
Z%20reference=32000
Z%20reset%20pos=32000

[Cell%20counting]
Skip%20frame=5

[Ch.%20BF]
LED=225

[ORLA-III]
Serial=OR3-01-00042
Zig%20mode=On

[Software]
Version%20QC=0.0.2
)";

constexpr char kStage[] = R"([Z stage]
Speed=250
Step=256
)";

struct TreeFile
{
    const char* fixedPath;
    const char* content;
    bool usersOwn; // may come from the user's settings folder
};

constexpr TreeFile kFiles[] = {
    {"/opt/ORLA3/conf/ORLA3.ini", kMainSettings, true},
    {"/opt/ORLA3/conf/Calibration_CUS.ini", kCalibration, true},
    {"/opt/ORLA3/conf/Calibration_BFN.ini", kCalibration, true},
    {"/root/Orla2/Orla2.ini", kStage, true},
    {"/sys/module/disp/parameters/disp_layer_protect", "1\n", false},
};

const QString kPasswordScript = QStringLiteral("/opt/ORLA3/bin/set_password.sh");
const QString kPasswordRecord = QStringLiteral("/opt/ORLA3/bin/passwords");

// One line for each run: the password and the arguments, separated by tabs.
constexpr char kPasswordLines[] = R"(serial=$(sed -n 's/^Serial=//p' "$root/opt/ORLA3/conf/ORLA3.ini")
{
    printf '%s' "$serial"
    for argument in "$@"; do printf '\t%s' "$argument"; done
    printf '\n'
} >> "$root/opt/ORLA3/bin/passwords"
)";

bool writeUnlessThere(const QString& path, const QByteArray& content)
{
    if (QFile::exists(path))
        return true;
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.flush();
}

bool copyOver(const QString& from, const QString& to)
{
    if (!QFile::exists(from))
        return true;
    QFile source(from);
    QFile target(to);
    if (!source.open(QIODevice::ReadOnly) || !target.open(QIODevice::WriteOnly))
        return false;
    const QByteArray content = source.readAll();
    return source.error() == QFileDevice::NoError && target.write(content) == content.size() &&
           target.flush();
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

InstrumentTree::InstrumentTree(const QString& root) : m_root(root) {}

bool InstrumentTree::create(const QString& settingsFolder)
{
    if (!settingsFolder.isEmpty() && !QDir(settingsFolder).isReadable())
        return false;
    for (const TreeFile& file : kFiles) {
        const QString path = m_root + QLatin1String(file.fixedPath);
        const QFileInfo info(path);
        if (!QDir().mkpath(info.path()) || !writeUnlessThere(path, file.content))
            return false;
        const QString own = settingsFolder + QLatin1Char('/') + info.fileName();
        if (file.usersOwn && !settingsFolder.isEmpty() && !copyOver(own, path))
            return false;
    }
    m_root = QFileInfo(m_root).canonicalFilePath();
    return QDir().mkpath(QFileInfo(m_root + kPasswordScript).path()) &&
           writeShellScript(m_root, kPasswordScript, kPasswordLines);
}

QVector<PasswordRun> InstrumentTree::passwordRuns() const
{
    QVector<PasswordRun> runs;
    const QStringList lines = QString::fromUtf8(readAll(m_root + kPasswordRecord)).split(QLatin1Char('\n'));
    for (const QString& line : lines.mid(0, lines.size() - 1)) {
        const QStringList fields = line.split(QLatin1Char('\t'));
        runs.append({fields.first(), fields.mid(1)});
    }
    return runs;
}

QString InstrumentTree::displayLayerProtect() const
{
    return QString::fromLatin1(
               readAll(m_root + QStringLiteral("/sys/module/disp/parameters/disp_layer_protect")))
        .trimmed();
}
