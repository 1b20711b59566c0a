// How long a login takes through the whole node, while another line is quiet or flooded.
// Test code, one thread but for the flood.
#pragma once

#include <vector>

struct LoginTimes {
    std::vector<double> quiet;    // microseconds, from sending the frame to its way out
    std::vector<double> flooded;  // the same, another line's closed gate under 64-byte frames
    std::vector<double> asked;    // the same, and those frames ask for a login that nobody answers
    double floodRate = 0;         // frames per second
};

// In a namespace of its own, with a node of 98 lines; each logs in once per round.
LoginTimes measureLogins(unsigned rounds);
