// The literal twin of the event decoder: strncpy, sscanf and one step per table row.
// Why: the module's decoder is fast; this one is obviously right. Pure; any thread.
#pragma once

#include <stdint.h>

#include <string>

namespace oracle {

struct Event {
    bool dropped = true;  // shorter than 10 characters or not starting with "tal"
    std::string interface;
    uint16_t vlanId = 0;
    unsigned char sourceMac[6] = {};
    uint32_t sourceIp = 0;
    bool patternPresent = false;
    uint32_t pattern[32] = {};
    std::string remoteId;
    std::string vendorId;
    std::string clientId;
};

// The bounded copy: a size of 1 writes only a NUL, otherwise at most size - 1 characters.
void boundedCopy(char* to, const char* from, size_t size);

// Decodes a line as that of a fresh login.
Event decodeEventLine(const char* line);

}  // namespace oracle
