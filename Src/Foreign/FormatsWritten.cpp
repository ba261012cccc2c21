// DOT, GraphML and CSV: formats for drawing and for spreadsheets, which are only written.
#include <algorithm>

#include "Foreign/ForeignXml.h"
#include "Foreign/Formats.h"

namespace talora {

namespace {

// In labels a backslash begins an escape, so each of the text is doubled.
std::string DotText(std::string_view text, bool is_label)
{
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || (c == '\\' && is_label)) out += '\\';
        if (c == '\n')
            out += "\\n";
        else if (c != '\r')
            out += c;
    }
    return out + "\"";
}

// Cells with separators, quotes or line breaks stand in quotes.
void AppendCell(std::string& out, std::string_view text)
{
    if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
        out += text;
        return;
    }
    out += '"';
    for (const char c : text) out.append(c == '"' ? 2 : 1, c);
    out += '"';
}

// Header: the parents, then the own states, or the name of a utility.  One row per configuration.
void AppendTable(std::string& out, const ForeignNet& net, const ForeignNode& node)
{
    for (const int parent : node.parents) {
        AppendCell(out, net.nodes[size_t(parent)].name);
        out += ',';
    }
    const bool is_utility = node.kind == ForeignKind::UTILITY;
    for (size_t i = 0; i < node.Width(); ++i) {
        if (i > 0) out += ',';
        AppendCell(out, is_utility ? node.name : node.states[i]);
    }
    out += '\n';
    std::vector<size_t> state(node.parents.size(), 0);
    for (size_t at = 0; at < node.table.size(); at += node.Width()) {
        for (size_t i = 0; i < state.size(); ++i) {
            AppendCell(out, net.nodes[size_t(node.parents[i])].states[state[i]]);
            out += ',';
        }
        for (size_t k = 0; k < node.Width(); ++k) {
            if (k > 0) out += ',';
            AppendEntry(out, node.table[at + k], node);
        }
        out += '\n';
        for (size_t i = state.size(); i-- > 0;) {
            if (++state[i] < net.nodes[size_t(node.parents[i])].states.size()) break;
            state[i] = 0;
        }
    }
}

}  // namespace

void WriteDot(ForeignNet& net, std::string& out)
{
    MirrorPositions(net);  // y grows upward here
    out += "digraph " + DotText(net.name, false) + " {\n";
    if (!net.title.empty()) out += "  label=" + DotText(net.title, true) + ";\n";
    for (const ForeignNode& node : net.nodes) {
        constexpr const char* kShapes[] = {"ellipse", "box", "diamond"};
        out += "  " + DotText(node.name, false) + " [shape=" + kShapes[static_cast<int>(node.kind)];
        if (node.is_deterministic) out += ", peripheries=2";
        if (!node.title.empty()) out += ", label=" + DotText(node.title, true);
        if (node.HasPosition()) out += ", pos=\"" + NumberText(node.x) + "," + NumberText(node.y) + "!\"";
        out += "];\n";
    }
    for (const ForeignNode& node : net.nodes)
        for (const int parent : node.parents) {
            out += "  " + DotText(net.nodes[size_t(parent)].name, false) + " -> " + DotText(node.name, false);
            out += node.kind == ForeignKind::DECISION ? " [style=dashed];\n" : ";\n";
        }
    out += "}\n";
}

void WriteGraphMl(ForeignNet& net, std::string& out)
{
    out +=
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<graphml xmlns=\"http://graphml.graphdrawing.org/xmlns\">\n";
    for (const char* key : {"title", "kind", "states", "comment"})
        out += std::string(" <key id=\"") + key + "\" for=\"node\" attr.name=\"" + key +
               "\" attr.type=\"string\"/>\n";
    for (const char* key : {"x", "y"})
        out += std::string(" <key id=\"") + key + "\" for=\"node\" attr.name=\"" + key +
               "\" attr.type=\"double\"/>\n";
    out += " <graph id=\"G\" edgedefault=\"directed\">\n";
    const auto append = [&](const char* key, const std::string& text) {
        if (!text.empty()) out += std::string("   <data key=\"") + key + "\">" + XmlText(text) + "</data>\n";
    };
    for (const ForeignNode& node : net.nodes) {
        constexpr const char* kKinds[] = {"chance", "decision", "utility"};
        out += "  <node id=\"" + XmlText(node.name) + "\">\n";
        append("title", node.title);
        append("kind", kKinds[static_cast<int>(node.kind)]);
        std::string states;
        for (const std::string& state : node.states) states += (states.empty() ? "" : "|") + state;
        append("states", states);
        append("comment", node.comment);
        if (node.HasPosition()) {
            append("x", NumberText(node.x));
            append("y", NumberText(node.y));
        }
        out += "  </node>\n";
    }
    for (const ForeignNode& node : net.nodes)
        for (const int parent : node.parents)
            out += "  <edge source=\"" + XmlText(net.nodes[size_t(parent)].name) + "\" target=\"" +
                   XmlText(node.name) + "\"/>\n";
    out += " </graph>\n</graphml>\n";
}

void WriteCsv(ForeignNet& net, std::string& out)
{
    for (const ForeignNode& node : net.nodes) {
        if (node.table.empty()) continue;
        if (!out.empty()) out += '\n';
        out += "# ";
        std::string name = node.name;
        std::replace_if(
            name.begin(), name.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
        out += name + '\n';
        AppendTable(out, net, node);
    }
}

}  // namespace talora
