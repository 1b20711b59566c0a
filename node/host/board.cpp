// Identity of the node and type of its board. What DSL lines have of their own is in
// node/profiles/dsl.cpp.
#include "node/host/board.h"

#include "platform/ports.h"
#include "platform/sysinfo.h"

namespace node {

namespace {

Board& ownBoard() {
    static Board board;
    return board;
}

}  // namespace

void setBoard(const Board& board) {
    ownBoard() = board;
}

bool hasDslLines(unsigned boardType) {
    return boardType == 1 || boardType == 5 || boardType == 7;
}

}  // namespace node

unsigned Ports::getBoardType() const {
    return node::ownBoard().type;
}

template <>
Ports& singleton<Ports>::instance() {
    static Ports ports;
    return ports;
}

sysInfo::sysInfo() = default;
sysInfo::~sysInfo() = default;

unsigned sysInfo::getShelfId(std::string& shelfId) const {
    shelfId = node::ownBoard().shelf;
    return 0;
}

extern "C" int ncfmGetMyBoardPos(unsigned char* position) {
    if (!position) {
        return -1;
    }
    *position = node::ownBoard().position;
    return 0;
}
