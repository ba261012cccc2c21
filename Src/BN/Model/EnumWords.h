// The words of enumerations, as net files and the interface spell them: one table each, for both directions.
#pragma once

#include <cstddef>
#include <string_view>

#include "BN/Model/Bnet.h"

namespace talora {

// A word and the value it stands for; the first word of a value is the one written.
struct EnumWord {
    const char* word;
    int value;
};
template <size_t kCount>
const EnumWord* FindWord(const EnumWord (&words)[kCount], std::string_view word)
{
    for (const EnumWord& row : words)
        if (word == row.word) return &row;
    return nullptr;
}
template <size_t kCount>
const char* WordFor(const EnumWord (&words)[kCount], int value)
{
    for (const EnumWord& row : words)
        if (row.value == value) return row.word;
    return words[0].word;
}

constexpr EnumWord kTypeWords[] = {
    {"TRUE", int(VarType::DISCRETE)},
    {"FALSE", int(VarType::CONTINUOUS)},
    {"UNKNOWN_DISCRETE", int(VarType::UNKNOWN)},
    {"DISCRETE", int(VarType::DISCRETE)},
    {"CONTINUOUS", int(VarType::CONTINUOUS)},
};
constexpr EnumWord kMeasureWords[] = {
    {"UNKNOWN_MEASURE", int(Measure::UNKNOWN)}, {"NOMINAL", int(Measure::NOMINAL)},
    {"PROXIMAL", int(Measure::PROXIMAL)},       {"ORDINAL", int(Measure::ORDINAL)},
    {"INTERVAL", int(Measure::INTERVAL)},       {"RATIO", int(Measure::RATIO)},
    {"LOCAL", int(Measure::PROXIMAL)},          {"RATIONAL", int(Measure::RATIO)},
};
constexpr EnumWord kKindWords[] = {
    {"UNKNOWN_KIND", UNKNOWN_KIND}, {"NATURE", NATURE_NODE},      {"CONSTANT", CONSTANT_NODE},
    {"DECISION", DECISION_NODE},    {"UTILITY", UTILITY_NODE},    {"DISCONNECTED", DISCONNECTED_NODE},
    {"ADVERSARY", ADVERSARY_NODE},  {"INPUT", DISCONNECTED_NODE}, {"ASSUME", CONSTANT_NODE},
};
constexpr EnumWord kRelationWords[] = {
    {"INVERTABLE", int(Relation::INVERTABLE)},
    {"DETERMIN", int(Relation::DETERMIN)},
    {"CHANCE", int(Relation::CHANCE)},
    {"UNKNOWN_CHANCE", int(Relation::UNKNOWN_CHANCE)},
};
constexpr EnumWord kDirtyWords[] = {
    {"FALSE", int(EqnDirty::CLEAN)},
    {"TRUE", int(EqnDirty::DIRTY)},
    {"MAYBE", int(EqnDirty::MAYBE)},
};
// What a table states for a row instead of a state.
constexpr EnumWord kEscapeWords[] = {
    {"@undef", UNDEF_STATE},
    {"@imposs", IMPOSS_STATE},
    {"@any", EVERY_STATE},
    {"@uniform", UNIFORM_STATE},
};
// Ends an escape which shows that a function table without any number is none of states.
constexpr std::string_view kValueMark = "_value";
constexpr EnumWord kBoolWords[] = {{"TRUE", 1}, {"FALSE", 0}};

}  // namespace talora
