// The table of foreign formats, and how a file shows which of them it has.
#include "Foreign/Formats.h"

#include <algorithm>

#include "Basic/FileType.h"
#include "Foreign/ForeignXml.h"

namespace talora {

namespace {

constexpr uint32_t kDrawn = HOLDS_TABLES | HOLDS_TITLES | HOLDS_COMMENTS | HOLDS_POSITIONS | HOLDS_FIELDS |
                            HOLDS_NET_TEXTS | HOLDS_NET_FIELDS;

std::string ExtensionOf(std::string_view file_name)
{
    std::string name = LowerText(file_name);
    if (name.ends_with(".gz")) name.resize(name.size() - 3);
    const size_t dot = name.find_last_of("./\\");
    return dot == std::string::npos || name[dot] != '.' ? "" : name.substr(dot + 1);
}

bool HasExtension(const FileFormat& format, std::string_view extension)
{
    for (const std::string& known : Xml::Words(format.extensions))
        if (known == extension) return true;
    return false;
}

// ---- By contents ----

const char* FormatOfXml(std::string_view text)
{
    std::string attributes;
    const std::string root = XmlRoot(text, &attributes);
    constexpr struct {
        const char *root, *format;
    } kRoots[] = {{"smile", "XDSL"},     {"probmodelxml", "PGMX"}, {"analysisnotebook", "XBN"},
                  {"bif", "XMLBIF"},     {"xbif", "XMLBIF"},       {"xmlbif", "XMLBIF"},
                  {"graphml", "GRAPHML"}};
    for (const auto& row : kRoots)
        if (root == row.root) return row.format;
    return nullptr;
}

// The texts with words and braces; blanks, comments of all kinds and commentary before them are skipped.
const char* FormatOfText(std::string_view text)
{
    constexpr size_t kFar = 1 << 16;
    size_t at = 0;
    const auto skip_line = [&] { at = std::min(text.find_first_of("\r\n", at), text.size()); };
    const auto word = [&]() -> std::string_view {
        for (;;) {
            at = std::min(text.find_first_not_of(" \t\r\n\v\f", at), text.size());
            const std::string_view rest = text.substr(at);
            if (rest.starts_with("%") || rest.starts_with("//") || rest.starts_with("#"))
                skip_line();
            else if (rest.starts_with("/*"))
                at = std::min(text.find("*/", at), text.size() - 2) + 2;
            else
                break;
        }
        if (at < text.size() && text[at] == '"') {
            const size_t end = std::min(text.find('"', at + 1), text.size() - 1) + 1;
            const std::string_view quoted = text.substr(at, end - at);
            at = end;
            return quoted;
        }
        const size_t end = std::min(text.find_first_of(" \t\r\n{}()=;\"", at), text.size());
        const std::string_view found = text.substr(at, std::max<size_t>(end - at, 1));
        at += found.size();
        return found;
    };
    bool is_first = true;
    while (at < std::min(text.size(), kFar)) {
        const std::string_view first = word();
        const std::string lower = LowerText(first);
        if (is_first) {
            if (lower == "bayes" || lower == "markov") return "UAI";
            if (first == "{") return "JGUM";
            if (first == "net") return word() == "{" ? "NET" : "DSL";
            if (first == "class") return "NET";
            if (lower == "belief" || lower == "trouble" || lower == "decision")
                return word() == "network" ? "DSC" : nullptr;
        }
        if (first == "variable" || first == "probability") return "BIF";
        if (first == "node" && is_first) return "DSC";
        if (first == "network") {
            // What follows the block of the network decides: one has variables, the other nodes.
            word();
            std::string_view next = word();
            if (next == "{") {
                while (next != "}" && at < text.size()) next = word();
                next = word();
            }
            return next == "node" || next == "properties" ? "DSC" : "BIF";
        }
        if (is_first && (first == "digraph" || first == "graph" || first == "strict")) return "DOT";
        is_first = false;
        if (first.size() == 1 && first[0] < ' ') return nullptr;
    }
    return nullptr;
}

}  // namespace

const std::vector<FileFormat>& Formats()
{
    static const std::vector<FileFormat> kFormats = {
        {"BIF", "bif", "text interchange format with variable and probability blocks", ReadBif, WriteBif,
         kDrawn, NameRule::NO_QUOTES, NameRule::NO_QUOTES},
        {"XMLBIF", "xml xmlbif bifxml", "the same in XML, version 0.3", ReadXmlBif, WriteXmlBif,
         kDrawn | HOLDS_DECISIONS | HOLDS_LEVELS, NameRule::NO_CONTROLS, NameRule::NO_CONTROLS},
        {"NET", "net oobn", "text with net, node and potential blocks", ReadNetFile, WriteNetFile,
         kDrawn | HOLDS_DECISIONS | HOLDS_LEVELS | HOLDS_EXPERIENCE | HOLDS_STATE_COMMENTS,
         NameRule::IDENTIFIERS, NameRule::ANY_TEXT},
        {"XDSL", "xdsl", "XML with nodes of several kinds and their drawing", ReadXdsl, WriteXdsl,
         kDrawn | HOLDS_DECISIONS | HOLDS_DETERMINISTIC | HOLDS_NOISY_MAX | HOLDS_GROUPS | HOLDS_COSTS,
         NameRule::IDENTIFIERS, NameRule::IDENTIFIERS},
        {"DSL", "dsl", "text with nested blocks, one for each node", ReadDsl, WriteDsl,
         kDrawn | HOLDS_DECISIONS | HOLDS_DETERMINISTIC | HOLDS_COSTS, NameRule::IDENTIFIERS,
         NameRule::IDENTIFIERS},
        {"DSC", "dsc", "text with node and probability blocks and numbered rows", ReadDsc, WriteDsc,
         HOLDS_TABLES | HOLDS_TITLES | HOLDS_POSITIONS, NameRule::IDENTIFIERS, NameRule::NO_QUOTES},
        {"UAI", "uai", "numbers of variables, states and tables", ReadUai, WriteUai, HOLDS_TABLES,
         NameRule::NONE, NameRule::NONE},
        {"XBN", "xbn", "XML notebook of belief nets", ReadXbn, WriteXbn,
         HOLDS_TABLES | HOLDS_TITLES | HOLDS_POSITIONS, NameRule::NO_CONTROLS, NameRule::NO_CONTROLS},
        {"PGMX", "pgmx", "XML with variables, links and potentials", ReadPgmx, WritePgmx,
         kDrawn | HOLDS_DECISIONS | HOLDS_LEVELS | HOLDS_NOISY_MAX | HOLDS_FINDINGS, NameRule::NO_CONTROLS,
         NameRule::NO_CONTROLS},
        {"JGUM", "jgum gum", "JSON with nodes in a short notation", ReadJgum, WriteJgum,
         HOLDS_TABLES | HOLDS_DECISIONS | HOLDS_LEVELS | HOLDS_NET_TEXTS | HOLDS_NET_FIELDS,
         NameRule::FAST_NAMES, NameRule::FAST_LABELS},
        {"DOT", "dot gv", "a drawing of nodes and links", nullptr, WriteDot,
         HOLDS_DECISIONS | HOLDS_TITLES | HOLDS_POSITIONS | HOLDS_DETERMINISTIC | HOLDS_NET_TEXTS,
         NameRule::ANY_TEXT, NameRule::ANY_TEXT},
        {"GRAPHML", "graphml", "nodes and links in XML", nullptr, WriteGraphMl,
         HOLDS_DECISIONS | HOLDS_TITLES | HOLDS_POSITIONS | HOLDS_COMMENTS, NameRule::IDENTIFIERS,
         NameRule::NO_CONTROLS},
        {"CSV", "csv", "the tables of all nodes, for spreadsheets", nullptr, WriteCsv,
         HOLDS_TABLES | HOLDS_DECISIONS, NameRule::ANY_TEXT, NameRule::ANY_TEXT},
    };
    return kFormats;
}

const FileFormat* FindFormat(std::string_view name)
{
    const std::string wanted = LowerText(name);
    for (const FileFormat& format : Formats())
        if (LowerText(format.name) == wanted || HasExtension(format, wanted)) return &format;
    return nullptr;
}

const FileFormat* FormatByName(std::string_view file_name)
{
    const std::string extension = ExtensionOf(file_name);
    for (const FileFormat& format : Formats())
        if (HasExtension(format, extension)) return &format;
    return nullptr;
}

const FileFormat* FormatByContents(std::string_view text, std::string_view file_name)
{
    const size_t first = text.find_first_not_of(" \t\r\n\v\f");
    if (first == std::string_view::npos || text.starts_with(kFileMark)) return nullptr;
    const char* name = text[first] == '<' ? FormatOfXml(text) : FormatOfText(text);
    if (name != nullptr) return FindFormat(name);
    // XML that is broken before its root, or a text whose commentary is long: the name decides.
    const FileFormat* const by_name = FormatByName(file_name);
    const bool is_xml = text[first] == '<';
    if (by_name == nullptr || by_name->read == nullptr) return nullptr;
    const std::string_view kind = by_name->name;
    const bool wants_xml = kind == "XMLBIF" || kind == "XDSL" || kind == "XBN" || kind == "PGMX";
    return is_xml && wants_xml ? by_name : nullptr;
}

}  // namespace talora
