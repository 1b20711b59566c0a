// What kind of qdisc an interface has where filters of arriving frames live.
// Any thread; one exchange with the kernel.
#pragma once

#include <string>

namespace node {

// "clsact", "ingress", ...; empty when there is none or the kernel does not say, with `error` set.
std::string hookKind(unsigned ifIndex, std::string& error);

}  // namespace node
