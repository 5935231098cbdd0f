#pragma once

#include <QString>
#include <QStringList>

#include "simulator/InstrumentFaults.h"
#include "simulator/InstrumentParameters.h"
#include "simulator/SimulatedInstrument.h"
#include "simulator/UsbSockets.h"

/// What the command line of the simulator program asks for.
struct SimulatorOptions
{
    InstrumentParameters parameters;
    InstrumentFaults faults;
    InstrumentPlace place;
    QVector<PlannedDisk> disks; ///< by socket
    bool visit = false;
    QStringList steps; ///< of the visit; empty: all
    QString outDirectory = QStringLiteral("out");

    /// A text that was asked for instead of a run.
    QString textToPrint;
    /// What is wrong with the command line, in a sentence; empty when nothing is.
    QString error;
};

/// Reads the command line, the program's name first. stepNames: the visit's steps.
SimulatorOptions parseSimulatorOptions(const QStringList& arguments, const QStringList& stepNames);
