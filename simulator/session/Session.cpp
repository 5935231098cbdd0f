#include "simulator/session/Session.h"

#include <algorithm>

#include "simulator/session/AutofocusSteps.h"
#include "simulator/session/CameraSteps.h"
#include "simulator/session/CaptureSteps.h"
#include "simulator/session/EndSteps.h"
#include "simulator/session/QcSteps.h"
#include "simulator/session/SettingsSteps.h"
#include "simulator/session/StageSteps.h"
#include "simulator/session/StartSteps.h"
#include "simulator/session/ViewSteps.h"

namespace {

const QStringList kVisit{"window", "tabs", "handshake", "vga",  "1280", "5m",    "jog",   "focus",
                         "rotate", "home", "consoles",  "stay", "exit", "ended", "parked"};

// The order of the technician's day: the picture first, then the focus with it, then the
// calibration at that focus, and what is known is saved before it can be lost.
const QStringList kDay{
    "window",     "tabs",    "handshake", "vga",         "1280",      "5m",         "led",       "gain",
    "exposure",   "colours", "jog",       "save-camera", "staining",  "focus",      "rotate",    "home",
    "centre",     "disk",    "autofocus", "graph",       "reference", "save-stage", "capture",   "screenshot",
    "slide",      "freeze",  "miss",      "points",      "measure",   "live",       "intensity", "serial",
    "skip-frame", "save-qc", "password",  "consoles",    "stay",      "exit",       "ended",     "parked"};

const QStringList kCalibration{"window", "handshake", "centre", "autofocus", "slide", "freeze",
                               "points", "measure",   "live",   "exit",      "ended"};

const QStringList& planned(SessionPlan plan)
{
    switch (plan) {
    case SessionPlan::Visit:
        return kVisit;
    case SessionPlan::Calibration:
        return kCalibration;
    case SessionPlan::Day:
        break;
    }
    return kDay;
}

} // namespace

Session::Session(SessionBench& bench)
{
    m_groups.push_back(std::make_unique<StartSteps>(bench));
    m_groups.push_back(std::make_unique<ViewSteps>(bench));
    m_groups.push_back(std::make_unique<CameraSteps>(bench));
    m_groups.push_back(std::make_unique<StageSteps>(bench));
    m_groups.push_back(std::make_unique<AutofocusSteps>(bench));
    m_groups.push_back(std::make_unique<CaptureSteps>(bench));
    m_groups.push_back(std::make_unique<QcSteps>(bench));
    m_groups.push_back(std::make_unique<SettingsSteps>(bench));
    m_groups.push_back(std::make_unique<EndSteps>(bench));
}

Session::~Session() = default;

std::vector<SessionStep> Session::steps(SessionPlan plan, const QStringList& names)
{
    std::vector<SessionStep> all;
    for (const auto& group : m_groups)
        for (SessionStep& step : group->steps())
            all.push_back(std::move(step));
    std::vector<SessionStep> chosen;
    for (const QString& name : planned(plan)) {
        const auto found =
            std::find_if(all.begin(), all.end(), [&](const SessionStep& step) { return name == step.name; });
        if (found != all.end() && (names.isEmpty() || names.contains(name)))
            chosen.push_back(*found);
    }
    return chosen;
}

QStringList Session::stepNames(SessionPlan plan)
{
    return planned(plan);
}
