// XDSL: XML with nodes of several kinds, and what is drawn in an extension of its own.
#include <algorithm>

#include "Foreign/ForeignCheck.h"
#include "Foreign/ForeignXml.h"
#include "Foreign/Formats.h"

namespace talora {

namespace {

// In comments and captions a line break is written as the two characters \n.
std::string WithLineBreaks(std::string_view text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == 'n') {
            out += '\n';
            ++i;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::string WithoutLineBreaks(std::string_view text)
{
    std::string out;
    for (const char c : text) {
        if (c == '\r') continue;
        if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out;
}

class XdslReader {
public:
    XdslReader(const ForeignSource& source, ForeignNet& net)
        : source_(source), net_(net), xml_(source), names_(source, net)
    {}

    void Read()
    {
        const pugi::xml_node root = xml_.Root();
        net_.format = "XDSL " + Xml::Attribute(root, "version");
        net_.name = Xml::Attribute(root, "id");
        const pugi::xml_node nodes = xml_.NeedChild(root, "nodes");
        for (const pugi::xml_node element : nodes.children())
            if (element.type() == pugi::node_element) Declare(element);
        for (size_t i = 0; i < elements_.size(); ++i) Define(net_.nodes[i], elements_[i]);
        ReadCosts(Xml::Child(root, "observationcost"));
        const pugi::xml_node extensions = Xml::Child(root, "extensions");
        Xml::ForEach(extensions, "genie", [&](pugi::xml_node genie) { ReadDrawing(genie); });
        if (Xml::Child(root, "dynamic"))
            FailAt<7023>(xml_.PlaceOf(Xml::Child(root, "dynamic")), "nets with time slices");
        if (Xml::Child(root, "cases"))
            AddLoss(net_.losses, LossSeverity::INFORMATION, "cases", "", "left out");
    }

private:
    // Parents may be named before they come, so nodes are declared first and defined when all are there.
    void Declare(pugi::xml_node element)
    {
        ForeignNode& node = names_.Add(xml_.NeedAttribute(element, "id"), Xml::AtOf(element));
        elements_.push_back(element);
        if (Xml::Is(element, "decision")) node.kind = ForeignKind::DECISION;
        if (Xml::Is(element, "utility") || Xml::Is(element, "mau")) node.kind = ForeignKind::UTILITY;
        node.is_deterministic = Xml::Is(element, "deterministic");
        if (Xml::Is(element, "equation") || Xml::Is(element, "noisyadder") || Xml::Is(element, "demorgan"))
            FailAt<7023>(xml_.PlaceOf(element),
                         ("nodes of the kind '" + Shown(element.name()) + "'").c_str());
        Xml::ForEach(element, "state", [&](pugi::xml_node state) {
            node.states.push_back(xml_.NeedAttribute(state, "id"));
            for (const char* mark : {"label", "default", "fault", "target"})
                if (Xml::HasAttribute(state, mark))
                    node.fields.emplace_back("state_" + node.states.back() + "_" + mark,
                                             Xml::Attribute(state, mark));
        });
        for (const char* mark : {"target", "ranked", "mandatory", "diagtype"})
            if (Xml::HasAttribute(element, mark))
                node.fields.emplace_back(mark, Xml::Attribute(element, mark));
        Xml::ForEach(element, "property", [&](pugi::xml_node property) {
            node.fields.emplace_back(Xml::Attribute(property, "id"), Xml::Text(property));
        });
    }

    void Define(ForeignNode& node, pugi::xml_node element)
    {
        const pugi::xml_node parents = Xml::Child(element, "parents");
        for (const std::string& parent : Xml::Words(Xml::Text(parents)))
            node.parents.push_back(names_.Find(parent, Xml::AtOf(parents)));
        const size_t at = Xml::AtOf(element);
        if (Xml::Is(element, "cpt"))
            ReadTable(node, xml_.NeedChild(element, "probabilities"));
        else if (Xml::Is(element, "utility"))
            ReadTable(node, xml_.NeedChild(element, "utilities"));
        else if (Xml::Is(element, "deterministic"))
            ReadResults(node, xml_.NeedChild(element, "resultingstates"));
        else if (Xml::Is(element, "noisymax"))
            ReadNoisyMax(node, element);
        else if (Xml::Is(element, "mau"))
            ReadSum(node, element);
        else if (!Xml::Is(element, "decision"))
            FailAt<7023>(source_.PlaceAt(at), ("nodes of the kind '" + Shown(element.name()) + "'").c_str());
    }

    void ReadTable(ForeignNode& node, pugi::xml_node numbers)
    {
        node.table_at = Xml::AtOf(numbers);
        xml_.Numbers(numbers, node.table);
        CheckTableSize(source_, net_, node, node.table.size(), node.table_at);
        node.table_at = Xml::TextAt(numbers);
    }

    // One own state for each configuration of the parents.
    void ReadResults(ForeignNode& node, pugi::xml_node results)
    {
        const std::vector<std::string> states = Xml::Words(Xml::Text(results));
        const size_t at = Xml::AtOf(results), width = node.Width();
        CheckTableSize(source_, net_, node, states.size() * width, at);
        ReserveTable(source_, net_, node, at);
        std::fill(node.table.begin(), node.table.end(), 0.0);
        for (size_t row = 0; row < states.size(); ++row)
            node.table[row * width + size_t(FindState(source_, node, states[row], at))] = 1;
        node.table_at = at;
    }

    // Rows of parameters stand in the order of the strengths; ours in that of the parent's states.
    void ReadNoisyMax(ForeignNode& node, pugi::xml_node element)
    {
        const pugi::xml_node parameters = xml_.NeedChild(element, "parameters");
        const size_t at = Xml::AtOf(parameters), n = node.states.size();
        std::vector<double> rows, strengths;
        xml_.Numbers(parameters, rows);
        if (const pugi::xml_node list = Xml::Child(element, "strengths")) xml_.Numbers(list, strengths);
        if (rows.size() != NoisyMaxSize(net_, node))
            FailAt<7014>(source_.PlaceAt(at), double(rows.size()), Shown(node.name).c_str(),
                         double(NoisyMaxSize(net_, node)));
        node.noisy.first_is_strongest = true;
        node.noisy.rows = rows;
        size_t first = 0;
        for (const int parent : node.parents) {
            const size_t count = net_.nodes[size_t(parent)].states.size();
            for (size_t j = 0; j < count; ++j) {
                if (first + j >= strengths.size()) break;
                const double state = strengths[first + j];
                if (!(state >= 0) || state >= double(count) || state != std::floor(state))
                    FailAt<7012>(source_.PlaceAt(at), Shown(net_.nodes[size_t(parent)].name).c_str(),
                                 NumberText(state).c_str());
                std::copy_n(rows.begin() + std::ptrdiff_t((first + j) * n), n,
                            node.noisy.rows.begin() + std::ptrdiff_t((first + size_t(state)) * n));
            }
            first += count;
        }
        ReserveTable(source_, net_, node, at);
        node.table = ExpandNoisyMax(net_, node);
        node.table_at = at;
    }

    // A weighted sum of utilities is the sum of its parts, each weighted: the parts are utility nodes
    // already.
    void ReadSum(ForeignNode& node, pugi::xml_node element)
    {
        std::vector<double> weights;
        if (const pugi::xml_node list = Xml::Child(element, "weights")) xml_.Numbers(list, weights);
        for (size_t i = 0; i < node.parents.size(); ++i) {
            ForeignNode& part = net_.nodes[size_t(node.parents[i])];
            if (part.kind != ForeignKind::UTILITY || Xml::Is(elements_[size_t(node.parents[i])], "mau"))
                FailAt<7023>(xml_.PlaceOf(element), "sums of what are no utilities");
            weights_.emplace_back(node.parents[i], i < weights.size() ? weights[i] : 1.0);
        }
        sums_.push_back(int(&node - net_.nodes.data()));
    }

public:
    // Parts are weighted once all tables are there; the node of the sum itself is not needed any more.
    void FinishSums()
    {
        for (const auto& [index, weight] : weights_)
            for (double& value : net_.nodes[size_t(index)].table) value *= weight;
        for (size_t i = sums_.size(); i-- > 0;) {
            AddLoss(net_.losses, LossSeverity::INFORMATION, "nodes that sum utilities",
                    net_.nodes[size_t(sums_[i])].name, "the parts are weighted and added");
            for (ForeignNode& node : net_.nodes)
                for (int& parent : node.parents) {
                    if (parent == sums_[i])
                        FailAt<7023>(source_.PlaceAt(node.at), "children of sums of utilities");
                    parent -= parent > sums_[i];
                }
            net_.nodes.erase(net_.nodes.begin() + sums_[i]);
        }
    }

private:
    // What it costs to observe a node; a cost that depends on other nodes keeps their names.
    void ReadCosts(pugi::xml_node costs)
    {
        Xml::ForEach(costs, "node", [&](pugi::xml_node entry) {
            ForeignNode& node = names_.Node(xml_.NeedAttribute(entry, "id"), Xml::AtOf(entry));
            node.cost = Xml::Text(Xml::Child(entry, "cost"));
            const std::string parents = Xml::Text(Xml::Child(entry, "parents"));
            if (!parents.empty()) node.fields.emplace_back("observation_cost_parents", parents);
        });
    }

    // Nodes may lie in submodels, and these in others.
    void ReadDrawing(pugi::xml_node genie)
    {
        if (net_.title.empty()) net_.title = Xml::Attribute(genie, "name");
        net_.comment = WithLineBreaks(Xml::Text(Xml::Child(genie, "comment")));
        std::vector<std::pair<pugi::xml_node, int>> blocks = {{genie, -1}};
        bool has_boxes = false;
        for (size_t i = 0; i < blocks.size(); ++i) {
            const pugi::xml_node block = blocks[i].first;
            const int group = blocks[i].second;
            Xml::ForEach(block, "node", [&](pugi::xml_node drawn) { ReadDrawnNode(drawn, group); });
            Xml::ForEach(block, "submodel", [&](pugi::xml_node submodel) {
                net_.groups.push_back(
                    {Xml::Attribute(submodel, "id"), Xml::Text(Xml::Child(submodel, "name")), group});
                blocks.emplace_back(submodel, int(net_.groups.size()) - 1);
            });
            has_boxes = has_boxes || Xml::Child(block, "textbox");
        }
        if (has_boxes) AddLoss(net_.losses, LossSeverity::LOOKS, "text boxes", "", "left out");
        if (Xml::Child(genie, "arccomment"))
            AddLoss(net_.losses, LossSeverity::INFORMATION, "comments of links", "", "left out");
    }

    // The name in the drawing is the title; the box gives the centre.
    void ReadDrawnNode(pugi::xml_node drawn, int group)
    {
        const int index = names_.TryFind(Xml::Attribute(drawn, "id"));
        if (index < 0) return;
        ForeignNode& node = net_.nodes[size_t(index)];
        node.group = group;
        node.title = Xml::Text(Xml::Child(drawn, "name"));
        node.comment = WithLineBreaks(Xml::Text(Xml::Child(drawn, "comment")));
        std::vector<double> box;
        if (const pugi::xml_node position = Xml::Child(drawn, "position")) xml_.Numbers(position, box);
        if (box.size() < 4) return;
        node.x = (box[0] + box[2]) / 2;
        node.y = (box[1] + box[3]) / 2;
    }

    const ForeignSource& source_;
    ForeignNet& net_;
    const Xml xml_;
    NodeNames names_;
    std::vector<pugi::xml_node> elements_;
    std::vector<std::pair<int, double>> weights_;
    std::vector<int> sums_;
};

// ---- Writing ----

// Marks that are attributes of the node or of its states; everything else is a property.
bool IsMark(const ForeignNode& node, const std::string& field, std::string* state, std::string* mark)
{
    for (const char* known : {"target", "ranked", "mandatory", "diagtype"})
        if (field == known) return *mark = known, state->clear(), true;
    for (const std::string& name : node.states)
        for (const char* known : {"label", "default", "fault", "target"})
            if (field == "state_" + name + "_" + known) return *mark = known, *state = name, true;
    return false;
}

std::string MarksOf(const ForeignNode& node, const std::string& wanted_state)
{
    std::string out, state, mark;
    for (const auto& [field, value] : node.fields)
        if (IsMark(node, field, &state, &mark) && state == wanted_state)
            out += " " + mark + "=\"" + XmlText(value) + "\"";
    return out;
}

// The order in which rows of contributions stand for a parent: the one without effect last.  False if there
// is none, as the format needs it.
bool FindStrengths(const ForeignNet& net, const ForeignNode& node, std::vector<size_t>& strengths)
{
    const size_t n = node.states.size();
    size_t first = 0;
    for (const int parent : node.parents) {
        const size_t count = net.nodes[size_t(parent)].states.size();
        size_t weakest = count;
        for (size_t j = 0; j < count; ++j)
            if (node.noisy.rows[(first + j) * n + n - 1] == 1) weakest = j;
        if (weakest == count) return false;
        for (size_t j = 0; j < count; ++j)
            if (j != weakest) strengths.push_back(j);
        strengths.push_back(weakest);
        first += count;
    }
    return true;
}

void AppendNumbers(std::string& out, const char* element, const ForeignNode& node,
                   const TableVector<double>& numbers)
{
    out += std::string("\t\t\t<") + element + ">";
    for (size_t i = 0; i < numbers.size(); ++i) {
        if (i > 0) out += ' ';
        AppendEntry(out, numbers[i], node);
    }
    out += std::string("</") + element + ">\n";
}

void AppendNoisyMax(std::string& out, const ForeignNet& net, const ForeignNode& node,
                    const std::vector<size_t>& strengths)
{
    const size_t n = node.states.size();
    std::string list, numbers;
    size_t first = 0, at = 0;
    const auto append_row = [&](size_t row) {
        for (size_t k = 0; k < n; ++k)
            numbers += (numbers.empty() ? "" : " ") + NumberText(node.noisy.rows[row * n + k]);
    };
    for (const int parent : node.parents) {
        const size_t count = net.nodes[size_t(parent)].states.size();
        for (size_t j = 0; j < count; ++j, ++at) {
            list += (at ? " " : "") + std::to_string(strengths[at]);
            append_row(first + strengths[at]);
        }
        first += count;
    }
    append_row(first);
    out += "\t\t\t<strengths>" + list + "</strengths>\n\t\t\t<parameters>" + numbers + "</parameters>\n";
}

// The kind of element follows from what the node has: contributions, one state per row, or a table.
void AppendNode(std::string& out, ForeignNet& net, const ForeignNode& node)
{
    std::vector<size_t> strengths;
    bool is_noisy = !node.noisy.rows.empty();
    if (is_noisy && !(node.noisy.first_is_strongest && FindStrengths(net, node, strengths))) {
        is_noisy = false;
        AddLoss(net.losses, LossSeverity::INFORMATION, "noisy-MAX parameters", node.name, "the whole table");
    }
    const std::string element = node.kind == ForeignKind::DECISION  ? "decision"
                                : node.kind == ForeignKind::UTILITY ? "utility"
                                : is_noisy                          ? "noisymax"
                                : node.is_deterministic             ? "deterministic"
                                                                    : "cpt";
    out += "\t\t<" + element + " id=\"" + XmlText(node.name) + "\"" + MarksOf(node, "") + ">\n";
    for (const std::string& state : node.states)
        out += "\t\t\t<state id=\"" + XmlText(state) + "\"" + MarksOf(node, state) + " />\n";
    if (!node.parents.empty()) {
        out += "\t\t\t<parents>";
        for (size_t i = 0; i < node.parents.size(); ++i)
            out += (i ? " " : "") + XmlText(net.nodes[size_t(node.parents[i])].name);
        out += "</parents>\n";
    }
    if (is_noisy) {
        AppendNoisyMax(out, net, node, strengths);
    } else if (node.is_deterministic) {
        out += "\t\t\t<resultingstates>";
        const size_t width = node.Width();
        for (size_t at = 0; at < node.table.size(); at += width) {
            const auto row = node.table.begin() + std::ptrdiff_t(at);
            const auto state = std::max_element(row, row + std::ptrdiff_t(width)) - row;
            out += (at ? " " : "") + XmlText(node.states[size_t(state)]);
        }
        out += "</resultingstates>\n";
    } else if (node.kind == ForeignKind::UTILITY) {
        AppendNumbers(out, "utilities", node, node.table);
    } else if (node.kind == ForeignKind::CHANCE) {
        AppendNumbers(out, "probabilities", node, node.table);
    }
    std::string state, mark;
    for (const auto& [field, value] : node.fields)
        if (!IsMark(node, field, &state, &mark) && field != "observation_cost_parents")
            out += "\t\t\t<property id=\"" + XmlText(field) + "\">" + XmlText(value) + "</property>\n";
    out += "\t\t</" + element + ">\n";
}

void AppendDrawnNode(std::string& out, const std::string& indent, const ForeignNode& node)
{
    const char* const kColour = "e5f6f7";
    out += indent + "<node id=\"" + XmlText(node.name) + "\">\n";
    out += indent + "\t<name>" + XmlText(node.title.empty() ? node.name : node.title) + "</name>\n";
    out += indent + "\t<interior color=\"" + kColour + "\" />\n";
    constexpr double kHalfWidth = 38, kHalfHeight = 18;
    const double x = node.HasPosition() ? node.x : kHalfWidth, y = node.HasPosition() ? node.y : kHalfHeight;
    out += indent + "\t<position>" + NumberText(x - kHalfWidth) + " " + NumberText(y - kHalfHeight) + " " +
           NumberText(x + kHalfWidth) + " " + NumberText(y + kHalfHeight) + "</position>\n";
    if (!node.comment.empty())
        out += indent + "\t<comment>" + XmlText(WithoutLineBreaks(node.comment)) + "</comment>\n";
    out += indent + "</node>\n";
}

// The nodes of a submodel, and the submodels in it.
void AppendGroup(std::string& out, const ForeignNet& net, int group, size_t depth)
{
    const std::string indent(3 + depth, '\t');
    for (const ForeignNode& node : net.nodes)
        if (node.group == group) AppendDrawnNode(out, indent, node);
    for (size_t g = 0; g < net.groups.size(); ++g) {
        if (net.groups[g].parent != group || depth > kMaxForeignDepth) continue;
        out += indent + "<submodel id=\"" + XmlText(net.groups[g].name) + "\">\n" + indent + "\t<name>" +
               XmlText(net.groups[g].title) + "</name>\n" + indent + "\t<position>0 0 80 40</position>\n";
        AppendGroup(out, net, int(g), depth + 1);
        out += indent + "</submodel>\n";
    }
}

}  // namespace

std::vector<size_t> ParentsFirst(const ForeignNet& net)
{
    // A node comes as soon as its parents have come, the first in the file first.
    std::vector<size_t> order;
    std::vector<char> is_done(net.nodes.size(), 0);
    std::vector<std::pair<size_t, size_t>> path;  // a node and the next of its parents to look at
    for (size_t start = 0; start < net.nodes.size(); ++start) {
        if (is_done[start]) continue;
        path.emplace_back(start, 0);
        is_done[start] = 1;
        while (!path.empty()) {
            auto& [node, next] = path.back();
            if (next == net.nodes[node].parents.size()) {
                order.push_back(node);
                path.pop_back();
                continue;
            }
            const auto parent = size_t(net.nodes[node].parents[next++]);
            if (is_done[parent]) continue;
            is_done[parent] = 1;
            path.emplace_back(parent, 0);
        }
    }
    return order;
}

void ReadXdsl(const ForeignSource& source, ForeignNet& net)
{
    net.find_entry = FindXmlEntry;
    XdslReader reader(source, net);
    reader.Read();
    reader.FinishSums();
}

void WriteXdsl(ForeignNet& net, std::string& out)
{
    out += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<smile version=\"1.0\" id=\"" + XmlText(net.name) +
           "\">\n\t<nodes>\n";
    for (const size_t node : ParentsFirst(net)) AppendNode(out, net, net.nodes[node]);
    out += "\t</nodes>\n";
    std::string costs;
    for (const ForeignNode& node : net.nodes) {
        if (node.cost.empty()) continue;
        costs += "\t\t<node id=\"" + XmlText(node.name) + "\">\n";
        for (const auto& [field, value] : node.fields)
            if (field == "observation_cost_parents")
                costs += "\t\t\t<parents>" + XmlText(value) + "</parents>\n";
        costs += "\t\t\t<cost>" + XmlText(node.cost) + "</cost>\n\t\t</node>\n";
    }
    if (!costs.empty()) out += "\t<observationcost>\n" + costs + "\t</observationcost>\n";
    out += "\t<extensions>\n\t\t<genie version=\"1.0\" app=\"Talora\" name=\"" +
           XmlText(net.title.empty() ? net.name : net.title) + "\">\n";
    if (!net.comment.empty())
        out += "\t\t\t<comment>" + XmlText(WithoutLineBreaks(net.comment)) + "</comment>\n";
    AppendGroup(out, net, -1, 0);
    out += "\t\t</genie>\n\t</extensions>\n</smile>\n";
}

}  // namespace talora
