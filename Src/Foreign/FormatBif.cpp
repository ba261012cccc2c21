// BIF: the text interchange format with `variable` and `probability` blocks, in all its dialects.
#include <algorithm>
#include <optional>

#include "Foreign/ForeignCheck.h"
#include "Foreign/Formats.h"

namespace talora {

namespace {

constexpr ScanRules kRules{.blanks = ",|", .punctuation = "{}()[];", .slash_comments = true};
constexpr std::string_view kNeedsQuotes = " \t\r\n\v\f{}()[];,|\"/*";

class BifReader {
public:
    BifReader(const ForeignSource& source, ForeignNet& net)
        : source_(source), net_(net), text_(source, kRules), names_(source, net)
    {}

    // What stands outside of blocks is commentary.
    void Read()
    {
        net_.format = "BIF";
        while (!text_.AtEnd()) {
            const std::string_view word = text_.Word();
            if (word == "network")
                ReadNetwork();
            else if (word == "variable")
                ReadVariable();
            else if (word == "probability")
                ReadProbability(text_.Token());
            else if (word.empty())
                text_.GoTo(text_.At() + 1);
        }
        all_known_ = true;
        for (const size_t at : put_off_) {
            text_.GoTo(at);
            text_.Word();
            ReadProbability(at);
        }
    }

private:
    // Name and properties; title and comment are properties by convention.
    void ReadNetwork()
    {
        if (text_.Peek() != '{') net_.name = text_.Name();
        text_.Need('{');
        while (!text_.Try('}')) {
            if (!text_.TryWord("property")) text_.FailExpected("`property` or '}'");
            const ForeignField field = ReadProperty();
            if (field.first == "title")
                net_.title = field.second;
            else if (field.first == "comment")
                net_.comment = field.second;
            else
                net_.fields.push_back(field);
        }
    }

    void ReadVariable()
    {
        text_.Skip();
        const size_t at = text_.At();
        ForeignNode& node = names_.Add(text_.Name(), at);
        text_.Need('{');
        while (!text_.Try('}')) {
            if (text_.TryWord("property"))
                TakeProperty(node, ReadProperty());
            else if (text_.TryWord("type"))
                ReadType(node);
            else
                text_.FailExpected("`type`, `property` or '}'");
        }
    }

    // The count in brackets may be missing, and an equals sign may stand before the states.
    void ReadType(ForeignNode& node)
    {
        if (!text_.TryWord("discrete")) text_.FailExpected("`discrete`");
        const size_t at = text_.Token();
        int64_t count = -1;
        if (text_.Try('[')) {
            count = text_.Integer();
            text_.Need(']');
        }
        text_.TryWord("=");
        text_.Need('{');
        while (!text_.Try('}')) node.states.push_back(text_.Name());
        text_.Need(';');
        if (count >= 0 && count != int64_t(node.states.size()))
            FailAt<7009>(source_.PlaceAt(at), Shown(node.name).c_str(), int(count), int(node.states.size()));
    }

    // "key = value", "key value" or "key", in quotes or not.  Where the semicolon was forgotten it ends with
    // its line, if a statement or the end of the block follows.
    ForeignField ReadProperty()
    {
        std::string body;
        if (text_.Peek() == '"') {
            body = text_.Quoted();
            text_.Try(';');
        } else {
            const std::string_view all = source_.text;
            const size_t from = text_.At();
            if (semicolon_ < from) semicolon_ = std::min(all.find(';', from), all.size());
            size_t to = semicolon_;
            for (size_t line = all.find('\n', from); line < to; line = all.find('\n', line + 1)) {
                const std::string_view next = Trimmed(all.substr(line, std::min<size_t>(to - line, 200)));
                if (next.starts_with("property") || next.starts_with("}")) to = line;
            }
            if (to == all.size()) FailAt<7003>(source_.PlaceAt(from), "a property");
            body = Trimmed(all.substr(from, to - from));
            text_.GoTo(to);
            text_.Try(';');
        }
        size_t split = body.find('=');
        if (split == std::string::npos) split = body.find(' ');
        if (split == std::string::npos) return {body, ""};
        std::string_view value = Trimmed(std::string_view(body).substr(split + 1));
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
            value = value.substr(1, value.size() - 2);
        return {std::string(Trimmed(std::string_view(body).substr(0, split))), std::string(value)};
    }

    // The head names the child and its parents, with or without a bar between them.
    void ReadProbability(size_t block_at)
    {
        text_.Need('(');
        std::vector<std::pair<std::string, size_t>> names;
        while (!text_.Try(')')) {
            std::string name = text_.Name();
            names.emplace_back(std::move(name), text_.Token());
        }
        if (names.empty()) text_.FailExpected("the name of a node");
        const auto is_known = [&](const auto& name) {
            const int index = names_.TryFind(name.first);
            return index >= 0 && !net_.nodes[size_t(index)].states.empty();
        };
        // A block may stand before the variables that it names.
        if (!all_known_ && !std::all_of(names.begin(), names.end(), is_known)) {
            put_off_.push_back(block_at);
            text_.Need('{');
            text_.SkipValue("}");
            text_.Need('}');
            return;
        }
        ForeignNode& node = names_.Node(names[0].first, names[0].second);
        NeedNoTable(source_, node, block_at);
        node.table_at = block_at;
        for (size_t i = 1; i < names.size(); ++i)
            node.parents.push_back(names_.Find(names[i].first, names[i].second));
        text_.Need('{');
        ReadTable(node, block_at);
    }

    // Rows by the states of the parents, or the whole table at once; `default` fills what has no row.
    void ReadTable(ForeignNode& node, size_t block_at)
    {
        std::optional<RowWriter> rows;
        std::vector<double> by_default;
        size_t default_at = 0;
        bool is_whole = false;
        std::string function;
        while (!text_.Try('}')) {
            if (text_.Peek() == '(') {
                if (is_whole) FailTwice(node);
                if (!rows) BeginRows(node, rows, block_at);
                ReadRow(node, *rows);
            } else if (text_.TryWord("table")) {
                if (is_whole || rows) FailTwice(node);
                is_whole = true;
                ReadWhole(node);
            } else if (text_.TryWord("default")) {
                if (is_whole || !by_default.empty()) FailTwice(node);
                default_at = text_.Token();
                ReadNumbers(by_default);
            } else if (text_.TryWord("property")) {
                const ForeignField field = ReadProperty();
                if (field.first == "function") function = field.second;
                node.fields.push_back(field);
            } else {
                text_.FailExpected("a row, `table`, `default`, `property` or '}'");
            }
        }
        if (!by_default.empty()) {
            if (!rows) BeginRows(node, rows, block_at);
            rows->PutDefault(by_default, default_at);
        }
        if (!rows && !is_whole) BeginRows(node, rows, block_at);
        if (!function.empty() && HasGaps(node))
            FailAt<7043>(source_.PlaceAt(block_at), Shown(node.name).c_str(), Shown(function).c_str());
    }

    void BeginRows(ForeignNode& node, std::optional<RowWriter>& rows, size_t block_at)
    {
        ReserveTable(source_, net_, node, block_at);
        rows.emplace(source_, net_, node);
    }

    static bool HasGaps(const ForeignNode& node)
    {
        return std::any_of(node.table.begin(), node.table.end(), [](double p) { return std::isnan(p); });
    }

    [[noreturn]] void FailTwice(const ForeignNode& node)
    {
        FailAt<7013>(text_.Here(), Shown(node.name).c_str());
    }

    // Numbers up to the semicolon.
    void ReadNumbers(std::vector<double>& numbers)
    {
        numbers.clear();
        double value = 0;
        while (text_.TryNumber(value)) numbers.push_back(value);
        if (text_.Peek() == ';') {
            text_.Try(';');
            return;
        }
        if (text_.PeekWord().empty()) text_.FailExpected("a number or ';'");
        text_.Number();  // says that it is none
    }

    // The states of the parents in parentheses, then the own probabilities.
    void ReadRow(ForeignNode& node, RowWriter& rows)
    {
        text_.Need('(');
        const size_t at = text_.Token();
        states_.clear();
        for (const int parent : node.parents) {
            if (text_.Peek() == ')') text_.FailExpected("a state of each parent");
            const ForeignNode& its = net_.nodes[size_t(parent)];
            if (text_.Peek() == '"') {
                const std::string state = text_.Quoted();
                states_.push_back(FindState(source_, its, state, text_.Token(), &node));
                continue;
            }
            const std::string_view state = text_.Word();
            if (state.empty()) text_.FailExpected("a state");
            int index = TryFindState(its, state);
            if (index < 0 && state != "*") index = FindState(source_, its, state, text_.Token(), &node);
            states_.push_back(index);
        }
        text_.Need(')');
        if (text_.Peek() == ':') text_.GoTo(text_.At() + 1);
        ReadNumbers(row_);
        rows.Put(states_, row_, at);
    }

    // The own states vary slowest here.
    void ReadWhole(ForeignNode& node)
    {
        node.table_at = text_.Token();
        double value = 0;
        TableVector<double> table;
        while (text_.TryNumber(value)) table.push_back(value);
        if (text_.Peek() != ';') {
            if (text_.PeekWord().empty()) text_.FailExpected("a number or ';'");
            text_.Number();
        }
        text_.Try(';');
        CheckTableSize(source_, net_, node, table.size(), node.table_at);
        node.table = InOurOrder(net_, node, std::move(table), EntryOrder::OWN_SLOWEST);
    }

    const ForeignSource& source_;
    ForeignNet& net_;
    Scanner text_;
    NodeNames names_;
    bool all_known_ = false;
    size_t semicolon_ = 0;         // the next one behind the last property
    std::vector<size_t> put_off_;  // blocks before the variables that they name
    std::vector<int> states_;
    std::vector<double> row_;
};

// ---- Writing ----

// In quotes where the text is no plain word.
void AppendWord(std::string& out, std::string_view text)
{
    const bool is_plain = !text.empty() && text.find_first_of(kNeedsQuotes) == std::string_view::npos;
    out += is_plain ? std::string(text) : '"' + std::string(text) + '"';
}

// One property on a line of its own, if its text can stand in one.
void AppendProperty(std::string& out, ForeignNet& net, std::string_view node, const ForeignField& field)
{
    const auto is_bad = [](std::string_view text) {
        return text.find_first_of(";\"\r\n{}") != std::string_view::npos ||
               text.find("//") != std::string_view::npos || text.find("/*") != std::string_view::npos;
    };
    if (field.first.empty() || is_bad(field.first) || field.first.find('=') != std::string::npos) return;
    std::string value = field.second;
    if (is_bad(value)) {
        AddLoss(net.losses, LossSeverity::LOOKS, "signs in properties", node,
                "line breaks, quotes, brackets and semicolons are blanks or commas");
        for (char& c : value)
            if (c == ';')
                c = ',';
            else if (std::string_view("\"\r\n{}").find(c) != std::string_view::npos)
                c = ' ';
        for (size_t at;
             (at = value.find("//")) != std::string::npos || (at = value.find("/*")) != std::string::npos;)
            value.replace(at, 1, " ");
    }
    out += "  property " + field.first + " = " + std::string(Trimmed(value)) + " ;\n";
}

void AppendProperties(std::string& out, ForeignNet& net, const ForeignNode& node)
{
    if (!node.title.empty()) AppendProperty(out, net, node.name, {"label", node.title});
    if (node.HasPosition())
        AppendProperty(out, net, node.name,
                       {"position", "(" + NumberText(node.x) + ", " + NumberText(node.y) + ")"});
    if (!node.comment.empty()) AppendProperty(out, net, node.name, {"comment", node.comment});
    for (const ForeignField& field : node.fields) AppendProperty(out, net, node.name, field);
}

// Roots as `table`, others row by row: that is what every reader of the format takes.
void AppendProbability(std::string& out, const ForeignNet& net, const ForeignNode& node)
{
    out += "probability ( ";
    AppendWord(out, node.name);
    for (size_t i = 0; i < node.parents.size(); ++i) {
        out += i == 0 ? " | " : ", ";
        AppendWord(out, net.nodes[size_t(node.parents[i])].name);
    }
    out += " ) {\n";
    const size_t width = node.Width(), num_parents = node.parents.size();
    std::vector<size_t> state(num_parents, 0);
    for (size_t at = 0; at < node.table.size(); at += width) {
        out += num_parents == 0 ? "  table " : "  (";
        for (size_t i = 0; i < num_parents; ++i) {
            if (i > 0) out += ", ";
            AppendWord(out, net.nodes[size_t(node.parents[i])].states[state[i]]);
        }
        if (num_parents > 0) out += ") ";
        for (size_t k = 0; k < width; ++k) {
            if (k > 0) out += ", ";
            AppendEntry(out, node.table[at + k], node);
        }
        out += ";\n";
        for (size_t i = num_parents; i-- > 0;) {
            if (++state[i] < net.nodes[size_t(node.parents[i])].states.size()) break;
            state[i] = 0;
        }
    }
    out += "}\n";
}

}  // namespace

// "(73, 165)", "73 165"
bool TakePosition(ForeignNode& node, std::string_view text)
{
    double xy[2];
    const char* at = text.data();
    const char* const end = at + text.size();
    for (double& value : xy) {
        while (at < end && (*at == '(' || *at == ',' || *at == ' ' || *at == '\t')) ++at;
        if (!TryScanNumber(at, end, value) || !std::isfinite(value)) return false;
    }
    node.x = xy[0];
    node.y = xy[1];
    return true;
}

void TakeProperty(ForeignNode& node, ForeignField field)
{
    if (field.first == "position" && TakePosition(node, field.second)) return;
    if ((field.first == "label" || field.first == "title") && node.title.empty())
        node.title = std::move(field.second);
    else if (field.first == "comment" && node.comment.empty())
        node.comment = std::move(field.second);
    else
        node.fields.push_back(std::move(field));
}

void ReadBif(const ForeignSource& source, ForeignNet& net)
{
    net.find_entry = [](std::string_view text, size_t at, size_t entry) {
        return FindEntry(text, kRules, at, entry);
    };
    BifReader(source, net).Read();
}

void WriteBif(ForeignNet& net, std::string& out)
{
    out += "network ";
    AppendWord(out, net.name.empty() ? "unknown" : net.name);
    out += " {\n";
    if (!net.title.empty()) AppendProperty(out, net, "", {"title", net.title});
    if (!net.comment.empty()) AppendProperty(out, net, "", {"comment", net.comment});
    for (const ForeignField& field : net.fields) AppendProperty(out, net, "", field);
    out += "}\n";
    for (const ForeignNode& node : net.nodes) {
        out += "variable ";
        AppendWord(out, node.name);
        out += " {\n  type discrete [ " + std::to_string(node.states.size()) + " ] { ";
        for (size_t i = 0; i < node.states.size(); ++i) {
            if (i > 0) out += ", ";
            AppendWord(out, node.states[i]);
        }
        out += " };\n";
        AppendProperties(out, net, node);
        out += "}\n";
    }
    for (const ForeignNode& node : net.nodes) AppendProbability(out, net, node);
}

}  // namespace talora
