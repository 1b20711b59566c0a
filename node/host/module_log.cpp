#include "node/host/module_log.h"

#include "platform/log.h"

namespace node {

namespace {

EventLog* attachedLog = nullptr;
thread_local unsigned messageLevel = 0;  // a level is set for the writes of the same thread

}  // namespace

void attachModuleLog(EventLog* log) {
    attachedLog = log;
}

}  // namespace node

void Log::setMsgLevel(unsigned level) {
    node::messageLevel = level;
}

void Log::write(const std::string& text) {
    if (!node::attachedLog) {
        return;
    }
    std::string line = text;
    while (!line.empty() && line.back() == '\n') {
        line.pop_back();
    }
    node::attachedLog->line("module", "level " + std::to_string(node::messageLevel) + ": " + line);
}

template <>
Log& singleton<Log>::instance() {
    static Log log;
    return log;
}
