// XMLBIF 0.3, and the variant 0.3a with counts of values and findings.
#include "Foreign/ForeignCheck.h"
#include "Foreign/ForeignXml.h"
#include "Foreign/Formats.h"

namespace talora {

namespace {

class XmlBifReader {
public:
    XmlBifReader(const ForeignSource& source, ForeignNet& net)
        : source_(source), net_(net), xml_(source), names_(source, net)
    {}

    void Read()
    {
        const std::string version = Xml::Attribute(xml_.Root(), "VERSION");
        net_.format = "XMLBIF " + (version.empty() ? "0.3" : version);
        // Other languages under the same name.
        if (version == "0" || Xml::Is(xml_.Root(), "XMLBIF"))
            FailAt<7023>(xml_.PlaceOf(xml_.Root()), "this dialect of XMLBIF");
        const pugi::xml_node network = xml_.NeedChild(xml_.Root(), "NETWORK");
        net_.name = Xml::Text(Xml::Child(network, "NAME"));
        Xml::ForEach(network, "PROPERTY", [&](pugi::xml_node p) { ReadNetProperty(Xml::Text(p)); });
        Xml::ForEach(network, "VARIABLE", [&](pugi::xml_node variable) { ReadVariable(variable); });
        Xml::ForEach(network, "DEFINITION", [&](pugi::xml_node definition) { ReadDefinition(definition); });
        Xml::ForEach(network, "PROBABILITY", [&](pugi::xml_node definition) { ReadDefinition(definition); });
        for (ForeignNode& node : net_.nodes)
            if (node.kind == ForeignKind::UTILITY) node.states.clear();
    }

private:
    // "key = value"; a text without the sign is a description.
    static ForeignField Split(const std::string& property)
    {
        const size_t split = property.find('=');
        if (split == std::string::npos) return {"description", property};
        return {std::string(Trimmed(std::string_view(property).substr(0, split))),
                std::string(Trimmed(std::string_view(property).substr(split + 1)))};
    }

    void ReadNetProperty(const std::string& text)
    {
        ForeignField field = Split(text);
        if (text.starts_with("software ") && text.find('=') == std::string::npos)
            field = {"software", text.substr(9)};
        if (field.first == "title")
            net_.title = field.second;
        else if (field.first == "comment" || (field.first == "description" && net_.comment.empty()))
            net_.comment = field.second;
        else
            net_.fields.push_back(std::move(field));
    }

    // Kind, states, finding and properties; a count of values stands for states without names.
    void ReadVariable(pugi::xml_node variable)
    {
        ForeignNode& node = names_.Add(Xml::Text(xml_.NeedChild(variable, "NAME")), Xml::AtOf(variable));
        const std::string type = LowerText(Xml::Attribute(variable, "TYPE"));
        if (type == "decision")
            node.kind = ForeignKind::DECISION;
        else if (type == "utility")
            node.kind = ForeignKind::UTILITY;
        else if (!type.empty() && type != "nature" && type != "discrete")
            FailAt<7023>(xml_.PlaceOf(variable), ("variables of type '" + Shown(type) + "'").c_str());
        Xml::ForEach(variable, "OUTCOME", [&](pugi::xml_node o) { node.states.push_back(Xml::Text(o)); });
        double count = 0;
        const std::string values = Xml::Text(Xml::Child(variable, "VALUES"));
        if (node.states.empty() && !values.empty() && ParseNumber(values, count))
            NumberStates(source_, net_, node, "", count, 0, node.at);
        double observed = 0;
        const std::string finding = Xml::Text(Xml::Child(variable, "OBSERVED"));
        if (!finding.empty()) {
            if (!ParseNumber(finding, observed) || !(observed >= 0) || observed >= double(node.states.size()))
                FailAt<7012>(xml_.PlaceOf(variable), Shown(node.name).c_str(), Shown(finding).c_str());
            node.finding = static_cast<int>(observed);
        }
        Xml::ForEach(variable, "PROPERTY",
                     [&](pugi::xml_node p) { ReadProperty(node, Split(Xml::Text(p))); });
    }

    // Titles, positions and domains are properties by convention.
    static void ReadProperty(ForeignNode& node, ForeignField field)
    {
        if (field.first == "fast") {
            // Only the numbers count: the states have the names of their outcomes.
            ForeignNode domain;
            if (TakeFast(domain, field.second) && domain.states.size() == node.states.size())
                node.levels = domain.levels;
        } else if (field.first == "description") {
            if (field.second != node.name) node.title = field.second;
        } else {
            TakeProperty(node, std::move(field));
        }
    }

    // The parents in the order of their elements, the first slowest; decisions have no table.
    void ReadDefinition(pugi::xml_node definition)
    {
        const pugi::xml_node child = xml_.NeedChild(definition, "FOR");
        ForeignNode& node = names_.Node(Xml::Text(child), Xml::AtOf(child));
        int num_for = 0;
        Xml::ForEach(definition, "FOR", [&](pugi::xml_node) { ++num_for; });
        if (num_for > 1) FailAt<7023>(xml_.PlaceOf(definition), "definitions of several variables");
        NeedNoTable(source_, node, Xml::AtOf(definition));
        node.table_at = Xml::AtOf(definition);
        Xml::ForEach(definition, "GIVEN", [&](pugi::xml_node given) {
            node.parents.push_back(names_.Find(Xml::Text(given), Xml::AtOf(given)));
        });
        const pugi::xml_node table = Xml::Child(definition, "TABLE");
        if (!table || node.kind == ForeignKind::DECISION) return;
        xml_.Numbers(table, node.table);
        if (!node.table.empty()) node.table_at = Xml::TextAt(table);
    }

    const ForeignSource& source_;
    ForeignNet& net_;
    const Xml xml_;
    NodeNames names_;
};

void AppendElement(std::string& out, std::string_view indent, const char* name, std::string_view text)
{
    out.append(indent).append("<").append(name).append(">");
    AppendXml(out, text);
    out.append("</").append(name).append(">\n");
}

void AppendVariable(std::string& out, const ForeignNode& node)
{
    constexpr const char* kTypes[] = {"nature", "decision", "utility"};
    out += std::string("<VARIABLE TYPE=\"") + kTypes[static_cast<int>(node.kind)] + "\">\n";
    AppendElement(out, "\t", "NAME", node.name);
    for (const std::string& state : node.states) AppendElement(out, "\t", "OUTCOME", state);
    if (node.kind == ForeignKind::UTILITY) AppendElement(out, "\t", "OUTCOME", "0");
    if (!node.title.empty()) AppendElement(out, "\t", "PROPERTY", "label = " + node.title);
    if (node.HasPosition())
        AppendElement(out, "\t", "PROPERTY",
                      "position = (" + NumberText(node.x) + ", " + NumberText(node.y) + ")");
    if (!node.levels.empty()) AppendElement(out, "\t", "PROPERTY", "fast = " + FastText(node));
    if (!node.comment.empty()) AppendElement(out, "\t", "PROPERTY", "comment = " + node.comment);
    for (const auto& [name, value] : node.fields) AppendElement(out, "\t", "PROPERTY", name + " = " + value);
    out += "</VARIABLE>\n";
}

void AppendDefinition(std::string& out, const ForeignNet& net, const ForeignNode& node)
{
    out += "<DEFINITION>\n";
    AppendElement(out, "\t", "FOR", node.name);
    for (const int parent : node.parents) AppendElement(out, "\t", "GIVEN", net.nodes[size_t(parent)].name);
    if (!node.table.empty()) {
        out += "\t<TABLE>\n";
        const size_t width = node.Width();
        for (size_t at = 0; at < node.table.size(); ++at) {
            out += at % width == 0 ? "\t\t" : " ";
            AppendEntry(out, node.table[at], node);
            if ((at + 1) % width == 0) out += '\n';
        }
        out += "\t</TABLE>\n";
    }
    out += "</DEFINITION>\n";
}

}  // namespace

void ReadXmlBif(const ForeignSource& source, ForeignNet& net)
{
    net.find_entry = FindXmlEntry;
    XmlBifReader(source, net).Read();
}

void WriteXmlBif(ForeignNet& net, std::string& out)
{
    out += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<BIF VERSION=\"0.3\">\n<NETWORK>\n";
    AppendElement(out, "", "NAME", net.name);
    if (!net.title.empty()) AppendElement(out, "", "PROPERTY", "title = " + net.title);
    if (!net.comment.empty()) AppendElement(out, "", "PROPERTY", "comment = " + net.comment);
    for (const auto& [name, value] : net.fields) AppendElement(out, "", "PROPERTY", name + " = " + value);
    for (const ForeignNode& node : net.nodes) AppendVariable(out, node);
    for (const ForeignNode& node : net.nodes) AppendDefinition(out, net, node);
    out += "</NETWORK>\n</BIF>\n";
}

}  // namespace talora
