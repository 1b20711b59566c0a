// The board: its type and the services that exist only on boards with DSL lines.
// Board types 1, 5 and 7 are those with DSL lines.
#pragma once

#include <boost/shared_ptr.hpp>
#include "platform/singleton.h"
#include "platform/vdsl.h"

class Ports {
public:
    unsigned getBoardType() const;
    boost::shared_ptr<Vdsl> getVdslImpl() const;  // may throw; empty if there is none
    unsigned vdslPortDynamicProfilesDelete(unsigned ifId);
};

template <>
Ports& singleton<Ports>::instance();
