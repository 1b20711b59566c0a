// The management rule record and the module's, both ways. Pure; any thread. Records are read and
// written inside their own bytes only, whatever texts without an end they hold.
#pragma once

#include "rpc/rpctal.h"

namespace rpc_tal {

// How the type-2 value of a record is taken.
enum class Type2Value {
    unsetAllowed,  // 0, 1 and unset are taken, anything else leaves the slot unset
    required,      // anything but 0 and 1 is refused
};

// False when the record is refused; `rule` must come with its slots unset.
bool ruleFromRecord(const rpcTalRule& record, Type2Value type2Value, talRule& rule);

// False when a slot cannot be told; the record may then be partly filled.
bool recordFromRule(const talRule& rule, rpcTalRule& record);

}  // namespace rpc_tal
