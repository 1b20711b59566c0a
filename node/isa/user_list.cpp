#include "node/isa/user_list.h"

namespace node {

void UserList::add(const std::string& circuitId, std::optional<IsaAnswer> answer) {
    users_[circuitId] = std::move(answer);
}

std::optional<IsaAnswer> UserList::find(std::string_view circuitId) const {
    const auto user = users_.find(circuitId);
    return user == users_.end() ? unknown_ : user->second;
}

}  // namespace node
