#include <cstdlib>
#include <exception>
#include <iostream>

#include "node/ctl/commands.h"
#include "node/ctl/failure.h"

int main(int argc, char** argv) {
    // Names of nodes are looked up as other programs of the machine do, not by the library's way.
    setenv("GRPC_DNS_RESOLVER", "native", 0);
    // The transport's own messages say less than the exit code and the sentence.
    setenv("GRPC_VERBOSITY", "NONE", 0);
    try {
        return node::ctl::run({argv + 1, argv + argc}, std::cout, std::cerr);
    } catch (const std::exception& error) {
        std::cerr << "talctl: " << error.what() << '\n';
        return node::ctl::exitFailed;
    }
}
