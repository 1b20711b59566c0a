// The platform's own log. The level holds for the writes that follow it; any thread.
#pragma once

#include "platform/singleton.h"

#include <string>

class Log {
public:
    void setMsgLevel(unsigned level);
    void write(const std::string& text);
};

template <>
Log& singleton<Log>::instance();
