#include "platform/sysinfo.h"
#include "tal/identifier_text.h"
#include "tal/tal.h"

unsigned tal::talGenCircuitId(unsigned ifId, std::string& circuitId) const {
    unsigned char boardPosition = 0;
    if (ncfmGetMyBoardPos(&boardPosition) != 0)
        return 1;
    static const sysInfo info;  // made at the first use, kept until unload
    std::string shelfId;
    if (info.getShelfId(shelfId) != 0)
        return 1;
    std::string name;
    if (singleton<Interfaces>::instance().interfaceGetNameById(ifId, name) != 0)
        return 1;
    circuitId = tal_text::circuitIdText(shelfId, boardPosition, name);
    return 0;
}

std::string tal::talMacToStr(unsigned char* mac) {
    return mac != nullptr ? tal_text::macText(mac) : std::string();
}

unsigned tal::talAsciiToHex(std::string& in, std::string& out) {
    out = tal_text::signedHexText(in);
    return 0;
}
