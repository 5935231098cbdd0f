#include "simulator/board/LineFault.h"

#include <algorithm>
#include <iterator>

std::optional<LineFault> lineFaultNamed(std::string_view name)
{
    const auto* found = std::find_if(std::begin(kLineFaults), std::end(kLineFaults),
                                     [name](const LineFaultText& row) { return name == row.name; });
    if (found == std::end(kLineFaults))
        return std::nullopt;
    return found->fault;
}
