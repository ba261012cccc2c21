// Interface functions: states and levels of nodes.
#include "BN/Equations/EqnRename.h"
#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnEdit.h"
#include "Basic/Names.h"
#include "Basic/Text.h"
#include "Talora/APICheck.h"
#include "Talora/ApiFields.h"

using namespace talora;

namespace {

std::string LevelText(double level)
{
    if (level == InfinityDbl()) return "infinity";
    if (level == -InfinityDbl()) return "-infinity";
    return FormatReal15(level);
}

// Title, name, interval of a discretised node, or number.
std::string StateLabel(const Node& node, int state)
{
    if (!StateTitle(node, state).empty()) return StateTitle(node, state);
    const std::vector<double>& levels = node.states.levels;
    if (StateName(node, state).empty() && !IsDiscrete(node) && state + 1 < int(levels.size()))
        return LevelText(levels[state]) + " to " + LevelText(levels[state + 1]);
    return StateWord(node, state);
}

// What is passed to name states; its problems are told with the argument's name where it is wide.
std::string StateNameArgument(const char* name, const char* argument, bool is_list)
{
    if (name == nullptr && CheckingLevel() >= CHECK_HANDLES) Fail<5114>();
    std::string text = NarrowText(name);
    if (text.empty() && CheckingLevel() >= CHECK_HANDLES) Fail<5142>();
    if (name == nullptr || !IsWide(name)) return text;
    std::string reason;
    for (const std::string& each : is_list ? SplitNames(text) : std::vector<std::string>{text})
        if (CheckNarrowName(each, false, &reason) != 0)
            Fail<5118>(("in argument '" + std::string(argument) + "', ").c_str(), reason.c_str());
    return text;
}

}  // namespace

int GetNodeNumberStates_bn(const node_bn* node)
{
    return CallApi(__func__, node, -1, [&] { return NumStates(*node); });
}

void SetNodeStateName_bn(node_bn* node, state_bn state, const char* state_name)
{
    CallApi(__func__, node, [&] {
        const std::string name = StateNameArgument(state_name, "state_name", false);
        const EquationsWithNames equations(*node, true);
        SetStateName(*node, state, name);
        equations.Follow(name.c_str());
    });
}

void SetNodeStateNames_bn(node_bn* node, const char* state_names)
{
    CallApi(__func__, node, [&] {
        const std::string names = StateNameArgument(state_names, "state_names", true);
        const EquationsWithNames equations(*node, true);
        SetStateNames(*node, SplitNames(names));
        equations.Follow(names.c_str());
    });
}

void RemoveNodeStateNames_bn(node_bn* node, state_bn state)
{
    CallApi(__func__, node, [&] {
        const EquationsWithNames equations(*node, true);
        if (state == EVERY_STATE)
            SetStateNames(*node, {});
        else
            SetStateName(*node, state, "");
        equations.Follow("#");
    });
}

const char* GetNodeStateName_bn(const node_bn* node, state_bn state)
{
    return CallApi(__func__, node, static_cast<const char*>(nullptr), [&] {
        CheckState(*node, state);
        return StateName(*node, state).c_str();
    });
}

void SetNodeStateTitle_bn(node_bn* node, state_bn state, const char* title)
{
    CallApi(__func__, node, [&] {
        SetStateText(*node, state, &StateText::title, TextArgument(title), "change state title");
    });
}

const char* GetNodeStateTitle_bn(const node_bn* node, state_bn state)
{
    return CallApi(__func__, node, static_cast<const char*>(nullptr), [&] {
        CheckState(*node, state);
        return StateTitle(*node, state).c_str();
    });
}

void SetNodeStateComment_bn(node_bn* node, state_bn state, const char* comment)
{
    CallApi(__func__, node, [&] {
        SetStateText(*node, state, &StateText::comment, TextArgument(comment), "change state comment");
    });
}

const char* GetNodeStateComment_bn(const node_bn* node, state_bn state)
{
    return CallApi(__func__, node, static_cast<const char*>(nullptr), [&] {
        CheckState(*node, state);
        return StateComment(*node, state).c_str();
    });
}

state_bn GetStateNamed_bn(const char* name, const node_bn* node)
{
    return CallApi(__func__, node, int(UNDEF_STATE), [&] {
        if (name == nullptr && CheckingLevel() >= CHECK_HANDLES) Fail<5114>();
        return FindState(*node, NarrowText(name));
    });
}

int GetNodeStateLabel_bn(const node_bn* node, state_bn state, const char* options, char* label, int max_chars)
{
    return CallApi(__func__, node, -1, [&] {
        CheckState(*node, state);
        return WriteLabel(StateLabel(*node, state), options, label, max_chars);
    });
}

void AddNodeStates_bn(node_bn* node, state_bn first_state, const char* state_names, int num_states,
                      double cpt_fill)
{
    CallApi(__func__, node, [&] {
        const EquationsWithNames equations(*node, true);
        AddStates(*node, first_state, SplitNames(TextArgument(state_names)), num_states, cpt_fill);
        equations.Follow("#");
    });
}

void RemoveNodeState_bn(node_bn* node, state_bn state)
{
    CallApi(__func__, node, [&] { RemoveState(*node, state); });
}

void ReorderNodeStates_bn(node_bn* node, const state_bn* new_order)
{
    CallApi(__func__, node, [&] {
        if (new_order == nullptr) Fail<6205>(node->name.c_str());
        ReorderStates(*node, std::vector<int>(new_order, new_order + NumStates(*node)));
    });
}

void SetNodeLevels_bn(node_bn* node, int num_states, const level_bn* levels)
{
    CallApi(__func__, node, [&] { SetLevels(*node, num_states, levels); });
}

const level_bn* GetNodeLevels_bn(const node_bn* node)
{
    return CallApi(__func__, node, static_cast<const level_bn*>(nullptr),
                   [&] { return node->states.levels.empty() ? nullptr : node->states.levels.data(); });
}

int GetNodeNumberLevels_bn(const node_bn* node)
{
    return CallApi(__func__, node, -1, [&] { return int(node->states.levels.size()); });
}
