#include "simulator/board/BoardLine.h"

#include <charconv>
#include <vector>

namespace {

constexpr std::size_t kPieces = 5; // "$", target, command, argument, and nothing after the last comma

std::vector<std::string_view> splitAtCommas(std::string_view line)
{
    std::vector<std::string_view> pieces;
    for (std::size_t comma = line.find(','); comma != std::string_view::npos; comma = line.find(',')) {
        pieces.push_back(line.substr(0, comma));
        line.remove_prefix(comma + 1);
    }
    pieces.push_back(line);
    return pieces;
}

} // namespace

std::optional<BoardCommandLine> parseCommandLine(std::string_view line)
{
    const std::vector<std::string_view> pieces = splitAtCommas(line);
    if (pieces.size() != kPieces || pieces.front() != "$" || !pieces.back().empty())
        return std::nullopt;
    return BoardCommandLine{std::string(pieces[1]), std::string(pieces[2]), std::string(pieces[3])};
}

std::string replyLine(std::string_view result, const BoardCommandLine& command, std::string_view value)
{
    std::string line = "$";
    for (std::string_view field :
         {result, std::string_view(command.target), std::string_view(command.command), value})
        line.append(field).append(",");
    return line.append("\r\n");
}

std::optional<int> parseInteger(std::string_view text)
{
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}
