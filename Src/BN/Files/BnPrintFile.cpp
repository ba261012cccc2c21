// Writing a net as text: a function per field, run over the tables of fields.
#include "BN/Files/BnPrintFile.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "BN/Files/BnParse.h"
#include "BN/Files/NetContainer.h"
#include "BN/Files/NetFields.h"
#include "BN/Model/BnProbs.h"
#include "Basic/Digits.h"
#include "Basic/Error.h"
#include "Basic/FileType.h"
#include "Basic/Memory.h"
#include "Basic/Parser.h"
#include "Basic/Progress.h"
#include "Basic/Text.h"

namespace talora {

namespace {

constexpr size_t kPieceBytes = 1 << 20;
constexpr char kUserSection[] = "UserFields";  // name of a section of user fields that has none

constexpr int kNetOrder[] = {NET_NUMDIMENSIONS, NET_AUTOCOMPILE, NET_AUTOUPDATE, NET_MOSTPROBABLE, NET_TITLE,
                             NET_COMMENT,       NET_AUTHOR,      NET_WHOCHANGED, NET_WHENCHANGED};

// Inputs come before parents, unlike in the field table.
constexpr int kNodeOrder[] = {
    NODE_DISCRETE,   NODE_MEASURE,     NODE_NUMSTATES, NODE_STATES,    NODE_STATETITLES, NODE_STATECOMMENTS,
    NODE_LEVELS,     NODE_UNITS,       NODE_KIND,      NODE_CHANCE,    NODE_INPUTS,      NODE_PARENTS,
    NODE_FUNCTABLE,  NODE_PROBS,       NODE_NUMCASES,  NODE_EXPERBASE, NODE_EQUATION,    NODE_EQNDIRTY,
    NODE_DELAYS,     NODE_PERSIST,     NODE_POSITION,  NODE_TITLE,     NODE_COMMENT,     NODE_AUTHOR,
    NODE_WHOCHANGED, NODE_WHENCHANGED, NODE_EVIDENCE,  NODE_VALUE,     NODE_LIKELIHOOD,  NODE_BELIEF};

// ---- Items ----

void AppendFloat(std::string& out, float value)
{
    char digits[32];
    const auto end = PrintDigits(digits, digits + sizeof digits, value, std::chars_format::general);
    out.append(digits, end);
}

void AppendReal(std::string& out, double value)
{
    if (IsUndef(value)) return;  // shows as an empty item
    if (value == InfinityDbl())
        out += "INFINITY";
    else if (value == -InfinityDbl())
        out += "-INFINITY";
    else
        out += FormatReal(value);
}

void AppendEntry(std::string& out, float value)
{
    if (value == MissingProb())
        out += "@undef";
    else if (value == ImpossibleProb())
        out += "@imposs";
    else
        AppendFloat(out, value);
}

void AppendEntry(std::string& out, double value)
{
    char digits[32];
    if (IsUndef(value))
        out += "@undef";
    else if (value == ImpossibleDbl())
        out += "@imposs";
    else if (std::abs(value) == InfinityDbl())
        AppendReal(out, value);
    else
        out.append(digits, PrintDigits(digits, digits + sizeof digits, value, std::chars_format::general));
}

// ( item, item, ... ); a single item that is empty is written as "".
template <class AppendItem>
void AppendList(std::string& out, size_t count, AppendItem&& append_item)
{
    out += '(';
    const size_t start = out.size();
    for (size_t i = 0; i < count; ++i) {
        if (i > 0) out += ", ";
        append_item(i);
    }
    if (count == 1 && out.size() == start) out += "\"\"";
    out += ')';
}

bool PrintQuoted(ValuePrinter& p, const std::string& text)
{
    if (text.empty()) return false;
    AppendQuoted(p.out, text);
    return true;
}

bool PrintWord(ValuePrinter& p, const char* word)
{
    p.out += word;
    return true;
}

bool PrintTime(ValuePrinter& p, uint32_t time)
{
    if (time == 0) return false;
    p.out += std::to_string(time);
    return true;
}

void AppendNodes(std::string& out, const std::vector<Node*>& nodes)
{
    AppendList(out, nodes.size(), [&](size_t i) { out += nodes[i]->name; });
}

// How many numbers a vector as written holds: "1, 0" is two.
size_t CountOf(const std::string& vector)
{
    return vector.empty() ? 0 : 1 + static_cast<size_t>(std::count(vector.begin(), vector.end(), ','));
}

bool IsVector(const std::string& text)
{
    for (size_t at = 0; at <= text.size();) {
        const size_t comma = std::min(text.find(',', at), text.size());
        std::string_view item(text.data() + at, comma - at);
        while (item.starts_with(' ')) item.remove_prefix(1);
        while (item.ends_with(' ')) item.remove_suffix(1);
        double value;
        if (!ParseReal(item, value)) return false;
        at = comma + 1;
    }
    return true;
}

// The time dimensions that a net is saved with: those it states, or more if its nodes hold longer vectors.
size_t NumDimensions(const Net& net)
{
    auto count = static_cast<size_t>(std::max(0, net.num_dimensions));
    for (const Node* node : net.nodes.nodes) {
        for (const Link& link : node->links)
            if (IsVector(link.delay)) count = std::max(count, CountOf(link.delay));
        if (IsVector(node->persist)) count = std::max(count, CountOf(node->persist));
        if (IsVector(node->position)) count = std::max(count, CountOf(node->position));
    }
    return count;
}

// A vector with one entry for each dimension.  The number of dimensions may have been changed after the
// vector was set; zeros in the others change nothing of what it says.
void AppendVector(ValuePrinter& p, const Node& node, const char* keyword, std::string vector)
{
    const size_t count = CountOf(vector);
    for (size_t i = count; i < p.num_dimensions; ++i) vector += i > 0 ? ", 0" : "0";
    if (count > 0 && count < p.num_dimensions)
        Warn<7250>(keyword, node.name.c_str(), vector.c_str(), node.net->name.c_str(),
                   static_cast<int>(p.num_dimensions));
    p.out += "(" + vector + ")";
}

bool PrintVector(ValuePrinter& p, const Node& node, const char* keyword, const std::string& vector)
{
    if (!IsVector(vector)) return false;
    AppendVector(p, node, keyword, vector);
    return true;
}

}  // namespace

void ValuePrinter::Flush(size_t keep_below)
{
    if (out.size() <= keep_below || write == nullptr) return;
    const bool was_in_table = in_table;
    BeginTable(out.size());
    (*write)(out);
    out.clear();
    taken = 0;
    in_table = was_in_table;
}

// What comes now, from this place of the text on, is left out of the text without tables.
void ValuePrinter::BeginTable(size_t at)
{
    if (all_but_tables != nullptr && !in_table) all_but_tables->append(out, taken, at - taken);
    in_table = true;
}

void ValuePrinter::EndTable()
{
    taken = out.size();
    in_table = false;
}

// ---- Fields of the net ----

namespace netwrite {

bool NumDimensions(ValuePrinter& p, const Net&)
{
    if (p.num_dimensions == 0) return false;
    p.out += std::to_string(p.num_dimensions);
    return true;
}

bool AutoCompile(ValuePrinter& p, const Net& net)
{
    return net.auto_compile && PrintWord(p, "TRUE");
}

// Written even when it holds its default.
bool AutoUpdate(ValuePrinter& p, const Net& net)
{
    return PrintWord(p, net.auto_update != 0 ? "TRUE" : "FALSE");
}

bool MostProbable(ValuePrinter& p, const Net& net)
{
    return net.most_probable && PrintWord(p, "TRUE");
}

bool ElimOrder(ValuePrinter& p, const Net& net)
{
    if (!net.has_elim_order) return false;
    AppendNodes(p.out, net.elim_order.nodes);
    return true;
}

bool Title(ValuePrinter& p, const Net& net)
{
    return PrintQuoted(p, net.text.title);
}
bool Comment(ValuePrinter& p, const Net& net)
{
    return PrintQuoted(p, net.text.comment);
}
bool Author(ValuePrinter& p, const Net& net)
{
    return PrintQuoted(p, net.text.author);
}
bool WhoChanged(ValuePrinter& p, const Net& net)
{
    return PrintQuoted(p, net.text.who_changed);
}
bool WhenChanged(ValuePrinter& p, const Net& net)
{
    return PrintTime(p, net.text.when_changed);
}

}  // namespace netwrite

// ---- Fields of a node ----

namespace nodewrite {

namespace {

bool HasText(const Node& node, std::string StateText::*member)
{
    const auto& texts = node.states.texts;
    return std::any_of(texts.begin(), texts.end(),
                       [&](const StateText& text) { return !(text.*member).empty(); });
}

bool PrintStateTexts(ValuePrinter& p, const Node& node, std::string StateText::*member, bool quoted)
{
    if (!HasText(node, member)) return false;
    const auto& texts = node.states.texts;
    AppendList(p.out, static_cast<size_t>(node.states.num_states), [&](size_t i) {
        if (i >= texts.size() || (texts[i].*member).empty()) return;
        if (quoted)
            AppendQuoted(p.out, texts[i].*member);
        else
            p.out += texts[i].*member;
    });
    return true;
}

// Whether two levels stand for the range of a continuous variable without states, and other lists of
// levels for the number of states.
bool LevelsTellStates(const Node& node)
{
    const size_t count = node.states.levels.size();
    return IsDiscrete(node) ? count > 0 : count > 2;
}

}  // namespace

bool Discrete(ValuePrinter& p, const Node& node)
{
    if (node.states.type == VarType::UNKNOWN && !HasStates(node)) return false;
    return PrintWord(p, WordFor(kTypeWords, int(node.states.type)));
}

bool MeasureLevel(ValuePrinter& p, const Node& node)
{
    return node.measure != Measure::UNKNOWN && PrintWord(p, WordFor(kMeasureWords, int(node.measure)));
}

bool NumStates(ValuePrinter& p, const Node& node)
{
    const bool implied = HasText(node, &StateText::name) || HasText(node, &StateText::title) ||
                         HasText(node, &StateText::comment) || LevelsTellStates(node);
    if (!HasStates(node) || implied) return false;
    p.out += std::to_string(talora::NumStates(node));
    return true;
}

bool States(ValuePrinter& p, const Node& node)
{
    return PrintStateTexts(p, node, &StateText::name, false);
}
bool StateTitles(ValuePrinter& p, const Node& node)
{
    return PrintStateTexts(p, node, &StateText::title, true);
}
bool StateComments(ValuePrinter& p, const Node& node)
{
    return PrintStateTexts(p, node, &StateText::comment, true);
}

bool Levels(ValuePrinter& p, const Node& node)
{
    const std::vector<double>& levels = node.states.levels;
    if (levels.empty()) return false;
    AppendList(p.out, levels.size(), [&](size_t i) { AppendReal(p.out, levels[i]); });
    return true;
}

bool Units(ValuePrinter& p, const Node& node)
{
    return PrintQuoted(p, node.units);
}

bool Kind(ValuePrinter& p, const Node& node)
{
    // Without a statement, a node that says nothing of a variable is read as a note.
    const bool is_variable = node.states.type != VarType::UNKNOWN || HasStates(node) || !node.links.empty() ||
                             !node.states.levels.empty() || !node.equation.empty() ||
                             !node.tables.func_reals.empty() || !IsUndef(node.finding.value);
    if (node.kind == UNKNOWN_KIND && !is_variable) return false;
    if (node.kind == DISCONNECTED_NODE) return false;  // the word `param` implies it
    return PrintWord(p, WordFor(kKindWords, node.kind));
}

bool Chance(ValuePrinter& p, const Node& node)
{
    return node.relation != Relation::UNKNOWN_CHANCE &&
           PrintWord(p, WordFor(kRelationWords, int(node.relation)));
}

bool Inputs(ValuePrinter& p, const Node& node)
{
    const auto has_name = [](const Link& link) { return !link.input_name.empty(); };
    if (std::none_of(node.links.begin(), node.links.end(), has_name)) return false;
    AppendList(p.out, node.links.size(), [&](size_t i) { p.out += node.links[i].input_name; });
    return true;
}

bool Parents(ValuePrinter& p, const Node& node)
{
    if (node.links.empty()) return false;
    AppendList(p.out, node.links.size(), [&](size_t i) { p.out += node.links[i].parent->name; });
    return true;
}

namespace {

// Walks over the configurations of the parents, the last one turning fastest.
class RowPrinter {
public:
    explicit RowPrinter(const Node& node, bool has_own_states);
    double NumRows() const { return num_rows_; }
    // Prints all rows; append_row (row) appends the entries of one.
    template <class AppendRow>
    void Print(ValuePrinter& p, AppendRow&& append_row);

private:
    size_t Turn();  // to the next row; how many wheels turned over

    std::vector<std::vector<std::string>> words_;  // of each parent's states
    std::vector<size_t> state_;
    double num_rows_ = 1;
    size_t levels_;  // of parentheses
};

RowPrinter::RowPrinter(const Node& node, bool has_own_states)
    : state_(node.links.size()), levels_(node.links.size() + (has_own_states ? 1 : 0))
{
    for (const Link& link : node.links) {
        std::vector<std::string> words;
        for (int s = 0; s < talora::NumStates(*link.parent); ++s) words.push_back(StateWord(*link.parent, s));
        num_rows_ *= static_cast<double>(words.size());
        words_.push_back(std::move(words));
    }
}

size_t RowPrinter::Turn()
{
    size_t turned = 0;
    for (size_t i = state_.size(); i-- > 0; ++turned) {
        if (++state_[i] < words_[i].size()) return turned;
        state_[i] = 0;
    }
    return turned;
}

template <class AppendRow>
void RowPrinter::Print(ValuePrinter& p, AppendRow&& append_row)
{
    const bool grouped = levels_ > state_.size();  // each row in parentheses of its own
    const auto num_rows = static_cast<int64_t>(num_rows_);
    size_t open = levels_;
    p.comment.clear();
    for (int64_t row = 0; row < num_rows; ++row) {
        p.out += "\n\t\t\t";
        p.out.append(levels_ - open, ' ');
        p.out.append(open, '(');
        append_row(row);
        p.comment.clear();
        for (size_t i = 0; i < state_.size(); ++i) {
            if (i > 0) p.comment += ", ";
            p.comment += words_[i][state_[i]];
        }
        open = Turn() + (grouped ? 1 : 0);
        p.out.append(open, ')');
        if (row + 1 == num_rows) break;
        p.out += ",\t// ";
        p.out += p.comment;
        p.Flush(kPieceBytes);
    }
}

// What no file can hold: a table is no better for being saved.
[[noreturn]] void FailEntry(const Node& node, const char* table, const std::string& fault)
{
    const std::string reason = std::string("`") + table + "` of node '" + node.name + "' " + fault;
    Fail<7253>(node.net->name.c_str(), reason.c_str());
}

void CheckReal(const Node& node, const char* table, double value)
{
    if (!std::isfinite(value)) FailEntry(node, table, "has an entry that is not a number");
}

// A row of probabilities as the reader would take it.
void CheckRow(const Node& node, const float* row, size_t count)
{
    float least = 0, sum = 0;
    for (size_t i = 0; i < count; ++i) {
        least = std::min(least, row[i]);
        sum += row[i];
    }
    if (least >= 0 && std::isfinite(sum)) return;
    const uint32_t problems = CheckProbs(row, static_cast<int>(count)) & (PROBS_MIXED | PROBS_NEGATIVE);
    if (problems != 0) FailEntry(node, "probs", DescribeProbs(problems, true));
    if (!std::all_of(row, row + count, [](float entry) { return std::isfinite(entry); }))
        FailEntry(node, "probs", "has an entry that is not a number");
}

// Entries of a table that are written need about twelve bytes each.
void CheckTable(const Node& node, size_t entries, double expected)
{
    if (static_cast<double>(entries) != expected)
        FailInternal("table has the size of its states", __FILE__, __LINE__);
    if (entries > INT32_MAX) Fail<4033>(node.name.c_str());
}

template <class T>
bool PrintRows(ValuePrinter& p, const Node& node, const char* keyword, const TableVector<T>& table,
               bool of_values = false)
{
    if (table.empty()) return false;
    RowPrinter rows(node, false);
    CheckTable(node, table.size(), rows.NumRows());
    const bool infinity_is_state = FindState(node, "INFINITY") >= 0;
    rows.Print(p, [&](int64_t row) {
        const T value = table[static_cast<size_t>(row)];
        CheckReal(node, keyword, value);
        if (infinity_is_state && std::abs(value) == InfinityDbl())
            p.out += FormatShortest(value);  // its digits say the same
        else
            AppendEntry(p.out, value);
        if (of_values && row == 0) p.out += kValueMark;
    });
    return true;
}

bool IsNoNumber(double value)
{
    return IsUndef(value) || value == ImpossibleDbl();
}

}  // namespace

bool FuncTable(ValuePrinter& p, const Node& node)
{
    const auto& states = node.tables.func_states;
    const auto& reals = node.tables.func_reals;
    if (states.empty()) {
        // If no number shows that it is no table of states, the first entry does.
        const bool of_values = HasStates(node) && std::all_of(reals.begin(), reals.end(), IsNoNumber);
        return PrintRows(p, node, "functable", reals, of_values);
    }
    if (!reals.empty()) Warn<7254>(node.name.c_str());
    RowPrinter rows(node, false);
    CheckTable(node, states.size(), rows.NumRows());
    rows.Print(p, [&](int64_t row) {
        const int32_t state = states[static_cast<size_t>(row)];
        if (state >= talora::NumStates(node)) FailEntry(node, "functable", "has a state that there is not");
        p.out += state >= 0 ? StateWord(node, state) : WordFor(kEscapeWords, state);
    });
    return true;
}

bool Probs(ValuePrinter& p, const Node& node)
{
    const auto& probs = node.tables.probs;
    if (probs.empty()) return false;
    const auto num_states = static_cast<size_t>(talora::NumStates(node));
    RowPrinter rows(node, true);
    CheckTable(node, probs.size(), rows.NumRows() * static_cast<double>(num_states));
    rows.Print(p, [&](int64_t row) {
        const float* const entries = probs.data() + static_cast<size_t>(row) * num_states;
        CheckRow(node, entries, num_states);
        for (size_t s = 0; s < num_states; ++s) {
            if (s > 0) p.out += ", ";
            AppendEntry(p.out, entries[s]);
        }
    });
    return true;
}

bool NumCases(ValuePrinter& p, const Node& node)
{
    for (const double count : node.tables.experience)
        if (count < 0 && !IsUndef(count)) FailEntry(node, "numcases", "has a negative number of cases");
    return PrintRows(p, node, "numcases", node.tables.experience);
}

bool ExperBase(ValuePrinter& p, const Node& node)
{
    if (node.exper_base == 0) return false;
    AppendReal(p.out, node.exper_base);
    return true;
}

bool Equation(ValuePrinter& p, const Node& node)
{
    return PrintQuoted(p, node.equation);
}

bool Dirty(ValuePrinter& p, const Node& node)
{
    return node.eqn_dirty != EqnDirty::CLEAN && PrintWord(p, WordFor(kDirtyWords, int(node.eqn_dirty)));
}

bool Delays(ValuePrinter& p, const Node& node)
{
    const auto has_delay = [](const Link& link) { return IsVector(link.delay); };
    if (std::none_of(node.links.begin(), node.links.end(), has_delay)) return false;
    AppendList(p.out, node.links.size(), [&](size_t i) {
        const Link& link = node.links[i];
        AppendVector(p, node, "delays", has_delay(link) ? link.delay : std::string());
    });
    return true;
}

bool Persist(ValuePrinter& p, const Node& node)
{
    return PrintVector(p, node, "persist", node.persist);
}
bool Position(ValuePrinter& p, const Node& node)
{
    return PrintVector(p, node, "position", node.position);
}
bool Title(ValuePrinter& p, const Node& node)
{
    return PrintQuoted(p, node.text.title);
}
bool Comment(ValuePrinter& p, const Node& node)
{
    return PrintQuoted(p, node.text.comment);
}
bool Author(ValuePrinter& p, const Node& node)
{
    return PrintQuoted(p, node.text.author);
}
bool WhoChanged(ValuePrinter& p, const Node& node)
{
    return PrintQuoted(p, node.text.who_changed);
}
bool WhenChanged(ValuePrinter& p, const Node& node)
{
    return PrintTime(p, node.text.when_changed);
}

bool Evidence(ValuePrinter& p, const Node& node)
{
    // A value implies the state that holds it, unless several states have it as their level.
    const NodeFinding& finding = node.finding;
    if (finding.state < 0) return false;
    if (!IsUndef(finding.value) && StateOfValue(node, finding.value) == finding.state) return false;
    p.out += StateWord(node, node.finding.state);
    return true;
}

bool Value(ValuePrinter& p, const Node& node)
{
    if (IsUndef(node.finding.value)) return false;
    AppendEntry(p.out, node.finding.value);
    return true;
}

bool Likelihood(ValuePrinter& p, const Node& node)
{
    const auto& likelihood = node.finding.likelihood;
    if (likelihood.empty()) return false;
    AppendList(p.out, likelihood.size(), [&](size_t i) { AppendFloat(p.out, likelihood[i]); });
    return true;
}

bool Belief(ValuePrinter& p, const Node& node)
{
    const auto& belief = node.saved_belief;
    if (belief.empty()) return false;
    AppendList(p.out, belief.size(), [&](size_t i) { AppendFloat(p.out, belief[i]); });
    return true;
}

}  // namespace nodewrite

// ---- The file ----

namespace {

// KEYWORD = value; unless the value is the default.
template <class Def, class Object>
void PrintStatement(ValuePrinter& p, const Def& def, const Object& object, const char* indent,
                    bool is_table = false)
{
    const size_t start = p.out.size();
    if (is_table) p.BeginTable(start);
    p.out.append(indent).append(def.keyword).append(" = ");
    p.comment.clear();
    if (!def.write(p, object)) {
        p.out.resize(start);
    } else {
        p.out += ';';
        if (!p.comment.empty()) p.out.append("\t// ").append(p.comment);
        p.out += '\n';
    }
    if (is_table) p.EndTable();
}

void PrintSections(ValuePrinter& p, const Description& text, const std::string& indent)
{
    const bool has_section =
        !text.user_section.empty() || (text.user_fields.empty() && !text.user_name.empty());
    // First: it is the first section of this form that is read as fields.
    if (!text.user_fields.empty()) {
        const std::string& name = has_section || text.user_name.empty() ? kUserSection : text.user_name;
        p.out += "\n" + indent + "user " + name + " {\n";
        for (const UserField& field : text.user_fields) {
            p.out += indent + "\t" + field.name + " = ";
            AppendQuoted(p.out, field.value);
            p.out += ";\n";
        }
        p.out += indent + "};\n";
    }
    if (has_section) p.out += "\n" + indent + "user " + text.user_name + " {" + text.user_section + "};\n";
    if (!text.visual_name.empty())
        p.out += "\n" + indent + "visual " + text.visual_name + " {" + text.visual_section + "};\n";
}

void PrintNode(ValuePrinter& p, const Node& node)
{
    p.out += node.kind == DISCONNECTED_NODE ? "\n\tparam " : "\n\tnode ";
    p.out += node.name + " {\n";
    for (const int field : kNodeOrder) {
        const bool is_table = kNodeFields[field].needs == Needs::TABLE;
        PrintStatement(p, kNodeFields[field], node, "\t\t", is_table);
    }
    if (node.kind == DISCONNECTED_NODE && !node.disconnected_from.empty()) {
        Description text = node.text;
        text.user_fields.push_back({kOriginalParentField, node.disconnected_from});
        PrintSections(p, text, "\t\t");
    } else {
        PrintSections(p, node.text, "\t\t");
    }
    p.out += "\t};\n";
    p.Flush(kPieceBytes);
}

}  // namespace

void PrintNet(const Net& net, const std::function<void(std::string_view)>& write, std::string* all_but_tables)
{
    ValuePrinter p;
    p.write = &write;
    p.all_but_tables = all_but_tables;
    p.num_dimensions = NumDimensions(net);
    Progress progress("Writing net");
    p.out = "// ~->[DNET-1]->~\n\nbnet " + net.name + " {\n";
    for (const int field : kNetOrder) PrintStatement(p, kNetFields[field], net, "\t");
    PrintSections(p, net.text, "\t");
    size_t done = 0;
    for (const Node* node : net.nodes.nodes) {
        PrintNode(p, *node);
        if (!progress.Step(static_cast<double>(++done) / static_cast<double>(net.nodes.nodes.size())))
            FailWith<3606>(ABORTED_CND);
    }
    for (const NodeSet& set : net.node_sets) {
        p.out += "\tNodeSet " + set.name + " {Nodes = ";
        AppendNodes(p.out, set.nodes);
        p.out += ";};\n";
    }
    PrintStatement(p, kNetFields[NET_ELIMORDER], net, "\t");
    p.out += "};\n";
    p.Flush(0);
}

std::string PrintNet(const Net& net)
{
    std::string text;
    PrintNet(net, [&](std::string_view piece) { text += piece; });
    return text;
}

void WriteNet(const Net& net, Stream& stream)
{
    const Secret& password = stream.password.IsSet() ? stream.password : net.password;
    const bool is_binary = FileTypeByName(stream.name) == "TALA";
    if (!is_binary && password.IsSet()) Warn<6854>();
    ByteSink sink(stream, is_binary && password.IsSet());
    // What was written is read again before it takes the place of the old file.  The entries of tables, of
    // which there may be a great many, are checked as they are written.
    std::string text;
    if (is_binary) {
        NetPacker packer(net, password);
        PrintNet(
            net, [&](std::string_view piece) { packer.Add(piece); }, &text);
        CheckNetReads(net, text, stream);
        packer.WriteTo(sink);
    } else {
        PrintNet(
            net, [&](std::string_view piece) { sink.Write(piece); }, &text);
        CheckNetReads(net, text, stream);
    }
    sink.Commit();
}

}  // namespace talora
