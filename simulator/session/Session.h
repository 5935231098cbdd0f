#pragma once

#include <vector>

#include <QStringList>

#include "simulator/session/SessionContext.h"

/// Which steps are made.
enum class SessionPlan {
    Day,        ///< everything that a technician does with an instrument
    Calibration ///< handshake, autofocus and calibration target only
};

/// A plan's steps in the order in which they are made, from the window's start to the program's
/// end; with names, only these. They use the context, which outlives them.
std::vector<SessionStep> sessionSteps(SessionContext& session, SessionPlan plan,
                                      const QStringList& names = {});

/// The names of a plan's steps in their order. Any thread.
QStringList sessionStepNames(SessionPlan plan);
