#include "tal/report.h"

#include "platform/log.h"

#include <string>

namespace tal_report {

void lockRefused(const char* operation) {
    Log& log = singleton<Log>::instance();
    log.setMsgLevel(1);
    // Kept: "exclusive" whichever form was asked for; operators search for this text.
    log.write("Error obtaining exclusive lock in ");
    log.write(std::string("tal::") + operation + ".\n");
}

}  // namespace tal_report
