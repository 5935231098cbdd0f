#include "FocusRig.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include <QDir>
#include <QFile>
#include <QSignalSpy>

#include "Controller/Controller.h"
#include "platform/InstrumentPath.h"

namespace {

// The brightest stripes whose sum over a VGA frame stays below 2^32.
constexpr int kPeakContrast = 85;

// Some runs begin below the instrument's own travel.
constexpr int kLowest_steps = -20000;

// So many frames a second that a sweep need not wait, and the capture thread yet rests.
constexpr int kFrameRate_hz = 1000;
constexpr std::chrono::seconds kFrameLimit(20);

CameraDeviceParameters quickCamera()
{
    CameraDeviceParameters parameters;
    parameters.capture.framesPerSecond = kFrameRate_hz;
    parameters.instantPauses = true;
    return parameters;
}

} // namespace

std::function<int(int)> peakAt(int peak)
{
    return [peak](int z) { return std::max(1, kPeakContrast - std::abs(z - peak) / 100); };
}

QStringList repeated(const QString& line, int times)
{
    QStringList lines;
    for (int i = 0; i < times; ++i)
        lines << line;
    return lines;
}

FocusRig::FocusRig() : m_devices(quickCamera(), m_frames)
{
    m_frames.showStripes(0);
    m_devices.faults().enable({CameraFault::NoBus});
    installDeviceCalls(&m_devices);
    setInstrumentRoot(m_root.path());
    BoardParameters parameters;
    parameters.stage.minimum_steps = kLowest_steps;
    m_board = std::make_unique<BoardPort>(m_root.path().toStdString(), parameters, BoardPace::Instant);
    QSignalSpy connected(Controller::getInstance(), &Controller::sig_connected_controller);
    Controller::getInstance()->openSerialPort();
    m_camera = std::make_unique<OV5642Camera>();
    const bool streams = m_camera->open(0, "/opt/ORLA3/conf/Calibration_BFN.ini", false);
    m_up = m_root.isValid() && streams && connected.size() == 1;
}

FocusRig::~FocusRig()
{
    m_board->setArrivalWatcher({});
    m_camera.reset();
    installDeviceCalls(nullptr);
    setInstrumentRoot({});
}

void FocusRig::reset()
{
    QDir(diskPath(QStringLiteral("/mnt"))).removeRecursively();
    QFile::remove(diskPath(QStringLiteral("/mnt")));
}

bool FocusRig::putStage(int position, const std::vector<LineFaultRule>& faults)
{
    m_board->withBoard([&](Board& board, InstrumentTime) {
        board.clearFaults();
        board.placeStage(position);
    });
    const bool followed = Controller::getInstance()->z_stage_pos() == position;
    m_board->withBoard([&](Board& board, InstrumentTime) {
        for (const LineFaultRule& fault : faults)
            board.addFault(fault);
        board.newLines(m_linesBefore);
    });
    return followed;
}

int FocusRig::stage()
{
    return static_cast<int>(m_board->light().stagePosition_steps);
}

QStringList FocusRig::lines()
{
    QStringList lines;
    m_board->withBoard([&](Board& board, InstrumentTime) {
        std::size_t seen = m_linesBefore;
        for (const std::string& line : board.newLines(seen)) {
            const auto fields = QString::fromStdString(line).split(QLatin1Char(','));
            lines << fields.value(2) + QLatin1Char(',') + fields.value(3);
        }
    });
    return lines;
}

void FocusRig::release()
{
    m_board->withBoard([](Board& board, InstrumentTime now) { board.releaseAnswers(now); });
}

void FocusRig::show(const std::function<int(int)>& contrastAt)
{
    m_board->setArrivalWatcher([this, contrastAt](InstrumentTime) {
        m_frames.showStripes(contrastAt(stage()));
        m_devices.waitForFreshFrames(1, kFrameLimit);
    });
}

std::unique_ptr<alg_Autofocus> FocusRig::autofocus(int centre, bool save)
{
    return std::make_unique<alg_Autofocus>(nullptr, m_camera.get(), centre, kWidth, kHeight, save);
}
