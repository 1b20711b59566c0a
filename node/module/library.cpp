// The program is not linked with the library, so that it can be unloaded and exchanged: all
// that is called of it is looked up by name. Timeout, queue size and the rule for any frame have no
// service function; other modules of a node use the members of class tal, which are looked up by
// the names that the compiler gives them and called, as the platform's C++ ABI has it, with the
// object first.
#include "node/module/library.h"

#include <dlfcn.h>

#include <filesystem>

namespace node {

Library::Library(const std::string& path) : path_(path) {
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_) {
        throw LibraryError(dlerror());
    }
    try {
        look(adminStateSet, "rpcTalAdminStateSet");
        look(adminStateGet, "rpcTalAdminStateGet");
        look(intfAdminStateSet, "rpcTalIntfAdminStateSet");
        look(intfAdminStateGet, "rpcTalIntfAdminStateGet");
        look(intfAuthenAdminStateSet, "rpcTalIntfAuthenAdminStateSet");
        look(intfAuthenAdminStateGet, "rpcTalIntfAuthenAdminStateGet");
        look(intfAuthorAdminStateSet, "rpcTalIntfAuthorAdminStateSet");
        look(intfAuthorAdminStateGet, "rpcTalIntfAuthorAdminStateGet");
        look(intfAutoReqAdminStateSet, "rpcTalIntfAutoReqAdminStateSet");
        look(intfAutoReqAdminStateGet, "rpcTalIntfAutoReqAdminStateGet");
        look(ruleSet, "rpcTalRuleSet");
        look(ruleGet, "rpcTalRuleGet");
        look(reply, "rpcTalReply");
        look(instance_, "_ZN9singletonI3talE8instanceEv");
        look(timeoutSet_, "_ZN3tal17talIntfTimeoutSetEjj");
        look(maxQueueSizeSet_, "_ZN3tal22talIntfMaxQueueSizeSetEjj");
        look(ruleDefaultSet_, "_ZN3tal17setTalRuleDefaultEP7talRule");
        look(ruleSet_, "_ZN3tal10talRuleSetEjP7talRule12talOperation");
        look(ruleExists_, "_ZN3tal19talRuleExistsByTypeEj11talRuleType");
    } catch (const LibraryError&) {
        dlclose(handle_);
        throw;
    }
}

Library::~Library() {
    if (handle_) {
        dlclose(handle_);
    }
}

template <class Function>
void Library::look(Function& function, const char* name) {
    function = reinterpret_cast<Function>(dlsym(handle_, name));
    if (!function) {
        throw LibraryError(path_ + ": has no " + name);
    }
}

bool Library::unload() {
    if (handle_) {
        dlclose(handle_);
        handle_ = nullptr;
    }
    void* const left = dlopen(path_.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (left) {
        dlclose(left);
    }
    return left == nullptr;
}

uint32_t Library::timeoutSet(unsigned ifId, uint32_t seconds) const {
    return timeoutSet_(&instance_(), ifId, seconds);
}

uint32_t Library::maxQueueSizeSet(unsigned ifId, uint32_t frames) const {
    return maxQueueSizeSet_(&instance_(), ifId, frames);
}

bool Library::anyRuleExists(unsigned ifId) const {
    return ruleExists_(&instance_(), ifId, talRuleTypeAny);
}

uint32_t Library::anyRuleSet(unsigned ifId, bool present) const {
    talRule rule{};
    ruleDefaultSet_(&instance_(), &rule);
    rule.type = talRuleTypeAny;
    if (present) {
        rule.type0Value = 0;
    }
    return ruleSet_(&instance_(), ifId, &rule, present ? talOperationAdd : talOperationDelete);
}

std::string defaultLibraryPath() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    for (const char* place :
         {"../lib/libtal.so", "../lib/" TAL_LIBRARY_ARCHITECTURE "/libtal.so"}) {
        const std::filesystem::path path = (program.parent_path() / place).lexically_normal();
        if (std::filesystem::exists(path, error)) {
            return path.string();
        }
    }
    return "libtal.so";
}

}  // namespace node
