// The frame of every service function: reach the module, call one member, translate its code.
#pragma once

#include "tal/tal.h"

namespace rpc_tal {

// `call` takes the module and returns its result code. An exception becomes 1.
template <class Call>
uint32_t serve(Call call) noexcept {
    try {
        const auto code = static_cast<talResultCode>(call(singleton<tal>::instance()));
        rpc_tal_res result{};
        if (!singleton<tal>::instance().talResTypeSet(code, &result))
            return 1;
        return result;
    } catch (...) {
        return 1;
    }
}

// As above for members that answer true for success.
template <class Call>
uint32_t serveBool(Call call) noexcept {
    try {
        return call(singleton<tal>::instance()) ? 0 : 1;
    } catch (...) {
        return 1;
    }
}

}  // namespace rpc_tal
