// Literal twins of the storage file's code: a stream's getline into 300 characters, labels
// compared one by one, values through sscanf. Pure; any thread.
#pragma once

#include "tal/tal.h"

#include <string>
#include <vector>

namespace oracle {

// Appends the non-empty lines of a file with these contents.
void readLines(const std::string& contents, std::vector<std::string>& lines);

bool valid(const std::vector<std::string>& lines);

// The line number of the interface's block, or -1.
int find(const std::vector<std::string>& lines, unsigned interfaceId);

// Overlays the block with the 14 lines from index on; false at the first corrupt line.
bool overlay(const std::vector<std::string>& lines, size_t index, rpcTalLoginBlockBll& block);

// The 14 lines of a block, written with one output stream.
std::string compose(const rpcTalLoginBlockBll& block);

// The first difference between two blocks as ISA would see it: numbers, bytes and texts up to
// their NUL; empty when there is none.
std::string difference(const rpcTalLoginBlockBll& one, const rpcTalLoginBlockBll& other);

}  // namespace oracle
