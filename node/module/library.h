// libtal.so in this process: loading, its service functions, unloading. Main thread; the
// service functions may be called from any thread while it is loaded.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "rpc/rpctal.h"

namespace node {

class LibraryError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Library {
public:
    // Loads and looks up everything below. Throws LibraryError with one line.
    explicit Library(const std::string& path);
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library();

    const std::string& path() const { return path_; }
    bool unload();  // true: it is gone from the process

    decltype(&::rpcTalAdminStateSet) adminStateSet = nullptr;
    decltype(&::rpcTalAdminStateGet) adminStateGet = nullptr;
    decltype(&::rpcTalIntfAdminStateSet) intfAdminStateSet = nullptr;
    decltype(&::rpcTalIntfAdminStateGet) intfAdminStateGet = nullptr;
    decltype(&::rpcTalIntfAuthenAdminStateSet) intfAuthenAdminStateSet = nullptr;
    decltype(&::rpcTalIntfAuthenAdminStateGet) intfAuthenAdminStateGet = nullptr;
    decltype(&::rpcTalIntfAuthorAdminStateSet) intfAuthorAdminStateSet = nullptr;
    decltype(&::rpcTalIntfAuthorAdminStateGet) intfAuthorAdminStateGet = nullptr;
    decltype(&::rpcTalIntfAutoReqAdminStateSet) intfAutoReqAdminStateSet = nullptr;
    decltype(&::rpcTalIntfAutoReqAdminStateGet) intfAutoReqAdminStateGet = nullptr;
    decltype(&::rpcTalRuleSet) ruleSet = nullptr;
    decltype(&::rpcTalRuleGet) ruleGet = nullptr;
    decltype(&::rpcTalReply) reply = nullptr;

    // Settings that have no service function.
    uint32_t timeoutSet(unsigned ifId, uint32_t seconds) const;
    uint32_t maxQueueSizeSet(unsigned ifId, uint32_t frames) const;

    // The rule for any frame. The record of the service functions has no field for it: added
    // through them it would reach the engine and stay unknown to the module's table, so that
    // nothing could find or delete it.
    bool anyRuleExists(unsigned ifId) const;
    uint32_t anyRuleSet(unsigned ifId, bool present) const;  // a talResultCode; interface 0: all

private:
    using MemberSet = uint32_t (*)(tal* self, unsigned ifId, uint32_t value);

    template <class Function>
    void look(Function& function, const char* name);

    std::string path_;
    void* handle_ = nullptr;
    tal& (*instance_)() = nullptr;
    MemberSet timeoutSet_ = nullptr;
    MemberSet maxQueueSizeSet_ = nullptr;
    void (*ruleDefaultSet_)(tal* self, talRule* rule) = nullptr;
    talResultCode (*ruleSet_)(tal* self, unsigned ifId, talRule* rule, talOperation op) = nullptr;
    bool (*ruleExists_)(tal* self, unsigned ifId, talRuleType type) = nullptr;
};

// The path of the library that belongs to this program: in the build, or as installed; the
// bare name, for the loader's own search, when neither is there.
std::string defaultLibraryPath();

}  // namespace node
