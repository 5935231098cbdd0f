#pragma once

struct SimulatorOptions;

/// Makes a session's calibration once for each of options.repeat seeds, from options.seed on,
/// with options.plainAnswers each a second time without holding the board's answers back. Every
/// run is a process of its own, which ends when this one is ended; noise, play and ringing are
/// those of a used instrument unless the options give them. A folder below options.outDirectory
/// gets "report.html", "repeatability.csv" and "repeatability.json", and what each run leaves in
/// a directory of its own. Returns the process's exit status: 0 only when every run was as it
/// should be, the signal's status when one ended it. Needs an application object.
int runRepetition(const SimulatorOptions& options);
