// The short visit's autofocus: a run logged to a USB disk, its end, its graph.

#include <chrono>
#include <cmath>
#include <thread>

#include <QDir>
#include <QFileInfo>

#include "simulator/SimulatedInstrument.h"
#include "simulator/session/ShortVisit.h"

namespace {

constexpr int kMount_ms = 15000;
constexpr int kRun_ms = 60000;
constexpr int kFrames_ms = 15000;
constexpr int kFramesUnderWay = 8;

constexpr int kCentre_steps = 32000;
// A machine that is busy with other things may show a picture of one interval before.
constexpr int kLimit_steps = 2 * 640;
constexpr int kSamples = 15;

// The second frame after an arrival is complete when the first is the program's already.
constexpr int kFreshFrames = 2;
constexpr std::chrono::milliseconds kLongestWaitForFrames(2000);
constexpr std::chrono::milliseconds kFramePoll(2);

constexpr QRgb kBestSample = qRgb(255, 0, 0);

/// While it lives, an instant stage leaves the camera the time to see where it has gone; the
/// real one has it anyway.
class UnhurriedStage
{
public:
    explicit UnhurriedStage(SimulatedInstrument& instrument) : m_board(instrument.board())
    {
        SimulatedDeviceCalls& camera = instrument.camera();
        m_board.setArrivalWatcher([&camera](InstrumentTime) {
            const auto deadline = std::chrono::steady_clock::now() + kLongestWaitForFrames;
            const auto wanted = camera.counters().framesDelivered + kFreshFrames;
            while (camera.counters().framesDelivered < wanted && std::chrono::steady_clock::now() < deadline)
                std::this_thread::sleep_for(kFramePoll);
        });
    }
    ~UnhurriedStage() { m_board.setArrivalWatcher({}); }
    UnhurriedStage(const UnhurriedStage&) = delete;
    UnhurriedStage& operator=(const UnhurriedStage&) = delete;

private:
    BoardPort& m_board;
};

/// How many files of either kind a run left on the disk.
struct LoggedRun
{
    int pictures = 0;
    int tables = 0;
};

LoggedRun newestRun(const QString& diskFiles)
{
    const QDir runs(diskFiles + "/ORLA-II/Autofocus");
    const QStringList names = runs.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    if (names.isEmpty())
        return {};
    const QDir step(runs.filePath(names.last() + "/Step1"));
    return {step.entryList({"Autofocus_*.tiff"}, QDir::Files).size(),
            step.entryList({"best_focus_value.csv"}, QDir::Files).size()};
}

bool shows(const QImage& picture, QRgb colour)
{
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            if ((picture.pixel(x, y) & RGB_MASK) == (colour & RGB_MASK))
                return true;
    return false;
}

} // namespace

/// Makes sure that there is a disk which the program knows of.
bool ShortVisit::insertDisk()
{
    if (!m_instrument.usb().isPlugged() && !m_instrument.usb().plug())
        return false;
    const QString mountPoint = m_instrument.root() + "/mnt";
    return m_hand.waitUntil([&] { return QFileInfo(mountPoint).isSymLink(); }, kMount_ms,
                            QStringLiteral("the disk is not mounted"));
}

bool ShortVisit::graphShowsTheBest()
{
    m_hand.type("SPIN_DEBUG", "3");
    m_hand.setChecked("BUTTON_DEBUG", true);
    const bool shown = shows(m_hand.liveView(), kBestSample);
    m_hand.takePicture("focus-graph");
    m_hand.setChecked("BUTTON_DEBUG", false);
    m_hand.type("SPIN_DEBUG", "1");
    return shown;
}

StepResult ShortVisit::autofocus()
{
    const UnhurriedStage unhurried(m_instrument);
    const bool disk = insertDisk();
    m_hand.click("BUTTON_RESOLUTION_1280");
    m_hand.waitForFrames(kFramesUnderWay, kFrames_ms);
    m_hand.setChecked("CHECK_DEBUG_AUTOFOCUS", disk);
    moveTo(kCentre_steps);
    const int boxesBefore = m_hand.boxes().size();
    m_hand.expectBox("OK");
    m_hand.click("BUTTON_AUTOFOCUS");
    const bool ended =
        m_hand.waitUntil([&] { return m_hand.boxes().size() > boxesBefore && m_hand.isEnabled("TAB_MENU"); },
                         kRun_ms, QStringLiteral("the run does not end"));
    const bool finished = ended && m_hand.boxes().last().text == "Finish AutoFocus !";
    m_hand.waitForFrames(kFramesUnderWay, kFrames_ms);
    m_hand.takePicture("autofocus");
    const QString progress = m_hand.text("PROGRESS_AUTOFOCUS");
    const int position = m_hand.text("EDIT_Z_POSITION").toInt();
    m_hand.setChecked("CHECK_DEBUG_AUTOFOCUS", false);
    const bool graph = graphShowsTheBest();

    const LoggedRun log = newestRun(m_instrument.usb().filesOf());
    m_instrument.usb().pull();
    const double focus = m_instrument.bestFocus_steps();
    const int truth = m_instrument.stagePosition_steps();
    return {finished && graph && progress == "100%" && position == truth &&
                std::abs(position - focus) <= kLimit_steps && log.pictures == kSamples && log.tables == 1,
            QStringLiteral("%1 at %2, bar at %3, graph %4")
                .arg(finished ? "finished" : "not finished")
                .arg(position)
                .arg(progress, graph ? "drawn" : "without a best sample"),
            QStringLiteral("focus at %1, stage at %2, %3 pictures and %4 table on the disk")
                .arg(std::lround(focus))
                .arg(truth)
                .arg(log.pictures)
                .arg(log.tables)};
}
