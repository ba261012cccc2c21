// The tables of fields of net files, and looking them up.
#include "BN/Files/NetFields.h"

#include <unordered_map>

namespace talora {

// clang-format off
const NetFieldDef kNetFields[NUM_NET_FIELDS] = {
    // keyword          reader                    writer
    {"name",            netread::Name,            nullptr},
    {"nodes",           nullptr,                  nullptr},
    {"numdimensions",   netread::NumDimensions,   netwrite::NumDimensions},
    {"eqncontext",      nullptr,                  nullptr},
    {"AutoCompile",     netread::AutoCompile,     netwrite::AutoCompile},
    {"autoupdate",      netread::AutoUpdate,      netwrite::AutoUpdate},
    {"mostprobable",    netread::MostProbable,    netwrite::MostProbable},
    {"NodeSet",         nullptr,                  nullptr},
    {"ElimOrder",       netread::ElimOrder,       netwrite::ElimOrder},
    {"title",           netread::Title,           netwrite::Title},
    {"comment",         netread::Comment,         netwrite::Comment},
    {"author",          netread::Author,          netwrite::Author},
    {"whochanged",      netread::WhoChanged,      netwrite::WhoChanged},
    {"whenchanged",     netread::WhenChanged,     netwrite::WhenChanged},
};

const NodeFieldDef kNodeFields[NUM_NODE_FIELDS] = {
    // keyword          needs            reader                     writer
    {"name",            Needs::NOTHING,  noderead::Name,            nullptr},
    {"discrete",        Needs::NOTHING,  noderead::Discrete,        nodewrite::Discrete},
    {"measure",         Needs::NOTHING,  noderead::MeasureLevel,    nodewrite::MeasureLevel},
    {"numstates",       Needs::NOTHING,  noderead::NumStates,       nodewrite::NumStates},
    {"states",          Needs::NOTHING,  noderead::States,          nodewrite::States},
    {"statetitles",     Needs::NOTHING,  noderead::StateTitles,     nodewrite::StateTitles},
    {"StateComments",   Needs::NOTHING,  noderead::StateComments,   nodewrite::StateComments},
    {"levels",          Needs::TYPE,     noderead::Levels,          nodewrite::Levels},
    {"units",           Needs::NOTHING,  noderead::Units,           nodewrite::Units},
    {"kind",            Needs::NOTHING,  noderead::Kind,            nodewrite::Kind},
    {"chance",          Needs::NOTHING,  noderead::Chance,          nodewrite::Chance},
    {"parents",         Needs::NAMES,    noderead::Parents,         nodewrite::Parents},
    {"inputs",          Needs::PARENTS,  noderead::Inputs,          nodewrite::Inputs},
    {"functable",       Needs::TABLE,    noderead::FuncTable,       nodewrite::FuncTable},
    {"probs",           Needs::TABLE,    noderead::Probs,           nodewrite::Probs},
    {"numcases",        Needs::TABLE,    noderead::NumCases,        nodewrite::NumCases},
    {"ExperBase",       Needs::NOTHING,  noderead::ExperBase,       nodewrite::ExperBase},
    {"equation",        Needs::NOTHING,  noderead::Equation,        nodewrite::Equation},
    {"EqnDirty",        Needs::NOTHING,  noderead::Dirty,           nodewrite::Dirty},
    {"delays",          Needs::PARENTS,  noderead::Delays,          nodewrite::Delays},
    {"persist",         Needs::NOTHING,  noderead::Persist,         nodewrite::Persist},
    {"position",        Needs::NOTHING,  noderead::Position,        nodewrite::Position},
    {"title",           Needs::NOTHING,  noderead::Title,           nodewrite::Title},
    {"comment",         Needs::NOTHING,  noderead::Comment,         nodewrite::Comment},
    {"author",          Needs::NOTHING,  noderead::Author,          nodewrite::Author},
    {"whochanged",      Needs::NOTHING,  noderead::WhoChanged,      nodewrite::WhoChanged},
    {"whenchanged",     Needs::NOTHING,  noderead::WhenChanged,     nodewrite::WhenChanged},
    {"evidence",        Needs::STATES,   noderead::Evidence,        nodewrite::Evidence},
    {"value",           Needs::STATES,   noderead::Value,           nodewrite::Value},
    {"likelihood",      Needs::STATES,   noderead::Likelihood,      nodewrite::Likelihood},
    {"Finding",         Needs::STATES,   noderead::Finding,         nullptr},
    {"belief",          Needs::STATES,   noderead::Belief,          nodewrite::Belief},
    {"<dummy>",         Needs::NOTHING,  nullptr,                   nullptr},
    {"children",        Needs::NOTHING,  nullptr,                   nullptr},
    {"net",             Needs::NOTHING,  nullptr,                   nullptr},
    {"visual",          Needs::NOTHING,  nullptr,                   nullptr},
    {"definenodes",     Needs::NOTHING,  nullptr,                   nullptr},
    {"isdefine",        Needs::NOTHING,  nullptr,                   nullptr},
    {"fields",          Needs::NOTHING,  nullptr,                   nullptr},
};

// clang-format on

namespace {

template <class Def, size_t kCount>
std::unordered_map<std::string_view, int> MakeIndex(const Def (&fields)[kCount])
{
    std::unordered_map<std::string_view, int> index;
    for (size_t i = 0; i < kCount; ++i) index.emplace(fields[i].keyword, static_cast<int>(i));
    return index;
}

int Find(const std::unordered_map<std::string_view, int>& index, std::string_view keyword)
{
    const auto found = index.find(keyword);
    return found == index.end() ? -1 : found->second;
}

}  // namespace

int FindNetField(std::string_view keyword)
{
    static const auto index = MakeIndex(kNetFields);
    return Find(index, keyword);
}

int FindNodeField(std::string_view keyword)
{
    static const auto index = MakeIndex(kNodeFields);
    return Find(index, keyword);
}

}  // namespace talora
