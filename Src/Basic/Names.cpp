// The rule for names: what is wrong with one, one made legal, lists of them.
#include "Basic/Names.h"

#include <algorithm>

#include "Basic/Text.h"

namespace talora {

namespace {

// The fault of the first character that may not stand in a name; "" if all may.
std::string BadCharacter(const std::string& name)
{
    for (const char c : name) {
        if (IsNameChar(c)) continue;
        const std::string start = "'" + name.substr(0, CutLength(name, kMaxNameLength)) + "' contains ";
        if (c == ' ') return start + "a space";
        if (c == '\t') return start + "a tab";
        if (c == '\r') return start + "a 'return' character";
        if (c == '\n') return start + "a 'new-line' character";
        if (c > ' ' && c < 127) return start + Format("the illegal character '%c'", c);
        return start +
               Format("an illegal character (ascii code %u)", unsigned(static_cast<unsigned char>(c)));
    }
    return "";
}

// The ordinal and code of the first character of a wide name beyond ASCII; "" if there is none.
std::string NonAsciiCharacter(const char* wide)
{
    const size_t length = WideLength(wide);
    for (size_t i = 0; i < length; ++i) {
        const unsigned unit =
            static_cast<unsigned char>(wide[2 + 2 * i]) | static_cast<unsigned char>(wide[3 + 2 * i]) << 8;
        if (unit >= 128)
            return Format("contains a non-ascii character (%s char is U+%04X)",
                          Ordinal(int64_t(i) + 1).c_str(), unit);
    }
    return "";
}

}  // namespace

// For wide names length and characters are judged in 16-bit units, as the caller counts them.
uint32_t CheckName(const char* name, bool allow_star, std::string* reason)
{
    if (name == nullptr) {
        if (reason) *reason = "is missing";
        return NAME_MISSING;
    }
    const std::string fault = IsWide(name) ? NonAsciiCharacter(name) : "";
    std::string problem;
    uint32_t problems = CheckNarrowName(NarrowText(name), allow_star, &problem);
    if (TextLength(name) <= size_t{kMaxNameLength}) problems &= ~NAME_TOO_LONG;
    if (problems != 0 && reason) *reason = problem;
    if (fault.empty()) return problems;
    if (reason) *reason = fault;
    return problems | NAME_BAD_CHAR;
}

bool IsLegalName(std::string_view name)
{
    return !name.empty() && name.size() <= size_t{kMaxNameLength} && !IsDigit(name[0]) &&
           std::all_of(name.begin(), name.end(), IsNameChar);
}

// All problems are collected as bits; the reason is the first one's.
uint32_t CheckNarrowName(std::string_view name, bool allow_star, std::string* reason)
{
    uint32_t problems = 0;
    const auto found = [&](uint32_t problem, const std::string& text) {
        if (problems == 0 && reason) *reason = text;
        problems |= problem;
    };
    const std::string text(name);
    if (text.empty()) {
        found(NAME_EMPTY, "is empty (contains no characters)");
        return problems;
    }
    if (text == "*") {
        if (!allow_star) found(NAME_IS_STAR, Format("'%.30s' contains the illegal character '%c'", "*", '*'));
        return problems;
    }
    if (text.size() > size_t{kMaxNameLength})
        found(NAME_TOO_LONG, Format("'%.31s...' is too long (%zu characters, maximum is %d)", text.c_str(),
                                    text.size(), kMaxNameLength));
    const std::string fault = BadCharacter(text);
    if (!fault.empty()) found(NAME_BAD_CHAR, fault);
    if (!IsLetter(text[0]) && text[0] != '_')
        found(NAME_BAD_FIRST,
              Format("'%.30s' starts with non-alphabetic character '%c'", text.c_str(), text[0]));
    return problems;
}

std::string RepairName(std::string_view name)
{
    std::string repaired(name);
    for (char& c : repaired)
        if (!IsNameChar(c)) c = '_';
    if (repaired.size() > kMaxNameLength) repaired.resize(kMaxNameLength);
    if (repaired.empty()) repaired.push_back('x');
    if (!IsLetter(repaired[0]) && repaired[0] != '_') repaired[0] = 'x';
    return repaired;
}

std::vector<std::string> SplitNames(std::string_view list)
{
    std::vector<std::string> names;
    if (Trimmed(list).empty()) return names;
    for (size_t at = 0; at <= list.size();) {
        const size_t comma = std::min(list.find(',', at), list.size());
        names.emplace_back(Trimmed(list.substr(at, comma - at)));
        at = comma + 1;
    }
    return names;
}

}  // namespace talora
