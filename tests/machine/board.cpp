// The controller board behind the emulated machine's serial port, steered from outside.
//
// The first line says which terminal leads to the board. After it, a line for each one that the
// board receives ("line $,STM1,ORIGIN,,"). Orders come in on the standard input, a line each:
// "off" and "on" switch the board's power, "state" is answered with "state POSITION LED LEVEL".
// The end of the input ends the program.

#include <cstdio>
#include <iostream>
#include <string>

#include <poll.h>
#include <unistd.h>

#include "simulator/board/BoardPort.h"

namespace {

constexpr int kPause_ms = 50; // after which the board is asked for new lines

// The board keeps its latest lines only, but more than come within a pause.
void tellNewLines(BoardPort& port, std::size_t& told)
{
    port.withBoard([&told](const Board& board, InstrumentTime) {
        for (const std::string& line : board.newLines(told))
            std::cout << "line " << line << '\n';
    });
    std::cout << std::flush;
}

void obey(BoardPort& port, const std::string& order)
{
    if (order == "off" || order == "on")
        port.withBoard([&order](Board& board, InstrumentTime now) { board.setPowered(order == "on", now); });
    const BoardLight light = port.light();
    std::cout << "state " << static_cast<int>(light.stagePosition_steps) << ' ' << light.ledOn << ' '
              << light.ledLevel << std::endl;
}

// False at the end of the input.
bool takeOrders(BoardPort& port, std::string& rest)
{
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (::poll(&input, 1, kPause_ms) <= 0)
        return true;
    char bytes[256];
    const ssize_t count = ::read(STDIN_FILENO, bytes, sizeof bytes);
    if (count <= 0)
        return false;
    rest.append(bytes, static_cast<std::size_t>(count));
    for (std::size_t end = rest.find('\n'); end != std::string::npos; end = rest.find('\n')) {
        obey(port, rest.substr(0, end));
        rest.erase(0, end + 1);
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "Usage: machine_board FOLDER\n";
        return 2;
    }
    BoardPort port(argv[1]);
    if (!port.isServing()) {
        std::cerr << "machine_board: there is no pseudo-terminal to be had\n";
        return 1;
    }
    std::cout << "terminal " << port.terminalPath() << std::endl;
    std::size_t told = 0;
    std::string rest;
    while (takeOrders(port, rest))
        tellNewLines(port, told);
    return 0;
}
