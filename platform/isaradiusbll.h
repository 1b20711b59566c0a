// ISA, the RADIUS logic of the node. A login request only queues the question: the answer
// comes later through rpcTalReply, never from inside the call, with no lock of ISA held.
#pragma once

#include "platform/singleton.h"

struct rpcTalLoginBlockBll;  // defined by the module, 604 bytes

struct rpcIsaBllLoginRes  // filled by ISA, never read by the module
{
    unsigned result;
};

class isaradiusbll {
public:
    // All return 0 on success. The block is valid only during the call; ISA may change it,
    // and the changed block is what the module keeps.
    unsigned isaradiusbllLoginRequest(rpcTalLoginBlockBll* block, rpcIsaBllLoginRes* result);
    unsigned isaradiusbllTalMode(int mode);  // 1 = TAL was switched on
    unsigned isaradiusbllClearConfig();
};

template <>
isaradiusbll& singleton<isaradiusbll>::instance();
