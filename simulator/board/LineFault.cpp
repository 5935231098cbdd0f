#include "simulator/board/LineFault.h"

std::optional<LineFault> lineFaultNamed(std::string_view name)
{
    for (const LineFaultText& row : kLineFaults)
        if (name == row.name)
            return row.fault;
    return std::nullopt;
}
