// MAC access lists: a view of the profiles of that kind.
#include "node/profiles/view.h"
#include "platform/aclcontainer.h"

using node::ProfileKind;
namespace view = node::view;

namespace {

constexpr int isDynamic = 0;
constexpr int isStatic = 1;
constexpr int unknownList = 6;
constexpr unsigned levelStatic = 2;  // the only level that can be set

}  // namespace

int ACLContainer_t::getACLsInfo(std::list<aclInfo_t>& acls) {
    acls.clear();
    for (const std::string& name : view::names(ProfileKind::accessList)) {
        acls.push_back({name});
    }
    return 0;
}

int ACLContainer_t::aclCheckDynamic(const std::string& name) {
    const std::optional<node::ProfileInfo> info = view::find(ProfileKind::accessList, name);
    if (!info) {
        return unknownList;
    }
    return info->state == node::ProfileState::dynamic ? isDynamic : isStatic;
}

int ACLContainer_t::setAclProtected(const std::string& name, unsigned level) {
    return level == levelStatic && view::makeStatic(ProfileKind::accessList, name) == view::good
               ? 0
               : unknownList;
}

int ACLContainer_t::accessListDynamicDeleteAll() {
    return static_cast<int>(view::removeDynamic(ProfileKind::accessList, 0));
}
