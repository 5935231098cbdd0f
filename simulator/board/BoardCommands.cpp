// What each of the board's commands does.

#include "simulator/board/Board.h"

#include <algorithm>
#include <cmath>

Board::Outcome Board::ready(int, int, InstrumentTime now)
{
    return {true, now};
}

Board::Outcome Board::firmwareText(int variant, int, InstrumentTime now)
{
    return {true, now, variant == 0 ? m_parameters.firmwareVersion : m_parameters.firmwareBuild};
}

Board::Outcome Board::switchLed(int variant, int, InstrumentTime now)
{
    m_ledOn = variant != 0;
    return {true, now};
}

Board::Outcome Board::setLedLevel(int, int argument, InstrumentTime now)
{
    if (argument < 0 || argument > m_parameters.maximumLedLevel)
        return {false, now};
    m_ledLevel = argument;
    return {true, now};
}

Board::Outcome Board::home(int, int, InstrumentTime now)
{
    return {true, m_stage.home(now)};
}

Board::Outcome Board::moveBy(int variant, int argument, InstrumentTime now)
{
    return moveIfInside(m_stage.restPosition_steps(now) + static_cast<long long>(variant) * argument, now);
}

Board::Outcome Board::moveTo(int, int argument, InstrumentTime now)
{
    return moveIfInside(argument, now);
}

Board::Outcome Board::moveIfInside(long long target_steps, InstrumentTime now)
{
    if (!m_stage.reaches(target_steps))
        return {false, now};
    return {true, m_stage.moveTo(static_cast<int>(target_steps), now)};
}

Board::Outcome Board::run(int variant, int argument, InstrumentTime now)
{
    if (argument < 1 || argument > m_parameters.maximumRunValue)
        return {false, now};
    m_stage.run(variant, argument, now);
    return {true, now};
}

// The interrupted command fails when the stage has come to rest, after the STOP's own answer.
Board::Outcome Board::stop(int, int, InstrumentTime now)
{
    const InstrumentTime rest = std::max(now, m_stage.stop(now));
    if (m_job)
        m_job->outcome = {false, rest};
    for (Request& request : m_queue)
        request.cancelled = request.line.target == "STM1";
    return {true, rest};
}

Board::Outcome Board::position(int, int, InstrumentTime now)
{
    return {true, now, std::to_string(std::lround(m_stage.position_steps(now)))};
}

// The stage stands still during the diagnosis.
Board::Outcome Board::diagnose(int, int, InstrumentTime now)
{
    const InstrumentTime duration = spanOf(m_parameters.diagnosisDuration_s);
    return {true, m_stage.stop(now) + duration, std::to_string(m_parameters.diagnosisValue)};
}

Board::Outcome Board::setAmplitude(int variant, int argument, InstrumentTime now)
{
    if (argument < 0 || argument > m_parameters.maximumAmplitude)
        return {false, now};
    m_amplitudes.at(static_cast<std::size_t>(variant)) = argument;
    return {true, now};
}
