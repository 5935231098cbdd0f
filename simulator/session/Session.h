#pragma once

#include <memory>
#include <vector>

#include <QStringList>

#include "simulator/session/SessionBench.h"

/// Which steps are made.
enum class SessionPlan {
    Visit,      ///< starts, looks, jogs, homes, reads the consoles and leaves
    Day,        ///< everything that a technician does with an instrument
    Calibration ///< handshake, autofocus and calibration target only
};

/// A session: the groups of steps, and the order in which a plan makes them. The steps lead
/// from the window's start to the program's end; a choice of them may also be made.
class Session
{
public:
    explicit Session(SessionBench& bench);
    ~Session();

    /// The plan's steps in their order; with names, only these. They use the session, which
    /// has to outlive them.
    std::vector<SessionStep> steps(SessionPlan plan, const QStringList& names = {});
    /// The names of a plan's steps in their order.
    static QStringList stepNames(SessionPlan plan);

private:
    std::vector<std::unique_ptr<StepGroup>> m_groups;
};
