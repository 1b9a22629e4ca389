#pragma once

#include <sstream>
#include <string>

namespace test_support {

/// A line of a trace: frame, tick, event and details, with tabs between.
struct TraceLine {
    std::string frame;
    std::string tick;
    std::string event;
    std::string details;
};

inline TraceLine ReadTraceLine(const std::string& line) {
    std::istringstream fields(line);
    TraceLine read;
    std::getline(fields, read.frame, '\t');
    std::getline(fields, read.tick, '\t');
    std::getline(fields, read.event, '\t');
    std::getline(fields, read.details);
    return read;
}

}  // namespace test_support
