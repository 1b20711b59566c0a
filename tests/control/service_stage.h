// The platform under the service functions, for tests that see nothing of the module but its C
// functions. One per test; one thread.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

class ServiceStage {
public:
    // Interfaces of type 1 with the kernel names "if1_", "if2_", ...; the module is started.
    explicit ServiceStage(std::initializer_list<unsigned> interfaces);
    ~ServiceStage();

    // What the platform does from now on.
    void refuse(const std::string& call);
    void engineReports(const std::string& call, std::vector<unsigned> values);
    void boardType(int type);
    void addServiceProfile(const std::string& name);  // protected, so dynamic
    void trap(unsigned interface);                    // traffic that asks for a login

    // What has been asked of it; lines like "ittalPortAuthenReply(1, true)".
    std::vector<std::string> engineCalls() const;
    size_t count(const std::string& call) const;
    void forget();
    std::string storedFile() const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};
