// Any bytes as a secret file: every secret taken has 8 to 128 printable characters, and no error
// text holds more of the file than its line number.
#include <algorithm>

#include "node/isa/radius/secret_file.h"
#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    try {
        for (const auto& [name, secret] : node::radius::parseSecrets(text, "path")) {
            const std::string_view bytes = secret.reveal();
            fuzz::require(!name.empty(), "a name is empty");
            fuzz::require(bytes.size() >= 8 && bytes.size() <= 128, "a secret has another length");
            fuzz::require(
                std::all_of(bytes.begin(), bytes.end(), [](char c) { return c >= 32 && c < 127; }),
                "a secret holds what is not printable");
        }
    } catch (const node::radius::SecretFileError& error) {
        const std::string what = error.what();
        fuzz::require(what.starts_with("path:") && what.size() < 100, "an odd error");
    }
    return 0;
}
