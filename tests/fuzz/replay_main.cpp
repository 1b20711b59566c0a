// Gives every file of the directories named on the command line to the fuzzer linked with it.
// A directory without files is an error: it would test nothing.
#include "tests/fuzz/fuzz.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s CORPUS...\n", argv[0]);
        return 2;
    }
    for (int i = 1; i < argc; i++) {
        int files = 0;
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            if (!entry.is_regular_file())
                continue;
            std::ifstream file(entry.path(), std::ios::binary);
            if (!file) {
                fprintf(stderr, "%s: cannot be read\n", entry.path().c_str());
                return 1;
            }
            const std::string bytes{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            files++;
        }
        if (files == 0) {
            fprintf(stderr, "%s: no inputs\n", argv[i]);
            return 1;
        }
        printf("%s: %d inputs\n", argv[i], files);
    }
    return 0;
}
