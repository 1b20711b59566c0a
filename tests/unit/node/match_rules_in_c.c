/* The shared comparisons compiled as C, as a program for the kernel would compile them. */
#include "tests/unit/node/match_rules_in_c.h"

#include "node/engine/match_rules.h"

uint32_t be16InC(const uint8_t* bytes) {
    return matchBe16(bytes);
}
uint32_t be32InC(const uint8_t* bytes) {
    return matchBe32(bytes);
}
int isTagInC(uint32_t etherType) {
    return matchIsTag(etherType);
}
int kindIsKnownInC(uint32_t type, uint32_t code, uint32_t subCode) {
    return matchKindIsKnown(type, code, subCode);
}
int selectionInC(uint32_t selection, uint32_t messageType) {
    return matchSelection(selection, messageType);
}
int prefixInC(const uint8_t* data, uint32_t size, const char* pattern, uint32_t length) {
    return matchPrefix(data, size, pattern, length);
}
int macInC(const uint8_t* mac, const uint8_t* wanted, const uint8_t* mask) {
    return matchMac(mac, wanted, mask);
}
int wordInC(uint32_t value, uint32_t wanted, uint32_t mask) {
    return matchWord(value, wanted, mask);
}
uint32_t presentBitsInC(uint32_t size, uint32_t offset) {
    return matchPresentBits(size, offset);
}
