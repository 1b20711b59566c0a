// What libbpf would print: collected, so that it ends up in the node's own error texts and not
// on stderr. While one lives, the warnings of this thread are kept; others are dropped.
#pragma once

#include <string>

namespace node {

class LibbpfText {
public:
    LibbpfText();
    ~LibbpfText();
    LibbpfText(const LibbpfText&) = delete;
    LibbpfText& operator=(const LibbpfText&) = delete;
};

// The result's meaning (a negative errno) and the last warning kept by this thread.
std::string libbpfError(int result);

}  // namespace node
