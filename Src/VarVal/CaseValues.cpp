// Entries of case files as states and values of nodes, and what becomes of those that fit nothing.
#include "VarVal/CaseValues.h"

#include <algorithm>
#include <cmath>

#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnEdit.h"
#include "Basic/Error.h"
#include "Basic/Names.h"
#include "Basic/Parser.h"
#include "Basic/Steps.h"
#include "Basic/Text.h"

namespace talora {

namespace {

// A state number far beyond those there are is taken for a mistake, not for that many states to be added.
constexpr int kMostStatesAdded = 1000;
constexpr int kAskedBeforeTables = 16;

bool IsStateNumber(const Node& node, double value)
{
    return value >= 0 && value < NumStates(node) && value == std::floor(value);
}

// Whether some level of the node's states might be meant as the number of a state, so that numbers of
// states cannot be used in its place.
bool LevelsLookLikeStates(const Node& node)
{
    return std::any_of(node.states.levels.begin(), node.states.levels.end(),
                       [&](double level) { return IsStateNumber(node, level); });
}

CaseEntry OfState(int state)
{
    CaseEntry entry;
    entry.kind = EntryKind::STATE;
    entry.state = state;
    return entry;
}

CaseEntry OfValue(int state, double value)
{
    CaseEntry entry;
    entry.kind = state >= 0 ? EntryKind::STATE : EntryKind::VALUE;
    entry.state = state;
    entry.value = value;
    entry.always = false;
    return entry;
}

}  // namespace

// ---- What states are called ----

// Null for the first few questions about a node: going through its states is cheaper than making tables of
// them.
const CaseValues::StateWords* CaseValues::WordsOf(const Node& node)
{
    StateWords& words = words_[&node];
    if (words.num_asked < kAskedBeforeTables) {
        ++words.num_asked;
        return nullptr;
    }
    if (words.is_made) return &words;
    // The first state of a word or level has it.
    const NodeStates& states = node.states;
    for (int i = 0; i < static_cast<int>(states.texts.size()); ++i) {
        const StateText& text = states.texts[static_cast<size_t>(i)];
        if (!text.name.empty()) {
            words.names.emplace(text.name, i);
            words.lower_names.emplace(LowerText(text.name), i);
        }
        if (!text.title.empty()) words.titles.emplace(text.title, i);
    }
    for (int i = 0; IsDiscrete(node) && i < static_cast<int>(states.levels.size()); ++i)
        words.levels.emplace(states.levels[static_cast<size_t>(i)], i);
    words.is_made = true;
    return &words;
}

namespace {

template <class Words, class Key>
int Find(const Words& words, const Key& key)
{
    const auto found = words.find(key);
    return found == words.end() ? int{UNDEF_STATE} : found->second;
}

}  // namespace

// In this order: missing, likelihood, state by name or title, "#" and number, number, unknown name.
// By name, then by name without regard to case.
int CaseValues::FindName(const Node& node, std::string_view text)
{
    if (node.states.texts.empty()) return UNDEF_STATE;
    if (const StateWords* words = WordsOf(node)) {
        const int state = Find(words->names, std::string(text));
        return state >= 0 ? state : Find(words->lower_names, LowerText(text));
    }
    int state = FindState(node, text);
    const int num_texts = static_cast<int>(node.states.texts.size());
    CountSteps(node.states.texts.size());
    for (int i = 0; state < 0 && i < num_texts; ++i)
        if (!StateName(node, i).empty() && EqualNoCase(StateName(node, i), text)) state = i;
    return state;
}

int CaseValues::FindTitle(const Node& node, std::string_view text)
{
    if (node.states.texts.empty()) return UNDEF_STATE;
    if (const StateWords* words = WordsOf(node)) return Find(words->titles, std::string(text));
    for (int i = 0; i < static_cast<int>(node.states.texts.size()); ++i)
        if (!StateTitle(node, i).empty() && StateTitle(node, i) == text) return i;
    return UNDEF_STATE;
}

// The state of a level of a discrete node.
int CaseValues::FindLevel(const Node& node, double value)
{
    if (IsUndef(value)) return UNDEF_STATE;
    if (const StateWords* words = WordsOf(node)) return Find(words->levels, value);
    return StateOfValue(node, value);
}

// ---- Entries ----

CaseEntry CaseValues::Read(Node& node, std::string_view text, const CasePlace& place)
{
    if (text.empty() || text == "*" || (text.size() == 1 && text[0] == missing_)) return CaseEntry();
    if (text[0] == '{') return ReadLikelihood(node, text, place);
    double value = 0;
    if (HasStates(node)) {
        const int state = FindName(node, text);
        if (state >= 0) return OfState(state);
        if (text[0] == '#' && ParseReal(text.substr(1), value) && IsStateNumber(node, value))
            return OfState(static_cast<int>(value));
    }
    if (ParseReal(text, value)) return ReadNumber(node, text, value, place);
    const int titled = FindTitle(node, text);
    if (titled >= 0) return OfState(titled);
    if (!IsDiscrete(node) || CheckNarrowName(text, false, nullptr) != 0) return Unreadable(node, text, place);
    return Settle(node, {NO_SUCH_NAME, text}, place);
}

// 1. Nodes without states take the value, within their bounds.
CaseEntry CaseValues::ReadNumber(Node& node, std::string_view text, double value, const CasePlace& place)
{
    // What fits no value or number of a state may be a title.
    const auto settle = [&](Situation situation) {
        const int titled = FindTitle(node, text);
        return titled >= 0 ? OfState(titled) : Settle(node, {situation, text, value}, place);
    };
    if (!HasStates(node) && !IsDiscrete(node)) {
        if (!IsInRange(node, value)) return settle(OUT_OF_BOUNDS);
        return OfValue(UNDEF_STATE, value);
    }
    if (!IsDiscrete(node)) {
        const int state = StateOfValue(node, value);
        if (state < 0) return settle(OUT_OF_BOUNDS);
        return OfValue(state, value);
    }
    if (!node.states.levels.empty()) {
        const int state = FindLevel(node, value);
        if (state >= 0) return OfState(state);
        if (!LevelsLookLikeStates(node) && IsStateNumber(node, value))
            return OfState(static_cast<int>(value));
        return settle(NO_SUCH_NUMBER);
    }
    if (IsStateNumber(node, value)) return OfState(static_cast<int>(value));
    const bool could_be =
        value >= 0 && value == std::floor(value) && value < NumStates(node) + kMostStatesAdded;
    return settle(could_be ? NO_SUCH_NUMBER : NOT_POSSIBLE);
}

// "{w1;w2;...}": how probable what was observed is in each state.
CaseEntry CaseValues::ReadLikelihood(Node& node, std::string_view text, const CasePlace& place)
{
    CaseEntry entry;
    entry.kind = EntryKind::LIKELIHOOD;
    entry.always = false;
    bool is_good = text.back() == '}';
    bool is_possible = false;
    std::string_view rest = text.substr(1, text.size() - (is_good ? 2 : 1));
    while (is_good) {
        const size_t end = std::min(rest.find(';'), rest.size());
        float weight = 0;
        is_good = ParseFloat(rest.substr(0, end), weight) && weight >= 0 && weight < InfinityFlt() &&
                  entry.weights.size() < static_cast<size_t>(NumStates(node));
        is_possible |= weight > 0;
        entry.weights.push_back(weight);
        if (end == rest.size()) break;
        rest.remove_prefix(end + 1);
    }
    if (!is_good || !is_possible || entry.weights.size() != static_cast<size_t>(NumStates(node)))
        return Unreadable(node, text, place);
    return entry;
}

// What can be no value of the node, whatever the user answers.
CaseEntry CaseValues::Unreadable(Node& node, std::string_view text, const CasePlace& place)
{
    if (!quiet_)
        WarnAt<6511>(RecordPlace(place), std::string(text.substr(0, 80)).c_str(), node.name.c_str(),
                     PlaceText(place).c_str());
    CaseEntry entry;
    entry.kind = EntryKind::MISFIT;
    entry.always = quiet_;
    return entry;
}

// ---- What fits nothing ----

// Skips, halts, or changes the net so that the entry fits and reads it again.
CaseEntry CaseValues::Settle(Node& node, const Misfit& misfit, const CasePlace& place)
{
    CaseEntry skipped;
    skipped.kind = EntryKind::MISFIT;
    if (quiet_ || skip_all_[misfit.situation]) return skipped;
    skipped.always = false;  // the next one may be asked about too
    const std::string where = PlaceText(place);
    switch (Ask(node, misfit, where)) {
        case SKIP:
            TellSkipped(node, misfit, place);
            return skipped;
        case HALT:
            TellSkipped(node, misfit, place);
            throw HaltedReading();
        case FIT:
            break;
    }
    MakeFit(node, misfit, place);
    ++changes_;
    words_.clear();
    return Read(node, misfit.text, place);
}

// An answer that is for all of its kind is remembered and not asked for again.
CaseValues::Answer CaseValues::Ask(const Node& node, const Misfit& misfit, const std::string& place)
{
    if (fit_all_[misfit.situation]) return FIT;
    const std::string text(misfit.text.substr(0, 80));
    const char* const name = node.name.c_str();
    std::string question;
    const char* answers = "Add State,Add All States,Skip,Skip All,Halt";
    switch (misfit.situation) {
        case OUT_OF_BOUNDS:
            question =
                Format("value %g for variable '%s' is out of bounds (as defined in node properties), in %s",
                       misfit.value, name, place.c_str());
            answers = "Expand Bounds,Expand All,Skip,Skip All,Halt";
            break;
        case NO_SUCH_NUMBER:
            question = Format("value %g does not correspond to any state of variable '%s', in %s",
                              misfit.value, name, place.c_str());
            break;
        case NO_SUCH_NAME:
            question = Format("value '%.80s' is not one of the possible states of variable '%s', in %s",
                              text.c_str(), name, place.c_str());
            break;
        case NOT_POSSIBLE:
        default:
            question = Format("value %g is not one of the possibilities for variable '%s', in %s",
                              misfit.value, name, place.c_str());
            answers = "Skip,Skip All,Halt";
            break;
    }
    int answer = AskQuestion(question.c_str(), answers, "Skip All");
    if (misfit.situation == NOT_POSSIBLE) answer += 2;
    if (answer == 1) fit_all_[misfit.situation] = true;
    if (answer == 3) skip_all_[misfit.situation] = true;
    return answer <= 1 ? FIT : answer <= 3 ? SKIP : HALT;
}

void CaseValues::TellSkipped(const Node& node, const Misfit& misfit, const CasePlace& place) const
{
    const std::string text(misfit.text.substr(0, 80));
    const char* const name = node.name.c_str();
    if (misfit.situation == OUT_OF_BOUNDS)
        WarnAt<6512>(RecordPlace(place), misfit.value, name, PlaceText(place).c_str());
    else if (misfit.situation != NO_SUCH_NAME)
        WarnAt<6513>(RecordPlace(place), misfit.value, name, PlaceText(place).c_str());
    else if (skips_cases_)
        WarnAt<6514>(RecordPlace(place), text.c_str(), name, PlaceText(place).c_str());
    else
        WarnAt<6515>(RecordPlace(place), text.c_str(), name, PlaceText(place).c_str());
}

void CaseValues::MakeFit(Node& node, const Misfit& misfit, const CasePlace& place)
{
    if (misfit.situation == OUT_OF_BOUNDS)
        ExpandBounds(node, misfit.value, place);
    else if (misfit.situation == NO_SUCH_NUMBER)
        AddNumber(node, misfit.value, place);
    else
        AddName(node, misfit.text, place);
}

// Moves the end that the value lies beyond, whichever way the levels run.
void CaseValues::ExpandBounds(Node& node, double value, const CasePlace& place)
{
    std::vector<double> levels = node.states.levels;
    const bool rising = levels.front() <= levels.back();
    const bool below = value < std::min(levels.front(), levels.back());
    (below == rising ? levels.front() : levels.back()) = value;
    SetLevels(node, NumStates(node), levels.data());
    RaiseWith<6516>({.place = RecordPlace(place)}, node.name.c_str(), value, PlaceText(place).c_str());
}

// Without levels the number is a state number, and all states up to it are added; with levels it is a new
// one.
void CaseValues::AddNumber(Node& node, double value, const CasePlace& place)
{
    const int first = NumStates(node);
    if (node.states.levels.empty()) {
        AddStates(node, -1, {}, static_cast<int>(value) - first + 1, 0);
        RaiseWith<6517>({.place = RecordPlace(place)},
                        ("#" + std::to_string(static_cast<int>(value))).c_str(), node.name.c_str(),
                        PlaceText(place).c_str());
        return;
    }
    AddStates(node, -1, {}, 1, 0);
    std::vector<double> levels = node.states.levels;
    levels.back() = value;
    SetLevels(node, first + 1, levels.data());
    RaiseWith<6518>({.place = RecordPlace(place)}, first, node.name.c_str(), value, PlaceText(place).c_str());
}

void CaseValues::AddName(Node& node, std::string_view name, const CasePlace& place)
{
    const std::string text(name);
    if (HasStates(node) && !HasStateNames(node))
        WarnAt<6519>(RecordPlace(place), text.c_str(), node.name.c_str());
    AddStates(node, -1, {text}, 1, 0);
    RaiseWith<6517>({.place = RecordPlace(place)}, text.c_str(), node.name.c_str(), PlaceText(place).c_str());
}

}  // namespace talora
