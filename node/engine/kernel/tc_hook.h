// The place of the node's programs on an interface: its own filter on the clsact hook, found
// again by a fixed priority and handle. Other filters on the hook are left alone.
// Any thread; each call is one exchange with the kernel.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace node {

enum class Direction { fromSubscriber, toSubscriber };

// The id of the program in the node's place; empty when the place or the interface is empty.
std::optional<uint32_t> attachedProgram(unsigned ifIndex, Direction direction);

// Whether the kernel says that the place has not this program: none, or another. False when it
// cannot say, for want of memory or descriptors, or because the interface is gone.
bool isWithout(unsigned ifIndex, Direction direction, uint32_t program);

// Makes the hook that the places are on, unless it is there. False where there can be none.
bool makeHook(unsigned ifIndex, std::string& error);

// Takes the place, on a hook that it makes if need be; a program that is there is exchanged in one
// step, no frame passes between.
bool attachProgram(unsigned ifIndex, Direction direction, int program, std::string& error);

// Leaves the place empty; true also when it was.
bool detachProgram(unsigned ifIndex, Direction direction, std::string& error);

}  // namespace node
