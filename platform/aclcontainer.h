// MAC access lists as the forwarding-engine bridge holds them. Callable from any thread.
#pragma once

#include <list>
#include <string>

class ACLContainer_t {
public:
    struct aclInfo_t {
        std::string name;
    };

    int getACLsInfo(std::list<aclInfo_t>& acls);   // 0 on success
    int aclCheckDynamic(const std::string& name);  // 0 dynamic, 6 failed, else static
    int setAclProtected(const std::string& name, unsigned level);  // 0 on success
    int accessListDynamicDeleteAll();                              // 0 on success
};
