#include "ShippedProgram.h"

#include <cerrno>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QThread>

#include "tests/support/Patience.h"

namespace {

const int kAnswerLimit_ms = patient_ms(40000); // a board without an answer keeps the window for 5 s a line
const int kStartLimit_ms = patient_ms(40000);
constexpr int kLookAgain_ms = 20;

/// How to get at a mount namespace here: by right, or else as the root of a user namespace.
const QStringList& namespaceCommand()
{
    static const QStringList command = [] {
        const QStringList byRight{"--mount", "--propagation", "private"};
        return QProcess::execute("unshare", byRight + QStringList("true")) == 0
                   ? byRight
                   : QStringList("--map-root-user") + byRight;
    }();
    return command;
}

/// One register file as the loader reads it; each value differs.
QByteArray calibration(int first)
{
    static constexpr int kRegisters[] = {0x3501, 0x3502, 0x350A, 0x350B, 0x3400,
                                         0x3401, 0x3402, 0x3403, 0x3404, 0x3405};
    QByteArray text;
    int value = first;
    for (const char* section : {"VGA", "1280", "5M"}) {
        text += QByteArray("[") + section + "]\n";
        for (const int reg : kRegisters)
            text += QString::asprintf("0x%04X=0x%02X\n", reg, value++).toLatin1();
        text += '\n';
    }
    return text;
}

QStringList entriesOf(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
}

BoardParameters boardParameters()
{
    BoardParameters parameters;
    parameters.stage.start_steps = 5000;
    parameters.diagnosisValue = 17;
    return parameters;
}

} // namespace

ShippedProgram::ShippedProgram() : m_board(makeBoard())
{
    makeTree();
    makeScene();
}

ShippedProgram::~ShippedProgram()
{
    if (m_program.state() != QProcess::NotRunning) {
        m_program.kill();
        m_program.waitForFinished();
    }
    ::close(m_requests);
    ::close(m_answers);
    ::munmap(m_scene, sizeof(DeviceScene));
}

std::unique_ptr<BoardPort> ShippedProgram::makeBoard() const
{
    return std::make_unique<BoardPort>(m_root.path().toStdString(), boardParameters(), BoardPace::Instant);
}

/// The program sees the machine's own devices in another place.
void ShippedProgram::linkBoard() const
{
    const QString terminal = QString::fromStdString(m_board->terminalPath());
    QFile::remove(file("dev/ttyS2"));
    QFile::link(file("dev.real") + terminal.mid(int(qstrlen("/dev"))), file("dev/ttyS2"));
}

void ShippedProgram::replugBoard()
{
    m_board.reset();
    m_board = makeBoard();
    linkBoard();
}

QString ShippedProgram::hindrance()
{
    const ShippedProgram instrument;
    if (!instrument.m_board->isServing())
        return "no pseudo-terminals here";
    QProcess attempt;
    attempt.start("unshare", namespaceCommand() +
                                 QStringList{"sh", PRIVATE_INSTRUMENT, instrument.m_root.path(), "", "true"});
    if (!attempt.waitForFinished())
        return "no unshare here: " + attempt.errorString();
    if (attempt.exitCode() != 0)
        return "no mount namespace here: " + QString::fromLocal8Bit(attempt.readAllStandardError().trimmed());
    return {};
}

void ShippedProgram::makeTree()
{
    for (const char* folder :
         {"opt/ORLA3/conf", "opt/ORLA3/bin", "root/Orla2", "mnt", "sys/module/disp/parameters",
          "dev/disk/by-uuid", "etc", "bin", "home", "lock"})
        QDir(m_root.path()).mkpath(folder);
    write("sys/module/disp/parameters/disp_layer_protect", "1");
    write("etc/mtab", "proc /proc proc rw 0 0\n");
    write("opt/ORLA3/conf/ORLA3.ini", "[Calibration]\nZ%20reference=30000\n\n"
                                      "[Cell%20counting]\nSkip%20frame=9\n\n"
                                      "[Ch.%20BF]\nLED=300\n\n"
                                      "[ORLA-III]\nSerial=OR3-7-42\nZig%20mode=Off\n");
    write("opt/ORLA3/conf/Calibration_CUS.ini", calibration(0x80));
    write("opt/ORLA3/conf/Calibration_BFN.ini", calibration(0x10));
    write("root/Orla2/Orla2.ini", "[Z stage]\nStep=512\nSpeed=300\n");
    linkBoard();

    const QByteArray log = file("commands.log").toLocal8Bit(), table = file("etc/mtab").toLocal8Bit();
    write("bin/mount",
          "#!/bin/sh\necho \"mount $*\" >> " + log + "\necho \"$1 $2 vfat rw 0 0\" >> " + table + "\n");
    write("bin/umount", "#!/bin/sh\necho \"umount $*\" >> " + log + "\n");
    write("opt/ORLA3/bin/set_password.sh", "#!/bin/sh\nsleep 1\necho \"password $#\" >> " + log + "\n");
    for (const char* script : {"bin/mount", "bin/umount", "opt/ORLA3/bin/set_password.sh"})
        QFile::setPermissions(file(script), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

void ShippedProgram::makeScene()
{
    QFile scene(file("scene"));
    if (scene.open(QIODevice::ReadWrite) && scene.resize(sizeof(DeviceScene)))
        m_scene = static_cast<DeviceScene*>(
            ::mmap(nullptr, sizeof(DeviceScene), PROT_READ | PROT_WRITE, MAP_SHARED, scene.handle(), 0));
    if (!m_scene || m_scene == MAP_FAILED)
        qFatal("no scene for the device stand-in");
    const auto fifo = [this](const char* name) {
        const QByteArray path = file(name).toLocal8Bit();
        ::mkfifo(path.constData(), 0600);
        return ::open(path.constData(), O_RDWR | O_CLOEXEC);
    };
    m_requests = fifo("requests");
    m_answers = fifo("answers");
}

QByteArray ShippedProgram::content(const QString& path) const
{
    QFile read(file(path));
    return read.open(QIODevice::ReadOnly) ? read.readAll() : QByteArray();
}

void ShippedProgram::plugDisk() const
{
    QFile::link("../../sda1", file("dev/disk/by-uuid/1234-ABCD"));
}

void ShippedProgram::pullDisk() const
{
    QFile::remove(file("dev/disk/by-uuid/1234-ABCD"));
}

QStringList ShippedProgram::boardLines(int from)
{
    QStringList lines;
    m_board->withBoard([&lines](Board& board, InstrumentTime) {
        for (const std::string& received : board.receivedLines()) {
            const auto line = QString::fromStdString(received);
            lines.append(line.startsWith("$,") && !line.endsWith('\n') ? line.mid(2) : "unexpected: " + line);
        }
    });
    return lines.mid(from);
}

void ShippedProgram::silenceBoard(bool silent)
{
    m_board->withBoard([silent](Board& board, InstrumentTime) {
        board.clearFaults();
        if (silent)
            board.addFault({LineFault::Ignored, {}, 0});
    });
}

void ShippedProgram::sayUnasked(const QByteArray& line)
{
    m_board->withBoard(
        [&line](Board& board, InstrumentTime now) { board.sendUnasked(line.toStdString(), now); });
}

void ShippedProgram::setCameraFaults(const QStringList& faults)
{
    qstrncpy(m_scene->faults.data(), faults.join(' ').toLatin1().constData(), m_scene->faults.size());
    ++m_scene->faultsChanged;
}

bool ShippedProgram::portCanBeSeen() const
{
    const FileDescriptor port(::open(m_board->terminalPath().c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
    return port.get() >= 0 || errno != EBUSY;
}

bool ShippedProgram::portIsSetAsTheBoardExpects() const
{
    const FileDescriptor port(::open(m_board->terminalPath().c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
    termios set{};
    return ::tcgetattr(port.get(), &set) == 0 && ::cfgetispeed(&set) == B115200 &&
           ::cfgetospeed(&set) == B115200 && (set.c_cflag & CSIZE) == CS8 &&
           !(set.c_cflag & (PARENB | CSTOPB | CRTSCTS)) && !(set.c_iflag & (IXON | IXOFF | ICRNL)) &&
           !(set.c_oflag & OPOST) && !(set.c_lflag & (ECHO | ICANON));
}

void ShippedProgram::launch(const QStringList& arguments)
{
    QProcessEnvironment environment;
    environment.insert("PATH", qEnvironmentVariable("PATH"));
    environment.insert("LANG", "C.UTF-8");
    environment.insert("XDG_RUNTIME_DIR", file("home"));
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    environment.insert("QT_QPA_GENERIC_PLUGINS", "operator");
    environment.insert("QT_PLUGIN_PATH", OPERATOR_PLUGINS);
    environment.insert("OPERATOR_REQUESTS", file("requests"));
    environment.insert("OPERATOR_ANSWERS", file("answers"));
    environment.insert("STAND_IN_SCENE", file("scene"));
    environment.insert("STAND_IN_LOG", file("calls.log"));
    for (auto variable = m_variables.cbegin(); variable != m_variables.cend(); ++variable)
        environment.insert(variable.key(), variable.value());
    m_program.setProcessEnvironment(environment);
    m_program.setProcessChannelMode(QProcess::MergedChannels);
    m_program.setStandardOutputFile(file("debug.log"));
    m_program.start("unshare", namespaceCommand() +
                                   QStringList{"sh", PRIVATE_INSTRUMENT, m_root.path(), DEVICE_STAND_IN} +
                                   m_starter + QStringList(SHIPPED_PROGRAM) + arguments);
}

int ShippedProgram::run(const QStringList& arguments)
{
    launch(arguments);
    if (!m_program.waitForFinished(kStartLimit_ms)) {
        m_program.kill();
        m_program.waitForFinished();
        return -1;
    }
    return m_program.exitStatus() == QProcess::NormalExit ? m_program.exitCode() : -1;
}

bool ShippedProgram::start(const QStringList& arguments)
{
    launch(arguments);
    QElapsedTimer time;
    time.start();
    while (time.elapsed() < kStartLimit_ms && !m_program.waitForFinished(1))
        if (!ask({{"do", "look"}}).contains("error"))
            return true;
    return false;
}

int ShippedProgram::exit()
{
    boxOf("BUTTON_EXIT");
    answer("Yes");
    return waitForEnd();
}

int ShippedProgram::waitForEnd()
{
    const bool ended = m_program.waitForFinished(kAnswerLimit_ms);
    return ended && m_program.exitStatus() == QProcess::NormalExit ? m_program.exitCode() : -1;
}

QStringList ShippedProgram::descriptors() const
{
    const QString folder = QString("/proc/%1/fd/").arg(processId());
    QStringList names;
    for (const QString& number : entriesOf(folder))
        names += QFile::symLinkTarget(folder + number).section(":[", 0, 0).section('/', -1);
    names.sort();
    return names;
}

int ShippedProgram::threads() const
{
    return entriesOf(QString("/proc/%1/task").arg(processId())).size();
}

QStringList ShippedProgram::calls(int from) const
{
    QStringList calls;
    for (const QByteArray& line : content("calls.log").split('\n').mid(from))
        if (!line.isEmpty())
            calls.append(line.mid(line.indexOf(' ') + 1));
    return calls;
}

double ShippedProgram::shortestPause_s(const QString& start, int from) const
{
    double shortest_s = 1e9;
    const QList<QByteArray> lines = content("calls.log").trimmed().split('\n').mid(from);
    for (int i = 0; i + 1 < lines.size(); ++i)
        if (lines[i].mid(lines[i].indexOf(' ') + 1).startsWith(start.toLatin1())) {
            const auto time_s = [&lines](int line) { return lines[line].split(' ')[0].toDouble(); };
            shortest_s = qMin(shortest_s, time_s(i + 1) - time_s(i));
        }
    return shortest_s;
}

QJsonObject ShippedProgram::ask(const QJsonObject& request)
{
    const QByteArray line = QJsonDocument(request).toJson(QJsonDocument::Compact) + '\n';
    if (::write(m_requests, line.constData(), std::size_t(line.size())) != line.size())
        return {{"error", "no way to the program"}};
    QElapsedTimer time;
    time.start();
    int end = -1;
    while ((end = m_pending.indexOf('\n')) < 0) {
        pollfd answers{m_answers, POLLIN, 0};
        const bool ended = m_program.waitForFinished(0);
        char chunk[4096];
        ssize_t count = 0;
        if (::poll(&answers, 1, kLookAgain_ms) == 1)
            count = ::read(m_answers, chunk, sizeof chunk);
        else if (ended || time.elapsed() > kAnswerLimit_ms)
            return {{"error", "no answer"}};
        m_pending.append(chunk, int(count));
    }
    QJsonObject answer = QJsonDocument::fromJson(m_pending.left(end)).object();
    m_pending.remove(0, end + 1);
    return answer;
}

void ShippedProgram::type(const QString& name, const QString& text, bool enter)
{
    ask({{"do", "type"}, {"name", name}, {"text", text}, {"enter", enter}});
}

void ShippedProgram::touch(int x, int y)
{
    mouse("press", x, y);
    mouse("release", x, y);
}

void ShippedProgram::drag(const QPoint& start, const QPoint& end)
{
    mouse("press", start.x(), start.y());
    mouse("move", end.x(), end.y());
    mouse("release", end.x(), end.y());
}

QImage ShippedProgram::picture()
{
    ask({{"do", "picture"}, {"path", file("picture.png")}});
    return QImage(file("picture.png"));
}

SeenBox ShippedProgram::boxOf(const QString& button)
{
    ask({{"do", "click"}, {"name", button}, {"later", true}});
    return waitForBox();
}

SeenBox ShippedProgram::waitForBox(int limit_ms)
{
    waitUntil([this] { return isBoxOpen(); }, patient_ms(limit_ms));
    return boxFromJson(ask({{"do", "box"}}));
}

bool ShippedProgram::waitEnabled(int limit_ms)
{
    return waitUntil([this] { return ask({{"do", "look"}})["enabled"].toBool(); }, patient_ms(limit_ms));
}

bool ShippedProgram::waitUntil(const std::function<bool()>& condition, int limit_ms)
{
    QElapsedTimer time;
    time.start();
    while (!condition()) {
        if (time.elapsed() > limit_ms)
            return false;
        QThread::msleep(kLookAgain_ms);
    }
    return true;
}
