// A login block as the 14 lines of the storage file, both ways. Pure; any thread.
#pragma once

#include "tal/tal.h"

#include <string>
#include <vector>

namespace tal_text {

// 14 lines joined by newlines, none after the last.
std::string composeLoginBlock(const rpcTalLoginBlockBll& block);

// Overlays `block` with the 14 lines from `index` on (fewer at the end of the list). Fields
// without a line keep their value. False at the first corrupt line; fields before it stay
// filled.
bool overlayLoginBlock(const std::vector<std::string>& lines, size_t index,
                       rpcTalLoginBlockBll& block);

}  // namespace tal_text
