// The statements of a node in the text net format, except its tables.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>

#include "BN/Files/BnParse.h"
#include "BN/Model/BnEdit.h"
#include "BN/Model/Likelihood.h"
#include "Basic/Names.h"

namespace talora {

namespace {

constexpr size_t kMaxListItems = INT_MAX;
constexpr int kMaxUnnamedStates = 1 << 18;  // in a finding that rules one out

// What a list reader meets besides its items.
[[noreturn]] void FailList(Tokenizer& t, size_t start)
{
    if (t.AtEnd() || t.Peek() == ';' || t.Peek() == '}') FailAt<3298>(t.PlaceOf(start));
    FailAt<3293>(t.PlaceOf(t.At()), t.PeekText().c_str());
}

// Reads "( item, item, ... )"; an item may be empty, except that "()" has none.
template <class ReadItem>
void ReadList(NetReader& reader, ReadItem&& read_item)
{
    Tokenizer& t = reader.text;
    const size_t start = t.At();
    if (!t.TryRead('(')) FailList(t, start);
    if (t.TryRead(')')) return;
    for (size_t count = 0; count < kMaxListItems; ++count) {
        const char next = t.Peek();
        read_item(next == ',' || next == ')');
        if (t.TryRead(')')) return;
        if (!t.TryRead(',')) {
            if (t.AtEnd() || t.Peek() == ';' || t.Peek() == '}' || t.Peek() == '(') FailList(t, start);
            FailAt<3297>(t.PlaceOf(t.At()));
        }
        reader.Poll();
    }
}

std::vector<std::string> ReadNames(NetReader& reader, const char* what)
{
    std::vector<std::string> names;
    ReadList(reader, [&](bool empty) {
        if (empty)
            names.emplace_back();
        else if (reader.text.Peek() == '"')
            names.push_back(reader.text.ReadQuoted());  // ("") is a list of one empty item
        else
            names.push_back(reader.ReadName(what));
        if (!names.back().empty() && !IsLegalName(names.back()))
            FailAt<2917>(reader.text.Place(), names.back().substr(0, 40).c_str(), what);
    });
    std::vector<std::string_view> sorted(names.begin(), names.end());
    std::sort(sorted.begin(), sorted.end());
    const auto twice =
        std::adjacent_find(sorted.begin(), sorted.end(),
                           [](std::string_view a, std::string_view b) { return a == b && !a.empty(); });
    if (twice != sorted.end()) FailAt<2928>(reader.text.Place(), what, std::string(*twice).c_str());
    return names;
}

std::vector<std::string> ReadTexts(NetReader& reader)
{
    std::vector<std::string> texts;
    ReadList(reader, [&](bool empty) { texts.push_back(empty ? "" : reader.ReadText()); });
    return texts;
}

std::vector<double> ReadReals(NetReader& reader)
{
    std::vector<double> reals;
    ReadList(reader, [&](bool empty) {
        Tokenizer& t = reader.text;
        if (!empty && t.Peek() == '"') {  // ("") is a list of one empty item
            const std::string item = t.ReadQuoted();
            if (!item.empty()) FailAt<4002>(t.Place(), item.substr(0, 40).c_str());
            empty = true;
        }
        reals.push_back(empty ? UndefDbl() : t.ReadReal());
    });
    return reals;
}

// Each number is the float nearest to what is written.
std::vector<float> ReadFloats(NetReader& reader)
{
    std::vector<float> floats;
    ReadList(reader, [&](bool) {
        float value;
        if (!reader.text.TryReadFloat(value)) value = static_cast<float>(reader.text.ReadReal());
        floats.push_back(value);
    });
    return floats;
}

// The value of a statement of one word; the warning names what is none of the words.
std::string ReadShortWord(NodeReader& r)
{
    return std::string(r.Text().ReadWord().substr(0, 40));
}

const char* TypeTerm(const Node& node)
{
    return IsDiscrete(node) ? "discrete" : "continuous";
}

// Settles the number of states by a list of that many entries.  False if it was another number.
bool SettleStates(NodeReader& r, size_t count)
{
    NodeStates& states = r.node.states;
    if (r.states_are_known && static_cast<size_t>(states.num_states) != count) return false;
    r.states_are_known = count > 0;
    states.num_states = static_cast<int>(count);
    return true;
}

void SetTexts(NodeStates& states, std::vector<std::string>& values, std::string StateText::*member)
{
    if (states.texts.size() < values.size()) states.texts.resize(values.size());
    for (size_t i = 0; i < values.size(); ++i) states.texts[i].*member = std::move(values[i]);
}

}  // namespace

namespace noderead {

// ---- Texts ----

bool Name(NodeReader& r)
{
    const std::string name = r.reader.ReadName("node");
    if (name == r.node.name) return true;
    Net& net = r.reader.TheNet();
    if (net.node_index.contains(name)) FailAt<2928>(r.Text().Place(), "node", name.c_str());
    Change(r.node, r.node.name, name, RENAMES_NODE, "read net");
    return true;
}

bool Units(NodeReader& r)
{
    return r.node.units = r.reader.ReadText(), true;
}
bool Equation(NodeReader& r)
{
    return r.node.equation = r.reader.ReadText(), true;
}
bool Title(NodeReader& r)
{
    return r.node.text.title = r.reader.ReadText(), true;
}
bool Comment(NodeReader& r)
{
    return r.node.text.comment = r.reader.ReadText(), true;
}
bool Author(NodeReader& r)
{
    return r.node.text.author = r.reader.ReadText(), true;
}
bool WhoChanged(NodeReader& r)
{
    return r.node.text.who_changed = r.reader.ReadText(), true;
}
bool WhenChanged(NodeReader& r)
{
    r.node.text.when_changed = static_cast<uint32_t>(r.Text().ReadInteger());
    return true;
}

// ---- Words ----

bool Discrete(NodeReader& r)
{
    const std::string word = ReadShortWord(r);
    const EnumWord* const found = FindWord(kTypeWords, word);
    if (found == nullptr) {
        WarnAt<2945>(r.Text().Place(), word.c_str());
        return true;
    }
    r.node.states.type = static_cast<VarType>(found->value);
    if (IsDiscrete(r.node) && r.IsRead(NODE_NUMSTATES) && !HasStates(r.node)) {
        WarnAt<4137>(r.Text().Place(), "discrete", word.c_str(), "numstates");
        SettleStates(r, 1);
    }
    return true;
}

bool MeasureLevel(NodeReader& r)
{
    const std::string word = ReadShortWord(r);
    if (const EnumWord* found = FindWord(kMeasureWords, word))
        r.node.measure = static_cast<Measure>(found->value);
    else
        WarnAt<2946>(r.Text().Place(), word.c_str());
    return true;
}

bool Kind(NodeReader& r)
{
    const std::string word = ReadShortWord(r);
    const EnumWord* const found = FindWord(kKindWords, word);
    if (found == nullptr) WarnAt<2955>(r.Text().Place(), word.c_str());
    r.node.kind = found == nullptr ? NATURE_NODE : found->value;
    return true;
}

bool Chance(NodeReader& r)
{
    const std::string word = ReadShortWord(r);
    if (const EnumWord* found = FindWord(kRelationWords, word))
        r.node.relation = static_cast<Relation>(found->value);
    else
        WarnAt<2947>(r.Text().Place(), word.c_str());
    return true;
}

bool Dirty(NodeReader& r)
{
    const std::string word = ReadShortWord(r);
    if (const EnumWord* found = FindWord(kDirtyWords, word))
        r.node.eqn_dirty = static_cast<EqnDirty>(found->value);
    else
        WarnAt<2976>(r.Text().Place(), word.c_str());
    return true;
}

// ---- States ----

bool NumStates(NodeReader& r)
{
    const int64_t count = r.Text().ReadInteger();
    if (count < 1) {
        WarnAt<2948>(r.Text().Place(), "numstates", static_cast<int>(std::max<int64_t>(count, INT_MIN)));
        return true;
    }
    if (count > INT_MAX) FailAt<6131>(r.Text().Place(), r.node.name.c_str());
    if (!SettleStates(r, static_cast<size_t>(count)))
        FailAt<2949>(r.Text().Place(), "numstates", static_cast<int>(count), r.node.states.num_states);
    return true;
}

bool States(NodeReader& r)
{
    std::vector<std::string> names = ReadNames(r.reader, "state");
    if (!SettleStates(r, names.size()))
        FailAt<2950>(r.Text().Place(), r.node.states.num_states, static_cast<int>(names.size()));
    SetTexts(r.node.states, names, &StateText::name);
    return true;
}

bool StateTitles(NodeReader& r)
{
    std::vector<std::string> titles = ReadTexts(r.reader);
    if (SettleStates(r, titles.size()))
        SetTexts(r.node.states, titles, &StateText::title);
    else
        WarnAt<2951>(r.Text().Place(), r.node.states.num_states, static_cast<int>(titles.size()));
    return true;
}

bool StateComments(NodeReader& r)
{
    std::vector<std::string> comments = ReadTexts(r.reader);
    if (SettleStates(r, comments.size()))
        SetTexts(r.node.states, comments, &StateText::comment);
    else
        WarnAt<2952>(r.Text().Place(), r.node.states.num_states, static_cast<int>(comments.size()));
    return true;
}

bool Levels(NodeReader& r)
{
    NodeStates& states = r.node.states;
    const std::vector<double> levels = ReadReals(r.reader);
    const size_t count = levels.size();
    const FilePlace place = r.Text().Place();
    const bool discrete = IsDiscrete(r.node);
    if (!discrete && count < 2) FailAt<2953>(place, static_cast<int>(count), 2, r.Name(), TypeTerm(r.node));
    // Two levels of a continuous variable of which no states are known are its range.
    const bool is_range = !discrete && count == 2 && !r.states_are_known;
    if (!is_range && !SettleStates(r, discrete ? count : count - 1))
        FailAt<2954>(place, static_cast<int>(count), states.num_states + !discrete, r.Name(),
                     states.num_states, TypeTerm(r.node));
    if (!discrete && !std::is_sorted(levels.begin(), levels.end()) &&
        !std::is_sorted(levels.rbegin(), levels.rend()))
        FailAt<2972>(place, r.Name());
    if (!discrete && std::find_if(levels.begin(), levels.end(), IsUndef) != levels.end())
        FailAt<2973>(place, r.Name());
    states.levels = levels;
    return true;
}

// ---- Links ----

bool Parents(NodeReader& r)
{
    const auto parents = r.reader.ReadNodeList(!r.reader.InSecondPass(), 2957);
    if (!parents) return false;
    for (const int field : {NODE_INPUTS, NODE_DELAYS, NODE_FUNCTABLE, NODE_PROBS, NODE_NUMCASES})
        if (r.IsRead(field)) FailAt<2940>(r.Text().Place(), "parents", kNodeFields[field].keyword);
    if (r.node.kind == DISCONNECTED_NODE && !parents->empty()) FailAt<2939>(r.Text().Place());
    std::vector<Link> links(parents->size());
    for (size_t i = 0; i < links.size(); ++i) links[i].parent = (*parents)[i];
    ReserveLinks(r.node, links);
    Change(r.node, r.node.links, std::move(links), RELINKS, "read net");
    return true;
}

namespace {

// Input names and link delays come one for each parent.
void NeedParents(NodeReader& r, const char* keyword)
{
    if (r.IsRead(NODE_PARENTS)) return;
    FailAt<2941>(r.Text().Place(), keyword, "parents");
}

// A vector of numbers in its parentheses, one for each dimension of the net, as one text: "1, 0".  False,
// with a warning, if it is none.
bool TryReadVector(NodeReader& r, bool is_delay, std::string& text, int& count)
{
    Tokenizer& t = r.Text();
    text.clear();
    for (count = 0;; ++count) {
        if (t.Peek() == '"') {
            WarnAt<3024>(t.PlaceOf(t.At()), "string");
            return false;
        }
        const std::string_view word = t.ReadWord();
        double value;
        if (!ParseReal(word, value)) {
            if (word.empty())
                WarnAt<2962>(t.PlaceOf(t.At()), t.PeekText().c_str());
            else
                WarnAt<3026>(t.Place(), "name");
            return false;
        }
        if (is_delay && value < 0) FailAt<7252>(t.Place(), std::string(word).c_str());
        if (count > 0) text += ", ";
        text += word;
        if (t.TryRead(',')) continue;
        ++count;
        if (t.TryRead(')')) return true;
        WarnAt<2966>(t.PlaceOf(t.At()), t.PeekText().c_str());
        return false;
    }
}

// Reads a `persist` or `position` vector.
bool ReadVector(NodeReader& r, int field, std::string& target)
{
    Tokenizer& t = r.Text();
    const Net& net = r.reader.TheNet();
    const size_t start = t.At();
    std::string value;
    int count = 0;
    if (!t.TryRead('(')) {
        WarnAt<2965>(t.PlaceOf(t.At()));
    } else if (TryReadVector(r, false, value, count)) {
        if (count == net.num_dimensions)
            target = std::move(value);
        else if (field == NODE_PERSIST)
            WarnAt<2967>(t.Place(), count, net.num_dimensions, net.name.c_str());
        else
            WarnAt<2968>(t.Place(), count, net.num_dimensions, net.name.c_str());
        return true;
    }
    t.GoTo(start);
    t.SkipValue();
    return true;
}

}  // namespace

bool Inputs(NodeReader& r)
{
    std::vector<std::string> names = ReadNames(r.reader, "input");
    r.num_inputs = static_cast<int>(names.size());
    if (!r.IsRead(NODE_PARENTS) && r.num_delays >= 0 && r.num_delays != r.num_inputs)
        FailAt<3402>(r.Text().Place(), r.num_inputs, r.num_delays);
    NeedParents(r, "inputs");
    std::vector<Link> links = r.node.links;
    const int num_parents = static_cast<int>(links.size());
    if (r.num_inputs != num_parents && r.Text().At() < r.parents_at)
        FailAt<3403>(r.Text().Place(), num_parents, r.num_inputs);
    if (r.num_inputs != num_parents) FailAt<2956>(r.Text().Place(), r.num_inputs, num_parents);
    for (size_t i = 0; i < links.size(); ++i) links[i].input_name = std::move(names[i]);
    Change(r.node, r.node.links, std::move(links), NO_EFFECT, "read net");
    return true;
}

bool Delays(NodeReader& r)
{
    Tokenizer& t = r.Text();
    const Net& net = r.reader.TheNet();
    std::vector<std::string> vectors;
    const auto faulty = [&] { FailAt<2938>(t.Place(), r.Name()); };
    if (!t.TryRead('(')) FailAt<2958>(t.PlaceOf(t.At()));
    int first_count = 0;
    while (!t.TryRead(')')) {
        if (!t.TryRead('(')) FailAt<2959>(t.PlaceOf(t.At()));
        int count = 0;
        vectors.emplace_back();
        if (!TryReadVector(r, true, vectors.back(), count)) faulty();
        if (vectors.size() == 1) first_count = count;
        if (count != first_count) FailAt<2961>(t.Place(), first_count, count);
        if (count != net.num_dimensions) FailAt<2963>(t.Place(), count, net.num_dimensions, net.name.c_str());
        if (!t.TryRead(',') && t.Peek() != ')') FailAt<2960>(t.PlaceOf(t.At()), t.PeekText().c_str());
    }
    r.num_delays = static_cast<int>(vectors.size());
    if (!r.IsRead(NODE_PARENTS) && r.num_inputs >= 0 && r.num_inputs != r.num_delays)
        FailAt<2964>(t.Place(), r.num_delays, r.num_inputs);
    // Input names that are still to come give the number of parents there should be.
    if (!r.IsRead(NODE_PARENTS) && r.state[NODE_INPUTS] == FieldState::GIVEN) return true;
    NeedParents(r, "delays");
    std::vector<Link> links = r.node.links;
    if (vectors.size() != links.size()) FailAt<2937>(t.Place(), r.num_delays, static_cast<int>(links.size()));
    for (size_t i = 0; i < links.size(); ++i) {
        links[i].delay = std::move(vectors[i]);
        if (!IsDelayed(links[i])) links[i].delay.clear();  // all zeros are the same as none
    }
    Change(r.node, r.node.links, std::move(links), NO_EFFECT, "read net");
    return true;
}

bool Persist(NodeReader& r)
{
    return ReadVector(r, NODE_PERSIST, r.node.persist);
}
bool Position(NodeReader& r)
{
    return ReadVector(r, NODE_POSITION, r.node.position);
}

bool ExperBase(NodeReader& r)
{
    const double value = r.Text().ReadReal();
    if (value < 0)
        WarnAt<3597>(r.Text().Place(), value);
    else
        r.node.exper_base = value;
    return true;
}

// ---- Findings ----

namespace {

// The state that a word names: a name, or "#" and a number; UNDEF_STATE if none.
int StateOfWord(const Node& node, std::string_view word)
{
    double number;
    if (word.starts_with('#') && ParseReal(word.substr(1), number) && number >= 0 &&
        number < node.states.num_states)
        return static_cast<int>(number);
    return FindState(node, word);
}

void EnterState(NodeReader& r, int state, const char* word)
{
    NodeFinding& finding = r.node.finding;
    const bool other_value = !IsUndef(finding.value) && !HoldsValue(r.node, state, finding.value);
    // Of several states with the level that was entered as value, this says which.
    const bool other_state = finding.state >= 0 && finding.state != state && IsUndef(finding.value);
    if (other_value || IsRuledOut(finding, state) || other_state)
        FailAt<4139>(r.Text().Place(), word, "node");
    finding.state = state;
}

void EnterRealValue(NodeReader& r, double value)
{
    NodeFinding& finding = r.node.finding;
    const bool has_levels = HasStates(r.node) && !r.node.states.levels.empty();
    int state = has_levels ? StateOfValue(r.node, value) : UNDEF_STATE;
    // Of several states with this level it is the one that was stated.
    if (has_levels && HoldsValue(r.node, finding.state, value)) state = finding.state;
    const bool in_range = HasStates(r.node) ? state >= 0 : IsInRange(r.node, value);
    if (IsUndef(value) || !in_range) FailAt<2974>(r.Text().Place(), value);
    if (state >= 0 && ((finding.state >= 0 && finding.state != state) || IsRuledOut(finding, state)))
        FailAt<2975>(r.Text().Place(), value);
    finding.value = value;
    if (state >= 0) finding.state = state;
}

void MultiplyIn(NodeReader& r, const std::vector<float>& likelihood)
{
    NodeFinding& finding = r.node.finding;
    const bool possible = MultiplyIn(finding, likelihood.data(), static_cast<int>(likelihood.size()));
    if (!possible || (finding.state >= 0 && IsRuledOut(finding, finding.state)))
        FailAt<4140>(r.Text().Place(), "node");
}

}  // namespace

bool Evidence(NodeReader& r)
{
    const std::string word = ReadShortWord(r);
    if (!HasStates(r.node)) FailAt<2969>(r.Text().Place(), "evidence", "node");
    const int state = StateOfWord(r.node, word);
    if (state < 0) FailAt<2970>(r.Text().Place(), word.c_str());
    EnterState(r, state, word.c_str());
    return true;
}

bool Value(NodeReader& r)
{
    EnterRealValue(r, r.Text().ReadReal());
    return true;
}

bool Likelihood(NodeReader& r)
{
    const std::vector<float> likelihood = ReadFloats(r.reader);
    if (likelihood.empty() || likelihood.size() != static_cast<size_t>(r.node.states.num_states))
        FailAt<2971>(r.Text().Place(), static_cast<int>(likelihood.size()), r.node.states.num_states, "node");
    for (const float entry : likelihood) {
        if (entry < 0) FailAt<3597, 1>(r.Text().Place(), static_cast<double>(entry));
        if (!std::isfinite(entry)) FailAt<2936>(r.Text().Place());
    }
    MultiplyIn(r, likelihood);
    return true;
}

// A finding as text: "STATE", "#3", "not STATE", or a number that the variable has.
bool Finding(NodeReader& r)
{
    const std::string finding = r.reader.ReadText();
    const bool negative = finding.starts_with("not ");
    const int state = HasStates(r.node)
                          ? StateOfWord(r.node, std::string_view(finding).substr(negative ? 4 : 0))
                          : UNDEF_STATE;
    double value;
    if (state >= 0 && negative) {
        // A count alone must not call for much memory.
        if (r.node.states.num_states > kMaxUnnamedStates && r.node.states.texts.empty())
            FailOutOfMemory("to hold the finding of >-node '%s'", r.Name());
        std::vector<float> likelihood(static_cast<size_t>(r.node.states.num_states), 1.0f);
        likelihood[static_cast<size_t>(state)] = 0;
        MultiplyIn(r, likelihood);
    } else if (state >= 0) {
        EnterState(r, state, finding.c_str());
    } else if (ParseReal(finding, value)) {
        EnterRealValue(r, value);
    } else {
        WarnAt<3344>(r.Text().Place(), finding.substr(0, 40).c_str());
    }
    return true;
}

bool Belief(NodeReader& r)
{
    std::vector<float> beliefs = ReadFloats(r.reader);
    const bool are_finite =
        std::all_of(beliefs.begin(), beliefs.end(), [](float b) { return std::isfinite(b); });
    if (!are_finite) return true;  // no file could hold them, and updating gives better ones
    if (beliefs.size() == static_cast<size_t>(r.node.states.num_states))
        r.node.saved_belief = std::move(beliefs);
    else
        WarnAt<3019>(r.Text().Place(), static_cast<int>(beliefs.size()), r.node.states.num_states, r.Name());
    return true;
}

}  // namespace noderead

}  // namespace talora
