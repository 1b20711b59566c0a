// The identifiers of a login request, for people to read. Pure.
#pragma once

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "rpc/rpctal.h"

namespace node {

// The identifiers that the block says are present, as pairs of name and value.
std::vector<std::pair<std::string, std::string>> loginIdentifiers(const rpcTalLoginBlockBll& block);

std::string loginText(const rpcTalLoginBlockBll& block);

// A text field of a record: up to its NUL, or to its end when there is none.
template <size_t size>
std::string fieldText(const char (&field)[size]) {
    return std::string(field, strnlen(field, size));
}

}  // namespace node
