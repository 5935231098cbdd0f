#pragma once

class TerminationSignal;
class SimulatedInstrument;
struct SimulatorOptions;

/// Drives the verifier's window through the session that the options ask for, with a
/// line on standard output for each step; pictures, log and report go to the
/// options' directory. Returns the process's exit status: 0 only when every step was as it
/// should be, the signal's status when one stopped it. GUI thread, with an application.
int runDriven(const SimulatorOptions& options, SimulatedInstrument& instrument,
              const TerminationSignal& signalled);
