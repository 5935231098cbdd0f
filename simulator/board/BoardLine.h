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

/// Parses a received line, without its line end; none when it is malformed. Any thread.
std::optional<BoardCommandLine> parseCommandLine(std::string_view line);

/// The reply line "$result,target,command,value,\r\n". Any thread.
std::string replyLine(std::string_view result, const BoardCommandLine& command, std::string_view value);

/// Reads a decimal integer of 32 bits; none if the text is anything else. Any thread.
std::optional<int> parseInteger(std::string_view text);
