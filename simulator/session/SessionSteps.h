#pragma once

#include "simulator/session/SessionContext.h"

/// The steps of a session, by the source file that holds them. The table in Session.cpp has
/// their order and says what the operator does. GUI thread.
namespace steps {

/// StartSteps.cpp: the window comes up, and the board answers.
StepResult window(SessionContext& session);
StepResult tabs(SessionContext& session);
StepResult handshake(SessionContext& session);

/// ViewSteps.cpp: the live view in the three resolutions.
StepResult viewVga(SessionContext& session);
StepResult view1280(SessionContext& session);
StepResult view5M(SessionContext& session);

/// CameraSteps.cpp: the picture is brought to a stated brightness, and its colours are trimmed.
StepResult led(SessionContext& session);
StepResult gain(SessionContext& session);
StepResult exposure(SessionContext& session);
StepResult colours(SessionContext& session);
StepResult staining(SessionContext& session);

/// StageSteps.cpp: moves, focus by eye, origin and Z reference.
StepResult jog(SessionContext& session);
StepResult focus(SessionContext& session);
StepResult rotate(SessionContext& session);
StepResult home(SessionContext& session);
StepResult centre(SessionContext& session);
StepResult reference(SessionContext& session);

/// AutofocusSteps.cpp: the USB disk, and the autofocus with its log, its end and its graph.
StepResult disk(SessionContext& session);
StepResult autofocus(SessionContext& session);
StepResult graph(SessionContext& session);

/// CaptureSteps.cpp: what is kept of the picture on the USB disk.
StepResult capture(SessionContext& session);
StepResult screenshot(SessionContext& session);

/// QcSteps.cpp: the calibration target, with frozen frame, two points, measurement, intensity.
StepResult slide(SessionContext& session);
StepResult freeze(SessionContext& session);
StepResult miss(SessionContext& session);
StepResult points(SessionContext& session);
StepResult measure(SessionContext& session);
StepResult live(SessionContext& session);
StepResult intensity(SessionContext& session);

/// SettingsSteps.cpp: serial number, skip frame, password, and what each tab saves.
StepResult serial(SessionContext& session);
StepResult skipFrame(SessionContext& session);
StepResult saveStage(SessionContext& session);
StepResult saveCamera(SessionContext& session);
StepResult saveQc(SessionContext& session);
StepResult password(SessionContext& session);

/// EndSteps.cpp: the consoles, and the way out.
StepResult consoles(SessionContext& session);
StepResult stay(SessionContext& session);
StepResult exit(SessionContext& session);
StepResult ended(SessionContext& session);
StepResult parked(SessionContext& session);

} // namespace steps
