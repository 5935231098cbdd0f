#pragma once

#include <optional>
#include <string>
#include <string_view>

/// A line as the board receives it: "$,target,command,argument,\r\n".
struct BoardCommandLine
{
    std::string target;
    std::string command;
    std::string argument;
};

/// Takes a received line, without its line end, apart; none when it is malformed.
std::optional<BoardCommandLine> parseCommandLine(std::string_view line);

/// The reply line "$result,target,command,value,\r\n".
std::string replyLine(std::string_view result, const BoardCommandLine& command, std::string_view value);

/// A decimal integer of 32 bits and nothing else; none otherwise.
std::optional<int> parseInteger(std::string_view text);
