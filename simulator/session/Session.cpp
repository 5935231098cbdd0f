#include "simulator/session/Session.h"

#include <tuple>

#include "simulator/session/AutofocusSteps.h"
#include "simulator/session/CameraSteps.h"
#include "simulator/session/CaptureSteps.h"
#include "simulator/session/EndSteps.h"
#include "simulator/session/QcSteps.h"
#include "simulator/session/SettingsSteps.h"
#include "simulator/session/StageSteps.h"
#include "simulator/session/StartSteps.h"
#include "simulator/session/ViewSteps.h"

struct Session::Groups
{
    explicit Groups(SessionContext& context)
        : all(context, context, context, context, context, context, context, context, context)
    {
    }

    std::tuple<StartSteps, ViewSteps, CameraSteps, StageSteps, AutofocusSteps, CaptureSteps, QcSteps,
               SettingsSteps, EndSteps>
        all;
};

/// A row of the table.
struct Session::Row
{
    const char* name;
    const char* text; ///< what the operator does
    unsigned plans;   ///< a bit for each
    StepResult (*make)(Groups&);
    bool afterEventLoop = false;
};

namespace {

constexpr unsigned bitOf(SessionPlan plan)
{
    return 1U << static_cast<unsigned>(plan);
}

constexpr unsigned kDay = bitOf(SessionPlan::Day);
constexpr unsigned kDayAndCalibration = kDay | bitOf(SessionPlan::Calibration);

template <class Group>
Group& groupOf(StepResult (Group::*)(), Session::Groups& groups)
{
    return std::get<Group>(groups.all);
}

template <auto Step>
StepResult made(Session::Groups& groups)
{
    return (groupOf(Step, groups).*Step)();
}

} // namespace

// The order of the technician's day: the picture first, then the focus with it, then the
// calibration at that focus, and what is known is saved before it can be lost.
const Session::Row Session::kRows[] = {
    {"window", "waits for the window, and reads title and version", kDayAndCalibration,
     made<&StartSteps::window>},
    {"tabs", "opens each tab", kDay, made<&StartSteps::tabs>},
    {"handshake", "compares what the window shows with the board, after the handshake", kDayAndCalibration,
     made<&StartSteps::handshake>},
    {"vga", "looks at the live view in 640 x 480", kDay, made<&ViewSteps::viewVga>},
    {"1280", "looks at the live view in 1280 x 960", kDay, made<&ViewSteps::view1280>},
    {"5m", "looks at the live view in 2592 x 1944", kDay, made<&ViewSteps::view5M>},
    {"led", "switches the LED off and on, and brings the picture to the stated brightness", kDay,
     made<&CameraSteps::led>},
    {"gain", "raises the gain by one step", kDay, made<&CameraSteps::gain>},
    {"exposure", "trims the exposure until the picture has the stated brightness again", kDay,
     made<&CameraSteps::exposure>},
    {"colours", "makes each colour stronger, and takes it back", kDay, made<&CameraSteps::colours>},
    {"jog", "moves the stage up and down by one step width", kDay, made<&StageSteps::jog>},
    {"save-camera", "saves on the camera tab, and reads the files", kDay, made<&SettingsSteps::saveCamera>},
    {"staining", "changes the staining and back, and reads the saved registers", kDay,
     made<&CameraSteps::staining>},
    {"focus", "goes through the focus, and looks where the picture is sharpest", kDay,
     made<&StageSteps::focus>},
    {"rotate", "lets the stage run while a button is held", kDay, made<&StageSteps::rotate>},
    {"home", "sends the stage to its origin", kDay, made<&StageSteps::home>},
    {"centre", "sends the stage to where the focus is expected", kDayAndCalibration,
     made<&StageSteps::centre>},
    {"disk", "asks for a log without a USB disk, and plugs one in", kDay, made<&AutofocusSteps::disk>},
    {"autofocus", "runs the autofocus", kDayAndCalibration, made<&AutofocusSteps::autofocus>},
    {"graph", "looks at the focus graph", kDay, made<&AutofocusSteps::graph>},
    {"reference", "sets the Z reference to the focus, goes away and comes back to it", kDay,
     made<&StageSteps::reference>},
    {"save-stage", "saves on the stage tab, and reads the files", kDay, made<&SettingsSteps::saveStage>},
    {"capture", "saves the picture as TIFF, and answers the file dialog", kDay, made<&CaptureSteps::capture>},
    {"screenshot", "saves the screen by the Print key", kDay, made<&CaptureSteps::screenshot>},
    {"slide", "lays the calibration target under the microscope", kDayAndCalibration, made<&QcSteps::slide>},
    {"freeze", "freezes a full-size picture of the target", kDayAndCalibration, made<&QcSteps::freeze>},
    {"miss", "marks a place without a dot, and is told so", kDay, made<&QcSteps::miss>},
    {"points", "marks both dots", kDayAndCalibration, made<&QcSteps::points>},
    {"measure", "measures magnification and volume factor", kDayAndCalibration, made<&QcSteps::measure>},
    {"live", "goes back to the live view", kDayAndCalibration, made<&QcSteps::live>},
    {"intensity", "measures the intensity of the clear field", kDay, made<&QcSteps::intensity>},
    {"serial", "types the serial number", kDay, made<&SettingsSteps::serial>},
    {"skip-frame", "sets the skip frame count, at first too high", kDay, made<&SettingsSteps::skipFrame>},
    {"save-qc", "saves on the QC tab, and reads the files", kDay, made<&SettingsSteps::saveQc>},
    {"password", "sets the serial number as the password", kDay, made<&SettingsSteps::password>},
    {"consoles", "reads both consoles", kDay, made<&EndSteps::consoles>},
    {"stay", "presses Exit, and answers No", kDay, made<&EndSteps::stay>},
    {"exit", "presses Exit, and answers Yes", kDayAndCalibration, made<&EndSteps::exit>},
    {"ended", "waits for the program's end", kDayAndCalibration, made<&EndSteps::ended>, true},
    {"parked", "looks at the instrument that is left behind", kDay, made<&EndSteps::parked>, true},
};

Session::Session(SessionContext& context) : m_groups(std::make_unique<Groups>(context)) {}

Session::~Session() = default;

std::vector<SessionStep> Session::steps(SessionPlan plan, const QStringList& names)
{
    std::vector<SessionStep> chosen;
    for (const Row& row : kRows)
        if ((row.plans & bitOf(plan)) != 0 && (names.isEmpty() || names.contains(row.name)))
            chosen.push_back({row.name, row.text, row.afterEventLoop,
                              [&groups = *m_groups, &row] { return row.make(groups); }});
    return chosen;
}

QStringList Session::stepNames(SessionPlan plan)
{
    QStringList names;
    for (const Row& row : kRows)
        if ((row.plans & bitOf(plan)) != 0)
            names.append(row.name);
    return names;
}
