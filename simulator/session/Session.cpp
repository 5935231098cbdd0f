#include "simulator/session/Session.h"

#include "simulator/session/SessionSteps.h"

namespace {

constexpr unsigned bitOf(SessionPlan plan)
{
    return 1U << static_cast<unsigned>(plan);
}

constexpr unsigned kDay = bitOf(SessionPlan::Day);
constexpr unsigned kDayAndCalibration = kDay | bitOf(SessionPlan::Calibration);

struct Row
{
    const char* name;
    const char* text; ///< what the operator does
    unsigned plans;   ///< a bit for each
    StepResult (*make)(SessionContext&);
    bool afterEventLoop = false;
};

// The order of the technician's day: the picture first, then the focus with it, then the
// calibration at that focus, and what is known is saved before it can be lost.
constexpr Row kRows[] = {
    {"window", "waits for the window, and reads title and version", kDayAndCalibration, steps::window},
    {"tabs", "opens each tab", kDay, steps::tabs},
    {"handshake", "compares what the window shows with the board, after the handshake", kDayAndCalibration,
     steps::handshake},
    {"vga", "looks at the live view in 640 x 480", kDay, steps::viewVga},
    {"1280", "looks at the live view in 1280 x 960", kDay, steps::view1280},
    {"5m", "looks at the live view in 2592 x 1944", kDay, steps::view5M},
    {"led", "switches the LED off and on, and brings the picture to the stated brightness", kDay, steps::led},
    {"gain", "raises the gain by one step", kDay, steps::gain},
    {"exposure", "trims the exposure until the picture has the stated brightness again", kDay,
     steps::exposure},
    {"colours", "makes each colour stronger, and takes it back", kDay, steps::colours},
    {"jog", "moves the stage up and down by one step width", kDay, steps::jog},
    {"save-camera", "saves on the camera tab, and reads the files", kDay, steps::saveCamera},
    {"staining", "changes the staining and back, and reads the saved registers", kDay, steps::staining},
    {"focus", "goes through the focus, and looks where the picture is sharpest", kDay, steps::focus},
    {"rotate", "lets the stage run while a button is held", kDay, steps::rotate},
    {"home", "sends the stage to its origin", kDay, steps::home},
    {"centre", "sends the stage to where the focus is expected", kDayAndCalibration, steps::centre},
    {"disk", "asks for a log without a USB disk, and plugs one in", kDay, steps::disk},
    {"autofocus", "runs the autofocus", kDayAndCalibration, steps::autofocus},
    {"graph", "looks at the focus graph", kDay, steps::graph},
    {"reference", "sets the Z reference to the focus, goes away and comes back to it", kDay,
     steps::reference},
    {"save-stage", "saves on the stage tab, and reads the files", kDay, steps::saveStage},
    {"capture", "saves the picture as TIFF, and answers the file dialog", kDay, steps::capture},
    {"screenshot", "saves the screen by the Print key", kDay, steps::screenshot},
    {"slide", "lays the calibration target under the microscope", kDayAndCalibration, steps::slide},
    {"freeze", "freezes a full-size picture of the target", kDayAndCalibration, steps::freeze},
    {"miss", "marks a place without a dot, and is told so", kDay, steps::miss},
    {"points", "marks both dots", kDayAndCalibration, steps::points},
    {"measure", "measures magnification and volume factor", kDayAndCalibration, steps::measure},
    {"live", "goes back to the live view", kDayAndCalibration, steps::live},
    {"intensity", "measures the intensity of the clear field", kDay, steps::intensity},
    {"serial", "types the serial number", kDay, steps::serial},
    {"skip-frame", "sets the skip frame count, at first too high", kDay, steps::skipFrame},
    {"save-qc", "saves on the QC tab, and reads the files", kDay, steps::saveQc},
    {"password", "sets the serial number as the password", kDay, steps::password},
    {"consoles", "reads both consoles", kDay, steps::consoles},
    {"stay", "presses Exit, and answers No", kDay, steps::stay},
    {"exit", "presses Exit, and answers Yes", kDayAndCalibration, steps::exit},
    {"ended", "waits for the program's end", kDayAndCalibration, steps::ended, true},
    {"parked", "looks at the instrument that is left behind", kDay, steps::parked, true},
};

} // namespace

std::vector<SessionStep> sessionSteps(SessionContext& session, SessionPlan plan, const QStringList& names)
{
    std::vector<SessionStep> chosen;
    for (const Row& row : kRows)
        if ((row.plans & bitOf(plan)) != 0 && (names.isEmpty() || names.contains(row.name)))
            chosen.push_back({row.name, row.text, row.afterEventLoop,
                              [&session, make = row.make] { return make(session); }});
    return chosen;
}

QStringList sessionStepNames(SessionPlan plan)
{
    QStringList names;
    for (const Row& row : kRows)
        if ((row.plans & bitOf(plan)) != 0)
            names.append(row.name);
    return names;
}
