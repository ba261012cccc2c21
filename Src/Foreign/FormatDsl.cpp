// DSL: text with nested blocks of `name = value;`, one for each node.
#include <algorithm>

#include "Foreign/ForeignCheck.h"
#include "Foreign/ForeignXml.h"
#include "Foreign/Formats.h"

namespace talora {

namespace {

constexpr ScanRules kRules{
    .blanks = ",", .punctuation = "{}()=;", .slash_comments = true, .nested_comments = true, .escapes = true};

class DslReader {
public:
    DslReader(const ForeignSource& source, ForeignNet& net)
        : source_(source), net_(net), text_(source, kRules), names_(source, net)
    {}

    void Read()
    {
        net_.format = "DSL";
        if (!text_.TryWord("net")) text_.FailExpected("`net`");
        net_.name = text_.Name();
        text_.Need('{');
        while (!text_.Try('}')) {
            const std::string key = Key();
            if (key == "node")
                ReadNode();
            else
                ReadNetItem(key);
            text_.Try(';');
        }
        for (size_t i = 0; i < pending_.size(); ++i) Define(net_.nodes[i], pending_[i]);
        for (const auto& [name, cost] : costs_)
            if (const int index = names_.TryFind(name); index >= 0) net_.nodes[size_t(index)].cost = cost;
    }

private:
    // What is used of a definition once all nodes are known.
    struct Pending {
        std::string type;
        std::vector<std::pair<std::string, size_t>> parents, results;
        std::vector<double> numbers;
        size_t at = 0, numbers_at = std::string_view::npos;
    };

    std::string Key()
    {
        const std::string_view word = text_.Word();
        if (word.empty()) text_.FailExpected("a name or '}'");
        return std::string(word);
    }

    // A block of items; visit reads the value of each.
    template <class Visit>
    void Block(Visit&& visit)
    {
        text_.Need('{');
        while (!text_.Try('}')) {
            const std::string key = Key();
            if (key == "node" && text_.Peek() != '=')
                text_.Name();
            else
                text_.Need('=');
            visit(key);
            if (!text_.Try(';') && text_.Peek() != '}') text_.FailExpected("';'");
        }
    }
    void Skip()
    {
        if (text_.Peek() == '{')
            SkipBlock();
        else
            text_.SkipValue(";}");
    }
    void SkipBlock()
    {
        const size_t start = text_.At();
        text_.Need('{');
        text_.SkipValue("}");
        if (!text_.Try('}'))
            FailAt<7003>(text_.Here(),
                         ("the block of line " + std::to_string(source_.LineOf(start))).c_str());
    }
    std::string TextValue()
    {
        if (text_.Peek() == '"') return text_.Quoted();
        const size_t from = text_.At();
        text_.SkipValue(";}");
        return std::string(Trimmed(source_.text.substr(from, text_.At() - from)));
    }

    // Texts, costs and properties of the net; settings of the editor are left.
    void ReadNetItem(const std::string& key)
    {
        text_.Need('=');
        if (key == "HEADER") {
            Block([&](const std::string& item) {
                if (item == "NAME")
                    net_.title = TextValue();
                else if (item == "COMMENT")
                    net_.comment = TextValue();
                else
                    Skip();
            });
            if (net_.title == net_.name) net_.title.clear();
        } else if (key == "OBSERVATION_COST") {
            Block([&](const std::string& item) { ReadCost(item); });
        } else if (key == "USER_PROPERTIES") {
            Block([&](const std::string& item) { net_.fields.emplace_back(item, TextValue()); });
        } else {
            Skip();
        }
    }

    // node A { PARENTS = (); COST = (3.5); }, or A = 3.5
    void ReadCost(const std::string& item)
    {
        if (item != "node") {
            costs_.emplace_back(item, TextValue());
            return;
        }
        const std::string name(LastName());
        Block([&](const std::string& key) {
            const std::string value = TextValue();
            if (key.find("COST") == std::string::npos) return;
            const std::string_view inside = Trimmed(value);
            const bool has_brackets = inside.starts_with('(') && inside.ends_with(')');
            costs_.emplace_back(
                name, has_brackets ? std::string(Trimmed(inside.substr(1, inside.size() - 2))) : value);
        });
    }
    // The name that follows the word `node` was read last.
    std::string_view LastName() const
    {
        return source_.text.substr(text_.Token(), text_.At() - text_.Token());
    }

    void ReadNode()
    {
        text_.Skip();
        const size_t at = text_.At();
        ForeignNode& node = names_.Add(text_.Name(), at);
        Pending& pending = pending_.emplace_back();
        pending.at = at;
        Block([&](const std::string& key) { ReadNodeItem(node, pending, key); });
    }

    // What is not used (fonts, diagnosis marks, documentation) is skipped as a whole, however it is nested.
    void ReadNodeItem(ForeignNode& node, Pending& pending, const std::string& key)
    {
        if (key == "TYPE") {
            pending.type = TextValue();
        } else if (key == "HEADER") {
            Block([&](const std::string& item) {
                if (item == "NAME")
                    node.title = TextValue();
                else if (item == "COMMENT")
                    node.comment = TextValue();
                else
                    Skip();
            });
        } else if (key == "SCREEN") {
            Block([&](const std::string& item) {
                if (item != "POSITION") return Skip();
                Block([&](const std::string& part) {
                    if (part == "CENTER_X")
                        node.x = text_.Number();
                    else if (part == "CENTER_Y")
                        node.y = text_.Number();
                    else
                        Skip();
                });
            });
        } else if (key == "PARENTS") {
            ReadNames(pending.parents);
        } else if (key == "DEFINITION") {
            Block([&](const std::string& item) { ReadDefinitionItem(node, pending, item); });
        } else if (key == "USER_PROPERTIES") {
            Block([&](const std::string& item) { node.fields.emplace_back(item, TextValue()); });
        } else {
            Skip();
        }
    }

    // States and numbers; what the numbers mean follows from the type, which may come later.
    void ReadDefinitionItem(ForeignNode& node, Pending& pending, const std::string& item)
    {
        if (item == "NAMESTATES" || item == "NAMECHOICES") {
            std::vector<std::pair<std::string, size_t>> states;
            ReadNames(states);
            for (auto& state : states) node.states.push_back(std::move(state.first));
        } else if (item == "PROBABILITIES" || item == "UTILITIES" || item == "WEIGHTS") {
            text_.Need('(');
            pending.numbers_at = text_.At();
            double value = 0;
            while (text_.TryNumber(value)) pending.numbers.push_back(value);
            if (text_.Peek() != ')') {
                if (text_.PeekWord().empty()) text_.FailExpected("a number or ')'");
                text_.Number();
            }
            text_.Need(')');
        } else if (item == "RESULTINGSTATES") {
            ReadNames(pending.results);
        } else {
            Skip();
        }
    }

    void ReadNames(std::vector<std::pair<std::string, size_t>>& names)
    {
        text_.Need('(');
        while (!text_.Try(')')) {
            std::string name = text_.Name();
            names.emplace_back(std::move(name), text_.Token());
        }
    }

    // Links and tables, once all nodes are there.
    void Define(ForeignNode& node, Pending& pending)
    {
        if (pending.type == "LIST") node.kind = ForeignKind::DECISION;
        if (pending.type == "TABLE") node.kind = ForeignKind::UTILITY;
        const bool is_known = pending.type.empty() || pending.type == "CPT" || pending.type == "TRUTHTABLE" ||
                              pending.type == "LIST" || pending.type == "TABLE";
        if (!is_known)
            FailAt<7023>(source_.PlaceAt(pending.at),
                         ("nodes of the type '" + Shown(pending.type) + "'").c_str());
        for (const auto& [name, at] : pending.parents) node.parents.push_back(names_.Find(name, at));
        if (!pending.results.empty()) {
            const size_t width = node.Width(), at = pending.results[0].second;
            CheckTableSize(source_, net_, node, pending.results.size() * width, at);
            ReserveTable(source_, net_, node, at);
            std::fill(node.table.begin(), node.table.end(), 0.0);
            for (size_t row = 0; row < pending.results.size(); ++row) {
                const auto& [name, state_at] = pending.results[row];
                node.table[row * width + size_t(FindState(source_, node, name, state_at))] = 1;
            }
            node.is_deterministic = true;
            node.table_at = at;
        } else if (!pending.numbers.empty() && node.kind != ForeignKind::DECISION) {
            node.table.assign(pending.numbers.begin(), pending.numbers.end());
            std::vector<double>().swap(pending.numbers);
            node.table_at = pending.numbers_at;
        }
    }

    const ForeignSource& source_;
    ForeignNet& net_;
    Scanner text_;
    NodeNames names_;
    std::vector<Pending> pending_;
    std::vector<std::pair<std::string, std::string>> costs_;
};

// ---- Writing ----

void AppendText(std::string& out, std::string_view text)
{
    out += '"';
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c == '\n' ? "\\n" : c == '\t' ? "\\t" : c == '\r' ? "\\r" : std::string(1, c);
    }
    out += '"';
}

void AppendHeader(std::string& out, std::string_view indent, std::string_view id, std::string_view title,
                  std::string_view comment)
{
    out.append(indent).append("HEADER =\n").append(indent).append(" {\n").append(indent).append("  ID = ");
    out.append(id).append(";\n").append(indent).append("  NAME = ");
    AppendText(out, title.empty() ? id : title);
    out.append(";\n").append(indent).append("  COMMENT = ");
    AppendText(out, comment);
    out.append(";\n").append(indent).append(" };\n");
}

void AppendFields(std::string& out, std::string_view indent, const std::vector<ForeignField>& fields)
{
    out.append(indent).append("USER_PROPERTIES =\n").append(indent).append(" {\n");
    for (const auto& [name, value] : fields) {
        out.append(indent).append("  ").append(name).append(" = ");
        AppendText(out, value);
        out += ";\n";
    }
    out.append(indent).append(" };\n");
}

// NAME = (a, b, c);
template <class List, class Append>
void AppendList(std::string& out, const char* name, const List& list, Append&& append)
{
    out += std::string("     ") + name + " = (";
    for (size_t i = 0; i < list.size(); ++i) {
        if (i > 0) out += ", ";
        append(list[i]);
    }
    out += ");\n";
}

// One block, in the order in which the reader of the format expects its items.
void AppendNode(std::string& out, const ForeignNet& net, const ForeignNode& node)
{
    const char* const type = node.kind == ForeignKind::DECISION  ? "LIST"
                             : node.kind == ForeignKind::UTILITY ? "TABLE"
                             : node.is_deterministic             ? "TRUTHTABLE"
                                                                 : "CPT";
    out += "\n node " + node.name + "\n  {\n   TYPE = " + type + ";\n";
    AppendHeader(out, "   ", node.name, node.title, node.comment);
    if (node.HasPosition())
        out += "   SCREEN =\n    {\n     POSITION =\n      {\n       CENTER_X = " + NumberText(node.x) +
               ";\n       CENTER_Y = " + NumberText(node.y) +
               ";\n       WIDTH = 76;\n       HEIGHT = 36;\n      };\n    };\n";
    AppendFields(out, "   ", node.fields);
    out += "   PARENTS = (";
    for (size_t i = 0; i < node.parents.size(); ++i)
        out += (i ? ", " : "") + net.nodes[size_t(node.parents[i])].name;
    out += ");\n   DEFINITION =\n    {\n";
    const auto append_text = [&](const std::string& text) { out += text; };
    const auto append_number = [&](double value) { AppendEntry(out, value, node); };
    if (node.kind == ForeignKind::DECISION) AppendList(out, "NAMECHOICES", node.states, append_text);
    if (node.kind == ForeignKind::UTILITY) AppendList(out, "UTILITIES", node.table, append_number);
    if (node.kind == ForeignKind::CHANCE) {
        AppendList(out, "NAMESTATES", node.states, append_text);
        if (node.is_deterministic) {
            std::vector<std::string> results;
            const auto width = std::ptrdiff_t(node.Width());
            for (auto row = node.table.begin(); row != node.table.end(); row += width)
                results.push_back(node.states[size_t(std::max_element(row, row + width) - row)]);
            AppendList(out, "RESULTINGSTATES", results, append_text);
        } else {
            AppendList(out, "PROBABILITIES", node.table, append_number);
        }
    }
    out += "    };\n  };\n";
}

}  // namespace

void ReadDsl(const ForeignSource& source, ForeignNet& net)
{
    net.find_entry = [](std::string_view text, size_t at, size_t entry) {
        return FindEntry(text, kRules, at, entry);
    };
    DslReader(source, net).Read();
}

void WriteDsl(ForeignNet& net, std::string& out)
{
    out += "net " + net.name + "\n{\n";
    AppendHeader(out, " ", net.name, net.title, net.comment);
    AppendFields(out, " ", net.fields);
    std::string costs;
    for (const ForeignNode& node : net.nodes) {
        std::vector<double> numbers;
        for (const std::string& word : Xml::Words(node.cost))
            ParseNumber(word, numbers.emplace_back(kNoNumber));
        const bool is_number =
            std::none_of(numbers.begin(), numbers.end(), [](double n) { return std::isnan(n); });
        if (!is_number)
            AddLoss(net.losses, LossSeverity::INFORMATION, "observation costs", node.name, "left out");
        if (!node.cost.empty() && is_number)
            costs += "   node " + node.name + "\n    {\n     PARENTS = ();\n     COSTS = (" + node.cost +
                     ");\n    };\n";
    }
    if (!costs.empty()) out += " OBSERVATION_COST =\n  {\n" + costs + "  };\n";
    for (const ForeignNode& node : net.nodes) AppendNode(out, net, node);
    out += "};\n";
}

}  // namespace talora
