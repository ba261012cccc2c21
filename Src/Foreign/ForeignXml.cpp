// Reading XML through pugixml, with places, and writing its text.
#include "Foreign/ForeignXml.h"

#include <strings.h>

#include <cstring>

namespace talora {

namespace {

const char* LocalName(const char* name)
{
    const char* const colon = std::strrchr(name, ':');
    return colon ? colon + 1 : name;
}

bool StartsAt(std::string_view text, size_t at, std::string_view what)
{
    return text.substr(std::min(at, text.size())).starts_with(what);
}

// Declarations before the root: nothing in them is read, and those of entities are refused.
void CheckDoctype(const ForeignSource& source)
{
    const size_t doctype = source.text.find("<!DOCTYPE");
    if (doctype == std::string_view::npos) return;
    const size_t entity = source.text.find("<!ENTITY", doctype);
    if (entity != std::string_view::npos) FailAt<7035>(source.PlaceAt(entity));
}

}  // namespace

Xml::Xml(const ForeignSource& source) : source_(source)
{
    CheckDoctype(source);
    const pugi::xml_parse_result result = document_.load_buffer(source.text.data(), source.text.size(),
                                                                pugi::parse_default, pugi::encoding_utf8);
    if (result.status == pugi::status_out_of_memory) throw std::bad_alloc();
    const bool is_empty = result && !document_.document_element();
    if (result && !is_empty) return;
    size_t at = is_empty ? 0 : static_cast<size_t>(result.offset);
    // The parser stands behind what it could not read; the place is where that began.
    while (at > 0 && at < source.text.size() && source.text[at] != '<' &&
           result.status != pugi::status_end_element_mismatch)
        --at;
    const size_t line_start = source.text.find_last_of("\r\n", at > 0 ? at - 1 : 0);
    const size_t column = at - (line_start == std::string_view::npos ? 0 : line_start + 1) + 1;
    FailAt<7025>(source.PlaceAt(at), is_empty ? "No root element" : result.description(), int(column));
}

size_t Xml::AtOf(pugi::xml_node node)
{
    return node ? static_cast<size_t>(node.offset_debug()) : 0;
}

bool Xml::Is(pugi::xml_node node, const char* name)
{
    return strcasecmp(LocalName(node.name()), name) == 0;
}

pugi::xml_node Xml::Child(pugi::xml_node node, const char* name)
{
    for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling())
        if (child.type() == pugi::node_element && Is(child, name)) return child;
    return {};
}

pugi::xml_node Xml::NeedChild(pugi::xml_node node, const char* name) const
{
    const pugi::xml_node child = Child(node, name);
    if (!child) FailAt<7026>(PlaceOf(node), Shown(node.name()).c_str(), name);
    return child;
}

std::string Xml::Text(pugi::xml_node node)
{
    std::string text;
    for (pugi::xml_node piece = node.first_child(); piece; piece = piece.next_sibling())
        if (piece.type() == pugi::node_pcdata || piece.type() == pugi::node_cdata) text += piece.value();
    return std::string(Trimmed(text));
}

std::string Xml::Attribute(pugi::xml_node node, const char* name)
{
    for (const pugi::xml_attribute attribute : node.attributes())
        if (strcasecmp(LocalName(attribute.name()), name) == 0)
            return std::string(Trimmed(attribute.value()));
    return "";
}

bool Xml::HasAttribute(pugi::xml_node node, const char* name)
{
    for (const pugi::xml_attribute attribute : node.attributes())
        if (strcasecmp(LocalName(attribute.name()), name) == 0) return true;
    return false;
}

std::string Xml::NeedAttribute(pugi::xml_node node, const char* name) const
{
    if (!HasAttribute(node, name)) FailAt<7026>(PlaceOf(node), Shown(node.name()).c_str(), name);
    return Attribute(node, name);
}

size_t Xml::TextAt(pugi::xml_node node)
{
    const pugi::xml_node piece = node.first_child();
    return piece ? AtOf(piece) : AtOf(node);
}

bool Xml::NextNumber(pugi::xml_node piece, const char*& at, double& value) const
{
    const auto is_blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == ','; };
    for (;;) {
        while (is_blank(*at)) ++at;
        if (at[0] != '/' || at[1] != '/') break;
        while (*at != 0 && *at != '\n') ++at;  // comments of one dialect
    }
    if (*at == 0) return false;
    const char* stop = at;
    while (*stop != 0 && !is_blank(*stop)) ++stop;
    const char* const start = at;
    if (TryScanNumber(at, stop, value) && at == stop && std::isfinite(value)) return true;
    const size_t offset = AtOf(piece) + static_cast<size_t>(start - piece.value());
    const std::string word(start, stop);
    FailAt<7006>(source_.PlaceAt(offset), ("'" + Shown(word) + "'").c_str());
}

std::vector<std::string> Xml::Words(std::string_view text)
{
    std::vector<std::string> words;
    for (size_t at = 0; (at = text.find_first_not_of(" \t\r\n", at)) != std::string_view::npos;) {
        const size_t end = std::min(text.find_first_of(" \t\r\n", at), text.size());
        words.emplace_back(text.substr(at, end - at));
        at = end;
    }
    return words;
}

std::string XmlRoot(std::string_view text, std::string* attributes)
{
    size_t at = 0;
    for (;;) {
        at = text.find_first_not_of(" \t\r\n", at);
        if (at == std::string_view::npos || text[at] != '<') return "";
        size_t end;
        if (StartsAt(text, at, "<?")) {
            end = text.find("?>", at);
        } else if (StartsAt(text, at, "<!--")) {
            end = text.find("-->", at);
        } else if (StartsAt(text, at, "<!")) {
            end = text.find_first_of("[>", at);
            if (end != std::string_view::npos && text[end] == '[') end = text.find("]", end);
            if (end != std::string_view::npos && text[end] == ']') end = text.find(">", end);
        } else {
            break;
        }
        if (end == std::string_view::npos) return "";
        at = text.find('>', end) + 1;
    }
    const size_t end = std::min(text.find('>', at), text.size());
    std::string_view tag = text.substr(at + 1, end - at - 1);
    const size_t name_end = std::min(tag.find_first_of(" \t\r\n/"), tag.size());
    if (attributes) *attributes = tag.substr(name_end);
    std::string_view name = tag.substr(0, name_end);
    name.remove_prefix(name.find(':') + 1);
    return LowerText(name);
}

size_t FindXmlEntry(std::string_view text, size_t table_at, size_t entry)
{
    for (size_t at = table_at; at < text.size();) {
        const char c = text[at];
        if (StartsAt(text, at, "<!--")) {
            at = std::min(text.find("-->", at), text.size() - 3) + 3;
        } else if (c == '<') {
            break;
        } else if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == ',') {
            ++at;
        } else {
            if (entry-- == 0) return at;
            at = std::min(text.find_first_of(" \t\r\n,<", at), text.size());
        }
    }
    return table_at;
}

void AppendXml(std::string& out, std::string_view text)
{
    for (const char c : text) switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\t':
            case '\n':
                out += c;
                break;
            default:
                if (static_cast<unsigned char>(c) >= 0x20) out += c;
        }
}

std::string XmlText(std::string_view text)
{
    std::string escaped, out;
    AppendXml(escaped, text);
    for (const char c : escaped) {
        if (c == '\n' || c == '\t')
            out += c == '\n' ? "&#10;" : "&#9;";
        else
            out += c;
    }
    return out;
}

}  // namespace talora
