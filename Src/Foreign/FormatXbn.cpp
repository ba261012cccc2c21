// XBN: XML notebooks of belief nets, with rows that carry the numbers of the parents' states.
#include <algorithm>
#include <optional>
#include <set>

#include "Foreign/ForeignCheck.h"
#include "Foreign/ForeignXml.h"
#include "Foreign/Formats.h"

namespace talora {

namespace {

class XbnReader {
public:
    XbnReader(const ForeignSource& source, ForeignNet& net)
        : source_(source), net_(net), xml_(source), names_(source, net)
    {}

    void Read()
    {
        const pugi::xml_node model = FindModel();
        net_.name = Xml::Attribute(model, "NAME");
        const pugi::xml_node properties = Xml::Child(model, "STATICPROPERTIES");
        const std::string version = Xml::Attribute(Xml::Child(properties, "VERSION"), "VALUE");
        net_.format = "XBN" + (version.empty() ? "" : " " + version);
        Xml::ForEach(xml_.NeedChild(model, "VARIABLES"), "VAR",
                     [&](pugi::xml_node var) { ReadVariable(var); });
        Xml::ForEach(xml_.NeedChild(model, "DISTRIBUTIONS"), "DIST",
                     [&](pugi::xml_node dist) { ReadTable(dist); });
        CheckArcs(Xml::Child(model, "STRUCTURE"));
    }

private:
    // The model that the notebook names, or its first.
    pugi::xml_node FindModel()
    {
        const std::string root = Xml::Attribute(xml_.Root(), "ROOT");
        pugi::xml_node model = xml_.NeedChild(xml_.Root(), "BNMODEL");
        int count = 0;
        Xml::ForEach(xml_.Root(), "BNMODEL", [&](pugi::xml_node candidate) {
            ++count;
            if (Xml::Attribute(candidate, "NAME") == root) model = candidate;
        });
        if (count > 1)
            AddLoss(net_.losses, LossSeverity::INFORMATION, "other nets of the file", "", "left out");
        return model;
    }

    // States and texts; a full name goes before a description.
    void ReadVariable(pugi::xml_node var)
    {
        ForeignNode& node = names_.Add(xml_.NeedAttribute(var, "NAME"), Xml::AtOf(var));
        const std::string type = LowerText(Xml::Attribute(var, "TYPE"));
        if (!type.empty() && type != "discrete")
            FailAt<7023>(xml_.PlaceOf(var), ("variables of type '" + Shown(type) + "'").c_str());
        Xml::ForEach(var, "STATENAME",
                     [&](pugi::xml_node state) { node.states.push_back(Xml::Text(state)); });
        node.title = Xml::Text(Xml::Child(var, "FULLNAME"));
        if (node.title.empty()) node.title = Xml::Text(Xml::Child(var, "DESCRIPTION"));
        double x = 0, y = 0;
        if (ParseNumber(Xml::Attribute(var, "XPOS"), x) && ParseNumber(Xml::Attribute(var, "YPOS"), y)) {
            node.x = x;
            node.y = y;
        }
        Xml::ForEach(var, "PROPERTY", [&](pugi::xml_node property) {
            node.fields.emplace_back(Xml::Attribute(property, "NAME"), Xml::Text(property));
        });
    }

    // Rows by the numbers of the parents' states; one without numbers is for all others.
    void ReadTable(pugi::xml_node dist)
    {
        const std::string type = LowerText(Xml::Attribute(dist, "TYPE"));
        if (!type.empty() && type != "discrete")
            FailAt<7023>(xml_.PlaceOf(dist), ("distributions of type '" + Shown(type) + "'").c_str());
        const pugi::xml_node child = xml_.NeedChild(dist, "PRIVATE");
        ForeignNode& node = names_.Node(xml_.NeedAttribute(child, "NAME"), Xml::AtOf(child));
        const size_t at = Xml::AtOf(dist);
        NeedNoTable(source_, node, at);
        node.table_at = at;
        Xml::ForEach(Xml::Child(dist, "CONDSET"), "CONDELEM", [&](pugi::xml_node parent) {
            node.parents.push_back(names_.Find(xml_.NeedAttribute(parent, "NAME"), Xml::AtOf(parent)));
        });
        ReserveTable(source_, net_, node, at);
        RowWriter rows(source_, net_, node);
        std::optional<std::pair<std::vector<double>, size_t>> by_default;
        Xml::ForEach(xml_.NeedChild(dist, "DPIS"), "DPI", [&](pugi::xml_node dpi) {
            std::vector<double> row;
            xml_.Numbers(dpi, row);
            const std::vector<int> states = ReadIndices(node, dpi);
            if (states.size() == node.parents.size()) return rows.Put(states, row, Xml::AtOf(dpi));
            if (by_default || !states.empty())
                FailAt<7046>(xml_.PlaceOf(dpi), int(states.size()), int(node.parents.size()),
                             Shown(node.name).c_str());
            by_default.emplace(std::move(row), Xml::AtOf(dpi));
        });
        if (by_default) rows.PutDefault(by_default->first, by_default->second);
    }

    // As many as there are parents, or none.
    std::vector<int> ReadIndices(const ForeignNode& node, pugi::xml_node dpi)
    {
        std::vector<int> states;
        for (const std::string& word : Xml::Words(Xml::Attribute(dpi, "INDEXES"))) {
            double index = 0;
            if (!ParseNumber(word, index)) FailAt<7006>(xml_.PlaceOf(dpi), ("'" + Shown(word) + "'").c_str());
            if (states.size() == node.parents.size())
                FailAt<7046>(xml_.PlaceOf(dpi), int(states.size()) + 1, int(node.parents.size()),
                             Shown(node.name).c_str());
            const ForeignNode& parent = net_.nodes[size_t(node.parents[states.size()])];
            if (!(index >= 0) || index >= double(parent.states.size()) || index != std::floor(index))
                FailAt<7012>(xml_.PlaceOf(dpi), Shown(parent.name).c_str(), Shown(word).c_str());
            states.push_back(static_cast<int>(index));
        }
        return states;
    }

    // Links stand twice in these files, and must agree.
    void CheckArcs(pugi::xml_node structure)
    {
        if (!structure) return;
        std::set<std::pair<int, int>> arcs;
        Xml::ForEach(structure, "ARC", [&](pugi::xml_node arc) {
            const int parent = names_.Find(xml_.NeedAttribute(arc, "PARENT"), Xml::AtOf(arc));
            const int child = names_.Find(xml_.NeedAttribute(arc, "CHILD"), Xml::AtOf(arc));
            arcs.emplace(parent, child);
            const std::vector<int>& parents = net_.nodes[size_t(child)].parents;
            if (std::find(parents.begin(), parents.end(), parent) == parents.end())
                FailArc(xml_.PlaceOf(arc), parent, child);
        });
        for (size_t child = 0; child < net_.nodes.size(); ++child)
            for (const int parent : net_.nodes[child].parents)
                if (!arcs.count({parent, int(child)}))
                    FailArc(source_.PlaceAt(net_.nodes[child].table_at), parent, int(child));
    }
    [[noreturn]] void FailArc(const FilePlace& place, int parent, int child)
    {
        FailAt<7047>(place, Shown(net_.nodes[size_t(parent)].name).c_str(),
                     Shown(net_.nodes[size_t(child)].name).c_str());
    }

    const ForeignSource& source_;
    ForeignNet& net_;
    const Xml xml_;
    NodeNames names_;
};

void AppendVariable(std::string& out, const ForeignNode& node)
{
    out += "   <VAR NAME=\"" + XmlText(node.name) + "\" TYPE=\"discrete\"";
    if (node.HasPosition()) out += " XPOS=\"" + NumberText(node.x) + "\" YPOS=\"" + NumberText(node.y) + "\"";
    out += ">\n";
    if (!node.title.empty()) out += "    <DESCRIPTION>" + XmlText(node.title) + "</DESCRIPTION>\n";
    for (const std::string& state : node.states) out += "    <STATENAME>" + XmlText(state) + "</STATENAME>\n";
    out += "   </VAR>\n";
}

void AppendTable(std::string& out, const ForeignNet& net, const ForeignNode& node)
{
    out += "   <DIST TYPE=\"discrete\">\n";
    if (!node.parents.empty()) {
        out += "    <CONDSET>\n";
        for (const int parent : node.parents)
            out += "     <CONDELEM NAME=\"" + XmlText(net.nodes[size_t(parent)].name) + "\"/>\n";
        out += "    </CONDSET>\n";
    }
    out += "    <PRIVATE NAME=\"" + XmlText(node.name) + "\"/>\n    <DPIS>\n";
    std::vector<size_t> state(node.parents.size(), 0);
    const size_t width = node.Width();
    for (size_t at = 0; at < node.table.size(); at += width) {
        out += "     <DPI";
        for (size_t i = 0; i < state.size(); ++i)
            out += (i ? " " : " INDEXES=\" ") + std::to_string(state[i]);
        out += state.empty() ? ">" : " \">";
        for (size_t k = 0; k < width; ++k) {
            if (k > 0) out += ' ';
            AppendEntry(out, node.table[at + k], node);
        }
        out += "</DPI>\n";
        for (size_t i = state.size(); i-- > 0;) {
            if (++state[i] < net.nodes[size_t(node.parents[i])].states.size()) break;
            state[i] = 0;
        }
    }
    out += "    </DPIS>\n   </DIST>\n";
}

}  // namespace

void ReadXbn(const ForeignSource& source, ForeignNet& net)
{
    net.find_entry = FindXmlEntry;
    XbnReader(source, net).Read();
}

void WriteXbn(ForeignNet& net, std::string& out)
{
    const std::string name = XmlText(net.name);
    out += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ANALYSISNOTEBOOK NAME=\"Notebook." + name +
           "\" ROOT=\"" + name + "\">\n <BNMODEL NAME=\"" + name +
           "\">\n  <STATICPROPERTIES>\n   <FORMAT VALUE=\"MSR DTAS XML\"/>\n   <VERSION VALUE=\"0.2\"/>\n"
           "   <CREATOR VALUE=\"Talora\"/>\n  </STATICPROPERTIES>\n  <VARIABLES>\n";
    for (const ForeignNode& node : net.nodes) AppendVariable(out, node);
    out += "  </VARIABLES>\n  <STRUCTURE>\n";
    for (const ForeignNode& node : net.nodes)
        for (const int parent : node.parents)
            out += "   <ARC PARENT=\"" + XmlText(net.nodes[size_t(parent)].name) + "\" CHILD=\"" +
                   XmlText(node.name) + "\"/>\n";
    out += "  </STRUCTURE>\n  <DISTRIBUTIONS>\n";
    for (const ForeignNode& node : net.nodes) AppendTable(out, net, node);
    out += "  </DISTRIBUTIONS>\n </BNMODEL>\n</ANALYSISNOTEBOOK>\n";
}

}  // namespace talora
