// The labels, widths and order of the storage file's lines, shared by its reader and its
// writer. The format is described in docs/formats.md.
#pragma once

#include <stddef.h>

#include <string_view>

namespace tal_text {

inline constexpr std::string_view labelInterface = "interface: ";
inline constexpr std::string_view labelAaaType = "LoginAAAtype: ";
inline constexpr std::string_view labelCircuitId = "circuitId: ";
inline constexpr std::string_view labelRemoteId = "remoteId: ";
inline constexpr std::string_view labelVendorId = "vendorId: ";
inline constexpr std::string_view labelClientId = "clientId: ";
inline constexpr std::string_view labelSourceMac = "sourceMac: ";
inline constexpr std::string_view labelSourceIp = "sourceIP: ";
inline constexpr std::string_view labelUserPatternSequence = "userPatternSequence: ";
inline constexpr std::string_view labelUserPatternMask = "userPatternMask: ";
inline constexpr std::string_view labelExtraInt = "extraInt: ";
inline constexpr std::string_view labelExtraString = "extraString: ";
inline constexpr std::string_view labelLoginIdType = "loginIdType: ";
inline constexpr std::string_view labelVlanId = "vlanId: ";

constexpr size_t linesPerBlock = 14;
constexpr size_t longestLine = 299;  // characters; a longer line ends the reading
constexpr size_t longestText = 63;
constexpr size_t macTextLength = 17;
constexpr size_t patternTextLength = 256;

}  // namespace tal_text
