#pragma once

struct SimulatorOptions;

/// Makes a session's calibration once for each of options.repeat seeds, from options.seed on,
/// each in a process of its own; noise, play and ringing are those of a used instrument unless
/// the options give them. Writes "repeatability.csv" and "repeatability.svg", and what each run
/// leaves into a directory of its own below. Returns the process's exit status: 0 only when
/// every run was as it should be. Needs an application object.
int runRepetition(const SimulatorOptions& options);
