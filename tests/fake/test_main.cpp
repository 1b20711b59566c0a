// Runs the tests in a fresh directory, so that none meets a file of another.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include <unistd.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    std::error_code error;
    const std::filesystem::path home = std::filesystem::current_path();
    std::string directory = (std::filesystem::temp_directory_path() / "tal-test-XXXXXX").string();
    if (mkdtemp(directory.data()) == nullptr || chdir(directory.c_str()) != 0) {
        perror(directory.c_str());
        return EXIT_FAILURE;
    }
    const int result = RUN_ALL_TESTS();
    std::filesystem::current_path(home, error);
    std::filesystem::remove_all(directory, error);
    return result;
}
