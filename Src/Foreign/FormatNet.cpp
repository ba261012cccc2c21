// NET: text with `net`, `node` and `potential` blocks, also inside one class of the object-oriented form.
#include <algorithm>

#include "Foreign/ForeignCheck.h"
#include "Foreign/Formats.h"

namespace talora {

namespace {

constexpr ScanRules kRules{.blanks = ",", .punctuation = "{}()=;|:", .line_comment = '%', .escapes = true};
// Fields in which other programs keep descriptions.
constexpr std::string_view kDescription = "HR_Desc";
constexpr std::string_view kStateDescription = "HR_State_";

class NetFileReader {
public:
    NetFileReader(const ForeignSource& source, ForeignNet& net)
        : source_(source), net_(net), text_(source, kRules), names_(source, net)
    {}

    void Read()
    {
        net_.format = "NET";
        while (!text_.AtEnd()) ReadElement();
        all_known_ = true;
        for (const size_t at : put_off_) {
            text_.GoTo(at);
            text_.Word();
            ReadPotential(at);
        }
        DropContinuous();
        FinishPositions();
    }

private:
    // ---- Blocks ----

    // One block on the top level or in a class.
    void ReadElement()
    {
        const std::string_view word = text_.Word();
        const size_t at = text_.Token();
        if (word == "net") {
            text_.Need('{');
            while (!text_.Try('}')) ReadNetField(FieldName());
        } else if (word == "class") {
            ReadClass(at);
        } else if (word == "potential") {
            ReadPotential(at);
        } else if (word == "instance") {
            FailAt<7023>(source_.PlaceAt(at), "instances of classes");
        } else if (word.empty() || !TryReadNode(word)) {
            if (!word.empty()) text_.GoTo(at);
            text_.FailExpected("`net`, `node`, `decision`, `utility`, `potential` or `class`");
        }
    }

    // One class is a net in another wrapper; several of them would be parts of a net.
    void ReadClass(size_t at)
    {
        if (++num_classes_ > 1) FailAt<7023>(source_.PlaceAt(at), "files of several classes");
        net_.format = "NET (class)";
        net_.name = text_.Name();
        text_.Need('{');
        while (!text_.Try('}')) {
            const size_t start = text_.At();
            const std::string_view word = text_.Word();
            // A field has its equals sign; everything else is an element.
            if (!word.empty() && text_.Peek() == '=') {
                text_.Try('=');
                ReadNetField(std::string(word));
                continue;
            }
            text_.GoTo(start);
            if (text_.AtEnd()) FailAt<7003>(text_.Here(), "a class");
            ReadElement();
        }
    }

    std::string FieldName()
    {
        const std::string_view word = text_.Word();
        if (word.empty()) text_.FailExpected("the name of a field or '}'");
        text_.Need('=');
        return std::string(word);
    }

    // A value of any form as text, with its semicolon.
    std::string AnyValue()
    {
        std::string value;
        if (text_.Peek() == '"') {
            value = text_.Quoted();
            while (text_.Peek() == '"') value += "\n" + text_.Quoted();
        } else {
            const size_t from = text_.At();
            text_.SkipValue(";}");
            value = Trimmed(source_.text.substr(from, text_.At() - from));
        }
        text_.Need(';');
        return value;
    }

    void ReadNetField(std::string field)
    {
        is_drawn_downward_ = is_drawn_downward_ || field.starts_with("UnBBayes_");
        std::string value = AnyValue();
        if (field == "name")
            net_.name = std::move(value);
        else if (field == "label")
            net_.title = std::move(value);
        else if (field == kDescription)
            net_.comment = std::move(value);
        else if (field != "inputs" && field != "outputs")
            net_.fields.emplace_back(std::move(field), std::move(value));
    }

    // [discrete | continuous] (node | decision | utility | function) NAME { fields }; false if it begins
    // otherwise.
    bool TryReadNode(std::string_view word)
    {
        bool is_continuous = false;
        if (word == "discrete" || word == "continuous") {
            is_continuous = word == "continuous";
            word = text_.Word();
        }
        const bool is_function = word == "function";
        if (word != "node" && word != "decision" && word != "utility" && !is_function) return false;
        text_.Skip();
        const size_t at = text_.At();
        ForeignNode& node = names_.Add(text_.Name(), at);
        if (word == "decision") node.kind = ForeignKind::DECISION;
        if (word == "utility") node.kind = ForeignKind::UTILITY;
        is_dropped_.push_back(is_function || (is_continuous && word == "node"));
        text_.Need('{');
        while (!text_.Try('}')) ReadNodeField(node, FieldName());
        NameEmptyStates(node);
        return true;
    }

    // Fields of other programs are kept as texts.
    void ReadNodeField(ForeignNode& node, std::string field)
    {
        if (field == "states") {
            text_.Need('(');
            while (!text_.Try(')')) node.states.push_back(text_.Name());
            text_.Need(';');
            return;
        }
        if (field == "state_values") {
            text_.Need('(');
            while (!text_.Try(')')) node.levels.push_back(ReadLimit());
            text_.Need(';');
            return;
        }
        std::string value = AnyValue();
        if (field == "label") {
            node.title = std::move(value);
        } else if (field == "position") {
            if (!TakePosition(node, value)) node.fields.emplace_back(std::move(field), std::move(value));
        } else if (field == kDescription) {
            node.comment = std::move(value);
        } else if (field.starts_with(kStateDescription)) {
            TakeStateComment(node, field, std::move(value));
        } else if (field != "subtype") {  // the values of the states say it
            node.fields.emplace_back(std::move(field), std::move(value));
        }
    }

    // A number, or an infinity in one of its spellings.
    double ReadLimit()
    {
        double value = 0;
        const std::string_view word = text_.Word();
        if (ParseLimit(word, value)) return value;
        if (word.empty()) text_.FailExpected("a number or ')'");
        FailAt<7006>(text_.LastPlace(), ("'" + Shown(word) + "'").c_str());
    }

    static void TakeStateComment(ForeignNode& node, const std::string& field, std::string value)
    {
        double state = 0;
        if (!ParseNumber(std::string_view(field).substr(kStateDescription.size()), state)) return;
        if (!(state >= 0) || state >= double(node.states.size())) return;
        node.state_comments.resize(node.states.size());
        node.state_comments[size_t(state)] = std::move(value);
    }

    // States without names are called after their limits or values.
    static void NameEmptyStates(ForeignNode& node)
    {
        for (size_t i = 0; i < node.states.size(); ++i) {
            if (!node.states[i].empty()) continue;
            if (node.HasLimits())
                node.states[i] = NumberText(node.levels[i]) + " to " + NumberText(node.levels[i + 1]);
            else if (node.levels.size() == node.states.size())
                node.states[i] = NumberText(node.levels[i]);
            else
                node.states[i] = "state" + std::to_string(i);
        }
    }

    // ---- Potentials ----

    // potential (CHILD | PARENTS) { fields }
    void ReadPotential(size_t block_at)
    {
        text_.Need('(');
        std::vector<std::pair<std::string, size_t>> names;
        size_t num_before = 0;
        while (!text_.Try(')')) {
            if (text_.Try('|')) {
                num_before = names.size();
                continue;
            }
            std::string name = text_.Name();
            names.emplace_back(std::move(name), text_.Token());
        }
        if (names.empty()) text_.FailExpected("the name of a node");
        if (num_before > 1 || (num_before == 0 && names.size() > 1))
            FailAt<7023>(source_.PlaceAt(block_at), "potentials of several nodes");
        // A potential may stand before the nodes that it names.
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
        while (!text_.Try('}')) ReadPotentialField(node, FieldName());
    }

    // The table, the experience behind it, and the expression that it came from, which is kept as a text.
    void ReadPotentialField(ForeignNode& node, std::string field)
    {
        const bool is_dropped = is_dropped_[size_t(&node - net_.nodes.data())];
        if (is_dropped) {
            AnyValue();
        } else if (field == "data" && node.kind == ForeignKind::DECISION) {
            AnyValue();
            AddLoss(net_.losses, LossSeverity::INFORMATION, "policy", node.name, "left out");
        } else if (field == "data") {
            node.table_at = text_.At();
            ReadNumbers(node.table);
            CheckTableSize(source_, net_, node, node.table.size(), node.table_at);
        } else if (field == "experience") {
            ReadNumbers(node.experience);
            for (double& count : node.experience) count = std::max(count, 0.0);
            const double rows = NumRows(net_, node);
            // One number stands for all rows; it is no more than the table has anyway.
            if (node.experience.size() == 1 && node.table.size() >= rows)
                node.experience.assign(static_cast<size_t>(rows), node.experience[0]);
        } else if (field == "fading") {
            AnyValue();
            AddLoss(net_.losses, LossSeverity::INFORMATION, "fading", node.name, "left out");
        } else {
            std::string value = AnyValue();
            node.fields.emplace_back(std::move(field), std::move(value));
        }
    }

    // Numbers up to the semicolon; the brackets among them say nothing that the count does not.
    void ReadNumbers(TableVector<double>& numbers)
    {
        double value = 0;
        int depth = 0;
        for (;;) {
            if (text_.TryNumber(value))
                numbers.push_back(value);
            else if (text_.Try('('))
                ++depth;
            else if (depth > 0 && text_.Try(')'))
                --depth;
            else
                break;
        }
        if (depth > 0) {
            if (text_.PeekWord().empty()) text_.FailExpected("a number or ')'");
            text_.Number();  // says that it is none
        }
        text_.Need(';');
    }

    // ---- At the end ----

    // Nodes without states cannot be kept; discrete nodes never depend on them.
    void DropContinuous()
    {
        std::vector<int> new_index(net_.nodes.size(), -1);
        int next = 0;
        for (size_t i = 0; i < net_.nodes.size(); ++i) {
            if (!is_dropped_[i]) {
                new_index[i] = next++;
                continue;
            }
            AddLoss(net_.losses, LossSeverity::ANSWERS, "continuous and function nodes", net_.nodes[i].name,
                    "left out");
        }
        for (size_t i = 0; i < net_.nodes.size(); ++i) {
            if (is_dropped_[i]) continue;
            for (int& parent : net_.nodes[i].parents) {
                if (new_index[size_t(parent)] < 0)
                    FailAt<7023>(source_.PlaceAt(net_.nodes[i].at), "nodes that depend on continuous ones");
                parent = new_index[size_t(parent)];
            }
            if (new_index[i] != int(i)) net_.nodes[size_t(new_index[i])] = std::move(net_.nodes[i]);
        }
        net_.nodes.resize(size_t(next));
    }

    // Here y grows upward: the drawing is mirrored within its own height.
    void FinishPositions()
    {
        if (!is_drawn_downward_) MirrorPositions(net_);
    }

    const ForeignSource& source_;
    ForeignNet& net_;
    Scanner text_;
    NodeNames names_;
    std::vector<char> is_dropped_;
    std::vector<size_t> put_off_;
    bool all_known_ = false;
    bool is_drawn_downward_ = false;
    int num_classes_ = 0;
};

// ---- Writing ----

void AppendString(std::string& out, std::string_view text)
{
    out += '"';
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c == '\n' || c == '\r' ? "\\n" : c == '\t' ? "\\t" : std::string(1, c);
    }
    out += '"';
}

// A list of numbers, or a number, stands without quotes.
bool IsBare(std::string_view value)
{
    if (value.starts_with('(') && value.ends_with(')')) value = value.substr(1, value.size() - 2);
    double number = 0;
    const char* at = value.data();
    const char* const end = at + value.size();
    bool any = false;
    for (;; any = true) {
        while (at < end && *at == ' ') ++at;
        if (at == end) return any;
        if (!TryScanNumber(at, end, number) || (at < end && *at != ' ')) return false;
    }
}

void AppendField(std::string& out, std::string_view indent, std::string_view name, std::string_view value)
{
    const auto is_letter = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    };
    if (name.empty() || !std::all_of(name.begin(), name.end(), is_letter)) return;
    out.append(indent).append(name).append(" = ");
    if (IsBare(value))
        out += value;
    else
        AppendString(out, value);
    out += ";\n";
}

std::string LimitText(double value)
{
    if (std::isinf(value)) return value > 0 ? "infinity" : "-infinity";
    return NumberText(value);
}

// One block of fields; utilities have no states.
void AppendNode(std::string& out, const ForeignNode& node)
{
    constexpr const char* kWords[] = {"node", "decision", "utility"};
    out += std::string("\n") + kWords[static_cast<int>(node.kind)] + " " + node.name + "\n{\n";
    if (!node.title.empty()) {
        out += "    label = ";
        AppendString(out, node.title);
        out += ";\n";
    }
    if (node.HasPosition())
        out += "    position = (" + NumberText(node.x) + " " + NumberText(node.y) + ");\n";
    if (node.kind != ForeignKind::UTILITY) {
        out += "    states = (";
        for (size_t i = 0; i < node.states.size(); ++i) {
            if (i > 0) out += ' ';
            AppendString(out, node.states[i]);
        }
        out += ");\n";
    }
    if (!node.levels.empty()) {
        out += node.HasLimits() ? "    subtype = interval;\n" : "    subtype = number;\n";
        out += "    state_values = (";
        for (size_t i = 0; i < node.levels.size(); ++i) out += (i ? " " : "") + LimitText(node.levels[i]);
        out += ");\n";
    }
    if (!node.comment.empty()) {
        out += "    HR_Desc = ";
        AppendString(out, node.comment);
        out += ";\n";
    }
    for (size_t i = 0; i < node.state_comments.size(); ++i) {
        if (node.state_comments[i].empty()) continue;
        out += "    HR_State_" + std::to_string(i) + " = ";
        AppendString(out, node.state_comments[i]);
        out += ";\n";
    }
    for (const auto& [name, value] : node.fields)
        if (name != "model_nodes" && name != "model_data" && name != "samples_per_interval")
            AppendField(out, "    ", name, value);
    out += "}\n";
}

// The numbers with a pair of brackets around each run of them: one for each parent, and one for the own
// states.
template <class Append>
void AppendNested(std::string& out, const ForeignNet& net, const ForeignNode& node, size_t width,
                  size_t count, Append&& append)
{
    std::vector<size_t> runs;  // of the innermost brackets first
    if (width > 0) runs.push_back(width);
    for (size_t i = node.parents.size(); i-- > 0;)
        runs.push_back((runs.empty() ? 1 : runs.back()) * net.nodes[size_t(node.parents[i])].states.size());
    for (size_t at = 0; at < count; ++at) {
        size_t opened = 0;
        for (const size_t run : runs) opened += at % run == 0;
        if (at > 0) out += opened > 0 ? "\n            " : " ";
        out.append(opened, '(');
        append(at);
        for (const size_t run : runs)
            if ((at + 1) % run == 0) out += ')';
    }
}

// Links, table and experience.  An expression stands in a comment: the table says the same.
void AppendPotential(std::string& out, const ForeignNet& net, const ForeignNode& node)
{
    out += "\npotential (" + node.name;
    if (!node.parents.empty()) out += " |";
    for (const int parent : node.parents) out += " " + net.nodes[size_t(parent)].name;
    out += ")\n{\n";
    if (!node.table.empty()) {
        out += "    data = ";
        const bool is_bare = node.kind == ForeignKind::UTILITY && node.parents.empty();
        if (is_bare) out += '(';
        AppendNested(out, net, node, node.kind == ForeignKind::UTILITY ? 0 : node.Width(), node.table.size(),
                     [&](size_t at) { AppendEntry(out, node.table[at], node); });
        out += is_bare ? ");\n" : ";\n";
    }
    if (!node.experience.empty()) {
        out += "    experience = ";
        if (node.parents.empty()) out += '(';
        AppendNested(out, net, node, 0, node.experience.size(),
                     [&](size_t at) { AppendNumber(out, node.experience[at]); });
        out += node.parents.empty() ? ");\n" : ";\n";
    }
    for (const auto& [name, value] : node.fields)
        if (name == "model_nodes" || name == "model_data" || name == "samples_per_interval")
            out += "    % " + name + " = " + std::string(value.substr(0, value.find_first_of("\r\n"))) + "\n";
    out += "}\n";
}

}  // namespace

void MirrorPositions(ForeignNet& net)
{
    double least = std::numeric_limits<double>::infinity(), most = -least;
    for (const ForeignNode& node : net.nodes) {
        if (!node.HasPosition()) continue;
        least = std::min(least, node.y);
        most = std::max(most, node.y);
    }
    for (ForeignNode& node : net.nodes)
        if (node.HasPosition()) node.y = least + most - node.y;
}

void ReadNetFile(const ForeignSource& source, ForeignNet& net)
{
    net.scales_rows = true;
    net.find_entry = [](std::string_view text, size_t at, size_t entry) {
        return FindEntry(text, kRules, at, entry);
    };
    NetFileReader(source, net).Read();
}

void WriteNetFile(ForeignNet& net, std::string& out)
{
    // Read again, the fields of the one program that does not draw upward say so.
    const bool is_drawn_downward =
        std::any_of(net.fields.begin(), net.fields.end(),
                    [](const ForeignField& field) { return field.first.starts_with("UnBBayes_"); });
    if (!is_drawn_downward) MirrorPositions(net);
    out += "net\n{\n";
    if (!net.name.empty()) {
        out += "    name = ";
        AppendString(out, net.name);
        out += ";\n";
    }
    if (!net.title.empty()) {
        out += "    label = ";
        AppendString(out, net.title);
        out += ";\n";
    }
    if (!net.comment.empty()) {
        out += "    HR_Desc = ";
        AppendString(out, net.comment);
        out += ";\n";
    }
    for (const auto& [name, value] : net.fields) AppendField(out, "    ", name, value);
    out += "}\n";
    for (const ForeignNode& node : net.nodes) AppendNode(out, node);
    for (const ForeignNode& node : net.nodes) AppendPotential(out, net, node);
}

}  // namespace talora
