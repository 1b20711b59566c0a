// Any text as an event line: the decoder agrees with its literal twin.
#include "tal/event_line.h"
#include "tests/fuzz/fuzz.h"
#include "tests/oracle/event_line_oracle.h"

#include <string.h>

#include <algorithm>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // A line ends at its NUL. The decoder gets it without one, so that it cannot lean on it.
    const size_t length = strnlen(reinterpret_cast<const char*>(data), size);
    const std::string text(reinterpret_cast<const char*>(data), length);
    const std::unique_ptr<char[]> copy(new char[length]);
    std::copy(data, data + length, copy.get());
    const std::string_view line(copy.get(), length);

    const oracle::Event expected = oracle::decodeEventLine(text.c_str());
    const auto interface = tal_text::eventLineInterface(line);
    const tal_text::EventFields fields = tal_text::decodeEventFields(line);
    fuzz::require(expected.dropped == (!interface || length < tal_text::eventLineComplete),
                  "one drops the line, the other does not");
    if (expected.dropped)
        return 0;
    fuzz::require(expected.interface == *interface, "interface");
    fuzz::require(expected.vlanId == fields.vlanId, "vlanId");
    fuzz::require(memcmp(expected.sourceMac, fields.sourceMac, 6) == 0, "sourceMac");
    fuzz::require(expected.sourceIp == fields.sourceIp, "sourceIp");
    fuzz::require(expected.patternPresent == fields.patternPresent, "patternPresent");
    fuzz::require(memcmp(expected.pattern, fields.pattern, sizeof(fields.pattern)) == 0, "pattern");
    fuzz::require(expected.remoteId == fields.remoteId, "remoteId");
    fuzz::require(expected.vendorId == fields.vendorId, "vendorId");
    fuzz::require(expected.clientId == fields.clientId, "clientId");
    return 0;
}
