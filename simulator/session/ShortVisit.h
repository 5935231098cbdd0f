#pragma once

#include <map>
#include <vector>

#include <QImage>
#include <QString>
#include <QStringList>

#include "simulator/session/SessionRunner.h"

class SimulatedInstrument;

/// The short visit: starts, looks, jogs, trims, saves, calibrates, homes, reads the consoles and leaves, and
/// holds what the window shows against what the instrument knows to be true. The steps lead from the window's
/// start to the program's end; those before "exit" may also be made on their own.
class ShortVisit
{
public:
    ShortVisit(Operator& hand, SimulatedInstrument& instrument) : m_hand(hand), m_instrument(instrument) {}

    /// The steps with these names in the visit's order; all of them without names.
    std::vector<SessionStep> steps(const QStringList& names = {});
    /// The names of all steps.
    static QStringList stepNames();

    /// Tells that the program had to be made to leave its event loop.
    void noteForcedEnd() { m_forcedEnd = true; }

private:
    struct StepRow;
    struct View;
    static const StepRow kSteps[];

    StepResult window();
    StepResult tabs();
    StepResult handshake();
    StepResult viewVga();
    StepResult view1280();
    StepResult view5M();
    StepResult jog();
    StepResult focus();
    StepResult autofocus();
    StepResult plug();
    StepResult trim();
    StepResult light();
    StepResult staining();
    StepResult save();
    StepResult password();
    StepResult capture();
    StepResult screenshot();
    StepResult unplug();
    StepResult calibrate();
    StepResult intensity();
    StepResult rotate();
    StepResult home();
    StepResult consoles();
    StepResult stay();
    StepResult exit();
    StepResult ended();
    StepResult parked();

    StepResult lookAt(const View& view);
    double countFrames(double& delivered_hz);
    void moveTo(int position_steps);
    double sharpnessNow();
    int positionAtRest();
    QString showConsole(const QString& number, const QString& name, const QString& textArea);
    bool lastBoxAsked() const;
    bool lastBoxSaid(const QString& title, const QString& text) const;
    bool asksForDisk();
    double brightnessNow();
    QStringList shownSettings();
    QStringList sensorSettings();
    QString savedStage();
    QString savedCamera();
    QString savedQC();
    bool insertDisk();
    bool graphShowsTheBest();
    bool freezeTarget();
    void panTo(const QPoint& place, QPoint& offset);

    Operator& m_hand;
    SimulatedInstrument& m_instrument;
    QImage m_lastUnscaledView;
    int m_linesBeforeExit = 0;
    bool m_forcedEnd = false;
};
