#include "node/engine/kernel/libbpf_text.h"

#include <bpf/libbpf.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

namespace node {
namespace {

thread_local unsigned keepers = 0;
thread_local std::string lastWarning;

// The text's form comes from the library, hence no format attribute to check against.
int keep(libbpf_print_level level, const char* format, va_list arguments) {
    if (level != LIBBPF_WARN || keepers == 0) {
        return 0;
    }
    char text[512];
    const int size = std::vsnprintf(text, sizeof text, format, arguments);
    lastWarning.assign(text);
    while (!lastWarning.empty() && lastWarning.back() == '\n') {
        lastWarning.pop_back();
    }
    return size;
}

}  // namespace

LibbpfText::LibbpfText() {
    static std::once_flag once;
    std::call_once(once, [] { libbpf_set_print(keep); });
    ++keepers;
    lastWarning.clear();
}

LibbpfText::~LibbpfText() {
    --keepers;
}

std::string libbpfError(int result) {
    std::string text = std::strerror(-result);
    if (!lastWarning.empty()) {
        text += " (" + lastWarning + ")";
    }
    return text;
}

}  // namespace node
