// DSC: text with `node` and `probability` blocks whose rows carry the numbers of the parents' states.
#include <algorithm>
#include <optional>

#include "Foreign/ForeignCheck.h"
#include "Foreign/Formats.h"

namespace talora {

namespace {

constexpr ScanRules kRules{.blanks = ",", .punctuation = "{}()[];:=|", .slash_comments = true};

class DscReader {
public:
    DscReader(const ForeignSource& source, ForeignNet& net)
        : source_(source), net_(net), text_(source, kRules), names_(source, net)
    {}

    void Read()
    {
        net_.format = "DSC";
        ReadHead();
        while (!text_.AtEnd()) {
            const std::string_view word = text_.Word();
            const size_t at = text_.Token();
            if (word == "node") {
                ReadNode();
            } else if (word == "probability") {
                ReadProbability(at);
            } else if (word == "properties" || word == "domain" || word == "service" ||
                       word == "partitions") {
                while (!text_.AtEnd() && text_.Peek() != '{') text_.SkipValue("{");
                text_.Need('{');
                text_.SkipValue("}");
                text_.Need('}');
                if (word != "properties")
                    AddLoss(net_.losses, LossSeverity::LOOKS, "blocks of other programs", "", "left out");
            } else {
                if (!word.empty()) text_.GoTo(at);
                text_.FailExpected("`node` or `probability`");
            }
        }
        all_known_ = true;
        for (const size_t at : put_off_) {
            text_.GoTo(at);
            text_.Word();
            ReadProbability(at);
        }
    }

private:
    // [belief | trouble | decision] network "name" [{ attributes }]; it may be missing.
    void ReadHead()
    {
        const std::string_view first = text_.PeekWord();
        if (first != "belief" && first != "trouble" && first != "decision" && first != "network") return;
        text_.Word();
        if (first != "network" && !text_.TryWord("network")) text_.FailExpected("`network`");
        if (text_.Peek() != '{') net_.name = text_.Name();
        if (!text_.Try('{')) return;
        while (!text_.Try('}')) {
            ForeignField field = ReadAttribute();
            net_.fields.push_back(std::move(field));
        }
    }

    // name (: | = | is) value;
    ForeignField ReadAttribute()
    {
        const std::string_view name = text_.Word();
        if (name.empty()) text_.FailExpected("an attribute or '}'");
        ReadSeparator();
        return {std::string(name), ReadValue()};
    }
    void ReadSeparator()
    {
        if (!text_.Try(':') && !text_.Try('=')) text_.TryWord("is");
    }
    std::string ReadValue()
    {
        std::string value;
        if (text_.Peek() == '"') {
            value = text_.Quoted();
            while (text_.Peek() == '"') value += ", " + text_.Quoted();
        } else {
            const size_t from = text_.At();
            text_.SkipValue(";}");
            value = Trimmed(source_.text.substr(from, text_.At() - from));
        }
        text_.Need(';');
        return value;
    }

    // Title, position and states; other attributes become fields.
    void ReadNode()
    {
        text_.Skip();
        const size_t at = text_.At();
        ForeignNode& node = names_.Add(text_.Name(), at);
        text_.Need('{');
        while (!text_.Try('}')) {
            if (text_.PeekWord() == "type") {
                text_.Word();
                ReadSeparator();
                ReadType(node);
                continue;
            }
            ForeignField field = ReadAttribute();
            if (field.first == "name")
                node.title = std::move(field.second);
            else if (field.first == "position" && TakePosition(node, field.second))
                continue;
            else
                node.fields.push_back(std::move(field));
        }
    }

    void ReadType(ForeignNode& node)
    {
        if (!text_.TryWord("discrete")) text_.FailExpected("`discrete`");
        const size_t at = text_.Token();
        text_.Need('[');
        const int64_t count = text_.Integer();
        text_.Need(']');
        ReadSeparator();
        text_.Need('{');
        while (!text_.Try('}')) node.states.push_back(text_.Name());
        text_.Need(';');
        if (count != int64_t(node.states.size()))
            FailAt<7009>(source_.PlaceAt(at), Shown(node.name).c_str(), int(count), int(node.states.size()));
    }

    // The child, then its parents; the block is put off where one of them is declared further on.
    void ReadProbability(size_t block_at)
    {
        text_.Need('(');
        std::vector<std::pair<std::string, size_t>> names;
        while (!text_.Try(')')) {
            text_.Try('|');
            std::string name = text_.Name();
            names.emplace_back(std::move(name), text_.Token());
        }
        if (names.empty()) text_.FailExpected("the name of a node");
        const auto is_known = [&](const auto& name) { return names_.TryFind(name.first) >= 0; };
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

    struct Row {
        std::vector<int> indices;
        std::vector<double> numbers;
        size_t at;
    };

    // All rows are collected first: what their indices mean may depend on the function that is named.
    void ReadTable(ForeignNode& node, size_t block_at)
    {
        std::string function;
        rows_.clear();
        std::optional<Row> by_default;
        while (!text_.Try('}')) {
            if (text_.TryWord("function")) {
                ReadSeparator();
                function = ReadValue();
                continue;
            }
            Row row;
            const bool is_default = text_.TryWord("default");
            row.at = is_default ? text_.Token() : (text_.Skip(), text_.At());
            if (!is_default && text_.Try('('))
                while (!text_.Try(')')) row.indices.push_back(static_cast<int>(text_.Integer()));
            if (is_default || text_.Peek() == ':' || text_.Peek() == '=') ReadSeparator();
            ReadNumbers(row.numbers);
            if (is_default && by_default) FailAt<7013>(source_.PlaceAt(row.at), Shown(node.name).c_str());
            if (is_default)
                by_default = std::move(row);
            else
                rows_.push_back(std::move(row));
        }
        ReserveTable(source_, net_, node, block_at);
        if (LowerText(function) == "max") return PutMaximum(node, block_at);
        if (!function.empty())
            FailAt<7043>(source_.PlaceAt(block_at), Shown(node.name).c_str(), Shown(function).c_str());
        NumberRowsWithoutIndices(node);
        RowWriter writer(source_, net_, node);
        for (const Row& row : rows_) {
            CheckIndices(node, row);
            writer.Put(row.indices, row.numbers, row.at);
        }
        if (by_default) writer.PutDefault(by_default->numbers, by_default->at);
    }

    void ReadNumbers(std::vector<double>& numbers)
    {
        double value = 0;
        while (text_.TryNumber(value)) numbers.push_back(value);
        if (numbers.empty() || text_.Peek() != ';') {
            if (text_.PeekWord().empty()) text_.FailExpected("a number or ';'");
            text_.Number();  // says that it is none
        }
        text_.Need(';');
    }

    // One program writes zeros for all indices, and one too many of them: the rows then stand in our order.
    void NumberRowsWithoutIndices(ForeignNode& node)
    {
        const size_t num_parents = node.parents.size();
        const auto is_blank = [&](const Row& row) {
            return row.indices.size() == num_parents + 1 &&
                   std::all_of(row.indices.begin(), row.indices.end(), [](int i) { return i == 0; });
        };
        if (num_parents == 0 || rows_.empty() || double(rows_.size()) != NumRows(net_, node) ||
            !std::all_of(rows_.begin(), rows_.end(), is_blank))
            return;
        AddLoss(net_.losses, LossSeverity::INFORMATION, "indices of rows that are all zero", node.name,
                "the rows were taken in order, the last parent fastest");
        std::vector<int> state(num_parents, 0);
        for (Row& row : rows_) {
            row.indices = state;
            for (size_t i = num_parents; i-- > 0;) {
                if (++state[i] < int(net_.nodes[size_t(node.parents[i])].states.size())) break;
                state[i] = 0;
            }
        }
    }

    // One index for each parent, within its states.
    void CheckIndices(const ForeignNode& node, const Row& row)
    {
        if (row.indices.size() != node.parents.size())
            FailAt<7046>(source_.PlaceAt(row.at), int(row.indices.size()), int(node.parents.size()),
                         Shown(node.name).c_str());
        for (size_t i = 0; i < row.indices.size(); ++i) {
            const ForeignNode& parent = net_.nodes[size_t(node.parents[i])];
            if (row.indices[i] < 0 || row.indices[i] >= int(parent.states.size()))
                FailAt<7012>(source_.PlaceAt(row.at), Shown(parent.name).c_str(),
                             std::to_string(row.indices[i]).c_str());
        }
    }

    // The first row is the leak, all others move one parent away from its first state.  Each row is the
    // distribution in that configuration, the leak included; what the parent itself contributes is the
    // quotient of the cumulative distributions.
    void PutMaximum(ForeignNode& node, size_t block_at)
    {
        const size_t n = node.states.size(), size = NoisyMaxSize(net_, node);
        std::vector<double>& contributions = node.noisy.rows;
        contributions.assign(size, 0.0);
        const auto leak_row = size / std::max<size_t>(n, 1) - 1;
        const Row* leak = nullptr;
        for (const Row& row : rows_) {
            CheckIndices(node, row);
            if (row.numbers.size() != n)
                FailAt<7014>(source_.PlaceAt(row.at), double(row.numbers.size()), Shown(node.name).c_str(),
                             double(n));
            if (std::all_of(row.indices.begin(), row.indices.end(), [](int i) { return i == 0; }))
                leak = &row;
        }
        if (leak == nullptr || rows_.size() != leak_row + 1 - node.parents.size())
            FailAt<7020>(source_.PlaceAt(block_at), Shown(node.name).c_str(), "");
        std::copy(leak->numbers.begin(), leak->numbers.end(),
                  contributions.begin() + std::ptrdiff_t(leak_row * n));
        size_t first = 0;
        for (size_t i = 0; i < node.parents.size(); ++i) {
            contributions[first * n] = 1;  // the first state contributes nothing
            for (const Row& row : rows_) {
                if (row.indices[i] == 0) continue;
                PutContribution(node, *leak, row, first + size_t(row.indices[i]));
            }
            first += net_.nodes[size_t(node.parents[i])].states.size();
        }
        node.table = ExpandNoisyMax(net_, node);
    }

    // A row with one parent away from its first state, as what that state contributes by itself.
    void PutContribution(ForeignNode& node, const Row& leak, const Row& row, size_t target)
    {
        constexpr double kRounding = 1e-9;
        double with = 0, without = 0, before = 0;
        const size_t n = node.states.size();
        for (size_t k = 0; k < n; ++k) {
            with += row.numbers[k];
            without += leak.numbers[k];
            const double share = k + 1 == n ? 1 : without > 0 ? with / without : 0;
            if (share > 1 + kRounding || share < before - kRounding)
                FailAt<7043>(source_.PlaceAt(row.at), Shown(node.name).c_str(), "max");
            node.noisy.rows[target * n + k] = std::max(0.0, share - before);
            before = share;
        }
    }

    const ForeignSource& source_;
    ForeignNet& net_;
    Scanner text_;
    NodeNames names_;
    std::vector<size_t> put_off_;
    bool all_known_ = false;
    std::vector<Row> rows_;
};

}  // namespace

void ReadDsc(const ForeignSource& source, ForeignNet& net)
{
    DscReader(source, net).Read();
}

void WriteDsc(ForeignNet& net, std::string& out)
{
    out += "belief network \"" + net.name + "\"\n";
    for (const ForeignNode& node : net.nodes) {
        out += "node " + node.name + " {\n";
        if (!node.title.empty()) {
            std::string title = node.title;
            std::replace_if(
                title.begin(), title.end(), [](char c) { return c == '"' || c == '\n' || c == '\r'; }, ' ');
            if (title != node.title)
                AddLoss(net.losses, LossSeverity::LOOKS, "signs in titles", node.name, "blanks");
            out += "  name : \"" + title + "\";\n";
        }
        out += "  type : discrete [ " + std::to_string(node.states.size()) + " ] = { ";
        for (size_t i = 0; i < node.states.size(); ++i) out += (i ? ", \"" : "\"") + node.states[i] + "\"";
        out += " };\n";
        if (node.HasPosition())
            out += "  position : (" + NumberText(node.x) + ", " + NumberText(node.y) + ");\n";
        out += "}\n";
    }
    for (const ForeignNode& node : net.nodes) {
        out += "probability ( " + node.name;
        for (size_t i = 0; i < node.parents.size(); ++i)
            out += (i ? ", " : " | ") + net.nodes[size_t(node.parents[i])].name;
        out += " ) {\n";
        std::vector<size_t> state(node.parents.size(), 0);
        const size_t width = node.Width();
        for (size_t at = 0; at < node.table.size(); at += width) {
            out += "  ";
            for (size_t i = 0; i < state.size(); ++i) out += (i ? ", " : "(") + std::to_string(state[i]);
            if (!state.empty()) out += ") : ";
            for (size_t k = 0; k < width; ++k) {
                if (k > 0) out += ", ";
                AppendEntry(out, node.table[at + k], node);
            }
            out += ";\n";
            for (size_t i = state.size(); i-- > 0;) {
                if (++state[i] < net.nodes[size_t(node.parents[i])].states.size()) break;
                state[i] = 0;
            }
        }
        out += "}\n";
    }
}

}  // namespace talora
