#include "simulator/board/Board.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr std::size_t kLongestLine = 256;
constexpr std::size_t kKeptLines = 10000;
constexpr char kUnaskedLine[] = "$OK,DEVICE,EVENT,1,\r\n";
const BoardCommandLine kMalformed{"DEVICE", "SYNTAX", ""};

// Flips the top bit of every character but the line end, so that no field can be read.
std::string garbled(std::string line)
{
    const auto end = line.size() < 2 ? line.begin() : line.end() - 2;
    std::transform(line.begin(), end, line.begin(), [](char c) { return static_cast<char>(c ^ '\x80'); });
    return line;
}

} // namespace

struct Board::CommandRow
{
    const char* target;
    const char* word;
    bool takesNumber;
    bool atOnce; // answered in the middle of another command
    int variant;
    Outcome (Board::*function)(int variant, int argument, InstrumentTime now);
};

constexpr Board::CommandRow Board::kCommands[] = {
    {"DEVICE", "READY", false, false, 0, &Board::ready},
    {"DEVICE", "FW VERSION", false, false, 0, &Board::firmwareText},
    {"DEVICE", "FW BUILD", false, false, 1, &Board::firmwareText},
    {"LED4", "OFF", false, false, 0, &Board::switchLed},
    {"LED4", "ON", false, false, 1, &Board::switchLed},
    {"LED4", "BRT", true, false, 0, &Board::setLedLevel},
    {"STM1", "ORIGIN", false, false, 0, &Board::home},
    {"STM1", "RON", true, false, -1, &Board::run},
    {"STM1", "ROP", true, false, 1, &Board::run},
    {"STM1", "MVN", true, false, -1, &Board::moveBy},
    {"STM1", "MVP", true, false, 1, &Board::moveBy},
    {"STM1", "ABS", true, false, 0, &Board::moveTo},
    {"STM1", "SELF_DIAG", false, false, 0, &Board::diagnose},
    {"STM1", "STOP", false, true, 0, &Board::stop},
    {"STM1", "GET_POS", false, true, 0, &Board::position},
    {"STM1", "ACC", true, false, 0, &Board::setAmplitude},
    {"STM1", "DEC", true, false, 1, &Board::setAmplitude},
    {"STM1", "RUN", true, false, 2, &Board::setAmplitude},
    {"STM1", "HOLD", true, false, 3, &Board::setAmplitude},
};

Board::Board(const BoardParameters& parameters)
    : m_parameters(parameters),
      m_stage(parameters.stage),
      m_chance(parameters.faultSeed),
      m_ledOn(parameters.ledOn),
      m_ledLevel(parameters.ledLevel)
{
}

const Board::CommandRow* Board::findCommand(const BoardCommandLine& line)
{
    const auto* found =
        std::find_if(std::begin(kCommands), std::end(kCommands), [&line](const CommandRow& row) {
            return line.target == row.target && line.command == row.word;
        });
    return found == std::end(kCommands) ? nullptr : found;
}

bool Board::Request::has(LineFault fault) const
{
    return std::find(faults.begin(), faults.end(), fault) != faults.end();
}

void Board::receive(std::string_view bytes, InstrumentTime now)
{
    advance(now);
    if (!m_powered)
        return;
    m_input.append(bytes);
    for (auto end = m_input.find('\n'); end != std::string::npos; end = m_input.find('\n')) {
        const std::string line = m_input.substr(0, end);
        m_input.erase(0, end + 1);
        receiveLine(line, now);
    }
    // Of a line that never ends the beginning is dropped, which makes it malformed.
    if (m_input.size() > kLongestLine)
        m_input.erase(0, m_input.size() - kLongestLine);
}

std::vector<std::string> Board::newLines(std::size_t& seen) const
{
    const std::size_t passed = std::clamp(seen, m_forgottenLines, m_forgottenLines + m_received.size());
    seen = m_forgottenLines + m_received.size();
    return {m_received.end() - static_cast<std::ptrdiff_t>(seen - passed), m_received.end()};
}

void Board::receiveLine(std::string_view line, InstrumentTime now)
{
    const bool ended = !line.empty() && line.back() == '\r';
    if (ended)
        line.remove_suffix(1);
    m_received.emplace_back(line);
    if (!ended)
        m_received.back() += '\n';
    if (m_received.size() > kKeptLines) {
        m_received.pop_front();
        ++m_forgottenLines;
    }
    if (m_script) {
        answerByScript(now);
        return;
    }

    const std::optional<BoardCommandLine> command = ended ? parseCommandLine(line) : std::nullopt;
    Request request{command.value_or(kMalformed), faultsFor(command.value_or(kMalformed).command)};
    if (request.has(LineFault::Ignored))
        return;
    const CommandRow* row = findCommand(request.line);
    if (row && row->atOnce)
        answerAtOnce(request, now);
    else if (m_job || m_stopping)
        m_queue.push_back(std::move(request));
    else
        start(std::move(request), now);
    advance(now);
}

void Board::answerByScript(InstrumentTime now)
{
    if (m_script->empty())
        return;
    InstrumentTime due = now;
    for (ScriptedPiece& piece : m_script->front()) {
        due += piece.pause;
        m_transmitter.send(std::move(piece.bytes), due);
    }
    m_script->pop_front();
}

void Board::queueAnswer(ScriptedAnswer answer)
{
    if (m_script)
        m_script->push_back(std::move(answer));
}

// A STOP is answered when the stage has come to rest, so that the position asked for next is
// the final one.
void Board::answerAtOnce(const Request& request, InstrumentTime now)
{
    Outcome outcome = carryOut(request, now);
    if (outcome.end <= now) {
        reply(request, outcome);
        return;
    }
    if (m_stopping)
        reply(m_stopping->request, {true, now});
    m_stopping = Job{request, std::move(outcome)};
}

void Board::start(Request request, InstrumentTime now)
{
    Outcome outcome = carryOut(request, now);
    m_job = Job{std::move(request), std::move(outcome)};
}

void Board::advance(InstrumentTime now)
{
    // The STOP's own answer comes before that of the command which it cut short.
    for (std::optional<Job>* due = firstDue(now); due != nullptr; due = firstDue(now)) {
        const Job job = std::move(**due);
        due->reset();
        reply(job.request, job.outcome);
        if (!m_job && !m_stopping && !m_queue.empty()) {
            Request next = std::move(m_queue.front());
            m_queue.pop_front();
            start(std::move(next), job.outcome.end);
        }
    }
}

std::optional<Board::Job>* Board::firstDue(InstrumentTime now)
{
    if (m_stopping && m_stopping->outcome.end <= now)
        return &m_stopping;
    return m_job && m_job->outcome.end <= now ? &m_job : nullptr;
}

Board::Outcome Board::carryOut(const Request& request, InstrumentTime now)
{
    const CommandRow* row = findCommand(request.line);
    if (!row || request.cancelled || request.has(LineFault::Failure))
        return {false, now};
    if (!row->takesNumber)
        return request.line.argument.empty() ? (this->*row->function)(row->variant, 0, now)
                                             : Outcome{false, now};
    const std::optional<int> argument = parseInteger(request.line.argument);
    return argument ? (this->*row->function)(row->variant, *argument, now) : Outcome{false, now};
}

void Board::reply(const Request& request, const Outcome& outcome)
{
    if (request.has(LineFault::NoAnswer))
        return;
    std::string line =
        replyLine(outcome.ok ? "OK" : "NG", request.line, outcome.value.value_or(request.line.argument));
    if (request.has(LineFault::Garbled))
        line = garbled(std::move(line));
    if (request.has(LineFault::Noisy)) {
        char& letter = line[static_cast<std::size_t>(drawnBelow(static_cast<int>(line.size())))];
        letter = disturbed(letter);
    }
    if (request.has(LineFault::Held)) {
        m_held.push_back(std::move(line));
        return;
    }
    const InstrumentTime delay =
        request.has(LineFault::Late) ? spanOf(m_parameters.lateAnswer_s) : InstrumentTime{0};
    const InstrumentTime pause =
        request.has(LineFault::Trickled) ? spanOf(m_parameters.trickledByte_s) : InstrumentTime{0};
    if (request.has(LineFault::Unsolicited))
        m_transmitter.send(kUnaskedLine, outcome.end + delay);
    m_transmitter.send(line, outcome.end + delay, pause);
    if (request.has(LineFault::Doubled))
        m_transmitter.send(line, outcome.end + delay, pause);
}

std::vector<LineFault> Board::faultsFor(const std::string& command)
{
    std::vector<LineFault> faults;
    for (Fault& fault : m_faults) {
        if (!fault.rule.command.empty() && fault.rule.command != command)
            continue;
        ++fault.seen;
        const bool strikes = fault.rule.oneIn > 0 ? drawnBelow(fault.rule.oneIn) == 0
                                                  : fault.rule.nth == 0 || fault.rule.nth == fault.seen;
        if (strikes)
            faults.push_back(fault.rule.fault);
    }
    return faults;
}

// The generator's own numbers are the same everywhere, those of a distribution need not be.
int Board::drawnBelow(int count)
{
    return static_cast<int>(m_chance() % static_cast<unsigned>(count));
}

// A digit that became another would be an answer like any other: the line has no checksum, and
// nobody who asks once could tell.
char Board::disturbed(char letter)
{
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    char other = letter;
    do
        other = static_cast<char>(letter ^ 1 << drawnBelow(8));
    while (isDigit(letter) && isDigit(other));
    return other;
}

std::string Board::takeOutput(InstrumentTime now)
{
    advance(now);
    return m_transmitter.take(now);
}

std::optional<InstrumentTime> Board::commandEnd() const
{
    if (m_stopping)
        return m_stopping->outcome.end;
    return m_job ? std::make_optional(m_job->outcome.end) : std::nullopt;
}

std::optional<InstrumentTime> Board::nextEvent() const
{
    const std::optional<InstrumentTime> end = commandEnd();
    const std::optional<InstrumentTime> due = m_transmitter.nextDue();
    if (end && due)
        return std::min(*end, *due);
    return end ? end : due;
}

void Board::setPowered(bool on, InstrumentTime now)
{
    advance(now);
    if (on == m_powered)
        return;
    m_powered = on;
    m_stage.halt(now);
    m_job.reset();
    m_stopping.reset();
    m_queue.clear();
    m_input.clear();
    m_transmitter.clear();
    m_held.clear();
    m_ledOn = m_parameters.ledOn;
    m_ledLevel = m_parameters.ledLevel;
}

void Board::addFault(const LineFaultRule& rule)
{
    m_faults.push_back({rule});
}

void Board::sendUnasked(std::string line, InstrumentTime now)
{
    if (m_powered)
        m_transmitter.send(std::move(line), now);
}

void Board::releaseAnswers(InstrumentTime now)
{
    for (std::string& line : m_held)
        m_transmitter.send(std::move(line), now);
    m_held.clear();
}

void Board::placeStage(int position_steps)
{
    StageParameters parameters = m_parameters.stage;
    parameters.start_steps = position_steps;
    m_stage = Stage(parameters);
}

BoardLight Board::light(InstrumentTime time) const
{
    return {m_stage.carriagePosition_steps(time), m_powered && m_ledOn, m_ledLevel};
}
