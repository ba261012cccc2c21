// PGMX: XML with variables, links and potentials of many types.
#include <algorithm>
#include <map>
#include <set>

#include "Foreign/ForeignCheck.h"
#include "Foreign/ForeignXml.h"
#include "Foreign/Formats.h"

namespace talora {

namespace {

// Types of potentials are spelled in several ways.
std::string Plain(std::string_view type)
{
    std::string plain;
    for (const char c : LowerText(type))
        if (c >= 'a' && c <= 'z') plain += c;
    return plain;
}

// Comments are pages of HTML: the text remains, with one blank for each run of blanks.
std::string WithoutTags(std::string_view html)
{
    if (LowerText(html.substr(0, 20)).find("<html") == std::string::npos) return std::string(Trimmed(html));
    std::string text;
    bool in_tag = false, after_blank = true;
    for (const char c : html) {
        if (c == '<') in_tag = true;
        const bool is_blank = in_tag || c == ' ' || c == '\t' || c == '\n' || c == '\r';
        if (c == '>' && in_tag) {
            in_tag = false;
            continue;
        }
        if (!is_blank) {
            text += c;
        } else if (!after_blank) {
            text += ' ';
        }
        after_blank = is_blank;
    }
    return std::string(Trimmed(text));
}

class PgmxReader {
public:
    PgmxReader(const ForeignSource& source, ForeignNet& net)
        : source_(source), net_(net), xml_(source), names_(source, net)
    {}

    void Read()
    {
        const std::string version = Xml::Attribute(xml_.Root(), "formatVersion");
        net_.format = "PGMX" + (version.empty() ? "" : " " + version);
        const pugi::xml_node net = xml_.NeedChild(xml_.Root(), "ProbNet");
        const std::string type = Xml::Attribute(net, "type");
        constexpr const char* kTypes[] = {"BayesianNetwork", "InfluenceDiagram", "LIMID",
                                          "DynamicBayesianNetwork"};
        if (std::find(std::begin(kTypes), std::end(kTypes), type) == std::end(kTypes))
            FailAt<7023>(xml_.PlaceOf(net), ("nets of the type '" + Shown(type) + "'").c_str());
        net_.comment = WithoutTags(Xml::Text(Xml::Child(net, "Comment")));
        ReadNetProperties(net);
        CheckCriteria(net);
        Xml::ForEach(xml_.NeedChild(net, "Variables"), "Variable",
                     [&](pugi::xml_node v) { ReadVariable(v); });
        ReadLinks(Xml::Child(net, "Links"));
        Xml::ForEach(Xml::Child(net, "Potentials"), "Potential", [&](pugi::xml_node p) { ReadPotential(p); });
        Finish();
        ReadFindings(Xml::Child(xml_.Root(), "Evidence"));
        if (Xml::Child(xml_.Root(), "Policies"))
            AddLoss(net_.losses, LossSeverity::INFORMATION, "policy", "", "left out");
    }

private:
    // Nodes of the same name in two slices are told apart by the slice.
    static std::string NameOf(pugi::xml_node variable)
    {
        const std::string name = Xml::Attribute(variable, "name"),
                          slice = Xml::Attribute(variable, "timeSlice");
        if (slice.empty() || name.ends_with("[" + slice + "]")) return name;
        return name + " [" + slice + "]";
    }
    int Find(pugi::xml_node variable) const { return names_.Find(NameOf(variable), Xml::AtOf(variable)); }

    void ReadNetProperties(pugi::xml_node net)
    {
        for (const char* list : {"AdditionalProperties", "Properties"})
            Xml::ForEach(Xml::Child(net, list), "Property", [&](pugi::xml_node property) {
                const std::string name = Xml::Attribute(property, "name"),
                                  value = Xml::Attribute(property, "value");
                if (name == "Name")
                    net_.name = value;
                else if (name == "Title")
                    net_.title = value;
                else
                    net_.fields.emplace_back(name, value);
            });
    }

    // Utilities are added only within one criterion.
    void CheckCriteria(pugi::xml_node net) const
    {
        int count = 0;
        Xml::ForEach(Xml::Child(net, "DecisionCriteria"), "Criterion", [&](pugi::xml_node) { ++count; });
        if (count > 1)
            FailAt<7023>(xml_.PlaceOf(Xml::Child(net, "DecisionCriteria")),
                         "nets with several decision criteria");
    }

    // ---- Variables ----

    // What is decided, chosen or valued, with its states; numbers without states cannot be kept.
    void ReadVariable(pugi::xml_node variable)
    {
        xml_.NeedAttribute(variable, "name");
        ForeignNode& node = names_.Add(NameOf(variable), Xml::AtOf(variable));
        const std::string role = LowerText(Xml::Attribute(variable, "role")),
                          type = Plain(Xml::Attribute(variable, "type"));
        if (role == "decision") node.kind = ForeignKind::DECISION;
        if (role == "utility") node.kind = ForeignKind::UTILITY;
        if (!Xml::Attribute(variable, "timeSlice").empty()) {
            node.fields.emplace_back("time_slice", Xml::Attribute(variable, "timeSlice"));
            AddLoss(net_.losses, LossSeverity::INFORMATION, "time slices", node.name, "nodes of their own");
        }
        Xml::ForEach(Xml::Child(variable, "States"), "State",
                     [&](pugi::xml_node state) { node.states.push_back(xml_.NeedAttribute(state, "name")); });
        Xml::ForEach(Xml::Child(variable, "Thresholds"), "Threshold", [&](pugi::xml_node threshold) {
            double value = 0;
            if (ParseLimit(Xml::Attribute(threshold, "value"), value)) node.levels.push_back(value);
        });
        if (node.kind == ForeignKind::UTILITY) {
            node.states.clear();
            node.levels.clear();
        } else if (type == "numeric") {
            FailAt<7023>(xml_.PlaceOf(variable), "numeric variables without states");
        }
        if (node.levels.size() != node.states.size() + 1) node.levels.clear();
        node.comment = WithoutTags(Xml::Text(Xml::Child(variable, "Comment")));
        if (const pugi::xml_node place = Xml::Child(variable, "Coordinates")) {
            ParseNumber(Xml::Attribute(place, "x"), node.x);
            ParseNumber(Xml::Attribute(place, "y"), node.y);
        }
        Xml::ForEach(Xml::Child(variable, "AdditionalProperties"), "Property", [&](pugi::xml_node property) {
            const std::string name = Xml::Attribute(property, "name"),
                              value = Xml::Attribute(property, "value");
            if (name == "Title")
                node.title = value;
            else
                node.fields.emplace_back(name, value);
        });
    }

    // The first end is the parent.  Restrictions say what may be observed when, which changes the answers.
    void ReadLinks(pugi::xml_node links)
    {
        Xml::ForEach(links, "Link", [&](pugi::xml_node link) {
            std::vector<int> ends;
            Xml::ForEach(link, "Variable", [&](pugi::xml_node variable) { ends.push_back(Find(variable)); });
            if (LowerText(Xml::Attribute(link, "directed")) == "false")
                FailAt<7023>(xml_.PlaceOf(link), "undirected links");
            for (const char* restriction : {"Potential", "RevelationCondition"})
                if (Xml::Child(link, restriction))
                    FailAt<7023>(xml_.PlaceOf(link), "links with restrictions");
            if (ends.size() != 2) FailAt<7026>(xml_.PlaceOf(link), "Link", "second Variable");
            links_.emplace_back(ends[0], ends[1]);
        });
    }

    // ---- Potentials ----

    // The child stands first among the variables, or by itself for a utility; the others are its parents.
    void ReadPotential(pugi::xml_node potential)
    {
        const std::string role = LowerText(Xml::Attribute(potential, "role"));
        if (role == "policy")
            return AddLoss(net_.losses, LossSeverity::INFORMATION, "policy", "", "left out");
        std::vector<int> scope;
        Xml::ForEach(Xml::Child(potential, "Variables"), "Variable",
                     [&](pugi::xml_node v) { scope.push_back(Find(v)); });
        int child = -1;
        if (const pugi::xml_node utility = Xml::Child(potential, "UtilityVariable")) child = Find(utility);
        if (child < 0 && scope.empty()) return;
        if (child < 0) child = scope[0];
        // The utility variable may stand among the others, where it has no axis.
        scope.erase(std::remove(scope.begin(), scope.end(), child), scope.end());
        ForeignNode& node = net_.nodes[size_t(child)];
        const size_t at = Xml::AtOf(potential);
        NeedNoTable(source_, node, at);
        node.table_at = at;
        node.parents = scope;
        if (node.kind == ForeignKind::DECISION)
            AddLoss(net_.losses, LossSeverity::INFORMATION, "policy", node.name, "left out");
        else
            ReadBody(node, potential);
    }

    // By the type of the potential; what stands for no table here is refused.
    void ReadBody(ForeignNode& node, pugi::xml_node potential)
    {
        const std::string type = Plain(Xml::Attribute(potential, "type"));
        const size_t at = Xml::AtOf(potential);
        const bool is_utility = node.kind == ForeignKind::UTILITY;
        if (type == "table" || type == "probtable") {
            ReadTable(node, potential);
        } else if (type == "uniform") {
            ReserveTable(source_, net_, node, at);
            std::fill(node.table.begin(), node.table.end(), is_utility ? 0.0 : 1.0 / double(node.Width()));
        } else if (type == "delta" || type == "tree" || type == "treeadd") {
            ReserveTable(source_, net_, node, at);
            std::vector<std::vector<char>> all;
            for (const int parent : node.parents)
                all.emplace_back(net_.nodes[size_t(parent)].states.size(), 1);
            ReadBranch(node, potential, all, 0);
            node.is_deterministic = !is_utility && std::all_of(node.table.begin(), node.table.end(),
                                                               [](double p) { return p == 0 || p == 1; });
        } else if (type == "icimodel") {
            ReadNoisyMax(node, potential);
        } else if (type == "sameasprevious") {
            same_as_previous_.push_back(int(&node - net_.nodes.data()));
        } else if (type == "sum" && is_utility) {
            ReadSum(node, at);
        } else {
            FailAt<7023>(
                source_.PlaceAt(at),
                ("potentials of the type '" + Shown(Xml::Attribute(potential, "type")) + "'").c_str());
        }
    }

    void ReadTable(ForeignNode& node, pugi::xml_node potential)
    {
        const pugi::xml_node values = xml_.NeedChild(potential, "Values");
        TableVector<double> table;
        xml_.Numbers(values, table);
        node.table_at = Xml::AtOf(values);
        CheckTableSize(source_, net_, node, table.size(), node.table_at);
        node.table = InOurOrder(net_, node, std::move(table), EntryOrder::FIRST_FASTEST);
        if (Xml::Child(potential, "UncertainValues"))
            AddLoss(net_.losses, LossSeverity::INFORMATION, "distributions of uncertain values", node.name,
                    "left out");
    }

    // Puts a potential over some of the parents' states into the rows that they pick out.
    void ReadBranch(ForeignNode& node, pugi::xml_node potential, const std::vector<std::vector<char>>& picked,
                    size_t depth)
    {
        if (depth > node.parents.size())
            FailAt<7023>(xml_.PlaceOf(potential), "trees that ask for a variable twice");
        const std::string type = Plain(Xml::Attribute(potential, "type"));
        if (type == "tree" || type == "treeadd") {
            ReadTree(node, potential, picked, depth);
            return;
        }
        // A leaf: one row, or a table over some of the parents.
        std::vector<double> values;
        std::vector<int> leaf_parents;
        if (type == "delta") {
            const std::string state = Xml::Text(Xml::Child(potential, "State"));
            if (node.kind == ForeignKind::UTILITY) {
                xml_.Numbers(xml_.NeedChild(potential, "NumericValue"), values);
            } else {
                values.assign(node.Width(), 0.0);
                values[size_t(FindState(source_, node, state, Xml::AtOf(potential)))] = 1;
            }
        } else if (type == "uniform") {
            values.assign(node.Width(), node.kind == ForeignKind::UTILITY ? 0 : 1.0 / double(node.Width()));
        } else if (type == "table" || type == "probtable") {
            xml_.Numbers(xml_.NeedChild(potential, "Values"), values);
            Xml::ForEach(Xml::Child(potential, "Variables"), "Variable", [&](pugi::xml_node variable) {
                const int index = Find(variable);
                if (&net_.nodes[size_t(index)] != &node) leaf_parents.push_back(index);
            });
        } else {
            FailAt<7023>(
                xml_.PlaceOf(potential),
                ("potentials of the type '" + Shown(Xml::Attribute(potential, "type")) + "'").c_str());
        }
        PutLeaf(node, values, leaf_parents, picked, Xml::AtOf(potential));
    }

    // Each branch narrows the states of the variable that is asked for.
    void ReadTree(ForeignNode& node, pugi::xml_node potential, const std::vector<std::vector<char>>& picked,
                  size_t depth)
    {
        const pugi::xml_node top = xml_.NeedChild(potential, "TopVariable");
        const int variable = Find(top);
        const auto found = std::find(node.parents.begin(), node.parents.end(), variable);
        if (found == node.parents.end()) FailAt<7010>(xml_.PlaceOf(top), Shown(NameOf(top)).c_str());
        const ForeignNode& asked = net_.nodes[size_t(variable)];
        Xml::ForEach(xml_.NeedChild(potential, "Branches"), "Branch", [&](pugi::xml_node branch) {
            std::vector<std::vector<char>> narrowed = picked;
            std::vector<char>& states = narrowed[size_t(found - node.parents.begin())];
            std::vector<char> chosen(states.size(), 0);
            Xml::ForEach(Xml::Child(branch, "States"), "State", [&](pugi::xml_node state) {
                chosen[size_t(FindState(source_, asked, Xml::Attribute(state, "name"), Xml::AtOf(state)))] =
                    1;
            });
            for (size_t i = 0; i < states.size(); ++i) states[i] = states[i] && chosen[i];
            if (Xml::Child(branch, "Reference") || !Xml::Child(branch, "States"))
                FailAt<7023>(xml_.PlaceOf(branch), "trees with references or intervals");
            ReadBranch(node, xml_.NeedChild(branch, "Potential"), narrowed, depth + 1);
        });
    }

    // Values stand with the own states fastest, then the parents that the leaf names, the first of them
    // first.
    void PutLeaf(ForeignNode& node, const std::vector<double>& values, const std::vector<int>& leaf_parents,
                 const std::vector<std::vector<char>>& picked, size_t at)
    {
        const size_t width = node.Width();
        std::vector<size_t> stride(node.parents.size(), 0);
        size_t size = width;
        for (const int parent : leaf_parents) {
            const auto found = std::find(node.parents.begin(), node.parents.end(), parent);
            if (found == node.parents.end())
                FailAt<7010>(source_.PlaceAt(at), Shown(net_.nodes[size_t(parent)].name).c_str());
            stride[size_t(found - node.parents.begin())] = size;
            size *= net_.nodes[size_t(parent)].states.size();
            if (size > node.table.size()) break;
        }
        if (values.size() != size)
            FailAt<7014>(source_.PlaceAt(at), double(values.size()), Shown(node.name).c_str(), double(size));
        // Leaves each go through the whole table: as many as there are rows, and no more.
        if (++num_leaves_ > 100000) FailAt<7023>(source_.PlaceAt(at), "trees with so many leaves");
        std::vector<size_t> state(node.parents.size(), 0);
        for (size_t row = 0; row < node.table.size(); row += width) {
            bool is_picked = true;
            size_t there = 0;
            for (size_t i = 0; i < state.size(); ++i) {
                is_picked = is_picked && picked[i][state[i]];
                there += stride[i] * state[i];
            }
            if (is_picked)
                std::copy_n(values.begin() + std::ptrdiff_t(there), width,
                            node.table.begin() + std::ptrdiff_t(row));
            for (size_t i = state.size(); i-- > 0;) {
                if (++state[i] < net_.nodes[size_t(node.parents[i])].states.size()) break;
                state[i] = 0;
            }
        }
    }

    // One table for each parent, and one for the leak, which may be missing.
    void ReadNoisyMax(ForeignNode& node, pugi::xml_node potential)
    {
        const pugi::xml_node model = xml_.NeedChild(potential, "Model");
        const std::string name = Plain(Xml::Text(model));
        const bool is_max = name == "ormax" || name == "generalizedmax";
        if (!is_max && name != "andmin" && name != "generalizedmin")
            FailAt<7023>(xml_.PlaceOf(model), ("the model '" + Shown(Xml::Text(model)) + "'").c_str());
        // The smallest is the largest seen from the other end.
        node.noisy.first_is_strongest = !is_max;
        const size_t n = node.states.size(), at = Xml::AtOf(potential);
        node.noisy.rows.assign(NoisyMaxSize(net_, node), 0.0);
        std::vector<size_t> first_row(node.parents.size() + 1, 0);
        for (size_t i = 0; i < node.parents.size(); ++i)
            first_row[i + 1] = first_row[i] + net_.nodes[size_t(node.parents[i])].states.size();
        // Without a leak nothing is contributed: all weight on the weakest state.
        node.noisy.rows[first_row.back() * n + (is_max ? 0 : n - 1)] = 1;
        std::vector<char> is_given(node.parents.size(), 0);
        Xml::ForEach(xml_.NeedChild(potential, "Subpotentials"), "Potential", [&](pugi::xml_node part) {
            std::vector<double> values;
            xml_.Numbers(xml_.NeedChild(part, "Values"), values);
            size_t which = node.parents.size();
            Xml::ForEach(Xml::Child(part, "Variables"), "Variable", [&](pugi::xml_node variable) {
                const auto found = std::find(node.parents.begin(), node.parents.end(), Find(variable));
                if (found != node.parents.end()) which = size_t(found - node.parents.begin());
            });
            const size_t rows = which < node.parents.size() ? first_row[which + 1] - first_row[which] : 1;
            if (values.size() != rows * n)
                FailAt<7014>(xml_.PlaceOf(part), double(values.size()), Shown(node.name).c_str(),
                             double(rows * n));
            std::copy(values.begin(), values.end(),
                      node.noisy.rows.begin() + std::ptrdiff_t(first_row[which] * n));
            if (which < is_given.size()) is_given[which] = 1;
        });
        if (std::count(is_given.begin(), is_given.end(), 0) > 0)
            FailAt<7020>(source_.PlaceAt(at), Shown(node.name).c_str(), "");
        ReserveTable(source_, net_, node, at);
        node.table = ExpandNoisyMax(net_, node);
    }

    // Utilities are added anyway: the node of a sum is not needed.
    void ReadSum(ForeignNode& node, size_t at)
    {
        for (const int parent : node.parents)
            if (net_.nodes[size_t(parent)].kind != ForeignKind::UTILITY)
                FailAt<7023>(source_.PlaceAt(at), "sums of what are no utilities");
        AddLoss(net_.losses, LossSeverity::INFORMATION, "nodes that sum utilities", node.name,
                "the parts are added");
        sums_.insert(int(&node - net_.nodes.data()));
        node.parents.clear();
        node.table.assign(1, 0.0);
    }

    // ---- At the end ----

    void Finish()
    {
        for (const int index : same_as_previous_) CopyFromPrevious(net_.nodes[size_t(index)]);
        // A link without a place in a potential still is one: what a decision knows, or a uniform table.
        for (const auto& [parent, child] : links_) {
            ForeignNode& node = net_.nodes[size_t(child)];
            if (std::find(node.parents.begin(), node.parents.end(), parent) != node.parents.end()) continue;
            if (sums_.count(child)) continue;
            const size_t count = net_.nodes[size_t(parent)].states.size();
            node.parents.push_back(parent);
            if (node.table.empty()) continue;
            // The table does not ask for this parent: each row stands for all of its states.
            const TableVector<double> old = std::move(node.table);
            const size_t width = node.Width();
            ReserveTable(source_, net_, node, node.at);
            for (size_t at = 0; at < node.table.size(); ++at)
                node.table[at] = old[at / (width * count) * width + at % width];
        }
    }

    void CopyFromPrevious(ForeignNode& node)
    {
        // "X [1]" is as "X [0]".
        const size_t bracket = node.name.rfind('[');
        const int previous =
            bracket == std::string::npos ? -1 : names_.TryFind(node.name.substr(0, bracket) + "[0]");
        if (previous < 0 || net_.nodes[size_t(previous)].parents.size() != node.parents.size())
            FailAt<7023>(source_.PlaceAt(node.table_at), "potentials that repeat those of another slice");
        node.table = net_.nodes[size_t(previous)].table;
    }

    // Of several cases the first is entered.
    void ReadFindings(pugi::xml_node evidence)
    {
        const pugi::xml_node first = Xml::Child(evidence, "EvidenceCase");
        Xml::ForEach(first, "Finding", [&](pugi::xml_node finding) {
            const std::string name = xml_.NeedAttribute(finding, "variable");
            ForeignNode& node = names_.Node(name, Xml::AtOf(finding));
            const std::string state = Xml::Attribute(finding, "state");
            if (!state.empty()) node.finding = FindState(source_, node, state, Xml::AtOf(finding));
        });
    }

    const ForeignSource& source_;
    ForeignNet& net_;
    const Xml xml_;
    NodeNames names_;
    int num_leaves_ = 0;
    std::vector<std::pair<int, int>> links_;
    std::vector<int> same_as_previous_;
    std::set<int> sums_;
};

// ---- Writing ----

std::string VariableRef(const ForeignNode& node)
{
    return "<Variable name=\"" + XmlText(node.name) + "\" />";
}

void AppendProperty(std::string& out, const std::string& indent, const std::string& name,
                    const std::string& value)
{
    out += indent + "<Property name=\"" + XmlText(name) + "\" value=\"" + XmlText(value) + "\" />\n";
}

void AppendVariable(std::string& out, const ForeignNode& node)
{
    constexpr const char* kRoles[] = {"chance", "decision", "utility"};
    const bool is_utility = node.kind == ForeignKind::UTILITY;
    out += "      <Variable name=\"" + XmlText(node.name) + "\" type=\"" +
           (is_utility         ? "numeric"
            : node.HasLimits() ? "discretized"
                               : "finiteStates") +
           "\" role=\"" + kRoles[static_cast<int>(node.kind)] + "\">\n";
    if (!node.comment.empty()) out += "        <Comment>" + XmlText(node.comment) + "</Comment>\n";
    if (node.HasPosition())
        out += "        <Coordinates x=\"" + NumberText(node.x) + "\" y=\"" + NumberText(node.y) + "\" />\n";
    if (!node.title.empty() || !node.fields.empty()) {
        out += "        <AdditionalProperties>\n";
        if (!node.title.empty()) AppendProperty(out, "          ", "Title", node.title);
        for (const auto& [name, value] : node.fields) AppendProperty(out, "          ", name, value);
        out += "        </AdditionalProperties>\n";
    }
    if (is_utility) out += "        <Unit />\n        <Criterion name=\"---\" />\n";
    if (node.HasLimits()) {
        out += "        <Thresholds>\n";
        for (const double level : node.levels) {
            const std::string text =
                std::isinf(level) ? (level > 0 ? "Infinity" : "-Infinity") : NumberText(level);
            out += "          <Threshold value=\"" + text + "\" belongsTo=\"right\" />\n";
        }
        out += "        </Thresholds>\n";
    }
    if (!is_utility) {
        out += "        <States>\n";
        for (const std::string& state : node.states)
            out += "          <State name=\"" + XmlText(state) + "\" />\n";
        out += "        </States>\n";
    }
    out += "      </Variable>\n";
}

void AppendVariables(std::string& out, const ForeignNet& net, const std::string& indent,
                     const ForeignNode* own, const std::vector<int>& parents)
{
    if (own == nullptr && parents.empty()) return;
    out += indent + "<Variables>\n";
    if (own) out += indent + "  " + VariableRef(*own) + "\n";
    for (const int parent : parents) out += indent + "  " + VariableRef(net.nodes[size_t(parent)]) + "\n";
    out += indent + "</Variables>\n";
}

void AppendValues(std::string& out, const std::string& indent, const double* begin, size_t count,
                  const ForeignNode* node)
{
    out += indent + "<Values>";
    for (size_t i = 0; i < count; ++i) {
        if (i > 0) out += ' ';
        if (node)
            AppendEntry(out, begin[i], *node);
        else
            AppendNumber(out, begin[i]);
    }
    out += "</Values>\n";
}

// A table for each parent, then the leak.
void AppendNoisyMax(std::string& out, const ForeignNet& net, const ForeignNode& node)
{
    const size_t n = node.states.size();
    out += "      <Potential type=\"ICIModel\" role=\"conditionalProbability\">\n";
    AppendVariables(out, net, "        ", &node, node.parents);
    out += std::string("        <Model>") + (node.noisy.first_is_strongest ? "AND / MIN" : "OR / MAX") +
           "</Model>\n        <Subpotentials>\n";
    size_t first = 0;
    for (size_t i = 0; i <= node.parents.size(); ++i) {
        const std::vector<int> parents(
            node.parents.begin() + std::ptrdiff_t(i),
            node.parents.begin() + std::ptrdiff_t(std::min(i + 1, node.parents.size())));
        const size_t rows = parents.empty() ? 1 : net.nodes[size_t(parents[0])].states.size();
        out += "          <Potential type=\"Table\">\n";
        AppendVariables(out, net, "            ", &node, parents);
        AppendValues(out, "            ", node.noisy.rows.data() + first * n, rows * n, nullptr);
        out += "          </Potential>\n";
        first += rows;
    }
    out += "        </Subpotentials>\n      </Potential>\n";
}

void AppendPotential(std::string& out, const ForeignNet& net, const ForeignNode& node)
{
    if (node.table.empty()) return;
    if (!node.noisy.rows.empty()) return AppendNoisyMax(out, net, node);
    const bool is_utility = node.kind == ForeignKind::UTILITY;
    out += std::string("      <Potential type=\"Table\" role=\"") +
           (is_utility ? "utility" : "conditionalProbability") + "\">\n";
    if (is_utility) out += "        <UtilityVariable name=\"" + XmlText(node.name) + "\" />\n";
    AppendVariables(out, net, "        ", is_utility ? nullptr : &node, node.parents);
    const TableVector<double> values = InOrder(net, node, EntryOrder::FIRST_FASTEST);
    AppendValues(out, "        ", values.data(), values.size(), &node);
    out += "      </Potential>\n";
}

}  // namespace

void ReadPgmx(const ForeignSource& source, ForeignNet& net)
{
    PgmxReader(source, net).Read();
}

void WritePgmx(ForeignNet& net, std::string& out)
{
    const bool has_decisions = std::any_of(net.nodes.begin(), net.nodes.end(), [](const ForeignNode& node) {
        return node.kind != ForeignKind::CHANCE;
    });
    out +=
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ProbModelXML formatVersion=\"0.2.0\">\n  <ProbNet type=\"";
    out += has_decisions ? "InfluenceDiagram" : "BayesianNetwork";
    out += "\">\n";
    if (has_decisions)
        out +=
            "    <DecisionCriteria>\n      <Criterion name=\"---\" unit=\"---\" />\n    </DecisionCriteria>\n";
    if (!net.comment.empty()) out += "    <Comment>" + XmlText(net.comment) + "</Comment>\n";
    out += "    <AdditionalProperties>\n";
    if (!net.name.empty()) AppendProperty(out, "      ", "Name", net.name);
    if (!net.title.empty()) AppendProperty(out, "      ", "Title", net.title);
    for (const auto& [name, value] : net.fields) AppendProperty(out, "      ", name, value);
    out += "    </AdditionalProperties>\n    <Variables>\n";
    for (ForeignNode& node : net.nodes) {
        // Limits of intervals have a place, values of states do not.
        if (!node.levels.empty() && !node.HasLimits()) {
            AddLoss(net.losses, LossSeverity::INFORMATION, "levels", node.name, "left out");
            node.levels.clear();
        }
        AppendVariable(out, node);
    }
    out += "    </Variables>\n    <Links>\n";
    for (const ForeignNode& node : net.nodes)
        for (const int parent : node.parents)
            out += "      <Link directed=\"true\">\n        " + VariableRef(net.nodes[size_t(parent)]) +
                   "\n        " + VariableRef(node) + "\n      </Link>\n";
    out += "    </Links>\n    <Potentials>\n";
    for (const ForeignNode& node : net.nodes) AppendPotential(out, net, node);
    out += "    </Potentials>\n  </ProbNet>\n";
    std::string findings;
    for (const ForeignNode& node : net.nodes)
        if (node.finding >= 0)
            findings += "      <Finding variable=\"" + XmlText(node.name) + "\" state=\"" +
                        XmlText(node.states[size_t(node.finding)]) + "\" />\n";
    if (!findings.empty())
        out += "  <Evidence>\n    <EvidenceCase>\n" + findings + "    </EvidenceCase>\n  </Evidence>\n";
    out += "</ProbModelXML>\n";
}

}  // namespace talora
