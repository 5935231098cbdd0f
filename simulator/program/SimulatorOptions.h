#pragma once

#include <cstdint>

#include <QString>
#include <QStringList>

#include "simulator/instrument/InstrumentFaults.h"
#include "simulator/instrument/InstrumentParameters.h"
#include "simulator/instrument/SimulatedInstrument.h"
#include "simulator/program/UsbSockets.h"

/// The name of the simulator program.
constexpr const char* kSimulatorProgram = "orla-verifier-simulator";

/// What the command line of the simulator program asks for.
struct SimulatorOptions
{
    InstrumentParameters parameters;
    InstrumentFaults faults;
    InstrumentPlace place;
    QVector<PlannedDisk> disks; ///< by socket
    std::uint32_t seed = 1;

    /// Drives the window by itself: through a session, or a session's calibration for each of
    /// some seeds.
    bool session = false;
    bool calibration = false; ///< of a session only what a repetition needs
    int repeat = 0;           ///< seeds to repeat the session's calibration with; 0: no repetition
    QStringList steps;        ///< of the session; empty: all
    QString outDirectory = QStringLiteral("out");
    bool plainAnswers = false; ///< the session does not hold the board's answers back
    QStringList faultNames;    ///< as they were given
    QStringList given;         ///< all options but seed, faults and parameters, as they were given
    QStringList ofInstrument;  ///< the arguments that describe the instrument, without its seed

    /// Only checks whether a window could be shown.
    bool screenCheck = false;
    /// A text that was asked for instead of a run.
    QString textToPrint;
    /// What is wrong with the command line, in a sentence; empty when nothing is.
    QString error;
};

/// Reads the command line, the program's name first. stepNames: the steps that can be chosen.
SimulatorOptions parseSimulatorOptions(const QStringList& arguments, const QStringList& stepNames);
