// Entry points into match_rules.h compiled as C, for a test in C++. Test code, pure.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

uint32_t be16InC(const uint8_t* bytes);
uint32_t be32InC(const uint8_t* bytes);
int isTagInC(uint32_t etherType);
int kindIsKnownInC(uint32_t type, uint32_t code, uint32_t subCode);
int selectionInC(uint32_t selection, uint32_t messageType);
int prefixInC(const uint8_t* data, uint32_t size, const char* pattern, uint32_t length);
int macInC(const uint8_t* mac, const uint8_t* wanted, const uint8_t* mask);
int wordInC(uint32_t value, uint32_t wanted, uint32_t mask);
uint32_t presentBitsInC(uint32_t size, uint32_t offset);

#ifdef __cplusplus
}
#endif
