#include "simulator/instrument/SimulatedInstrument.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include "platform/InstrumentPath.h"

namespace {

constexpr const char* kSerialDevice = "/dev/ttyS2";

// The first frame may have been exposed before the stage arrived. The wait stays below the five
// seconds after which the program gives up waiting for an answer.
constexpr unsigned kFreshFrames = 2;
constexpr std::chrono::milliseconds kLongestWait(2000);

// A directory in the file's place cannot be read by anybody, root included.
bool makeUnreadable(const QString& path)
{
    return QFile::remove(path) && QDir().mkpath(path);
}

} // namespace

SimulatedInstrument::SimulatedInstrument(const InstrumentParameters& parameters, const InstrumentPlace& place,
                                         const InstrumentFaults& faults, InstrumentAssembly assembly)
    : m_instant(parameters.instant), m_assembly(std::move(assembly))
{
    if (!createRoot(place.root) || !createFiles(parameters, place, faults))
        return;
    if (m_assembly.beforePowerOn)
        m_assembly.beforePowerOn(m_root);
    if (!createBoard(parameters, faults))
        return;
    m_callsBefore = installDeviceCalls(nullptr);
    changeCamera(parameters.camera);
    m_camera->faults().setSeed(parameters.faultSeed);
    for (const std::string& fault : faults.camera)
        m_camera->faults().enable(fault);
    setInstrumentRoot(m_root);
}

SimulatedInstrument::~SimulatedInstrument()
{
    if (m_camera == nullptr)
        return;
    answerMovesWithFreshFrames(false);
    installDeviceCalls(m_callsBefore);
    setInstrumentRoot(QString());
}

bool SimulatedInstrument::createRoot(const QString& root)
{
    if (root.isEmpty()) {
        m_privateRoot = std::make_unique<QTemporaryDir>();
        m_root = m_privateRoot->path();
    } else if (QDir().mkpath(root)) {
        m_root = root;
    }
    m_root = QFileInfo(m_root).canonicalFilePath();
    if (m_root.isEmpty())
        m_error = QStringLiteral("The instrument's directory cannot be created: %1.").arg(root);
    else if (m_root == QLatin1String("/"))
        m_error = QStringLiteral("The simulated instrument does not take \"/\" as its directory.");
    return m_error.isEmpty();
}

bool SimulatedInstrument::createFiles(const InstrumentParameters& parameters, const InstrumentPlace& place,
                                      const InstrumentFaults& faults)
{
    m_tree = std::make_unique<InstrumentTree>(m_root);
    m_usb = std::make_unique<UsbPort>(m_root);
    if (!place.settingsFolder.isEmpty() && !QDir(place.settingsFolder).isReadable()) {
        m_error =
            QStringLiteral("The folder of settings files cannot be read: %1.").arg(place.settingsFolder);
        return false;
    }
    if (!m_tree->create(place.settingsFolder, parameters.zigMode) || !m_usb->install()) {
        m_error = QStringLiteral("The instrument's files cannot be written below %1.").arg(m_root);
        return false;
    }
    if (faults.disk && !m_usb->spoilDisks(*faults.disk)) {
        m_error = QStringLiteral("Full and read-only USB disks need the right to mount.");
        return false;
    }
    for (const QString& file : InstrumentTree::settingsFiles())
        if (faults.noSettingsFiles)
            QFile::remove(m_root + file);
        else if (faults.unreadableSettingsFiles)
            makeUnreadable(m_root + file);
    if (faults.noDisplayParameter)
        QFile::remove(m_root + InstrumentTree::displayParameter());
    return true;
}

bool SimulatedInstrument::createBoard(const InstrumentParameters& parameters, const InstrumentFaults& faults)
{
    m_board = m_assembly.sharedBoard;
    if (m_board != nullptr)
        return linkSharedBoard();
    BoardParameters own = parameters.board;
    own.faultSeed = parameters.faultSeed;
    own.stage.backlash_steps = std::max(own.stage.backlash_steps, faults.stagePlay_steps);
    m_ownBoard = std::make_unique<BoardPort>(QFile::encodeName(m_root).toStdString(), own,
                                             parameters.instant ? BoardPace::Instant : BoardPace::RealTime);
    m_board = m_ownBoard.get();
    m_board->withBoard([&](Board& board, InstrumentTime now) {
        for (const LineFaultRule& fault : faults.line)
            board.addFault(fault);
        if (faults.noBoardPower)
            board.setPowered(false, now);
    });
    if (faults.noSerialDevice)
        QFile::remove(m_root + QLatin1String(kSerialDevice));
    return true;
}

bool SimulatedInstrument::linkSharedBoard()
{
    const QString device = m_root + QLatin1String(kSerialDevice);
    if (!QDir().mkpath(QFileInfo(device).path()) ||
        !QFile::link(QString::fromStdString(m_board->devicePath()), device))
        m_error = QStringLiteral("The shared board's device cannot be linked at %1.").arg(device);
    return m_error.isEmpty();
}

void SimulatedInstrument::changeCamera(const SimulatedCameraParameters& parameters)
{
    SimulatedCameraParameters cameraParameters = parameters;
    cameraParameters.instantPauses = m_instant;
    LightPathSource lightPath = m_assembly.lightPath;
    // The picture shows the carriage and the LED as they are when the frame is read from the
    // sensor, which is now.
    if (!lightPath)
        lightPath = [this](InstrumentTime) {
            const BoardLight light = m_board->light();
            return LightPath{light.stagePosition_steps, light.ledOn, light.ledLevel};
        };
    m_slide = cameraParameters.slide;
    installDeviceCalls(nullptr);
    m_camera = std::make_unique<SimulatedDeviceCalls>(cameraParameters, lightPath, m_assembly.frameClock);
    installDeviceCalls(m_camera.get());
}

int SimulatedInstrument::stagePosition_steps()
{
    int position = 0;
    m_board->withBoard([&](Board& board, InstrumentTime now) {
        position = static_cast<int>(board.stage().position_steps(now));
    });
    return position;
}

bool SimulatedInstrument::stageIsMoving()
{
    bool moving = false;
    m_board->withBoard([&](Board& board, InstrumentTime now) { moving = board.stage().isMoving(now); });
    return moving;
}

void SimulatedInstrument::putSlide(SlideKind kind)
{
    m_slide.kind = kind;
    m_camera->changeSlide(m_slide);
}

void SimulatedInstrument::setRealTimeMotion(bool on)
{
    m_board->setPace(on ? BoardPace::RealTime : BoardPace::Instant);
}

void SimulatedInstrument::answerMovesWithFreshFrames(bool on)
{
    std::function<void(InstrumentTime)> watcher;
    if (on)
        watcher = [this](InstrumentTime) { m_camera->waitForFreshFrames(kFreshFrames, kLongestWait); };
    m_board->setArrivalWatcher(watcher);
}

std::array<double, 3> SimulatedInstrument::fieldColour() const
{
    const BoardLight light = m_board->light();
    return m_camera->fieldColour({light.stagePosition_steps, light.ledOn, light.ledLevel});
}

QStringList SimulatedInstrument::boardLines()
{
    QStringList lines;
    m_board->withBoard([&](Board& board, InstrumentTime) {
        for (const std::string& line : board.receivedLines())
            lines.append(QString::fromStdString(line));
    });
    return lines;
}

QString SimulatedInstrument::setting(const QString& key, const QString& byDefault) const
{
    const QSettings settings(m_root + InstrumentTree::settingsFiles().first(), QSettings::IniFormat);
    return settings.value(key, byDefault).toString();
}

bool SimulatedInstrument::zigMode() const
{
    const QString on = QStringLiteral("On");
    return setting(QStringLiteral("ORLA-III/Zig mode"), on) == on;
}
