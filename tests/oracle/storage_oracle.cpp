// Every rule stands here as docs/formats.md tells it; nothing is shared with the module, not
// even the labels.
#include "tests/oracle/storage_oracle.h"

#include "tests/oracle/guarded.h"

#include <iomanip>
#include <locale>
#include <sstream>

namespace oracle {

namespace {

bool startsWith(const std::string& line, const char* label) {
    return strncmp(line.c_str(), label, strlen(label)) == 0;
}

size_t valueLength(const std::string& line, const char* label) {
    return line.length() - strlen(label);
}

const char* const textLabels[] = {
    "circuitId: ", "remoteId: ", "vendorId: ", "clientId: ", "extraString: "};
const char* const patternLabels[] = {"userPatternSequence: ", "userPatternMask: "};

bool dataLineValid(const std::string& line) {
    if (startsWith(line, "LoginAAAtype: "))
        return valueLength(line, "LoginAAAtype: ") == 2;
    for (const char* label : textLabels)
        if (startsWith(line, label))
            return valueLength(line, label) <= 63;
    if (startsWith(line, "sourceMac: "))
        return valueLength(line, "sourceMac: ") == 17;
    if (startsWith(line, "sourceIP: "))
        return valueLength(line, "sourceIP: ") <= 8;
    for (const char* label : patternLabels)
        if (startsWith(line, label))
            return valueLength(line, label) == 256 || valueLength(line, label) == 0;
    if (startsWith(line, "extraInt: "))
        return valueLength(line, "extraInt: ") == 8;
    if (startsWith(line, "loginIdType: "))
        return valueLength(line, "loginIdType: ") == 2;
    if (startsWith(line, "vlanId: "))
        return valueLength(line, "vlanId: ") <= 4;
    return false;
}

bool overlayText(const std::string& line, const char* label, char* field) {
    if (valueLength(line, label) > 63)
        return false;
    strncpy(field, line.c_str() + strlen(label), 63);
    field[63] = '\0';
    return true;
}

bool overlayWords(const std::string& line, const char* label, uint32_t* words) {
    if (valueLength(line, label) == 0)
        return true;
    if (valueLength(line, label) != 256)
        return false;
    for (int i = 0; i < 32; i++) {
        Guarded<9> piece;
        strncpy(piece.data(), line.c_str() + strlen(label) + 8 * i, 8);
        piece.data()[8] = '\0';
        sscanf(piece.text(), "%08x", &words[i]);
    }
    return true;
}

bool overlayMac(const std::string& line, unsigned char* mac) {
    if (valueLength(line, "sourceMac: ") != 17)
        return false;
    unsigned pair[6];
    const int read = sscanf(line.c_str(), "%*s %02x:%02x:%02x:%02x:%02x:%02x", &pair[0], &pair[1],
                            &pair[2], &pair[3], &pair[4], &pair[5]);
    for (int i = 0; i < 6; i++)
        mac[i] = read == 6 ? static_cast<unsigned char>(pair[i]) : 0;
    return true;
}

bool overlayLine(const std::string& line, rpcTalLoginBlockBll& block) {
    unsigned number = 0;
    if (startsWith(line, "LoginAAAtype: ")) {
        if (valueLength(line, "LoginAAAtype: ") != 2)
            return false;
        if (sscanf(line.c_str(), "%*s %02x", &number) != 1)
            return false;
        block.LoginAAAtype = static_cast<unsigned char>(number);
    } else if (startsWith(line, "circuitId: ")) {
        return overlayText(line, "circuitId: ", block.circuitId);
    } else if (startsWith(line, "remoteId: ")) {
        return overlayText(line, "remoteId: ", block.remoteId);
    } else if (startsWith(line, "vendorId: ")) {
        return overlayText(line, "vendorId: ", block.vendorId);
    } else if (startsWith(line, "clientId: ")) {
        return overlayText(line, "clientId: ", block.clientId);
    } else if (startsWith(line, "extraString: ")) {
        return overlayText(line, "extraString: ", block.extraString);
    } else if (startsWith(line, "sourceMac: ")) {
        return overlayMac(line, block.sourceMac);
    } else if (startsWith(line, "sourceIP: ")) {
        if (valueLength(line, "sourceIP: ") > 8)
            return false;
        sscanf(line.c_str(), "%*s %x", &block.sourceIP);
    } else if (startsWith(line, "userPatternSequence: ")) {
        return overlayWords(line, "userPatternSequence: ", block.userPatternSequence);
    } else if (startsWith(line, "userPatternMask: ")) {
        return overlayWords(line, "userPatternMask: ", block.userPatternMask);
    } else if (startsWith(line, "extraInt: ")) {
        if (valueLength(line, "extraInt: ") != 8)
            return false;
        block.extraInt = sscanf(line.c_str(), "%*s %x", &number) == 1 ? number : 0;
    } else if (startsWith(line, "loginIdType: ")) {
        if (valueLength(line, "loginIdType: ") != 2)
            return false;
        const bool read = sscanf(line.c_str(), "%*s %x", &number) == 1;
        block.loginIdType = read ? static_cast<unsigned char>(number) : 0;
    } else if (startsWith(line, "vlanId: ")) {
        if (valueLength(line, "vlanId: ") > 4)
            return false;
        int decimal = 0;
        const bool read = sscanf(line.c_str(), "%*s %d", &decimal) == 1;
        block.vlanId = read ? static_cast<uint32_t>(decimal) : 0;
    }
    return true;  // any other line is skipped
}

// A field that nobody terminated is read inside the field only.
std::string textOf(const char (&field)[64]) {
    return std::string(field, strnlen(field, 63));
}

}  // namespace

void readLines(const std::string& contents, std::vector<std::string>& lines) {
    std::istringstream file(contents);
    char buffer[300];
    while (file.good()) {
        file.getline(buffer, sizeof(buffer));
        if (buffer[0] != '\0')
            lines.push_back(buffer);
    }
}

bool valid(const std::vector<std::string>& lines) {
    if (lines.size() % 14 != 0)
        return false;
    for (size_t i = 0; i < lines.size(); i++) {
        if (i % 14 == 0) {
            if (!startsWith(lines[i], "interface: "))
                return false;
            const size_t length = valueLength(lines[i], "interface: ");
            if (length != 1 && length != 2)
                return false;
        } else if (!dataLineValid(lines[i])) {
            return false;
        }
    }
    return true;
}

int find(const std::vector<std::string>& lines, unsigned interfaceId) {
    for (size_t i = 0; i < lines.size(); i++) {
        int number = 0;
        if (startsWith(lines[i], "interface: ") &&
            sscanf(lines[i].c_str(), "%*s %d", &number) == 1 &&
            static_cast<unsigned>(number) == interfaceId)
            return static_cast<int>(i);
    }
    return -1;
}

bool overlay(const std::vector<std::string>& lines, size_t index, rpcTalLoginBlockBll& block) {
    for (size_t i = index; i < index + 14 && i < lines.size(); i++)
        if (!overlayLine(lines[i], block))
            return false;
    return true;
}

std::string compose(const rpcTalLoginBlockBll& block) {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out << "interface: " << block.interface << "\n";
    out << std::hex << std::setfill('0');
    out << "LoginAAAtype: " << std::setw(2) << unsigned{block.LoginAAAtype} << "\n";
    out << "circuitId: " << textOf(block.circuitId) << "\n";
    out << "remoteId: " << textOf(block.remoteId) << "\n";
    out << "vendorId: " << textOf(block.vendorId) << "\n";
    out << "clientId: " << textOf(block.clientId) << "\n";
    out << "sourceMac: " << std::uppercase;
    for (int i = 0; i < 6; i++)
        out << (i == 0 ? "" : ":") << std::setw(2) << unsigned{block.sourceMac[i]};
    out << std::nouppercase << "\n";
    out << "sourceIP: " << std::setw(8) << block.sourceIP << "\n";
    out << "userPatternSequence: ";
    for (int i = 0; i < 32; i++)
        out << std::setw(8) << block.userPatternSequence[i];
    out << "\nuserPatternMask: ";
    for (int i = 0; i < 32; i++)
        out << std::setw(8) << block.userPatternMask[i];
    out << "\nextraInt: " << std::setw(8) << block.extraInt << "\n";
    out << "extraString: " << textOf(block.extraString) << "\n";
    out << "loginIdType: " << std::setw(2) << unsigned{block.loginIdType} << "\n";
    out << "vlanId: " << block.vlanId;  // still hexadecimal
    return out.str();
}

std::string difference(const rpcTalLoginBlockBll& one, const rpcTalLoginBlockBll& other) {
    if (one.interface != other.interface)
        return "interface";
    if (one.LoginAAAtype != other.LoginAAAtype)
        return "LoginAAAtype";
    if (strncmp(one.circuitId, other.circuitId, 64) != 0)
        return "circuitId";
    if (strncmp(one.remoteId, other.remoteId, 64) != 0)
        return "remoteId";
    if (strncmp(one.vendorId, other.vendorId, 64) != 0)
        return "vendorId";
    if (strncmp(one.clientId, other.clientId, 64) != 0)
        return "clientId";
    if (memcmp(one.sourceMac, other.sourceMac, 6) != 0)
        return "sourceMac";
    if (one.sourceIP != other.sourceIP)
        return "sourceIP";
    if (memcmp(one.userPatternSequence, other.userPatternSequence, 128) != 0)
        return "userPatternSequence";
    if (memcmp(one.userPatternMask, other.userPatternMask, 128) != 0)
        return "userPatternMask";
    if (one.extraInt != other.extraInt)
        return "extraInt";
    if (strncmp(one.extraString, other.extraString, 64) != 0)
        return "extraString";
    if (one.loginIdType != other.loginIdType)
        return "loginIdType";
    if (one.vlanId != other.vlanId)
        return "vlanId";
    return "";
}

}  // namespace oracle
