#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/board/BoardLine.h"
#include "simulator/board/BoardTransmitter.h"
#include "simulator/board/LineFault.h"
#include "simulator/board/Stage.h"
#include "simulator/time/InstrumentTime.h"

/// What the controller board is and does. Times in seconds.
struct BoardParameters
{
    StageParameters stage;
    std::string firmwareVersion = "1.02";
    std::string firmwareBuild = "20210415";
    bool ledOn = true;                 ///< at power-on
    int ledLevel = 225;                ///< at power-on, 0 to maximumLedLevel
    int maximumLedLevel = 1000;        ///< a level above it is refused
    int maximumRunValue = 1000;        ///< of continuous motion, from 1
    int maximumAmplitude = 255;        ///< of the motor driver, from 0
    double diagnosisDuration_s = 12.0; ///< of the stage's self-diagnosis
    int diagnosisValue = 0;            ///< its result
    double lateAnswer_s = 3.0;         ///< delay of the fault "late"
    double trickledByte_s = 0.02;      ///< pause between bytes of the fault "trickled"
    std::uint32_t faultSeed = 1;       ///< of the faults that strike at random
};

/// What the optics see of the board.
struct BoardLight
{
    double stagePosition_steps; ///< of the carriage
    bool ledOn;                 ///< false while the board has no power
    int ledLevel;
};

/// A piece of an answer, and the pause before it.
struct ScriptedPiece
{
    std::string bytes;
    InstrumentTime pause{0};
};
using ScriptedAnswer = std::vector<ScriptedPiece>;

/// The controller board: its line protocol, the LED and the Z stage. A pure model: bytes and
/// the time in, bytes and the time of the next event out; times never go back. One thread at
/// a time.
///
/// Commands are answered one after the other, each when it is done: a move when it is over,
/// continuous motion as soon as it has begun. GET_POS is answered at once, in the middle of a
/// move too. STOP brakes at once and is answered when the stage rests; the move that it cuts
/// short, and the stage commands that wait behind it, then answer a failure.
///
/// The board answers "NG" to what it refuses, and leaves it undone: unknown or malformed lines,
/// arguments out of range, targets outside the travel.
class Board
{
public:
    explicit Board(const BoardParameters& parameters = {});

    /// Takes bytes from the line; an incomplete line is kept. Without power, they are lost.
    void receive(std::string_view bytes, InstrumentTime now);
    /// Carries out what is due and returns the bytes that have left by the time now.
    std::string takeOutput(InstrumentTime now);
    /// When the command under way will be done; none when there is none.
    std::optional<InstrumentTime> commandEnd() const;
    /// When takeOutput() is to be called again at the latest; none: not before the next receive().
    std::optional<InstrumentTime> nextEvent() const;

    /// Switches the power. Off: the stage stands still at once, commands and replies are lost,
    /// the LED is dark. On: the LED is as at the first power-on; the stage's count is kept.
    void setPowered(bool on, InstrumentTime now);

    /// Adds a fault to those in force. Takes effect with the next command.
    void addFault(const LineFaultRule& rule);
    void clearFaults() { m_faults.clear(); }
    /// Sends an unsolicited line, which includes its line end.
    void sendUnasked(std::string line, InstrumentTime now);
    /// Sends the answers that the fault "held" has kept back, oldest first.
    void releaseAnswers(InstrumentTime now);
    /// From now on the board follows a script: it records each line without carrying it out, and
    /// answers it with the next queued answer, or not at all when none is left.
    void followScript() { m_script.emplace(); }
    /// Queues an answer for a board that follows a script.
    void queueAnswer(ScriptedAnswer answer);
    /// Puts the stage at a position, at rest, as if moved by hand; it may lie outside the travel.
    /// No command may be under way.
    void placeStage(int position_steps);

    /// What the optics see at a time that is not before the last one.
    BoardLight light(InstrumentTime time) const;
    const Stage& stage() const { return m_stage; }
    /// The motor driver's amplitudes as last set: acceleration, deceleration, run, hold.
    const std::array<int, 4>& amplitudes() const { return m_amplitudes; }
    /// The lines received, without their ends, oldest first; the last ten thousand of them. A
    /// line that ended in a line feed alone keeps it.
    const std::deque<std::string>& receivedLines() const { return m_received; }
    /// Those that came after the first so many of all that ever came, as far as they are kept; the
    /// number is that of all then.
    std::vector<std::string> newLines(std::size_t& seen) const;

private:
    struct CommandRow;

    struct Fault
    {
        LineFaultRule rule;
        int seen = 0; // commands that it could have struck
    };

    /// A command on its way from the line reader to its answer.
    struct Request
    {
        BoardCommandLine line;
        std::vector<LineFault> faults;
        bool cancelled = false; // by a STOP that came later

        bool has(LineFault fault) const;
    };

    /// How a command ends: whether it succeeds, when, and with which value (none: the argument is
    /// echoed).
    struct Outcome
    {
        bool ok;
        InstrumentTime end;
        std::optional<std::string> value = std::nullopt;
    };

    struct Job
    {
        Request request;
        Outcome outcome;
    };

    static const CommandRow kCommands[];
    static const CommandRow* findCommand(const BoardCommandLine& line);

    void receiveLine(std::string_view line, InstrumentTime now);
    void answerByScript(InstrumentTime now);
    void answerAtOnce(const Request& request, InstrumentTime now);
    void start(Request request, InstrumentTime now);
    std::optional<Job>* firstDue(InstrumentTime now);
    void advance(InstrumentTime now);
    Outcome carryOut(const Request& request, InstrumentTime now);
    void reply(const Request& request, const Outcome& outcome);
    int drawnBelow(int count);
    char disturbed(char letter);
    std::vector<LineFault> faultsFor(const std::string& command);

    // What the commands do; variant tells apart those that share a function.
    Outcome ready(int variant, int argument, InstrumentTime now);
    Outcome firmwareText(int variant, int argument, InstrumentTime now);
    Outcome switchLed(int variant, int argument, InstrumentTime now);
    Outcome setLedLevel(int variant, int argument, InstrumentTime now);
    Outcome home(int variant, int argument, InstrumentTime now);
    Outcome moveBy(int variant, int argument, InstrumentTime now);
    Outcome moveTo(int variant, int argument, InstrumentTime now);
    Outcome run(int variant, int argument, InstrumentTime now);
    Outcome stop(int variant, int argument, InstrumentTime now);
    Outcome position(int variant, int argument, InstrumentTime now);
    Outcome diagnose(int variant, int argument, InstrumentTime now);
    Outcome setAmplitude(int variant, int argument, InstrumentTime now);
    Outcome moveIfInside(long long target_steps, InstrumentTime now);

    BoardParameters m_parameters;
    Stage m_stage;
    BoardTransmitter m_transmitter;
    std::string m_input; // of the line that is not complete yet
    std::deque<std::string> m_received;
    std::size_t m_forgottenLines = 0;
    std::optional<Job> m_job;      // the command under way
    std::optional<Job> m_stopping; // the STOP that brakes
    std::deque<Request> m_queue;
    std::vector<Fault> m_faults;
    std::mt19937 m_chance;                              // of the faults that strike at random
    std::optional<std::deque<ScriptedAnswer>> m_script; // of a board that is told what to say
    std::vector<std::string> m_held;
    std::array<int, 4> m_amplitudes{};
    bool m_powered = true;
    bool m_ledOn;
    int m_ledLevel;
};
