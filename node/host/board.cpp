// Identity of the node, and the board with its DSL lines. The lines hold no line profiles and
// no alarm profiles: enumerations are empty and every name is unknown.
#include "node/host/board.h"

#include <boost/make_shared.hpp>

#include "platform/ports.h"
#include "platform/sysinfo.h"

namespace node {

namespace {

Board& ownBoard() {
    static Board board;
    return board;
}

bool hasDslLines(unsigned boardType) {
    return boardType == 1 || boardType == 5 || boardType == 7;
}

class EmptyVdsl : public Vdsl {
public:
    unsigned getProfileAll(rpcVdslProfileAll& all) override {
        all = {};
        return 0;
    }
    unsigned profileProtect(const std::string&, unsigned, int&) override { return unknownName; }
    unsigned getAlarmProfileAll(AlarmProfileList& list) override {
        list = {};
        return 0;
    }
    unsigned getAlarmProtectedFlag(const std::string&, AlarmProfileProtectedFlags&) override {
        return unknownName;
    }
    unsigned alarmProfileProtect(const std::string&, unsigned, int&) override {
        return unknownName;
    }

private:
    static constexpr unsigned unknownName = 1;
};

}  // namespace

void setBoard(const Board& board) {
    ownBoard() = board;
}

}  // namespace node

unsigned Ports::getBoardType() const {
    return node::ownBoard().type;
}

boost::shared_ptr<Vdsl> Ports::getVdslImpl() const {
    if (!node::hasDslLines(getBoardType())) {
        return {};
    }
    static const boost::shared_ptr<Vdsl> vdsl = boost::make_shared<node::EmptyVdsl>();
    return vdsl;
}

unsigned Ports::vdslPortDynamicProfilesDelete(unsigned) {
    return 0;
}  // there are none

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
