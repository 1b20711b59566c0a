// The file of stored logins as anybody but the module reads it: what it holds, and whether the
// module would take it for corrupt and where. Pure; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace node::control {

struct StoredLogin {
    uint32_t ifId = 0;
    size_t line = 0;  // where it begins, counted from 1
    uint32_t aaaType = 0;
    std::string circuitId;
    std::string remoteId;
    std::string vendorId;
    std::string clientId;
    std::string sourceMac;  // as text
    uint32_t sourceIp = 0;
    std::string userPatternSequence;  // as hex
    std::string userPatternMask;
    uint32_t extraInt = 0;
    std::string extraString;
    uint32_t loginIdType = 0;
    uint32_t vlan = 0;
};

struct StorageContents {
    std::vector<StoredLogin> logins;  // of a corrupt file those before the problem
    std::string problem;              // "line 15: ..."; empty: the module takes the file
};

StorageContents readStorage(std::string_view contents);

}  // namespace node::control
