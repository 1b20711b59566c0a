// The privileges that gates in the kernel take: looking for them, and giving up all others.
// Capabilities belong to a thread: call before the process starts any other.
#pragma once

#include <string>
#include <vector>

namespace node {

// Names of those of CAP_BPF, CAP_NET_ADMIN and CAP_PERFMON that are not in force; empty: all are.
std::vector<std::string> missingCapabilities();

// For a log line: which are missing, and what works all the same. Empty when none is.
std::string missingCapabilitiesText();

// Whether maps of an earlier process can be found without pins (CAP_SYS_ADMIN).
bool canFindEarlierMaps();

// Keeps the three, for good: no program started from here gets more. After the kernel engine
// was started and its lines attached, see KernelEngine::Options. False on failure.
bool dropOtherCapabilities(std::string& error);

}  // namespace node
