// XML for the formats that use it: a document with the places of its elements.
//
// Nothing outside of the text is ever fetched, and no entity but the five of XML itself is expanded.  Names
// of elements and attributes match whatever their case and prefix.
#pragma once

#include <pugixml.hpp>

#include <string>
#include <string_view>
#include <vector>

#include "Foreign/ForeignText.h"

namespace talora {

class Xml {
public:
    explicit Xml(const ForeignSource& source);  // fails if it is not well-formed
    pugi::xml_node Root() const { return document_.document_element(); }
    FilePlace PlaceOf(pugi::xml_node node) const { return source_.PlaceAt(AtOf(node)); }
    static size_t AtOf(pugi::xml_node node);

    static bool Is(pugi::xml_node node, const char* name);
    static pugi::xml_node Child(pugi::xml_node node, const char* name);  // null if there is none
    pugi::xml_node NeedChild(pugi::xml_node node, const char* name) const;
    template <class Visit>
    static void ForEach(pugi::xml_node node, const char* name, Visit&& visit)
    {
        for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling())
            if (child.type() == pugi::node_element && Is(child, name)) visit(child);
    }

    static std::string Text(pugi::xml_node node);  // of the element itself, trimmed; "" for null
    static std::string Attribute(pugi::xml_node node, const char* name);  // trimmed, "" if there is none
    static bool HasAttribute(pugi::xml_node node, const char* name);
    std::string NeedAttribute(pugi::xml_node node, const char* name) const;
    // All numbers in the text of an element; fails at anything else.
    template <class Vector>
    void Numbers(pugi::xml_node node, Vector& numbers) const
    {
        for (pugi::xml_node piece = node.first_child(); piece; piece = piece.next_sibling())
            if (piece.type() == pugi::node_pcdata || piece.type() == pugi::node_cdata) {
                const char* at = piece.value();
                double value = 0;
                while (NextNumber(piece, at, value)) numbers.push_back(value);
            }
    }
    // Where the text of an element begins.
    static size_t TextAt(pugi::xml_node node);
    // Words between blanks.
    static std::vector<std::string> Words(std::string_view text);

private:
    bool NextNumber(pugi::xml_node piece, const char*& at, double& value) const;

    const ForeignSource& source_;
    pugi::xml_document document_;
};

// The name of the root element in lower case without its prefix, and its attributes as they stand; "" if the
// text is no XML.
std::string XmlRoot(std::string_view text, std::string* attributes);
// Where a number of a table stands in the text of an element.
size_t FindXmlEntry(std::string_view text, size_t table_at, size_t entry);

// Text with markup escaped, and control characters that XML cannot hold left out.
void AppendXml(std::string& out, std::string_view text);
// The same for attributes too, where line breaks and tabs would become blanks.
std::string XmlText(std::string_view text);

}  // namespace talora
