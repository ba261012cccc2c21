// Variables for tests of equations, in one line: "x:discrete true,false; c:continuous; n:levels 1,10".
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "Basic/Error.h"
#include "Misc/Equations/EqnEval.h"
#include "Misc/Equations/EqnParse.h"

namespace talora {

inline std::vector<std::string> SplitAt(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::stringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
    return parts;
}

// name: a state list "a,b,c"; "#3" for so many unnamed states; "[1,2]" for levels; "~" continuous;
// "~[0,1,2]" continuous with thresholds; "a,b[1,2]" for names and levels.
inline EqnVariable MakeVariable(const std::string& text)
{
    EqnVariable variable;
    const size_t colon = text.find(':');
    variable.name = text.substr(text.find_first_not_of(' '), colon - text.find_first_not_of(' '));
    std::string rest = text.substr(colon + 1);
    variable.discrete = rest[0] != '~';
    if (!variable.discrete) rest.erase(0, 1);
    if (const size_t open = rest.find('['); open != std::string::npos) {
        for (const std::string& level : SplitAt(rest.substr(open + 1, rest.size() - open - 2), ','))
            variable.levels.push_back(std::stod(level));
        rest.erase(open);
    }
    if (!rest.empty() && rest[0] == '#')
        variable.num_states = std::stoi(rest.substr(1));
    else if (!rest.empty())
        variable.state_names = SplitAt(rest, ',');
    if (!variable.state_names.empty()) variable.num_states = static_cast<int>(variable.state_names.size());
    if (variable.num_states == 0 && !variable.levels.empty())
        variable.num_states = static_cast<int>(variable.levels.size()) - (variable.discrete ? 0 : 1);
    return variable;
}

inline std::vector<EqnVariable> MakeVariables(const std::string& text)
{
    std::vector<EqnVariable> variables;
    for (const std::string& part : SplitAt(text, ';')) variables.push_back(MakeVariable(part));
    return variables;
}

// The message of a failure or warning, "number: text"; what the action returns if there is none.
template <class Action>
std::string MessageOf(Action action)
{
    try {
        return action();
    } catch (const Unwind& failure) {
        return std::to_string(failure.record->number) + ": " + failure.record->message;
    }
}

}  // namespace talora
