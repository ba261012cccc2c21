// Showing where in an equation a mistake is: the text with a mark below the place.
#include "talora/Formula.h"

#include <algorithm>

#include "talora/Text.h"

namespace command {

namespace {

// Of a long text, so much is shown on either side of the mistake.
constexpr int kShown = 60;

}  // namespace

std::string ExplainMistake(Session& session, const std::string& text, int place)
{
    const report_vx* report = GetError_vx(session.env, ERROR_SEVERITY, 0, nullptr);
    std::string message = report ? ErrorMessage_vx(report) : "there is a mistake in the equation";
    ClearErrors_vx(session.env, ERROR_SEVERITY);
    if (place < 0 || place > static_cast<int>(text.size())) return message;
    const int first = std::max(0, place - kShown);
    const std::string before = Printable(text.substr(first, place - first));
    const std::string behind = Printable(text.substr(place, kShown));
    return message + "\n    " + before + behind + "\n    " + std::string(DisplayWidth(before), ' ') + "^";
}

std::string ExplainEquation(Session& session, const node_bn* node, const char* equation)
{
    int place = -1;
    if (CheckNodeEquation_bn(node, equation, &place)) return "";
    return ExplainMistake(session, equation ? equation : GetNodeEquation_bn(node), place);
}

}  // namespace command
