// Line and alarm profiles of boards with DSL lines. Protection is a number: 3 dynamic and still
// protected, 2 static, 1 built in; setting it to 2 is what makes a profile static, and the only
// thing that can be set.
#include <boost/make_shared.hpp>
#include <cstring>

#include "node/host/board.h"
#include "node/profiles/view.h"
#include "platform/ports.h"

namespace node {

namespace {

constexpr unsigned protectionDynamic = 3;
constexpr unsigned protectionStatic = 2;
constexpr unsigned protectionBuiltIn = 1;

unsigned protectionOf(const ProfileInfo& info) {
    return info.state == ProfileState::dynamic ? protectionDynamic
           : info.state == ProfileState::fixed ? protectionStatic
                                               : protectionBuiltIn;
}

template <size_t size>
void fillField(char (&field)[size], const std::string& text) {
    std::memset(field, 0, size);
    std::memcpy(field, text.data(), std::min(text.size(), size));
}

unsigned protect(ProfileKind kind, const std::string& name, unsigned level, int& result) {
    const unsigned code = level == protectionStatic ? view::makeStatic(kind, name) : view::failed;
    result = static_cast<int>(code);
    return code;
}

class StoredVdsl : public Vdsl {
public:
    unsigned getProfileAll(rpcVdslProfileAll& all) override {
        all = {};
        for (const std::string& name : view::names(ProfileKind::dsl)) {
            const std::optional<ProfileInfo> info = view::find(ProfileKind::dsl, name);
            if (info && all.count < std::size(all.profile)) {
                fillField(all.profile[all.count].name, name);
                all.profile[all.count].protection = protectionOf(*info);
                ++all.count;
            }
        }
        return view::good;
    }
    unsigned profileProtect(const std::string& name, unsigned level, int& result) override {
        return protect(ProfileKind::dsl, name, level, result);
    }
    unsigned getAlarmProfileAll(AlarmProfileList& list) override {
        list = {};
        size_t slot = 0;
        for (const std::string& name : view::names(ProfileKind::alarm)) {
            if (slot < std::size(list.name)) {
                fillField(list.name[slot++], name);
            }
        }
        return view::good;
    }
    unsigned getAlarmProtectedFlag(const std::string& name,
                                   AlarmProfileProtectedFlags& flags) override {
        const std::optional<ProfileInfo> info = view::find(ProfileKind::alarm, name);
        if (!info) {
            return view::failed;
        }
        flags.protectedFlag = protectionOf(*info);
        return view::good;
    }
    unsigned alarmProfileProtect(const std::string& name, unsigned level, int& result) override {
        return protect(ProfileKind::alarm, name, level, result);
    }
};

}  // namespace

}  // namespace node

boost::shared_ptr<Vdsl> Ports::getVdslImpl() const {
    if (!node::hasDslLines(getBoardType())) {
        return {};
    }
    static const boost::shared_ptr<Vdsl> vdsl = boost::make_shared<node::StoredVdsl>();
    return vdsl;
}

// A DSL line has both kinds of profiles; they go together.
unsigned Ports::vdslPortDynamicProfilesDelete(unsigned ifId) {
    (void)node::view::removeDynamic(node::ProfileKind::dsl, ifId);  // it cannot fail
    return node::view::removeDynamic(node::ProfileKind::alarm, ifId);
}
