// Keeps a second node off the devices of a running one. Held by the process, per network
// namespace; gone with the process, however it ends.
// Any thread.
#pragma once

#include <optional>
#include <string>

#include "node/engine/kernel/fd.h"

namespace node {

class DeviceLock {
public:
    // `what` is a device, or whatever else two nodes must not share. Empty when another process
    // has it or it cannot be had, with `error` set.
    static std::optional<DeviceLock> take(const std::string& what, std::string& error);

private:
    explicit DeviceLock(Fd socket) : socket_(std::move(socket)) {}

    Fd socket_;
};

}  // namespace node
