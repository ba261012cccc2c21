// The formats of other tools' net files: one row each, with what reads it, what writes it and what it can
// hold.  A new format is a file with two functions and a row in Formats.cpp.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Foreign/ForeignNet.h"
#include "Foreign/ForeignText.h"

namespace talora {

// What a format can hold beyond discrete nodes with names, states, links and tables.
enum Holds : uint32_t {
    HOLDS_TABLES = 1u << 0,
    HOLDS_DECISIONS = 1u << 1,  // and utilities
    HOLDS_EXPERIENCE = 1u << 2,
    HOLDS_LEVELS = 1u << 3,
    HOLDS_TITLES = 1u << 4,
    HOLDS_STATE_TITLES = 1u << 5,
    HOLDS_COMMENTS = 1u << 6,
    HOLDS_POSITIONS = 1u << 7,
    HOLDS_GROUPS = 1u << 8,
    HOLDS_COSTS = 1u << 9,
    HOLDS_FIELDS = 1u << 10,
    HOLDS_DETERMINISTIC = 1u << 11,
    HOLDS_NOISY_MAX = 1u << 12,
    HOLDS_EQUATIONS = 1u << 13,
    HOLDS_DELAYS = 1u << 14,
    HOLDS_FINDINGS = 1u << 15,
    HOLDS_NET_TEXTS = 1u << 16,  // title and comment of the net
    HOLDS_NET_FIELDS = 1u << 17,
    HOLDS_STATE_COMMENTS = 1u << 18
};

// Which texts may be names in a format.
enum class NameRule : uint8_t {
    ANY_TEXT,
    NO_CONTROLS,  // no control characters and no surrounding blanks: XML
    NO_QUOTES,    // any line of text but for double quotes
    WORDS,        // letters, digits and _ . -
    IDENTIFIERS,  // letters, digits and _, the first no digit
    FAST_NAMES,   // nothing that begins the description of states: [ { +
    FAST_LABELS,  // nothing that ends or parts labels: | { }
    NONE          // numbers only
};

struct FileFormat {
    const char* name;        // for people and for choosing it
    const char* extensions;  // without dots, a blank between them; the first is the usual one
    const char* about;
    // Fills the net or fails with a place.  Null for a format that is only written.
    void (*read)(const ForeignSource& source, ForeignNet& net);
    // Appends the text of a net that holds nothing the format cannot hold.  May add losses.
    void (*write)(ForeignNet& net, std::string& out);
    uint32_t holds;
    NameRule node_names, state_names;
};

const std::vector<FileFormat>& Formats();
const FileFormat* FindFormat(std::string_view name);  // whatever its case; null if there is none
// By the extension of a file name, ".gz" behind it or not.
const FileFormat* FormatByName(std::string_view file_name);
// By the contents; the file's name decides only between formats that begin alike.
const FileFormat* FormatByContents(std::string_view text, std::string_view file_name);

// ---- The formats ----
void ReadBif(const ForeignSource& source, ForeignNet& net);
void WriteBif(ForeignNet& net, std::string& out);
void ReadXmlBif(const ForeignSource& source, ForeignNet& net);
void WriteXmlBif(ForeignNet& net, std::string& out);
void ReadNetFile(const ForeignSource& source, ForeignNet& net);
void WriteNetFile(ForeignNet& net, std::string& out);
void ReadXdsl(const ForeignSource& source, ForeignNet& net);
void WriteXdsl(ForeignNet& net, std::string& out);
void ReadDsl(const ForeignSource& source, ForeignNet& net);
void WriteDsl(ForeignNet& net, std::string& out);
void ReadDsc(const ForeignSource& source, ForeignNet& net);
void WriteDsc(ForeignNet& net, std::string& out);
void ReadUai(const ForeignSource& source, ForeignNet& net);
void WriteUai(ForeignNet& net, std::string& out);
void ReadXbn(const ForeignSource& source, ForeignNet& net);
void WriteXbn(ForeignNet& net, std::string& out);
void ReadPgmx(const ForeignSource& source, ForeignNet& net);
void WritePgmx(ForeignNet& net, std::string& out);
void ReadJgum(const ForeignSource& source, ForeignNet& net);
void WriteJgum(ForeignNet& net, std::string& out);
void WriteDot(ForeignNet& net, std::string& out);
void WriteGraphMl(ForeignNet& net, std::string& out);
void WriteCsv(ForeignNet& net, std::string& out);

// ---- What several of them share ----

// A point in text, "(73, 165)" or "73 165"; false if it is none.
bool TakePosition(ForeignNode& node, std::string_view text);
// A property "key = value" where titles, comments and positions are given by convention.
void TakeProperty(ForeignNode& node, ForeignField field);
// Name, states and levels of a node in the short notation of JGUM, "a[1,3]" or "b{x|y}"; false if it is none.
bool TakeFast(ForeignNode& node, std::string_view fast);
std::string FastText(const ForeignNode& node);
// The nodes by number, each behind its parents.
std::vector<size_t> ParentsFirst(const ForeignNet& net);
// Turns the drawing upside down within its own height.
void MirrorPositions(ForeignNet& net);

}  // namespace talora
