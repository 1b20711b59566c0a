#include "tests/fake/fake_services.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace fake {

// ---- board, DSL services, node data

namespace {

class VdslOfBoard : public Vdsl {
public:
    explicit VdslOfBoard(Board& board) : board_(board) {}

    unsigned getProfileAll(rpcVdslProfileAll& all) override { return board_.profileAll(all); }
    unsigned profileProtect(const std::string& name, unsigned level, int& result) override {
        return board_.profileProtect(name, level, result);
    }
    unsigned getAlarmProfileAll(AlarmProfileList& list) override {
        return board_.alarmProfileAll(list);
    }
    unsigned getAlarmProtectedFlag(const std::string& name,
                                   AlarmProfileProtectedFlags& flags) override {
        return board_.alarmProtectedFlag(name, flags);
    }
    unsigned alarmProfileProtect(const std::string& name, unsigned level, int& result) override {
        return board_.alarmProfileProtect(name, level, result);
    }

private:
    Board& board_;
};

// Fills the field as the platform does: no terminator when the text fills it.
template <size_t Size>
void fillField(char (&field)[Size], const std::string& text) {
    std::memset(field, 0, Size);
    std::memcpy(field, text.data(), std::min(text.size(), Size));
}

template <size_t Size>
std::string fieldText(const char (&field)[Size]) {
    return std::string(field, strnlen(field, Size));
}

}  // namespace

void Board::addVdslProfile(const std::string& name, unsigned protection) {
    rpcVdslProfile profile{};
    fillField(profile.name, name);
    profile.protection = protection;
    vdslProfiles.push_back(profile);
}

boost::shared_ptr<Vdsl> Board::getVdslImpl() {
    desk_.ask({Service::ports, "getVdslImpl", "", "", Refusal::never});
    if (vdslImpl == VdslImpl::throwing && ++vdslObtained_ >= vdslThrowsFrom) {
        desk_.output("exception " + shown(vdslException));
        throw std::runtime_error(vdslException);
    }
    return vdslImpl == VdslImpl::absent ? boost::shared_ptr<Vdsl>()
                                        : boost::shared_ptr<Vdsl>(new VdslOfBoard(*this));
}

unsigned Board::profileAll(rpcVdslProfileAll& all) {
    const int result = desk_.ask({Service::vdsl, "getProfileAll", "", ""});
    if (result == 0) {
        all.count = static_cast<unsigned>(vdslProfiles.size());
        std::copy_n(vdslProfiles.begin(), std::min<size_t>(vdslProfiles.size(), 128), all.profile);
    }
    return static_cast<unsigned>(result);
}

unsigned Board::profileProtect(const std::string& name, unsigned level, int& out) {
    const int result = desk_.ask({Service::vdsl, "profileProtect", name, shownList(name, level)});
    out = result;
    if (result == 0) {
        for (rpcVdslProfile& profile : vdslProfiles) {
            if (fieldText(profile.name) == name) {
                profile.protection = level;
            }
        }
    }
    return static_cast<unsigned>(result);
}

unsigned Board::alarmProfileAll(AlarmProfileList& list) {
    const int result = desk_.ask({Service::vdsl, "getAlarmProfileAll", "", ""});
    if (result == 0) {
        std::memset(&list, 0, sizeof(list));
        for (size_t i = 0; i < std::min<size_t>(alarmProfiles.size(), 30); ++i) {
            fillField(list.name[i], alarmProfiles[i].name);
        }
    }
    return static_cast<unsigned>(result);
}

unsigned Board::alarmProtectedFlag(const std::string& name, AlarmProfileProtectedFlags& flags) {
    const auto found =
        std::find_if(alarmProfiles.begin(), alarmProfiles.end(),
                     [&name](const AlarmProfile& profile) { return profile.name == name; });
    const int result = desk_.ask({Service::vdsl, "getAlarmProtectedFlag", name, shown(name),
                                  Refusal::one, found == alarmProfiles.end() ? 1 : 0});
    if (result == 0) {
        flags.protectedFlag = found == alarmProfiles.end() ? 0 : found->protectedFlag;
        desk_.output(shown(flags.protectedFlag));
    }
    return static_cast<unsigned>(result);
}

unsigned Board::alarmProfileProtect(const std::string& name, unsigned level, int& out) {
    const int result =
        desk_.ask({Service::vdsl, "alarmProfileProtect", name, shownList(name, level)});
    out = result;
    if (result == 0) {
        for (AlarmProfile& profile : alarmProfiles) {
            if (profile.name == name) {
                profile.protectedFlag = level;
            }
        }
    }
    return static_cast<unsigned>(result);
}

int Board::boardPosition(unsigned char* out) {
    const int result =
        desk_.ask({Service::sysinfo, "ncfmGetMyBoardPos", "", "", Refusal::negative});
    if (result == 0 && !positionLeft) {
        *out = position;
        desk_.output(std::to_string(position));
    }
    return result;
}

unsigned Board::shelf(std::string& out) {
    const int result = desk_.ask({Service::sysinfo, "getShelfId", "", ""});
    if (result == 0) {
        out = shelfId;
        desk_.output(shown(out));
    }
    return static_cast<unsigned>(result);
}

// ---- profile services

unsigned Profiles::getAll(const char* call, const std::vector<Profile>& from,
                          std::list<std::string>& names) {
    const unsigned result = plain(call, "");
    if (result == 0) {
        names.clear();
        for (const Profile& profile : from) {
            names.push_back(profile.name);
        }
    }
    return result;
}

unsigned Profiles::get(const char* call, const std::vector<Profile>& from, const std::string& name,
                       bool& protectFlag) {
    const unsigned result = about(call, name, shown(name));
    if (result == 0 || refusedReadsFill) {
        const auto found = std::find_if(from.begin(), from.end(), [&name](const Profile& profile) {
            return profile.name == name;
        });
        protectFlag = found != from.end() && found->protectFlag;
        desk_.output(shown(protectFlag));
    }
    return result;
}

unsigned Profiles::unprotect(const char* call, std::vector<Profile>& in, const std::string& name) {
    const unsigned result = about(call, name, shown(name));
    if (result == 0) {
        for (Profile& profile : in) {
            if (profile.name == name) {
                profile.protectFlag = false;
            }
        }
    }
    return result;
}

unsigned Profiles::next(const char* call, const std::vector<std::string>& names,
                        const std::string& name, std::string& next) {
    auto place = names.begin();
    if (!name.empty()) {
        place = std::find(names.begin(), names.end(), name);
        if (place != names.end()) {
            ++place;
        }
    }
    const int result = desk_.ask(
        {Service::profiles, call, name, shown(name), Refusal::one, place == names.end() ? 1 : 0});
    if (result == 0) {
        next = place == names.end() ? "" : *place;
        desk_.output(shown(next));
    }
    return static_cast<unsigned>(result);
}

bool Profiles::ask(const char* call, const std::string& name, bool Flow::*property) {
    const bool normal = std::any_of(flows.begin(), flows.end(), [&](const Flow& flow) {
        return flow.name == name && flow.*property;
    });
    return desk_.askTruth(
        {Service::profiles, call, name, shown(name), Refusal::never, normal ? 1 : 0});
}

unsigned Profiles::about(const char* call, const std::string& name, const std::string& args) {
    return static_cast<unsigned>(desk_.ask({Service::profiles, call, name, args}));
}

unsigned Profiles::plain(const char* call, const std::string& args) {
    return static_cast<unsigned>(desk_.ask({Service::profiles, call, "", args}));
}

std::vector<std::string> Profiles::flowNames() const {
    std::vector<std::string> names;
    for (const Flow& flow : flows) {
        names.push_back(flow.name);
    }
    return names;
}

std::vector<std::string> Profiles::multicastNames() const {
    std::vector<std::string> names;
    for (const Profile& profile : multicasts) {
        names.push_back(profile.name);
    }
    return names;
}

int Profiles::aclList(std::list<ACLContainer_t::aclInfo_t>& acls) {
    const int result = desk_.ask({Service::acl, "getACLsInfo", "", "", Refusal::negative});
    if (result == 0) {
        acls.clear();
        for (const std::string& name : accessLists) {
            acls.push_back({name});
        }
    }
    return result;
}

int Profiles::aclCheckDynamic(const std::string& name) {
    return desk_.ask({Service::acl, "aclCheckDynamic", name, shown(name), Refusal::six});
}

int Profiles::aclProtect(const std::string& name, unsigned level) {
    return desk_.ask(
        {Service::acl, "setAclProtected", name, shownList(name, level), Refusal::negative});
}

int Profiles::aclDeleteAll() {
    return desk_.ask({Service::acl, "accessListDynamicDeleteAll", "", "", Refusal::negative});
}

unsigned Profiles::l2cpList(std::list<std::string>& names) {
    const unsigned result = plain("profileGetAll", "");
    if (result == 0) {
        names.assign(l2cps.begin(), l2cps.end());
    }
    return result;
}

}  // namespace fake
