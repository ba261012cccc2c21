// What a conversion between file formats could not carry.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace talora {

enum class LossSeverity : uint8_t {
    LOOKS = 1,        // only how the net is drawn
    INFORMATION = 2,  // something that users or other programs can no longer read
    ANSWERS = 3       // beliefs, utilities or decisions differ
};

struct Loss {
    LossSeverity severity;
    std::string what;                // the kind of thing: "experience"
    std::vector<std::string> nodes;  // by the names they have in the net; empty for the net itself
    std::string instead;             // what was done
};

}  // namespace talora
