// JGUM: a JSON object with nodes in a short notation, parents, tables and rewards.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "Foreign/ForeignCheck.h"
#include "Foreign/Formats.h"

namespace talora {

namespace {

using Json = nlohmann::ordered_json;

// The trimmed texts between separators.
std::vector<std::string_view> Parts(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    for (size_t at = 0;;) {
        const size_t end = std::min(text.find(separator, at), text.size());
        parts.push_back(Trimmed(text.substr(at, end - at)));
        if (end == text.size()) return parts;
        at = end + 1;
    }
}

bool IsInteger(double value)
{
    return value == std::floor(value) && std::abs(value) < 1e9;
}

// Evenly spaced limits: count intervals, or count values.
bool TakeEven(ForeignNode& node, const std::vector<double>& numbers, bool is_interval)
{
    constexpr double kMost = 1000;
    const double count = numbers[2];
    if (!IsInteger(count) || count < 1 || count > kMost || !(numbers[0] < numbers[1])) return false;
    const double steps = is_interval ? count : std::max(count - 1, 1.0);
    for (int i = 0; i < int(count) + is_interval; ++i)
        node.levels.push_back(i == int(steps) ? numbers[1]
                                              : numbers[0] + (numbers[1] - numbers[0]) * i / steps);
    return true;
}

// States of a numeric node are called after their values or intervals.
void NameByLevels(ForeignNode& node, bool is_interval)
{
    if (is_interval)
        for (size_t i = 0; i + 1 < node.levels.size(); ++i)
            node.states.push_back("[" + NumberText(node.levels[i]) + ";" + NumberText(node.levels[i + 1]) +
                                  (i + 2 == node.levels.size() ? "]" : "["));
    else
        for (const double level : node.levels) node.states.push_back(NumberText(level));
}

// [n], [first,last], three or more limits, or [from:to:count].
bool TakeBrackets(ForeignNode& node, std::string_view inside)
{
    const bool is_even = inside.find(':') != std::string_view::npos;
    std::vector<double> numbers;
    for (const std::string_view part : Parts(inside, is_even ? ':' : ',')) {
        double value = 0;
        if (!ParseLimit(part, value)) return false;
        numbers.push_back(value);
    }
    if (is_even) {
        if (numbers.size() != 3 || !TakeEven(node, numbers, true)) return false;
        NameByLevels(node, true);
        return true;
    }
    if (numbers.size() >= 3) {
        node.levels = std::move(numbers);
        if (!std::is_sorted(node.levels.begin(), node.levels.end())) return false;
        NameByLevels(node, true);
        return true;
    }
    const bool is_range = numbers.size() == 2;
    const double first = is_range ? numbers[0] : 0, last = is_range ? numbers[1] : numbers[0] - 1;
    constexpr double kMost = 10000;
    if (!IsInteger(first) || !IsInteger(last) || last < first || last - first > kMost) return false;
    for (double value = first; value <= last; ++value) {
        if (is_range) node.levels.push_back(value);
        node.states.push_back(NumberText(value));
    }
    return true;
}

// {label|label...}, which may all be numbers, or {from:to:count}.
bool TakeBraces(ForeignNode& node, std::string_view inside)
{
    if (inside.find('|') == std::string_view::npos) {
        const std::vector<std::string_view> parts = Parts(inside, ':');
        std::vector<double> numbers(parts.size());
        bool all = parts.size() == 3;
        for (size_t i = 0; i < parts.size(); ++i) all = ParseNumber(parts[i], numbers[i]) && all;
        if (all) {
            if (!TakeEven(node, numbers, false)) return false;
            NameByLevels(node, false);
            return true;
        }
    }
    const std::vector<std::string_view> labels = Parts(inside, '|');
    std::vector<double> numbers(labels.size());
    bool all = true;
    for (size_t i = 0; i < labels.size() && all; ++i) all = ParseNumber(labels[i], numbers[i]);
    if (all) {
        // Numbers come in their order, whatever the order of their labels.
        std::vector<size_t> order(labels.size());
        for (size_t i = 0; i < order.size(); ++i) order[i] = i;
        std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return numbers[a] < numbers[b]; });
        for (const size_t i : order) {
            node.states.emplace_back(labels[i]);
            node.levels.push_back(numbers[i]);
        }
        return true;
    }
    for (const std::string_view label : labels) node.states.emplace_back(label);
    return true;
}

class JgumReader {
public:
    JgumReader(const ForeignSource& source, ForeignNet& net) : source_(source), net_(net), names_(source, net)
    {}

    void Read()
    {
        const Json json = Parse();
        if (!json.is_object()) FailAt<7026>(source_.PlaceAt(0), "JSON", "object");
        const std::string type = TextOf(json, "type");
        net_.format =
            "JGUM" + (TextOf(json, "GumJsonVersion").empty() ? "" : " " + TextOf(json, "GumJsonVersion"));
        if (type == "MRF" || json.contains("factors")) FailAt<7044>(source_.PlaceAt(0));
        ReadNodes(json, "nodes", ForeignKind::CHANCE);
        ReadNodes(json, "chance", ForeignKind::CHANCE);
        ReadNodes(json, "decision", ForeignKind::DECISION);
        ReadNodes(json, "utility", ForeignKind::UTILITY);
        ReadParents(json);
        ReadTables(json, "cpt");
        ReadTables(json, "reward");
        for (const auto& [name, value] : ObjectOf(json, "properties").items()) {
            const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
            if (name == "name")
                net_.name = text;
            else if (name == "title")
                net_.title = text;
            else if (name == "comment")
                net_.comment = text;
            else
                net_.fields.emplace_back(name, text);
        }
    }

private:
    Json Parse()
    {
        try {
            return Json::parse(source_.text, &LimitDepth);
        } catch (const Json::parse_error& fault) {
            std::string what = fault.what();
            const size_t colon = what.find("syntax error");
            if (colon != std::string::npos) what.erase(0, colon);
            const size_t at = fault.byte > 0 ? fault.byte - 1 : 0;
            FailAt<7027>(source_.PlaceAt(at), Shown(what.substr(0, what.find(';'))).c_str());
        } catch (const Json::exception&) {  // a number too large
            FailAt<7027>(source_.PlaceAt(0), "number out of range");
        }
    }
    // Nothing of a net lies deeper than three; what does is dropped as it is read.
    static bool LimitDepth(int depth, Json::parse_event_t, Json&) { return depth < 8; }

    static std::string TextOf(const Json& json, const char* key)
    {
        const auto found = json.find(key);
        return found != json.end() && found->is_string() ? found->get<std::string>() : "";
    }
    static const Json& ObjectOf(const Json& json, const char* key)
    {
        static const Json kNone = Json::object();
        const auto found = json.find(key);
        return found != json.end() && found->is_object() ? *found : kNone;
    }
    // The document has no places: that of a name is where it first stands in quotes.
    size_t AtOf(const std::string& name, size_t from = 0) const
    {
        const size_t at = source_.text.find(Json(name).dump(), from);
        return at == std::string_view::npos ? from : at;
    }
    size_t AtOfKey(const char* section, const std::string& name) const { return AtOf(name, AtOf(section)); }

    // One list of nodes in the short notation, all of one kind.
    void ReadNodes(const Json& json, const char* key, ForeignKind kind)
    {
        const auto found = json.find(key);
        if (found == json.end() || !found->is_array()) return;
        size_t at = AtOf(key);
        for (const Json& entry : *found) {
            const std::string fast = entry.is_string() ? entry.get<std::string>() : "";
            at = AtOf(fast, at);
            ForeignNode node;
            if (fast.empty() || !TakeFast(node, fast))
                FailAt<7045>(source_.PlaceAt(at), Shown(fast.empty() ? entry.dump() : fast).c_str());
            net_.states_made += double(node.states.size());
            if (net_.states_made > 10000 + double(source_.text.size()))
                FailAt<7042>(source_.PlaceAt(at), Shown(node.name).c_str(), double(node.states.size()));
            ForeignNode& added = names_.Add(node.name, at);
            added.kind = kind;
            if (kind == ForeignKind::UTILITY) continue;
            added.states = std::move(node.states);
            added.levels = std::move(node.levels);
        }
    }

    // For each node its parents; decisions list what is known there.
    void ReadParents(const Json& json)
    {
        for (const auto& [name, parents] : ObjectOf(json, "parents").items()) {
            const size_t at = AtOfKey("parents", name);
            ForeignNode& node = names_.Node(name, at);
            if (!parents.is_array())
                FailAt<7026>(source_.PlaceAt(at), Shown(name).c_str(), "list of parents");
            for (const Json& parent : parents) {
                const std::string text = parent.is_string() ? parent.get<std::string>() : parent.dump();
                node.parents.push_back(names_.Find(text, at));
            }
        }
    }

    // Tables and rewards: the own states vary fastest, then the first parent.
    void ReadTables(const Json& json, const char* key)
    {
        for (const auto& [name, table] : ObjectOf(json, key).items()) {
            const size_t at = AtOfKey(key, name);
            ForeignNode& node = names_.Node(name, at);
            NeedNoTable(source_, node, at);
            node.table_at = at;
            if (table.is_object()) {
                ReadModel(node, table, at);
                continue;
            }
            TableVector<double> numbers;
            for (const Json& entry : table) {
                if (!entry.is_number()) FailAt<7006>(source_.PlaceAt(at), Shown(entry.dump()).c_str());
                numbers.push_back(entry.get<double>());
            }
            if (numbers.empty()) continue;
            CheckTableSize(source_, net_, node, numbers.size(), at);
            node.table = InOurOrder(net_, node, std::move(numbers), EntryOrder::FIRST_FASTEST);
        }
    }

    // Noisy-or nodes of two states, the second of which is "true".
    void ReadModel(ForeignNode& node, const Json& model, size_t at)
    {
        const std::string name = TextOf(model, "name");
        const bool is_or = name == "MultiDimNoisyORCompound" || name == "MultiDimNoisyORNet";
        const auto leak = model.find("externalWeight");
        const bool is_binary =
            node.states.size() == 2 && std::all_of(node.parents.begin(), node.parents.end(), [&](int parent) {
                return net_.nodes[size_t(parent)].states.size() == 2;
            });
        if (name != "MultiDimNoisyORCompound" || !is_or || !is_binary || leak == model.end() ||
            !leak->is_number())
            FailAt<7023>(source_.PlaceAt(at), ("the model '" + Shown(name) + "' of a node").c_str());
        const Json& weights = ObjectOf(model, "causalWeights");
        const auto add = [&](double p) { node.noisy.rows.insert(node.noisy.rows.end(), {1 - p, p}); };
        for (const int parent : node.parents) {
            const auto weight = weights.find(net_.nodes[size_t(parent)].name);
            add(0);
            add(weight != weights.end() && weight->is_number() ? weight->get<double>() : 0);
        }
        add(leak->get<double>());
        ReserveTable(source_, net_, node, at);
        node.table = ExpandNoisyMax(net_, node);
    }

    const ForeignSource& source_;
    ForeignNet& net_;
    NodeNames names_;
};

}  // namespace

// name [+] then [n], [first,last], [limit,limit,limit...], [from:to:count], {label|label...} or
// {from:to:count}; nothing stands for two states.
bool TakeFast(ForeignNode& node, std::string_view fast)
{
    fast = Trimmed(fast);
    size_t split = fast.size();
    const char close = fast.empty() ? '\0' : fast.back();
    if (close == ']') split = fast.rfind('[');
    if (close == '}') split = fast.rfind('{');
    if (split == std::string_view::npos) return false;
    std::string_view name = Trimmed(fast.substr(0, split));
    if (name.ends_with('+')) name.remove_suffix(1);
    node.name = name;
    if (name.empty() || name.ends_with('[') || name.ends_with('{')) return false;
    if (split == fast.size()) {
        node.states = {"0", "1"};
        return true;
    }
    const std::string_view inside = fast.substr(split + 1, fast.size() - split - 2);
    if (inside.empty()) return false;
    return close == ']' ? TakeBrackets(node, inside) : TakeBraces(node, inside);
}

std::string FastText(const ForeignNode& node)
{
    std::string text = node.name;
    if (node.kind == ForeignKind::UTILITY) return text + "[1]";
    const auto limit = [](double value) {
        return std::isinf(value) ? std::string(value > 0 ? "inf" : "-inf") : NumberText(value);
    };
    if (node.HasLimits() && node.levels.size() >= 3) {
        for (size_t i = 0; i < node.levels.size(); ++i) text += (i ? "," : "[") + limit(node.levels[i]);
        return text + "]";
    }
    const bool is_numeric =
        !node.levels.empty() && !node.HasLimits() && std::is_sorted(node.levels.begin(), node.levels.end());
    for (size_t i = 0; i < node.states.size(); ++i)
        text += (i ? "|" : "{") + (is_numeric ? limit(node.levels[i]) : node.states[i]);
    return text + "}";
}

void ReadJgum(const ForeignSource& source, ForeignNet& net)
{
    JgumReader(source, net).Read();
}

namespace {

// In this notation the states of a node with levels are called after them, and labels that are numbers come
// in their order.  Names go before levels.
void FitNotation(ForeignNet& net, ForeignNode& node)
{
    const auto fits = [&] {
        ForeignNode read;
        return TakeFast(read, FastText(node)) && read.states == node.states && read.name == node.name;
    };
    if (node.kind == ForeignKind::UTILITY || fits()) return;
    if (!node.levels.empty()) {
        AddLoss(net.losses, LossSeverity::INFORMATION, "levels", node.name,
                "left out, the states keep their names");
        node.levels.clear();
    }
    if (fits()) return;
    AddLoss(net.losses, LossSeverity::INFORMATION, "names of nodes and states", node.name, "other names");
    for (std::string& state : node.states) state = "x_" + state;
}

}  // namespace

void WriteJgum(ForeignNet& net, std::string& out)
{
    for (ForeignNode& node : net.nodes) FitNotation(net, node);
    Json json;
    const bool has_decisions = std::any_of(net.nodes.begin(), net.nodes.end(), [](const ForeignNode& node) {
        return node.kind != ForeignKind::CHANCE;
    });
    json["type"] = has_decisions ? "ID" : "BN";
    json["GumJsonVersion"] = "1.0";
    const char* const kKeys[] = {has_decisions ? "chance" : "nodes", "decision", "utility"};
    for (int kind = 0; kind < (has_decisions ? 3 : 1); ++kind) json[kKeys[kind]] = Json::array();
    json["parents"] = Json::object();
    json["cpt"] = Json::object();
    for (const ForeignNode& node : net.nodes) {
        json[kKeys[static_cast<int>(node.kind)]].push_back(FastText(node));
        Json& parents = json["parents"][node.name] = Json::array();
        for (const int parent : node.parents) parents.push_back(net.nodes[size_t(parent)].name);
        if (node.table.empty()) continue;
        Json numbers = Json::array();
        for (const double entry : InOrder(net, node, EntryOrder::FIRST_FASTEST)) {
            // A float is written as the shortest decimal that is this float.
            std::string text;
            AppendEntry(text, entry, node);
            double shown = entry;
            ParseNumber(text, shown);
            numbers.push_back(shown);
        }
        json[node.kind == ForeignKind::UTILITY ? "reward" : "cpt"][node.name] = std::move(numbers);
    }
    Json properties = Json::object();
    properties["name"] = net.name;
    if (!net.title.empty()) properties["title"] = net.title;
    if (!net.comment.empty()) properties["comment"] = net.comment;
    for (const auto& [name, value] : net.fields) properties[name] = value;
    json["properties"] = std::move(properties);
    out += json.dump(-1, ' ', false, Json::error_handler_t::replace);
    out += '\n';
}

}  // namespace talora
