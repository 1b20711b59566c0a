// Identity of the node and of the board the process runs on. Callable from any thread.
#pragma once

#include <string>

class sysInfo {
public:
    sysInfo();
    ~sysInfo();
    unsigned getShelfId(std::string& shelfId) const;  // 0 on success
};

extern "C" int ncfmGetMyBoardPos(unsigned char* position);  // 0 on success
