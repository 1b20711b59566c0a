// Written like the prose of docs/formats.md: copy a field, scan the copy, go on to the next
// field if the line is long enough. Every step ends the decoding by returning what it has.
#include "tests/oracle/event_line_oracle.h"

#include "tests/oracle/guarded.h"

namespace oracle {

void boundedCopy(char* to, const char* from, size_t size) {
    if (size == 1) {
        to[0] = '\0';
        return;
    }
    size_t copied = 0;
    while (from[copied] != '\0' && copied < size - 1) {
        to[copied] = from[copied];
        copied++;
    }
    to[copied] = '\0';
}

namespace {

void decodeMac(const char* line, Event& event) {
    Guarded<12> field;
    boundedCopy(field.data(), line + 14, 12);
    unsigned scratch = 0;
    for (int k = 0; k < 6; k++) {
        Guarded<2> digit;
        boundedCopy(digit.data(), field.text() + 2 * k, 2);
        sscanf(digit.text(), "%x", &scratch);
        event.sourceMac[k] = static_cast<unsigned char>(scratch);
    }
}

void decodeAddress(const char* line, Event& event) {
    Guarded<15> field;
    boundedCopy(field.data(), line + 26, 15);
    unsigned scratch = 0;
    unsigned char octets[4];
    for (int i = 0; i < 4; i++) {
        Guarded<3> digits;
        boundedCopy(digits.data(), field.text() + 4 * i, 3);
        sscanf(digits.text(), "%u", &scratch);
        octets[i] = static_cast<unsigned char>(scratch);
    }
    event.sourceIp = octets[0] * 16777216U + octets[1] * 65536U + octets[2] * 256U + octets[3];
}

void decodePattern(const char* line, Event& event) {
    Guarded<256> field;
    boundedCopy(field.data(), line + 41, 256);
    for (int i = 0; i < 32; i++) {
        Guarded<9> digits;
        strncpy(digits.data(), field.text() + 8 * i, 8);
        digits.data()[8] = '\0';
        sscanf(digits.text(), "%x", &event.pattern[i]);
    }
    event.patternPresent = true;
}

int threeDigits(const char* from) {
    Guarded<4> digits;
    strncpy(digits.data(), from, 3);
    digits.data()[3] = '\0';
    int number = 0;
    sscanf(digits.text(), "%03d", &number);
    return number;
}

void keepOption(const char* data, int length, std::string& identifier) {
    if (length > 254)
        return;
    Guarded<255> buffer;
    strncpy(buffer.data(), data, static_cast<size_t>(length));
    buffer.data()[length] = '\0';
    identifier = buffer.text();
}

void decodeOptions(const char* line, Event& event) {
    const int end = static_cast<int>(strlen(line));
    int at = 297;
    for (int option = 0; option < 3; option++) {
        if (end < at + 3)
            return;
        const int code = threeDigits(line + at);
        if (code != 60 && code != 2 && code != 61)
            return;
        if (end < at + 6)
            return;
        const int length = threeDigits(line + at + 3);
        if (length < 0)
            return;
        int data = at + 6;
        int type = 0;
        if (code == 61) {
            if (end < at + 9)
                return;
            type = threeDigits(line + at + 6);
            data = at + 9;
        }
        if (end < data + length)
            return;
        if (code == 60)
            keepOption(line + data, length, event.vendorId);
        if (code == 2)
            keepOption(line + data, length, event.remoteId);
        if (code == 61) {
            keepOption(line + data, length, event.clientId);
            if (type != 0) {
                // Six hex pairs that nobody uses: the text stays as received.
                Guarded<13> pairs;
                boundedCopy(pairs.data(), event.clientId.c_str(), 13);
                unsigned thrownAway[6];
                sscanf(pairs.text(), "%2x%2x%2x%2x%2x%2x", &thrownAway[0], &thrownAway[1],
                       &thrownAway[2], &thrownAway[3], &thrownAway[4], &thrownAway[5]);
            }
        }
        at = data + length;
        if (line[at] == '\0')
            return;
    }
}

}  // namespace

Event decodeEventLine(const char* line) {
    Event event;
    const size_t length = strlen(line);
    if (length < 3 || line[0] != 't' || line[1] != 'a' || line[2] != 'l')
        return event;
    if (length < 8)
        return event;
    Guarded<5> name;
    strncpy(name.data(), line + 3, 4);
    name.data()[4] = '\0';
    event.interface = name.text();
    if (length < 9)
        return event;
    if (length < 10)
        return event;
    event.dropped = false;

    if (length < 14)
        return event;
    Guarded<4> vlan;
    boundedCopy(vlan.data(), line + 10, 4);
    sscanf(vlan.text(), "%hu", &event.vlanId);
    if (length < 26)
        return event;
    decodeMac(line, event);
    if (length < 41)
        return event;
    decodeAddress(line, event);
    if (length < 297)
        return event;
    decodePattern(line, event);
    if (length < 300)
        return event;
    decodeOptions(line, event);
    return event;
}

}  // namespace oracle
