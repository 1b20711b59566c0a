// A host process loads the real library, lives a whole life with it, unloads it and does so
// again: nothing of the first life may be left but the storage file.
#include "platform/ittal.h"
#include "tests/fake/fake_platform.h"
#include "tests/scenario/counted_memory.h"
#include "tests/scenario/private_log.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <list>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using fake::sameLines;
using fake::Service;
using Lines = std::vector<std::string>;

namespace {

constexpr char storageFile[] = "/var/log/tal.store.dat";

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

bool libraryLoaded() {
    void* const again = dlopen(TAL_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    if (again != nullptr) {
        dlclose(again);
    }
    return again != nullptr || contents("/proc/self/maps").find("libtal.so") != std::string::npos;
}

// The library between dlopen and dlclose, reached as a host reaches it.
class LoadedModule {
public:
    LoadedModule() : handle_(dlopen(TAL_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
        if (handle_ == nullptr) {
            ADD_FAILURE() << dlerror();
        }
    }
    ~LoadedModule() {
        FakePlatform::current().letModuleGo();
        if (handle_ != nullptr) {
            EXPECT_EQ(0, dlclose(handle_));
        }
    }
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    explicit operator bool() const { return handle_ != nullptr; }

    template <class... Values>
    uint32_t call(const char* name, Values... values) {
        using Function = uint32_t (*)(Values...);
        const auto function = reinterpret_cast<Function>(dlsym(handle_, name));
        if (function == nullptr) {
            ADD_FAILURE() << name << " is not exported";
            return 4711;
        }
        return function(values...);
    }
    BLEntity& entity() const { return *fake::Manager::entities().at(0); }

private:
    void* const handle_;
};

class ModuleLoadTest : public testing::Test {
protected:
    FakePlatform platform;

    void SetUp() override {
        if (!privateLogMissing().empty()) {
            GTEST_SKIP() << privateLogMissing();
        }
        std::filesystem::remove(storageFile);
        platform.interfaces.add(5, 1, "1/5", "dsl5");
        platform.interfaces.add(7, 1, "1/7", "dsl7");
        ASSERT_FALSE(libraryLoaded());
        ASSERT_TRUE(fake::Manager::entities().empty());
    }

    // Loads, checks that the module is as new, starts it and applies the configuration.
    void bringUp(LoadedModule& module) {
        ASSERT_TRUE(module);
        ASSERT_TRUE(libraryLoaded());
        ASSERT_EQ(1u, fake::Manager::entities().size());
        EXPECT_EQ("tal", module.entity().getName());

        std::list<std::string> dependencies;
        module.entity().getDependencies(dependencies);
        EXPECT_EQ((std::list<std::string>{singleton<Interfaces>::instance().getName(),
                                          singleton<itbridge>::instance().getName()}),
                  dependencies);

        bool state = true;
        EXPECT_EQ(0u, module.call<bool*>("rpcTalAdminStateGet", &state));
        EXPECT_FALSE(state) << "left over from an earlier load";
        EXPECT_EQ(3u, (module.call<unsigned, bool*>("rpcTalIntfAdminStateGet", 7, &state)));

        ASSERT_TRUE(module.entity().start());
        EXPECT_EQ(1u, singleton<itbridge>::instance().talEventCallbacks.size());
        platform.forget();
        platform.manager.applyStart();
        EXPECT_EQ(0u, module.call<int>("rpcTalAdminStateSet", 1));
        EXPECT_EQ(0u, (module.call<unsigned, int>("rpcTalIntfAdminStateSet", 0, 1)));
        platform.manager.applyStop();
    }

    // First life: a login by trapped traffic is accepted and stored.
    void logIn() {
        LoadedModule module;
        bringUp(module);
        EXPECT_EQ(0u, platform.count("ittalStoredReqSend"));
        platform.forget();
        const std::string line = "taldsl7 000100001a2b3c4d5e192.168.001.010" +
                                 std::string(256, '5') + "060003isp002004port061003000abc";
        platform.engine.raise(line.c_str());
        ASSERT_EQ(1u, platform.isa.requests().size());
        EXPECT_EQ(7u, platform.isa.requests()[0].interface);
        EXPECT_EQ(0u, (module.call<unsigned, unsigned, int>("rpcTalReply", 7U, 2U, 0)));
        EXPECT_TRUE(sameLines(platform.calls({Service::engine, Service::syslog, Service::log}),
                              {"ittalPortAuthenReply(7, true)"}));
        EXPECT_EQ(0u, contents(storageFile).find("interface: 7\n"));
        EXPECT_TRUE(module.entity().stop());
    }

    // Second life: the engine is asked to resend, and ISA gets the stored identifiers.
    void replay() {
        const std::string stored = contents(storageFile);
        LoadedModule module;
        bringUp(module);
        EXPECT_EQ(stored, contents(storageFile));
        ASSERT_EQ(1u, platform.count("ittalStoredReqSend"));
        EXPECT_EQ("7", platform.find("ittalStoredReqSend")[0].key);
        platform.forget();
        platform.engine.raise("taldsl7 00");
        ASSERT_EQ(1u, platform.isa.requests().size());
        const rpcTalLoginBlockBll block = platform.isa.requests()[0];
        EXPECT_EQ(7u, block.interface);
        EXPECT_STREQ("KORVALIN:2 eth 5/1/7", block.circuitId);
        EXPECT_STREQ("port", block.remoteId);
        EXPECT_STREQ("isp", block.vendorId);
        EXPECT_STREQ("abc", block.clientId);
        EXPECT_EQ(0x13100001u, block.sourceIP);
        EXPECT_EQ(0x55555555u, block.userPatternSequence[0]);
        EXPECT_EQ(0xFFu, block.loginIdType);
        EXPECT_EQ(0u, (module.call<unsigned, unsigned, int>("rpcTalReply", 7U, 2U, 0)));
        EXPECT_TRUE(
            sameLines(platform.calls({Service::engine}), {"ittalPortAuthenReply(7, true)"}));
        EXPECT_EQ(stored, contents(storageFile)) << "the replayed login must stay stored";
        platform.manager.applyStart();
        platform.manager.applyStop();
        EXPECT_EQ(0u, platform.count("ittalStoredReqSend")) << "replayed once per load only";
        EXPECT_TRUE(platform.texts().empty());
    }
};

TEST_F(ModuleLoadTest, LoginIsStoredAndReplayedAfterAReloadTwiceInARow) {
    for (int round = 0; round < 2; ++round) {
        std::filesystem::remove(storageFile);
        logIn();
        EXPECT_FALSE(libraryLoaded());
        replay();
        EXPECT_FALSE(libraryLoaded());
        EXPECT_FALSE(contents(storageFile).empty());
    }
}

TEST_F(ModuleLoadTest, UnloadRunsTheDestructorAndGivesAllMemoryBack) {
    long after[4] = {};
    for (long& blocks : after) {
        {
            LoadedModule module;
            bringUp(module);
            platform.engine.raise("taldsl5 00");
        }
        platform.forget();
        EXPECT_FALSE(libraryLoaded());
        blocks = blocksInUse();
    }
    // The first life fills caches of the C library and of this program.
    EXPECT_EQ(after[1], after[2]);
    EXPECT_EQ(after[1], after[3]);
}

TEST_F(ModuleLoadTest, LoadAndUnloadAloneCallNothing) {
    {
        LoadedModule module;
        EXPECT_EQ(1u, fake::Manager::entities().size());
    }
    EXPECT_FALSE(libraryLoaded());
    EXPECT_EQ("", platform.wholeLog());
}

TEST_F(ModuleLoadTest, FirstServiceCallAfterLoadWorksWithoutAStart) {
    LoadedModule module;
    bool state = true;
    EXPECT_EQ(0u, module.call<bool*>("rpcTalAdminStateGet", &state));
    EXPECT_FALSE(state);
}

// ---- exports

class ExportsTest : public testing::Test {
protected:
    // Names of all defined dynamic symbols, once each.
    static std::set<std::string> exported() {
        std::set<std::string> names;
        FILE* const pipe = popen("nm -D --defined-only -C '" TAL_LIBRARY "'", "r");
        if (pipe == nullptr) {
            return names;
        }
        char line[4096];
        while (fgets(line, sizeof(line), pipe) != nullptr) {
            std::istringstream words(line);
            std::string address;
            std::string type;
            std::string name;
            words >> address >> type >> std::ws;
            std::getline(words, name);
            names.insert(name);
        }
        EXPECT_EQ(0, pclose(pipe));
        return names;
    }
};

TEST_F(ExportsTest, LibraryExportsTheAgreedListAndNothingElse) {
    Lines agreed;
    std::ifstream file(TAL_EXPORTS);
    for (std::string line; std::getline(file, line);) {
        agreed.push_back(line);
    }
    ASSERT_FALSE(agreed.empty());
    EXPECT_TRUE(std::is_sorted(agreed.begin(), agreed.end()));
    const std::set<std::string> names = exported();
    EXPECT_TRUE(sameLines(Lines(names.begin(), names.end()), agreed));
}

TEST_F(ExportsTest, ListIsTwentyServiceFunctionsAndTheTwoClasses) {
    const std::set<std::string> functions = {
        "rpcTalAdminStateSet",
        "rpcTalAdminStateGet",
        "rpcTalIntfAdminStateSet",
        "rpcTalIntfAdminStateGet",
        "rpcTalIntfAuthenAdminStateSet",
        "rpcTalIntfAuthenAdminStateGet",
        "rpcTalIntfAuthorAdminStateSet",
        "rpcTalIntfAuthorAdminStateGet",
        "rpcTalIntfAutoReqAdminStateSet",
        "rpcTalIntfAutoReqAdminStateGet",
        "rpcTalIntfAuthenOperStateGet",
        "rpcTalIntfAuthorOperStateGet",
        "rpcTalIntfStatisticsGet",
        "rpcTalIntfStatesGet",
        "rpcTalReply",
        "rpcTalRuleSet",
        "rpcTalRuleBundleSet",
        "rpcTalRuleGet",
        "rpcTalConvertAllDynamicProfilesToStatic",
        "clearIsaConfiguration",
    };
    ASSERT_EQ(20u, functions.size());
    const std::set<std::string> objects = {"vtable for tal", "typeinfo for tal",
                                           "typeinfo name for tal", "singleton<tal>::instance()"};
    const std::set<std::string> names = exported();
    for (const std::string& name : names) {
        const bool member = name.rfind("tal::", 0) == 0 || name.rfind("TalFea::", 0) == 0;
        EXPECT_TRUE(member || functions.count(name) + objects.count(name) == 1) << name;
    }
    for (const std::string& name : functions) {
        EXPECT_EQ(1u, names.count(name)) << name;
    }
    for (const std::string& name : objects) {
        EXPECT_EQ(1u, names.count(name)) << name;
    }
}

}  // namespace

int main(int argc, char** argv) {
    enterPrivateLog(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
