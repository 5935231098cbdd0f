#include "simulator/instrument/InstrumentTree.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "simulator/disk/ShellScript.h"

namespace {

// Bytes as the instrument's own programs leave them, so that a save changes only its keys.
// Exposure 0x1800 is 384 lines, gain 0x010 doubles, a colour gain of 0x0400 is one: well
// exposed at the LED level that the main file holds.
constexpr char kRegisters[] = R"(0x3400=0x04
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
const QByteArray kCalibration =
    QByteArray("[1280]\n") + kRegisters + "\n[5M]\n" + kRegisters + "\n[VGA]\n" + kRegisters;

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
Zig%20mode=ZIG_MODE

[Software]
Version%20QC=)" ORLA_VERSION "\n";

constexpr char kStage[] = R"([Z stage]
Speed=250
Step=256
)";

struct SettingsFile
{
    const char* fixedPath;
    QByteArray content;
};

const SettingsFile kSettingsFiles[] = {
    {"/opt/ORLA3/conf/ORLA3.ini", kMainSettings},
    {"/opt/ORLA3/conf/Calibration_CUS.ini", kCalibration},
    {"/opt/ORLA3/conf/Calibration_BFN.ini", kCalibration},
    {"/root/Orla2/Orla2.ini", kStage},
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
    QFile file(path);
    return file.exists() || (QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) &&
                             file.write(content) == content.size() && file.flush());
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

bool InstrumentTree::create(const QString& settingsFolder, bool zigMode)
{
    if (!settingsFolder.isEmpty() && !QDir(settingsFolder).isReadable())
        return false;
    for (const SettingsFile& file : kSettingsFiles) {
        const QString path = m_root + QLatin1String(file.fixedPath);
        const QString own = settingsFolder + QLatin1Char('/') + QFileInfo(path).fileName();
        if (!writeUnlessThere(path, QByteArray(file.content).replace("ZIG_MODE", zigMode ? "On" : "Off")) ||
            (!settingsFolder.isEmpty() && !copyOver(own, path)))
            return false;
    }
    if (!writeUnlessThere(m_root + displayParameter(), "1\n"))
        return false;
    m_root = QFileInfo(m_root).canonicalFilePath();
    return QDir().mkpath(QFileInfo(m_root + kPasswordScript).path()) &&
           writeShellScript(m_root, kPasswordScript, kPasswordLines);
}

QStringList InstrumentTree::settingsFiles()
{
    QStringList paths;
    for (const SettingsFile& file : kSettingsFiles)
        paths.append(QLatin1String(file.fixedPath));
    return paths;
}

QString InstrumentTree::displayParameter()
{
    return QStringLiteral("/sys/module/disp/parameters/disp_layer_protect");
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
    return QString::fromLatin1(readAll(m_root + displayParameter())).trimmed();
}
