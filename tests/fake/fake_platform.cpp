#include "tests/fake/fake_platform.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr const char* usualBridge = "bridge0";
FakePlatform* currentPlatform = nullptr;

}  // namespace

FakePlatform::FakePlatform(fake::LockMode mode)
    : answers(desk_.answers),
      manager(desk_, mode),
      interfaces(desk_),
      engine(desk_),
      isa(desk_),
      board(desk_),
      profiles(desk_),
      logs(desk_) {
    currentPlatform = this;
    bridgeName = usualBridge;
    dropCallbacks();
}

FakePlatform::~FakePlatform() {
    const fake::LockDepth held = locksHeld();
    EXPECT_EQ(0, held.exclusive) << "exclusive locks never given back";
    EXPECT_EQ(0, held.shared) << "shared locks never given back";
    checkBridgeName();
    if (testing::Test::HasFailure()) {
        printf("All calls of the module, in order:\n%s", wholeLog().c_str());
    }
    dropCallbacks();
    currentPlatform = nullptr;
}

FakePlatform& FakePlatform::current() {
    if (currentPlatform == nullptr) {
        fprintf(stderr, "the module called its platform while no FakePlatform existed\n");
        abort();
    }
    return *currentPlatform;
}

void FakePlatform::dropCallbacks() {
    singleton<BLLManager>::instance().configurationApplyStartCallbacks.clear();
    singleton<BLLManager>::instance().configurationApplyStopCallbacks.clear();
    singleton<Interfaces>::instance().interfaceEventCallbacks.clear();
    singleton<itbridge>::instance().talEventCallbacks.clear();
}

void FakePlatform::checkBridgeName() const {
    for (const fake::Call& call : desk_.log.all()) {
        if (call.service == fake::Service::engine && call.bridge != usualBridge &&
            call.bridge != bridgeName) {
            ADD_FAILURE() << call.text << " went to the bridge " << fake::quoted(call.bridge);
        }
    }
}

std::vector<std::string> FakePlatform::calls() const {
    using fake::Service;
    return calls({Service::manager, Service::interfaces, Service::bridge, Service::engine,
                  Service::isa, Service::sysinfo, Service::ports, Service::vdsl, Service::profiles,
                  Service::acl});
}

std::vector<std::string> FakePlatform::calls(std::initializer_list<fake::Service> services) const {
    return desk_.log.lines(services);
}

std::vector<fake::Call> FakePlatform::find(const std::string& name) const {
    std::vector<fake::Call> found;
    for (fake::Call& call : desk_.log.all()) {
        if (call.name == name) {
            found.push_back(std::move(call));
        }
    }
    return found;
}

std::string FakePlatform::wholeLog() const {
    constexpr size_t longest = 2000;
    const std::vector<fake::Call> calls = desk_.log.all();
    std::string text;
    for (size_t i = 0; i < calls.size() && i < longest; ++i) {
        text += "  " + calls[i].text + "\n";
    }
    if (calls.size() > longest) {
        text += "  ... and " + std::to_string(calls.size() - longest) + " more\n";
    }
    return text;
}

unsigned FakePlatform::plain(fake::Service service, const char* name, const std::string& args) {
    return static_cast<unsigned>(desk_.ask({service, name, "", args}));
}

unsigned FakePlatform::boardType() {
    return static_cast<unsigned>(desk_.askValue(
        {fake::Service::ports, "getBoardType", "", "", fake::Refusal::never, board.type}));
}
