// Who the node is: shelf, board position and board type.
// Set before the module is loaded, not changed afterwards.
#pragma once

#include <cstdint>
#include <string>

namespace node {

struct Board {
    std::string shelf = "1";
    uint8_t position = 1;
    unsigned type = 2;
};

void setBoard(const Board& board);

bool hasDslLines(unsigned boardType);

}  // namespace node
