// Text for the terminal: escapes for what is unsafe, widths, bars, numbers, columns.
#include "talora/Text.h"

#include <Talora.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>

namespace command {

namespace {

struct Character {
    uint32_t code = 0;
    int length = 0;  // bytes; 0 when the bytes are not UTF-8
};

// Decodes the character at the start of text (RFC 3629: no overlong forms, no surrogates).
Character Decode(std::string_view text)
{
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t first = byte(0);
    if (first < 0x80) return {first, 1};
    const int length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < static_cast<size_t>(length)) return {};
    uint32_t code = first & (0xFFu >> (length + 1));
    for (int i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return {};
        code = code << 6 | (byte(i) & 0x3Fu);
    }
    constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < kLeast[length] || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return {};
    return {code, length};
}

// Control characters, the marks that turn the direction of the text around, and what is no character.
bool IsUnsafe(uint32_t code)
{
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || (code >= 0x200E && code <= 0x200F) ||
           (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069) ||
           (code & 0xFFFE) == 0xFFFE;
}

bool LocaleHasUtf8()
{
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the command changes the environment
        const char* value = getenv(name);
        if (!value || !*value) continue;
        return strstr(value, "UTF-8") || strstr(value, "utf8") || strstr(value, "utf-8");
    }
    return false;
}

std::string Format(const char* format, double value)
{
    char text[64];
    snprintf(text, sizeof text, format, value);
    return text;
}

}  // namespace

// Characters that are safe stay; of all others each byte is written as an escape.
std::string Printable(std::string_view text)
{
    std::string out;
    for (size_t at = 0; at < text.size();) {
        const Character c = Decode(text.substr(at));
        const size_t length = std::max(c.length, 1);
        if (c.length > 0 && !IsUnsafe(c.code)) {
            out += text.substr(at, length);
        } else {
            for (size_t i = at; i < at + length; ++i) {
                char escape[8];
                snprintf(escape, sizeof escape, "\\x%02X", static_cast<uint8_t>(text[i]));
                out += escape;
            }
        }
        at += length;
    }
    return out;
}

std::string PrintableLines(std::string_view text)
{
    std::string out;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        out += Printable(text.substr(at, end - at)) + "\n";
        at = end + 1;
    }
    return out;
}

int DisplayWidth(std::string_view text)
{
    return static_cast<int>(std::count_if(text.begin(), text.end(),
                                          [](char c) { return (static_cast<uint8_t>(c) & 0xC0) != 0x80; }));
}

std::string PadRight(std::string text, int width)
{
    text.append(std::max(0, width - DisplayWidth(text)), ' ');
    return text;
}

std::string PadLeft(std::string text, int width)
{
    text.insert(0, std::max(0, width - DisplayWidth(text)), ' ');
    return text;
}

// In eighths of a character where the terminal has blocks.
std::string Bar(double fraction, int width)
{
    static const bool has_blocks = LocaleHasUtf8();
    static constexpr const char* kEighths[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    if (!(fraction > 0)) return "";
    const double length = std::min(fraction, 1.0) * width;
    std::string bar;
    if (!has_blocks) return std::string(static_cast<size_t>(std::lround(length)), '#');
    const int eighths = std::max(1, static_cast<int>(std::lround(length * 8)));
    for (int i = 0; i < eighths / 8; ++i) bar += "█";
    return bar + kEighths[eighths % 8];
}

int TerminalColumns()
{
    winsize size = {};
    if (isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return 80;
}

std::string Number(double value)
{
    return value == GetUndefDbl_vx() ? "undefined" : Format("%.6g", value);
}

std::string ShortestNumber(float value)
{
    char text[64];
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

std::string SystemReason()
{
    return std::generic_category().message(errno);
}

// 1. The width of each column. 2. Rows padded to it, without blanks at their end.
std::string Columns::Text(size_t right_from) const
{
    std::vector<int> widths;
    for (const auto& row : rows_) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], DisplayWidth(row[i]));
    }
    std::string out;
    for (const auto& row : rows_) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            if (i > 0) line += "  ";
            line += i >= right_from ? PadLeft(row[i], widths[i]) : PadRight(row[i], widths[i]);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out += line + "\n";
    }
    return out;
}

}  // namespace command
