// DSL line and alarm profiles of a board with DSL ports. Names are NUL-terminated unless
// they fill their field.
#pragma once

#include <string>

struct rpcVdslProfile {
    char name[64];
    unsigned protection;  // 3 = dynamic, still protected
};

struct rpcVdslProfileAll {
    unsigned count;
    rpcVdslProfile profile[128];
};

struct AlarmProfileList {
    char name[30][64];
};

struct AlarmProfileProtectedFlags {
    unsigned protectedFlag;  // 3 = dynamic, still protected
};

class Vdsl {
public:
    virtual ~Vdsl() {}
    // All return 0 on success.
    virtual unsigned getProfileAll(rpcVdslProfileAll& all) = 0;
    virtual unsigned profileProtect(const std::string& name, unsigned level, int& result) = 0;
    virtual unsigned getAlarmProfileAll(AlarmProfileList& list) = 0;
    virtual unsigned getAlarmProtectedFlag(const std::string& name,
                                           AlarmProfileProtectedFlags& flags) = 0;
    virtual unsigned alarmProfileProtect(const std::string& name, unsigned level, int& result) = 0;
};
