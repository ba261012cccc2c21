// The statements of a node in the text net format, except its tables.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>

#include "BN/Files/BnParse.h"
#include "BN/Model/BnEdit.h"

namespace talora {

namespace {

constexpr size_t kMaxListItems = INT_MAX;
constexpr int kMaxUnnamedStates = 1 << 18;  // in a finding that rules one out

// What a list reader meets besides its items.
[[noreturn]] void FailList(Tokenizer& t, size_t start)
{
    if (t.AtEnd() || t.Peek() == ';' || t.Peek() == '}')
        FailAt(t.PlaceOf(start), 3298, "missing close parenthesis, starting");
    FailAt(t.PlaceOf(t.At()), 3293, "illegal punctuation '%s'", t.PeekText().c_str());
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
            FailAt(t.PlaceOf(t.At()), 3297, "missing comma");
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
            FailAt(reader.text.Place(), 2917, "'%s' is not a legal name for a %s",
                   names.back().substr(0, 40).c_str(), what);
    });
    std::vector<std::string_view> sorted(names.begin(), names.end());
    std::sort(sorted.begin(), sorted.end());
    const auto twice =
        std::adjacent_find(sorted.begin(), sorted.end(),
                           [](std::string_view a, std::string_view b) { return a == b && !a.empty(); });
    if (twice != sorted.end())
        FailAt(reader.text.Place(), 2928, "duplicate %s name '%s'", what, std::string(*twice).c_str());
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
    ReadList(reader, [&](bool empty) { reals.push_back(empty ? UndefDbl() : reader.text.ReadReal()); });
    return reals;
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
    if (net.node_index.contains(name))
        FailAt(r.Text().Place(), 2928, "duplicate %s name '%s'", "node", name.c_str());
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
        WarnAt(r.Text().Place(), 2945, "illegal value '%s'", word.c_str());
        return true;
    }
    r.node.states.type = static_cast<VarType>(found->value);
    if (IsDiscrete(r.node) && r.IsRead(NODE_NUMSTATES) && !HasStates(r.node)) {
        WarnAt(r.Text().Place(), 4137, "'%s' field declared '%s', incompatible with '%s' declared 0",
               "discrete", word.c_str(), "numstates");
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
        WarnAt(r.Text().Place(), 2946, "illegal value '%s'", word.c_str());
    return true;
}

bool Kind(NodeReader& r)
{
    const std::string word = ReadShortWord(r);
    const EnumWord* const found = FindWord(kKindWords, word);
    if (found == nullptr) WarnAt(r.Text().Place(), 2955, "illegal value '%s'", word.c_str());
    r.node.kind = found == nullptr ? NATURE_NODE : found->value;
    return true;
}

bool Chance(NodeReader& r)
{
    const std::string word = ReadShortWord(r);
    if (const EnumWord* found = FindWord(kRelationWords, word))
        r.node.relation = static_cast<Relation>(found->value);
    else
        WarnAt(r.Text().Place(), 2947, "illegal value '%s'", word.c_str());
    return true;
}

bool Dirty(NodeReader& r)
{
    const std::string word = ReadShortWord(r);
    if (const EnumWord* found = FindWord(kDirtyWords, word))
        r.node.eqn_dirty = static_cast<EqnDirty>(found->value);
    else
        WarnAt(r.Text().Place(), 2976, "illegal value '%s' (should be TRUE, FALSE or MAYBE)", word.c_str());
    return true;
}

// ---- States ----

bool NumStates(NodeReader& r)
{
    const int64_t count = r.Text().ReadInteger();
    if (count < 1) {
        WarnAt(r.Text().Place(), 2948, "`%s` stated to be %d, but it must not be less than 1", "numstates",
               static_cast<int>(std::max<int64_t>(count, INT_MIN)));
        return true;
    }
    if (count > INT_MAX)
        FailAt(r.Text().Place(), 6131, "too many states for >-Bnode '%s'", r.node.name.c_str());
    if (!SettleStates(r, static_cast<size_t>(count)))
        FailAt(r.Text().Place(), 2949, "`%s` stated to be %d, but other statements imply it is %d",
               "numstates", static_cast<int>(count), r.node.states.num_states);
    return true;
}

bool States(NodeReader& r)
{
    std::vector<std::string> names = ReadNames(r.reader, "state");
    if (!SettleStates(r, names.size()))
        FailAt(r.Text().Place(), 2950, "there are %d states, but %d names", r.node.states.num_states,
               static_cast<int>(names.size()));
    SetTexts(r.node.states, names, &StateText::name);
    return true;
}

bool StateTitles(NodeReader& r)
{
    std::vector<std::string> titles = ReadTexts(r.reader);
    if (SettleStates(r, titles.size()))
        SetTexts(r.node.states, titles, &StateText::title);
    else
        WarnAt(r.Text().Place(), 2951, "there are %d states, but %d names", r.node.states.num_states,
               static_cast<int>(titles.size()));
    return true;
}

bool StateComments(NodeReader& r)
{
    std::vector<std::string> comments = ReadTexts(r.reader);
    if (SettleStates(r, comments.size()))
        SetTexts(r.node.states, comments, &StateText::comment);
    else
        WarnAt(r.Text().Place(), 2952, "there are %d states, but %d names", r.node.states.num_states,
               static_cast<int>(comments.size()));
    return true;
}

bool Levels(NodeReader& r)
{
    NodeStates& states = r.node.states;
    const std::vector<double> levels = ReadReals(r.reader);
    const size_t count = levels.size();
    const FilePlace place = r.Text().Place();
    const bool discrete = IsDiscrete(r.node);
    if (!discrete && count < 2)
        FailAt(place, 2953, "has %d entries, but minimum is %d, because %s is %s", static_cast<int>(count), 2,
               r.Name(), TypeTerm(r.node));
    // Two levels of a continuous variable of which no states are known are its range.
    const bool is_range = !discrete && count == 2 && !r.states_are_known;
    if (!is_range && !SettleStates(r, discrete ? count : count - 1))
        FailAt(place, 2954, "has %d entries, but there should be %d, because %s has %d states and is %s",
               static_cast<int>(count), states.num_states + !discrete, r.Name(), states.num_states,
               TypeTerm(r.node));
    if (!discrete && !std::is_sorted(levels.begin(), levels.end()) &&
        !std::is_sorted(levels.rbegin(), levels.rend()))
        FailAt(place, 2972, "the thresholds of >-node '%s' go up and down", r.Name());
    if (!discrete && std::find_if(levels.begin(), levels.end(), IsUndef) != levels.end())
        FailAt(place, 2973, "a threshold of >-node '%s' is missing", r.Name());
    states.levels = levels;
    return true;
}

// ---- Links ----

bool Parents(NodeReader& r)
{
    const auto parents = r.reader.ReadNodeList(!r.reader.InSecondPass(), 2957);
    if (!parents) return false;
    for (const int field : {NODE_INPUTS, NODE_DELAYS, NODE_FUNCTABLE, NODE_PROBS, NODE_NUMCASES})
        if (r.IsRead(field))
            FailAt(r.Text().Place(), 2940, "missing `%s` statement before `%s` statement", "parents",
                   kNodeFields[field].keyword);
    if (r.node.kind == DISCONNECTED_NODE && !parents->empty())
        FailAt(r.Text().Place(), 2939, "a DISCONNECTED node can't have parents");
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
    FailAt(r.Text().Place(), 2941, "can't read `%s` statement, because there is no `%s` statement", keyword,
           "parents");
}

// A vector of numbers in its parentheses, one for each dimension of the net, as one text: "1, 0".  All
// zeros are the same as none.  False, with a warning, if it is none.
bool TryReadVector(NodeReader& r, std::string& text, int& count)
{
    Tokenizer& t = r.Text();
    bool all_zero = true;
    text.clear();
    for (count = 0;; ++count) {
        if (t.Peek() == '"') {
            WarnAt(t.PlaceOf(t.At()), 3024, "should give a numeric value, but this gives a %s value",
                   "string");
            return false;
        }
        const std::string_view word = t.ReadWord();
        double value;
        if (!ParseReal(word, value)) {
            if (word.empty())
                WarnAt(t.PlaceOf(t.At()), 2962, "illegal punctuation '%s'", t.PeekText().c_str());
            else
                WarnAt(t.Place(), 3026, "should give a numeric value, but this gives a %s value", "name");
            return false;
        }
        all_zero = all_zero && value == 0;
        if (count > 0) text += ", ";
        text += word;
        if (t.TryRead(',')) continue;
        ++count;
        if (all_zero) text.clear();
        if (t.TryRead(')')) return true;
        WarnAt(t.PlaceOf(t.At()), 2966, "illegal punctuation '%s'", t.PeekText().c_str());
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
        WarnAt(t.PlaceOf(t.At()), 2965, "missing open parenthesis");
    } else if (TryReadVector(r, value, count)) {
        if (count == net.num_dimensions)
            target = std::move(value);
        else if (field == NODE_PERSIST)
            WarnAt(t.Place(), 2967, "%d entries, but %d dimensions in >-net '%s'", count, net.num_dimensions,
                   net.name.c_str());
        else
            WarnAt(t.Place(), 2968, "%d entries, but %d dimensions in >-net '%s'", count, net.num_dimensions,
                   net.name.c_str());
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
        FailAt(r.Text().Place(), 3402,
               "there are %d input names but other indications (e.g. delay equations) are for %d parents",
               r.num_inputs, r.num_delays);
    NeedParents(r, "inputs");
    std::vector<Link> links = r.node.links;
    const int num_parents = static_cast<int>(links.size());
    if (r.num_inputs != num_parents && r.Text().At() < r.parents_at)
        FailAt(r.Text().Place(), 3403,
               "the number of parents (%d) does not match the number of link names (%d)", num_parents,
               r.num_inputs);
    if (r.num_inputs != num_parents)
        FailAt(r.Text().Place(), 2956, "there are %d input names, but require %d (one for each parent)",
               r.num_inputs, num_parents);
    for (size_t i = 0; i < links.size(); ++i) links[i].input_name = std::move(names[i]);
    Change(r.node, r.node.links, std::move(links), NO_EFFECT, "read net");
    return true;
}

bool Delays(NodeReader& r)
{
    Tokenizer& t = r.Text();
    const Net& net = r.reader.TheNet();
    std::vector<std::string> vectors;
    const auto faulty = [&] {
        FailAt(t.Place(), 2938, "the time delays of >-node '%s' can't be read", r.Name());
    };
    if (!t.TryRead('(')) FailAt(t.PlaceOf(t.At()), 2958, "missing open parenthesis");
    int first_count = 0;
    while (!t.TryRead(')')) {
        if (!t.TryRead('('))
            FailAt(t.PlaceOf(t.At()), 2959, "missing 2nd open parenthesis (it should be a list of vectors)");
        int count = 0;
        vectors.emplace_back();
        if (!TryReadVector(r, vectors.back(), count)) faulty();
        if (vectors.size() == 1) first_count = count;
        if (count != first_count)
            FailAt(t.Place(), 2961, "vectors of different lengths (%d and %d)", first_count, count);
        if (count != net.num_dimensions)
            FailAt(t.Place(), 2963, "there are %d entries, but %d dimensions in >-net '%s'", count,
                   net.num_dimensions, net.name.c_str());
        if (!t.TryRead(',') && t.Peek() != ')')
            FailAt(t.PlaceOf(t.At()), 2960, "illegal punctuation '%s'", t.PeekText().c_str());
    }
    r.num_delays = static_cast<int>(vectors.size());
    if (!r.IsRead(NODE_PARENTS) && r.num_inputs >= 0 && r.num_inputs != r.num_delays)
        FailAt(t.Place(), 2964,
               "there are %d vectors but other indications (e.g. input names) are for %d parents",
               r.num_delays, r.num_inputs);
    NeedParents(r, "delays");
    std::vector<Link> links = r.node.links;
    if (vectors.size() != links.size())
        FailAt(t.Place(), 2937,
               "there are %d vectors but there should be %d (because thats how many parents it has)",
               r.num_delays, static_cast<int>(links.size()));
    for (size_t i = 0; i < links.size(); ++i) links[i].delay = std::move(vectors[i]);
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
        WarnAt(r.Text().Place(), 3597, "'%g' is less than zero", value);
    else
        r.node.exper_base = value;
    return true;
}

// ---- Findings ----

namespace {

bool IsRuledOut(const NodeFinding& finding, int state)
{
    return !finding.likelihood.empty() && finding.likelihood[static_cast<size_t>(state)] == 0;
}

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
    const bool other_value = !IsUndef(finding.value) && StateOfValue(r.node, finding.value) != state;
    if (other_value || IsRuledOut(finding, state) || (finding.state >= 0 && finding.state != state))
        FailAt(r.Text().Place(), 4139, "'%s' is inconsistent with real value or likelihood of this %s", word,
               "node");
    finding.state = state;
}

void EnterRealValue(NodeReader& r, double value)
{
    NodeFinding& finding = r.node.finding;
    const std::vector<double>& levels = r.node.states.levels;
    const int state = HasStates(r.node) && !levels.empty() ? StateOfValue(r.node, value) : UNDEF_STATE;
    bool in_range = !IsUndef(value);
    if (HasStates(r.node))
        in_range = in_range && state >= 0;
    else if (levels.size() == 2)
        in_range =
            in_range && value >= std::min(levels[0], levels[1]) && value <= std::max(levels[0], levels[1]);
    if (!in_range) FailAt(r.Text().Place(), 2974, "'%g' is out-of-range for this >-node", value);
    if (state >= 0 && ((finding.state >= 0 && finding.state != state) || IsRuledOut(finding, state)))
        FailAt(r.Text().Place(), 2975, "'%g' is inconsistent with state value or likelihood of this >-node",
               value);
    finding.value = value;
    if (state >= 0) finding.state = state;
}

void MultiplyIn(NodeReader& r, const std::vector<float>& likelihood)
{
    NodeFinding& finding = r.node.finding;
    if (finding.likelihood.empty()) finding.likelihood.assign(likelihood.size(), 1.0f);
    bool possible = false;
    for (size_t i = 0; i < likelihood.size(); ++i) {
        finding.likelihood[i] *= likelihood[i];
        const bool is_state = finding.state < 0 || static_cast<size_t>(finding.state) == i;
        possible = possible || (is_state && finding.likelihood[i] > 0);
    }
    if (!possible)
        FailAt(r.Text().Place(), 4140,
               "likelihood is inconsistent with previously stated finding for this %s", "node");
}

}  // namespace

bool Evidence(NodeReader& r)
{
    const std::string word = ReadShortWord(r);
    if (!HasStates(r.node))
        FailAt(
            r.Text().Place(), 2969,
            "there should not be an `%s` statement for this %s because it is not a discrete or discretized variable",
            "evidence", "node");
    const int state = StateOfWord(r.node, word);
    if (state < 0) FailAt(r.Text().Place(), 2970, "unknown state '%s'", word.c_str());
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
    std::vector<float> likelihood;
    ReadList(r.reader, [&](bool) { likelihood.push_back(static_cast<float>(r.Text().ReadReal())); });
    if (likelihood.empty() || likelihood.size() != static_cast<size_t>(r.node.states.num_states))
        FailAt(r.Text().Place(), 2971,
               "there are %d entries, but there should be %d, because this %s has that many states",
               static_cast<int>(likelihood.size()), r.node.states.num_states, "node");
    for (const float entry : likelihood) {
        if (entry < 0) FailAt(r.Text().Place(), 3597, "'%g' is less than zero", static_cast<double>(entry));
        if (!std::isfinite(entry)) FailAt(r.Text().Place(), 2936, "an entry of the likelihood is too large");
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
        WarnAt(r.Text().Place(), 3344, "the finding '%s' is not understood", finding.substr(0, 40).c_str());
    }
    return true;
}

bool Belief(NodeReader& r)
{
    std::vector<float> beliefs;
    ReadList(r.reader, [&](bool) { beliefs.push_back(static_cast<float>(r.Text().ReadReal())); });
    const bool are_finite =
        std::all_of(beliefs.begin(), beliefs.end(), [](float b) { return std::isfinite(b); });
    if (!are_finite) return true;  // no file could hold them, and updating gives better ones
    if (beliefs.size() == static_cast<size_t>(r.node.states.num_states))
        r.node.saved_belief = std::move(beliefs);
    else
        WarnAt(r.Text().Place(), 3019,
               "there are %d entries, but there should be %d, because %s has that many states",
               static_cast<int>(beliefs.size()), r.node.states.num_states, r.Name());
    return true;
}

}  // namespace noderead

}  // namespace talora
