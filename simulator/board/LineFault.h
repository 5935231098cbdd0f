#pragma once

#include <optional>
#include <string>
#include <string_view>

/// What can go wrong with the board's replies.
enum class LineFault {
    NoAnswer,
    Ignored,
    Held,
    Late,
    Garbled,
    Noisy,
    Trickled,
    Doubled,
    Unsolicited,
    Failure
};

/// A fault with its name on the command line and a text that explains it.
struct LineFaultText
{
    LineFault fault;
    const char* name;
    const char* text;
};

inline constexpr LineFaultText kLineFaults[] = {
    {LineFault::NoAnswer, "no-answer", "the command is carried out, but not answered"},
    {LineFault::Ignored, "ignored", "the command is neither carried out nor answered"},
    {LineFault::Held, "held", "the command is carried out, and its answer kept back for good"},
    {LineFault::Late, "late", "the answer comes some seconds late"},
    {LineFault::Garbled, "garbled", "the answer's characters are disturbed"},
    {LineFault::Noisy, "noisy", "one bit of the answer is disturbed, but no digit becomes another"},
    {LineFault::Trickled, "trickled", "the answer comes byte by byte, with pauses"},
    {LineFault::Doubled, "doubled", "the answer comes twice"},
    {LineFault::Unsolicited, "unsolicited", "a line that nobody asked for comes before the answer"},
    {LineFault::Failure, "failure", "the command is refused, and nothing moves"},
};

/// The fault of that name; none when there is no such name.
std::optional<LineFault> lineFaultNamed(std::string_view name);

/// A fault and the commands that it strikes.
struct LineFaultRule
{
    LineFault fault = LineFault::NoAnswer;
    std::string command; ///< command word such as "MVP"; empty: every command
    int nth = 0;         ///< only the n-th such command from now on, from 1; 0: all of them
    int oneIn = 0;       ///< one of so many such commands, at random; 0: as nth says
};
