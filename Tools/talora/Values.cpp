// Values of the library as JSON and as text.
#include "talora/Values.h"

#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

#include "talora/Text.h"

namespace command {

Json TextOrNull(const char* text)
{
    return text && *text ? Json(text) : Json(nullptr);
}

Json RealOrNull(double value)
{
    const bool exists =
        std::isfinite(value) && value != GetUndefDbl_vx() && std::fabs(value) != GetInfinityDbl_vx();
    return exists ? Json(value) : Json(nullptr);
}

Json LevelsOrNull(const node_bn* node)
{
    const level_bn* levels = GetNodeLevels_bn(node);
    if (!levels) return nullptr;
    Json json = Json::array();
    const int num_levels = GetNodeNumberLevels_bn(node);
    for (int i = 0; i < num_levels; ++i) json.push_back(RealOrNull(levels[i]));
    return json;
}

Json Probability(prob_bn value)
{
    // JSON numbers are doubles here, so the double nearest to the shortest text is stored.
    const std::string text = ShortestNumber(value);
    double number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return RealOrNull(number);
}

const char* KindWord(const node_bn* node)
{
    switch (GetNodeKind_bn(node)) {
        case NATURE_NODE:
            return "NATURE";
        case CONSTANT_NODE:
            return "CONSTANT";
        case DECISION_NODE:
            return "DECISION";
        case UTILITY_NODE:
            return "UTILITY";
        case DISCONNECTED_NODE:
            return "DISCONNECTED";
        case ADVERSARY_NODE:
            return "ADVERSARY";
    }
    return "UNKNOWN_KIND";
}

const char* TypeWord(const node_bn* node)
{
    return GetNodeType_bn(node) == DISCRETE_TYPE ? "DISCRETE" : "CONTINUOUS";
}

std::string NetHeading(const net_bn* net)
{
    const std::string title = Printable(GetNetTitle_bn(net));
    return GetNetName_bn(net) + (title.empty() ? "" : ": " + title) + "\n";
}

}  // namespace command
