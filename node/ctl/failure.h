// How a command ends when it does not succeed.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

namespace node::ctl {

enum ExitCode {
    exitDone = 0,
    exitRefused = 1,      // the node refused, or a storage file is corrupt
    exitUsage = 2,        // the command line cannot be meant
    exitUnreachable = 3,  // no node answers at that address
    exitFailed = 4,       // it began and could not be finished
};

class Failure : public std::runtime_error {
public:
    Failure(ExitCode code, const std::string& message, std::optional<unsigned> result = {})
        : std::runtime_error(message), code_(code), result_(result) {}

    ExitCode code() const { return code_; }
    std::optional<unsigned> result() const { return result_; }  // rpc_tal_res, when there is one

private:
    ExitCode code_;
    std::optional<unsigned> result_;
};

}  // namespace node::ctl
