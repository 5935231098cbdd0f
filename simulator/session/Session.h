#pragma once

#include <memory>
#include <vector>

#include <QStringList>

#include "simulator/session/SessionContext.h"

/// Which steps are made.
enum class SessionPlan {
    Day,        ///< everything that a technician does with an instrument
    Calibration ///< handshake, autofocus and calibration target only
};

/// A session: one table of steps in the order in which they are made, each with the plans that
/// make it. They lead from the window's start to the program's end; a choice of them may also
/// be made.
class Session
{
public:
    explicit Session(SessionContext& context);
    ~Session();

    /// The plan's steps in their order; with names, only these. They use the session, which
    /// has to outlive them.
    std::vector<SessionStep> steps(SessionPlan plan, const QStringList& names = {});
    /// The names of a plan's steps in their order.
    static QStringList stepNames(SessionPlan plan);

    /// The objects whose functions the rows name.
    struct Groups;

private:
    struct Row;
    static const Row kRows[];

    std::unique_ptr<Groups> m_groups;
};
