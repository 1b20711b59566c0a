// Bytes that a subscriber sent as text that is safe to show. Pure; any thread.
#pragma once

#include <string>
#include <string_view>

namespace node::control {

// Printable ASCII as it stands, the backslash as \\, every other byte as \xNN, so that what a
// subscriber sent can neither drive a terminal nor break a protocol that wants valid text.
std::string escaped(std::string_view bytes);

}  // namespace node::control
