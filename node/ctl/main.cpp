#include <cstdlib>
#include <exception>
#include <iostream>

#include "node/ctl/commands.h"
#include "node/ctl/failure.h"

int main(int argc, char** argv) {
    // The transport's own messages say less than the exit code and the sentence.
    setenv("GRPC_VERBOSITY", "NONE", 0);
    try {
        return node::ctl::run({argv + 1, argv + argc}, std::cout, std::cerr);
    } catch (const std::exception& error) {
        std::cerr << "talctl: " << error.what() << '\n';
        return node::ctl::exitFailed;
    }
}
