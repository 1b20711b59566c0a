// The module's service functions as management calls them: a table that whoever loads the
// module fills. ISA's reply is missing on purpose, verdicts are not management's to give.
// Filled before the server starts; the functions may be called from any thread.
#pragma once

#include "rpc/rpctal.h"

namespace node::control {

struct ServiceFunctions {
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
    decltype(&::rpcTalIntfAuthenOperStateGet) intfAuthenOperStateGet = nullptr;
    decltype(&::rpcTalIntfAuthorOperStateGet) intfAuthorOperStateGet = nullptr;
    decltype(&::rpcTalIntfStatisticsGet) intfStatisticsGet = nullptr;
    decltype(&::rpcTalIntfStatesGet) intfStatesGet = nullptr;
    decltype(&::rpcTalRuleSet) ruleSet = nullptr;
    decltype(&::rpcTalRuleBundleSet) ruleBundleSet = nullptr;
    decltype(&::rpcTalRuleGet) ruleGet = nullptr;
    decltype(&::rpcTalConvertAllDynamicProfilesToStatic) convertAllDynamicProfilesToStatic =
        nullptr;
    decltype(&::clearIsaConfiguration) clearIsaConfiguration = nullptr;
};

// Calls visit(member, name) for every entry; `name` is the C name to look up.
template <class Table, class Visit>
void forEachFunction(Table& table, Visit visit) {
    visit(table.adminStateSet, "rpcTalAdminStateSet");
    visit(table.adminStateGet, "rpcTalAdminStateGet");
    visit(table.intfAdminStateSet, "rpcTalIntfAdminStateSet");
    visit(table.intfAdminStateGet, "rpcTalIntfAdminStateGet");
    visit(table.intfAuthenAdminStateSet, "rpcTalIntfAuthenAdminStateSet");
    visit(table.intfAuthenAdminStateGet, "rpcTalIntfAuthenAdminStateGet");
    visit(table.intfAuthorAdminStateSet, "rpcTalIntfAuthorAdminStateSet");
    visit(table.intfAuthorAdminStateGet, "rpcTalIntfAuthorAdminStateGet");
    visit(table.intfAutoReqAdminStateSet, "rpcTalIntfAutoReqAdminStateSet");
    visit(table.intfAutoReqAdminStateGet, "rpcTalIntfAutoReqAdminStateGet");
    visit(table.intfAuthenOperStateGet, "rpcTalIntfAuthenOperStateGet");
    visit(table.intfAuthorOperStateGet, "rpcTalIntfAuthorOperStateGet");
    visit(table.intfStatisticsGet, "rpcTalIntfStatisticsGet");
    visit(table.intfStatesGet, "rpcTalIntfStatesGet");
    visit(table.ruleSet, "rpcTalRuleSet");
    visit(table.ruleBundleSet, "rpcTalRuleBundleSet");
    visit(table.ruleGet, "rpcTalRuleGet");
    visit(table.convertAllDynamicProfilesToStatic, "rpcTalConvertAllDynamicProfilesToStatic");
    visit(table.clearIsaConfiguration, "clearIsaConfiguration");
}

}  // namespace node::control
