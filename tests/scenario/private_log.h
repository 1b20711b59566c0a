// A /var/log of the process's own, so that the real library can be run without touching the
// machine's. Call before any thread is started.
#pragma once

#include <string>

// Starts the program again in mount (and, for ordinary users, user) namespaces of its own with
// an empty /var/log, where they are permitted; returns there, or where they are refused at once.
void enterPrivateLog(int& argc, char** argv);

// Empty when /var/log belongs to this process; else why it does not.
std::string privateLogMissing();
