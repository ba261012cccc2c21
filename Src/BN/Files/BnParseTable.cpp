// Tables in the text net format: probs, functable, numcases.
//
// Entries come in the order of the table's layout, separated by commas.  Parentheses group them: one pair
// around the whole, one for each parent and, in a probability table, an innermost one around the node's
// own states.  Fewer pairs will do: one around all entries, or the whole and the innermost or outermost
// groups.  What is grouped must be a group of the layout.
//
// A table grows with the entries read: what the file only declares takes no memory.
#include <algorithm>
#include <climits>
#include <cmath>
#include <set>
#include <unordered_map>

#include "BN/Files/BnParse.h"
#include "BN/Model/BnProbs.h"
#include "Basic/Steps.h"
#include "Basic/Text.h"

namespace talora {

namespace {

// The parent configuration that an entry belongs to, for messages.
std::string EntryName(const Node& node, int64_t row)
{
    std::string name;
    for (size_t i = node.links.size(); i-- > 0;) {
        const Node& parent = *node.links[i].parent;
        const int64_t count = std::max(1, parent.states.num_states);
        name.insert(0, StateWord(parent, static_cast<int>(row % count)) + (name.empty() ? "" : ", "));
        row /= count;
    }
    return name;
}

// Walks through a table; read_entry (index) reads one entry, end_row (row) is called behind each row.
class TableReader {
public:
    TableReader(NodeReader& reader, bool has_own_states);
    int64_t NumEntries() const { return total_; }
    template <class ReadEntry, class EndRow>
    void Read(ReadEntry&& read_entry, EndRow&& end_row);
    // The configuration that an entry belongs to, for messages.
    std::string Where(int64_t index) const { return EntryName(node_, index / row_size_); }

private:
    void Open();
    void Settle(int64_t count);
    void CloseAndReopen(int64_t count);

    NodeReader& reader_;
    Tokenizer& t_;
    const Node& node_;
    std::vector<int64_t> sizes_;   // of the groups of the full nesting, from the whole inwards
    std::vector<int64_t> groups_;  // sizes of the groups in use; empty until they are known
    int64_t total_ = 1;
    int64_t row_size_ = 1;  // entries of a row
    int depth_ = 0;         // pairs of parentheses in use
};

void CheckTableAllowed(NodeReader& r, bool own_states)
{
    const FilePlace& place = r.Text().PlaceOf(r.Text().At());
    if (own_states && !HasStates(r.node) && (r.reader.IsSinglePass() || IsDiscrete(r.node)))
        FailAt<2941>(place, "probs", "states");
    if (own_states && !HasStates(r.node)) FailAt<2980>(place, r.Name());
    for (const Link& link : r.node.links)
        if (!HasStates(*link.parent)) FailAt<2981>(place, r.Name(), link.parent->name.c_str());
}

TableReader::TableReader(NodeReader& reader, bool has_own_states)
    : reader_(reader), t_(reader.Text()), node_(reader.node)
{
    CheckTableAllowed(reader, has_own_states);
    if (has_own_states) row_size_ = node_.states.num_states;
    total_ = row_size_;
    if (has_own_states) sizes_.push_back(total_);
    for (size_t i = node_.links.size(); i-- > 0;) {
        total_ *= node_.links[i].parent->states.num_states;
        if (total_ > INT_MAX) FailOutOfMemory("to read table of >-node %s", reader.Name());
        sizes_.push_back(total_);
    }
    std::reverse(sizes_.begin(), sizes_.end());
}

void TableReader::Open()
{
    const int full = static_cast<int>(sizes_.size());
    while (t_.TryRead('(')) ++depth_;
    if (depth_ > std::max(full, 1)) FailAt<2982>(t_.Place(), depth_, full, reader_.Name());
    if (depth_ == full)
        groups_ = sizes_;
    else if (depth_ == 1)
        groups_ = {total_};
}

// The first closing parenthesis shows which groups a table of few parentheses has.
void TableReader::Settle(int64_t count)
{
    const auto full = static_cast<ptrdiff_t>(sizes_.size());
    if (count == sizes_.back()) {
        groups_ = {total_};
        groups_.insert(groups_.end(), sizes_.begin() + (full - depth_ + 1), sizes_.end());
    } else if (count == sizes_[static_cast<size_t>(depth_ - 1)]) {
        groups_.assign(sizes_.begin(), sizes_.begin() + depth_);
    } else {
        FailAt<2987>(t_.PlaceOf(t_.At()), Where(count - 1).c_str(), reader_.Name());
    }
}

// Reads what stands between entry number count - 1 and the next: closing parentheses, a comma, opening ones.
void TableReader::CloseAndReopen(int64_t count)
{
    const auto place = [&] { return t_.PlaceOf(t_.At()); };
    const auto where = [&] { return Where(count - 1); };
    if (t_.Peek() == ')' && groups_.empty() && depth_ > 1) Settle(count);
    int ends = 0;
    for (size_t i = groups_.size(); i-- > 0 && count % groups_[i] == 0;) ++ends;
    if (ends == 0 && t_.Peek() == ')' && (depth_ > 0 || count < total_))
        FailAt<2987>(place(), where().c_str(), reader_.Name());
    int closed = 0;
    while (closed < ends && t_.TryRead(')')) ++closed;
    const char next = t_.Peek();
    if (closed < ends && (closed > 0 || (count == total_ && (next == ';' || t_.AtEnd()))))
        FailAt<2989>(place(), closed, ends, where().c_str(), reader_.Name());
    if (closed < ends && next != ';' && !t_.AtEnd()) FailAt<2988>(place(), where().c_str(), reader_.Name());
    if (next == ')' && count == total_) FailAt<2991>(place(), where().c_str(), reader_.Name());
    if (next == ')') FailAt<2990>(place(), ends, where().c_str(), reader_.Name());
    if (count == total_ && closed == ends && next == ',')
        FailAt<2988>(place(), where().c_str(), reader_.Name());
    if (count == total_ && closed == ends) return;
    if (next == ';' || next == '}' || t_.AtEnd()) FailAt<2993>(place());
    const bool is_punctuation = next == '{' || next == '=' || next == '"';
    if (is_punctuation) FailAt<2992>(place(), t_.PeekText().c_str(), where().c_str(), reader_.Name());
    if (!t_.TryRead(',')) FailAt<2986>(place(), where().c_str(), reader_.Name());
    for (int i = 0; i < ends; ++i)
        if (!t_.TryRead('('))
            FailAt<2992>(place(), t_.PeekText().c_str(), Where(count).c_str(), reader_.Name());
}

template <class ReadEntry, class EndRow>
void TableReader::Read(ReadEntry&& read_entry, EndRow&& end_row)
{
    Open();
    // Within a row of a settled table nothing but a comma can stand between entries.
    const bool plain_rows = depth_ == static_cast<int>(sizes_.size()) && depth_ > 0;
    int64_t left_in_row = row_size_;
    for (int64_t i = 0; i < total_; ++i) {
        read_entry(i);
        if (--left_in_row > 0 && plain_rows && t_.TryRead(',')) continue;
        if (left_in_row == 0) {
            end_row(i / row_size_);
            left_in_row = row_size_;
            CountSteps(static_cast<uint64_t>(row_size_));
            reader_.reader.Poll();
        }
        CloseAndReopen(i + 1);
    }
}

// An entry that is no plain number: a word behind '@', or a fault.
// @param of_states  the table has states as entries: @any and @uniform may stand for all of them
std::string_view ReadEscape(Tokenizer& t, const TableReader& table, int64_t index, const char* node,
                            bool of_states = false)
{
    const std::string_view word = t.ReadWord();
    if (word == "@undef" || word == "@imposs") return word;
    if (of_states && FindWord(kEscapeWords, word) != nullptr) return word;
    if (word.empty() && (t.AtEnd() || t.Peek() == ';')) FailAt<2993>(t.PlaceOf(t.At()));
    const std::string shown = word.empty() ? t.PeekText() : std::string(word.substr(0, 40));
    const std::string where = table.Where(index);
    if (word.starts_with('@')) FailAt<2984>(t.Place(), shown.c_str() + 1, where.c_str(), node);
    if (word.empty()) FailAt<2992>(t.PlaceOf(t.At()), shown.c_str(), where.c_str(), node);
    return word;
}

[[noreturn]] void FailEntry(Tokenizer& t, const TableReader& table, int64_t index, const char* node,
                            const std::string& fault)
{
    FailAt<2983>(t.Place(), fault.c_str(), table.Where(index).c_str(), node);
}

// A real entry of a function or experience table.
double ReadRealEntry(Tokenizer& t, const TableReader& table, int64_t index, const char* node)
{
    const size_t start = t.At();
    std::string_view word = t.ReadWord();
    double value;
    if (ParseReal(word, value)) return value;
    if (word.starts_with('@') && word.ends_with(kValueMark)) word = word.substr(1, word.find('_') - 1);
    if (word == "INFINITY") return InfinityDbl();
    if (word == "-INFINITY") return -InfinityDbl();
    if (word == "undef") return UndefDbl();
    if (word == "imposs") return ImpossibleDbl();
    t.GoTo(start);
    const std::string escape(ReadEscape(t, table, index, node));
    if (escape[0] != '@')
        FailEntry(t, table, index, node, "'" + escape.substr(0, 40) + "' is not a valid number");
    return escape == "@imposs" ? ImpossibleDbl() : UndefDbl();
}

// Room for as many entries as the text can still hold.
template <class T>
void Reserve(NodeReader& r, TableVector<T>& table, int64_t entries, size_t text_left)
{
    const auto count = std::min(static_cast<size_t>(entries), text_left / 2 + 1);
    CheckMemory(static_cast<double>(count * sizeof(T)), "to read table of >-node %s", r.Name());
    table.reserve(count);
}

// A row that is no distribution within the tolerance: a fault if inference could not use it.
void CheckRow(NodeReader& r, const TableReader& table, const float* row, int count, int64_t index)
{
    const uint32_t problems = CheckProbs(row, count) & ~(kAcceptedProbs | PROBS_IMPOSSIBLE);
    if (problems == 0) return;
    const std::string fault = DescribeProbs(problems, true);
    if ((problems & (PROBS_MIXED | PROBS_NEGATIVE)) != 0) FailEntry(r.Text(), table, index, r.Name(), fault);
    WarnAt<2994>(r.Text().Place(), fault.c_str(), table.Where(index).c_str(), r.Name());
}

}  // namespace

namespace noderead {

bool Probs(NodeReader& r)
{
    TableReader table(r, true);
    Tokenizer& t = r.Text();
    TableVector<float>& probs = r.node.tables.probs;
    const float missing = MissingProb(), impossible = ImpossibleProb();
    const int num_states = r.node.states.num_states;
    Reserve(r, probs, table.NumEntries(), r.reader.BytesLeft());
    double sum = 0;
    bool plain = true;  // all entries of the row lie between 0 and 1
    table.Read(
        [&](int64_t index) {
            float value;
            if (!t.TryReadFloat(value)) {
                const std::string word(ReadEscape(t, table, index, r.Name()));
                if (word[0] != '@')
                    FailEntry(t, table, index, r.Name(),
                              "'" + word.substr(0, 40) + "' is not a valid number");
                value = word == "@undef" ? missing : impossible;
            } else if (value < 0) {
                FailEntry(t, table, index, r.Name(), "negative probability");
            }
            plain = plain && value >= 0 && value <= 1;
            sum += static_cast<double>(value);
            probs.push_back(value);
        },
        [&](int64_t row) {
            if (!plain || std::abs(sum - 1) > 2e-6)
                CheckRow(r, table, probs.data() + row * num_states, num_states, row * num_states);
            sum = 0;
            plain = true;
        });
    return true;
}

bool NumCases(NodeReader& r)
{
    TableReader table(r, false);
    TableVector<double>& experience = r.node.tables.experience;
    Reserve(r, experience, table.NumEntries(), r.reader.BytesLeft());
    table.Read(
        [&](int64_t index) {
            double value = ReadRealEntry(r.Text(), table, index, r.Name());
            if (value == ImpossibleDbl()) value = UndefDbl();  // there are no cases of what cannot occur
            if (!IsUndef(value) && value < 0)
                FailEntry(r.Text(), table, index, r.Name(), "negative number of cases");
            experience.push_back(value);
        },
        [](int64_t) {});
    return true;
}

namespace {

// Whether a function table holds numbers: the first entry that is no escape decides.
bool HoldsReals(NodeReader& r)
{
    Tokenizer& t = r.Text();
    const size_t start = t.At();
    bool reals = !HasStates(r.node);
    for (;;) {
        if (t.TryRead('(') || t.TryRead(',') || t.TryRead(')')) continue;
        const std::string_view word = t.ReadWord();
        if (word.starts_with('@') && word.ends_with(kValueMark)) reals = true;
        if (word.starts_with('@')) continue;
        double value;
        const bool is_word_for_number =
            word == "INFINITY" || word == "-INFINITY" || word == "undef" || word == "imposs";
        // A state may be called INFINITY.
        if (!word.empty() && FindState(r.node, word) < 0)
            reals = reals || is_word_for_number || ParseReal(word, value);
        break;
    }
    t.GoTo(start);
    return reals;
}

// The states of a node by name, for tables that name many.
class StateIndex {
public:
    explicit StateIndex(const Node& node)
    {
        for (size_t i = 0; i < node.states.texts.size(); ++i)
            if (!node.states.texts[i].name.empty())
                states_.emplace(node.states.texts[i].name, static_cast<int32_t>(i));
    }
    int32_t Find(std::string_view name) const
    {
        const auto found = states_.find(name);
        return found == states_.end() ? int32_t{UNDEF_STATE} : found->second;
    }

private:
    std::unordered_map<std::string_view, int32_t> states_;
};

int32_t ReadStateEntry(NodeReader& r, const TableReader& table, int64_t index, const StateIndex& states)
{
    const std::string_view word = ReadEscape(r.Text(), table, index, r.Name(), true);
    if (const EnumWord* escape = FindWord(kEscapeWords, word)) return escape->value;
    const int32_t state = states.Find(word);
    double number;
    if (state >= 0) return state;
    if (word.starts_with('#') && ParseReal(word.substr(1), number) && number >= 0 &&
        number < r.node.states.num_states)
        return static_cast<int32_t>(number);
    FailAt<2985>(r.Text().Place(), std::string(word.substr(0, 40)).c_str(), table.Where(index).c_str(),
                 r.Name());
}

// ---- Function tables by condition: (a, @any) : x, (b, c) : y; ----

// Whether a colon stands behind the first bracket.
bool IsByCondition(NodeReader& r)
{
    Tokenizer& t = r.Text();
    const size_t start = t.At();
    bool found = false;
    if (t.TryRead('(')) {
        while (!t.ReadWord().empty() || t.TryRead(',')) {
        }
        found = t.TryRead(')') && t.Peek() == ':';
    }
    t.GoTo(start);
    return found;
}

// Reads "(state, state, ...)", one state for each parent; EVERY_STATE for @any.
std::vector<int> ReadCondition(NodeReader& r, const std::vector<StateIndex>& parents)
{
    Tokenizer& t = r.Text();
    const auto& links = r.node.links;
    const int num_parents = static_cast<int>(links.size());
    std::vector<int> condition;
    if (!t.TryRead('(')) FailAt<2992>(t.PlaceOf(t.At()), t.PeekText().c_str(), "", r.Name());
    while (!t.TryRead(')')) {
        const std::string_view word = t.ReadWord();
        const std::string shown(word.substr(0, 40));
        const size_t index = condition.size();
        if (index >= links.size()) FailAt<2554>(t.Place(), r.Name(), num_parents, shown.c_str());
        if (word.empty()) FailAt<2553>(t.PlaceOf(t.At()), Ordinal(static_cast<int64_t>(index) + 1).c_str());
        const Node& parent = *links[index].parent;
        const int named = parents.empty() ? FindState(parent, word) : parents[index].Find(word);
        const int state = word == "@any" ? int{EVERY_STATE} : named;
        if (state == UNDEF_STATE) FailAt<2550>(t.Place(), parent.name.c_str(), shown.c_str());
        condition.push_back(state);
        if (!t.TryRead(',') && t.Peek() != ')') FailAt<3297>(t.PlaceOf(t.At()));
    }
    if (condition.size() < links.size())
        FailAt<2551>(t.Place(), r.Name(), num_parents, static_cast<int>(condition.size()));
    return condition;
}

// The rows that a list of conditions gives, the first that fits a row having precedence.
//
// Rows are divided by the states of one parent after the other, each part taking along the conditions that
// may still fit.  A part is done when its first condition leaves all other parents open.  No condition is
// kept twice, so that few can go along into every part.
class ConditionTable {
public:
    explicit ConditionTable(const Node& node) : node_(node) {}
    void Add(const std::vector<int>& condition, int32_t state);
    TableVector<int32_t> Rows(size_t num_rows) const;

private:
    struct Rule {
        std::vector<int> states;  // of the parents that have more than one, or EVERY_STATE
        size_t open_from = 0;     // from here on it is EVERY_STATE
        int32_t state = UNDEF_STATE;
    };
    using Rules = std::vector<const Rule*>;
    void Fill(size_t parent, const Rules& rules, int32_t* to, size_t count) const;

    const Node& node_;
    std::vector<int> counts_;  // states of these parents
    std::set<std::vector<int>> seen_;
    std::vector<Rule> rules_;
};

void ConditionTable::Add(const std::vector<int>& condition, int32_t state)
{
    Rule rule;
    rule.state = state;
    std::vector<int> counts;
    for (size_t i = 0; i < condition.size(); ++i) {
        const int count = node_.links[i].parent->states.num_states;
        if (count == 1) continue;
        counts.push_back(count);
        rule.states.push_back(condition[i]);
        if (condition[i] != EVERY_STATE) rule.open_from = rule.states.size();
    }
    counts_.swap(counts);
    if (seen_.insert(rule.states).second) rules_.push_back(std::move(rule));
}

void ConditionTable::Fill(size_t parent, const Rules& rules, int32_t* to, size_t count) const
{
    CountSteps(rules.size());
    if (rules.empty()) return;
    if (rules[0]->open_from <= parent) {
        std::fill(to, to + count, rules[0]->state);
        return;
    }
    const auto num_parts = static_cast<size_t>(counts_[parent]);
    std::vector<Rules> fitting(num_parts);
    for (const Rule* rule : rules) {
        const int state = rule->states[parent];
        if (state >= 0)
            fitting[static_cast<size_t>(state)].push_back(rule);
        else
            for (Rules& part : fitting) part.push_back(rule);
    }
    const size_t part = count / num_parts;
    for (size_t i = 0; i < num_parts; ++i) Fill(parent + 1, fitting[i], to + i * part, part);
}

// Rows that no condition fits are undefined.
TableVector<int32_t> ConditionTable::Rows(size_t num_rows) const
{
    TableVector<int32_t> rows(num_rows, UNDEF_STATE);
    Rules rules;
    for (const Rule& rule : rules_) rules.push_back(&rule);
    Fill(0, rules, rows.data(), num_rows);
    return rows;
}

void ReadByCondition(NodeReader& r, TableReader& table)
{
    constexpr int64_t kMaxRows = 1 << 14;  // the whole table comes of a few bytes
    constexpr int64_t kManyConditions = 100;
    if (table.NumEntries() > kMaxRows || !r.reader.CountMade(static_cast<size_t>(table.NumEntries())))
        FailOutOfMemory("to read table of >-node %s", r.Name());
    Tokenizer& t = r.Text();
    ConditionTable conditions(r.node);
    std::vector<StateIndex> parents;  // once it is worth while
    const StateIndex names(r.node);
    int64_t num_conditions = 0;
    do {
        if (++num_conditions > table.NumEntries()) FailAt<2996>(t.PlaceOf(t.At()));
        if (num_conditions == kManyConditions)
            for (const Link& link : r.node.links) parents.emplace_back(*link.parent);
        const std::vector<int> condition = ReadCondition(r, parents);
        if (t.Peek() != ':') FailAt<2995>(t.PlaceOf(t.At()));
        t.GoTo(t.At() + 1);
        conditions.Add(condition, ReadStateEntry(r, table, 0, names));
        r.reader.Poll();
    } while (t.TryRead(','));
    r.node.tables.func_states = conditions.Rows(static_cast<size_t>(table.NumEntries()));
}

}  // namespace

bool FuncTable(NodeReader& r)
{
    TableReader table(r, false);
    NodeTables& tables = r.node.tables;
    if (HasStates(r.node) && IsByCondition(r)) {
        ReadByCondition(r, table);
    } else if (HoldsReals(r)) {
        Reserve(r, tables.func_reals, table.NumEntries(), r.reader.BytesLeft());
        table.Read(
            [&](int64_t i) { tables.func_reals.push_back(ReadRealEntry(r.Text(), table, i, r.Name())); },
            [](int64_t) {});
    } else {
        const StateIndex names(r.node);
        Reserve(r, tables.func_states, table.NumEntries(), r.reader.BytesLeft());
        table.Read([&](int64_t i) { tables.func_states.push_back(ReadStateEntry(r, table, i, names)); },
                   [](int64_t) {});
    }
    return true;
}

}  // namespace noderead

}  // namespace talora
