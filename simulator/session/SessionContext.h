#pragma once

#include <vector>

#include <QImage>
#include <QPointF>
#include <QString>
#include <QStringList>

#include "simulator/board/BoardPort.h"
#include "simulator/operator/Operator.h"
#include "simulator/operator/QcView.h"
#include "simulator/session/SessionStep.h"

class SimulatedInstrument;

/// What the steps find beside their verdicts, for the report and for each other.
struct SessionFindings
{
    /// Sharpness by stage position (steps) of the last autofocus run; empty without a log.
    std::vector<QPointF> focusCurve;
    int bestFocusSample = -1; ///< index into focusCurve
    double trueFocus_steps = 0.0;
    QStringList disabledAtStart;
    /// Controls that took presses at the start, and no longer when the program was left.
    QStringList lockedControls;
    /// What should have been written, and was not, in sentences.
    QStringList failedSaves;
    double foundLength_px = kNotTaken; ///< between the target's dots, as the points were marked
    QImage lastUnscaledView;           ///< the live view of the resolution that was looked at last
    int linesBeforeExit = 0;
    bool forcedEnd = false; ///< the program had to be made to leave its event loop
};

/// What all steps work with: the operator at the window, the instrument below it, and what they
/// all do again and again. Outlives the steps. GUI thread.
struct SessionContext
{
    /// holdAnswersBack: whether the board answers the autofocus's moves only when fresh frames
    /// are in, which keeps a busy machine out of its result.
    SessionContext(Operator& theUser, SimulatedInstrument& theInstrument, bool holdAnswersBack = true)
        : user(theUser), instrument(theInstrument), answersHeldBack(holdAnswersBack)
    {
    }

    /// Waits until the picture shows what was changed last; not long for one that stood still
    /// the last time.
    bool settle();
    /// Sends the stage to a position by the absolute move, and waits for its end.
    void moveTo(int position_steps);
    /// Waits until the window takes presses; not long for one that was locked the last time.
    bool waitUntilEnabled(const QString& otherwise);
    /// Mean grey level 0..255 of the live view on the screen; kNotTaken while it stands still.
    double brightness();
    /// The number that a widget shows; kNotTaken where it shows none.
    double numberShown(const QString& name);
    /// Whether the box that was announced last came up with this title and text.
    bool boxWas(const QString& title, const QString& text) const;

    Operator& user;
    SimulatedInstrument& instrument;
    QcView frozenFrame{user};
    const bool answersHeldBack;
    SessionFindings findings;
    /// How many times as long as usual a wait may last: more than once on a machine that is slow.
    int patience = 1;

private:
    bool m_standsStill = false; ///< the live view, when it was last waited for
    bool m_locked = false;      ///< the window, when it was last waited for
};

/// Answers may take the serial link's five seconds, twice, and a motion in between.
inline constexpr int kAnswer_ms = 20000;
inline constexpr int kFrames_ms = 15000;
/// The frames not yet delivered that may still show what was before a change.
inline constexpr int kFramesOfBefore = 2;
/// The paintings that may still do so: of what is in the grab thread and on the screen.
inline constexpr int kFramesUnderWay = 8;

/// Texts of results; "none" for a number that is none.
QString number(double value, int decimals = 0);
QString lightText(const BoardLight& light);
