#include "node/isa/grant_profiles.h"

#include <optional>

namespace node {

GrantedProfiles grantedProfiles(const std::vector<std::string>& texts) {
    GrantedProfiles granted;
    for (const std::string& text : texts) {
        const size_t equals = text.find('=');
        const bool bare = equals == std::string::npos;
        const std::optional<ProfileKind> kind =
            bare ? ProfileKind::service : profileKindOf(text.substr(0, equals));
        const std::string name = bare ? text : text.substr(equals + 1);
        if (!kind) {
            granted.problems.push_back("\"" + text + "\" names no known kind");
        } else if (name.empty() || name.size() > longestProfileName) {
            granted.problems.push_back("\"" + text +
                                       "\" names a profile of 0 or more than 64 "
                                       "characters");
        } else if (!granted.profiles.of(*kind).empty()) {
            granted.problems.push_back("\"" + text + "\" is a second one of its kind");
        } else {
            granted.profiles.of(*kind) = name;
        }
    }
    return granted;
}

}  // namespace node
