// Conversion between narrow and wide text, formatting, and numbers as text, all without the program's
// locale.
#include "Basic/Text.h"

#include <locale.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "Basic/Digits.h"

namespace talora {

namespace {

constexpr char kWideMark[] = "\xFF\xFE";

// Byte by byte, as wide text of callers may stand at an odd address.
uint16_t UnitAt(const char* wide, size_t index)
{
    const auto byte = [wide](size_t at) { return static_cast<unsigned char>(wide[at]); };
    return uint16_t(byte(2 + 2 * index) | byte(3 + 2 * index) << 8);
}

void AppendUtf8(std::string& text, uint32_t code)
{
    if (code < 0x80) {
        text += char(code);
    } else if (code < 0x800) {
        text += char(0xC0 | code >> 6);
        text += char(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        text += char(0xE0 | code >> 12);
        text += char(0x80 | (code >> 6 & 0x3F));
        text += char(0x80 | (code & 0x3F));
    } else {
        text += char(0xF0 | code >> 18);
        text += char(0x80 | (code >> 12 & 0x3F));
        text += char(0x80 | (code >> 6 & 0x3F));
        text += char(0x80 | (code & 0x3F));
    }
}

bool IsContinuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// Decodes one character at `at` and moves past it; a damaged one gives U+FFFD and one byte.
uint32_t NextCode(std::string_view text, size_t& at)
{
    const unsigned char lead = text[at++];
    const int more = lead < 0x80 ? 0 : lead >> 5 == 6 ? 1 : lead >> 4 == 14 ? 2 : lead >> 3 == 30 ? 3 : -1;
    if (more < 0 || at + more > text.size()) return 0xFFFD;
    uint32_t code = more == 0 ? lead : lead & (0x3F >> more);
    for (int i = 0; i < more; ++i) {
        if (!IsContinuation(text[at + i])) return 0xFFFD;
        code = code << 6 | (text[at + i] & 0x3F);
    }
    at += more;
    static constexpr uint32_t kLeast[] = {0, 0x80, 0x800, 0x10000};  // shorter forms are not allowed
    const bool is_surrogate = code >= 0xD800 && code < 0xE000;
    return code > 0x10FFFF || code < kLeast[more] || is_surrogate ? 0xFFFD : code;
}

// Sets the "C" locale for the calling thread while it lives.
class CLocale {
public:
    CLocale() : callers_(Shared() ? uselocale(Shared()) : locale_t(0)) {}
    ~CLocale()
    {
        if (callers_) uselocale(callers_);
    }
    CLocale(const CLocale&) = delete;
    CLocale& operator=(const CLocale&) = delete;

private:
    static locale_t Shared()
    {
        static const locale_t locale = newlocale(LC_ALL_MASK, "C", locale_t(0));
        return locale;
    }
    locale_t callers_;
};

}  // namespace

bool EqualNoCase(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return Lower(x) == Lower(y); });
}

std::string LowerText(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
    return lower;
}

std::string_view Trimmed(std::string_view text)
{
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

bool IsWide(const char* text)
{
    return text != nullptr && strncmp(text, kWideMark, 2) == 0;
}

size_t WideLength(const char* text)
{
    size_t length = 0;
    while (UnitAt(text, length) != 0) ++length;
    return length;
}

std::string NarrowText(const char* text)
{
    if (text == nullptr) return "";
    if (!IsWide(text)) return text;
    const auto each_code = [&](auto&& take) {
        const size_t length = WideLength(text);
        for (size_t i = 0; i < length; ++i) {
            uint32_t code = UnitAt(text, i);
            if (code >= 0xD800 && code < 0xDC00 && i + 1 < length && (UnitAt(text, i + 1) & 0xFC00) == 0xDC00)
                code = 0x10000 + ((code & 0x3FF) << 10) + (UnitAt(text, ++i) & 0x3FF);
            else if (code >= 0xD800 && code < 0xE000)
                code = 0xFFFD;
            take(code);
        }
    };
    size_t bytes = 0;
    each_code([&](uint32_t code) { bytes += code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4; });
    std::string narrow;
    narrow.reserve(bytes);  // taken once: of a password nothing must be left behind by growing
    each_code([&](uint32_t code) { AppendUtf8(narrow, code); });
    return narrow;
}

std::string WideText(std::string_view narrow)
{
    std::string wide = kWideMark;
    const auto append = [&wide](uint32_t unit) {
        wide += char(unit & 0xFF);
        wide += char(unit >> 8);
    };
    for (size_t at = 0; at < narrow.size();) {
        const uint32_t code = NextCode(narrow, at);
        if (code < 0x10000) {
            append(code);
        } else {
            append(0xD800 + ((code - 0x10000) >> 10));
            append(0xDC00 + ((code - 0x10000) & 0x3FF));
        }
    }
    append(0);
    return wide;
}

size_t TextLength(const char* text)
{
    return text == nullptr ? 0 : IsWide(text) ? WideLength(text) : strlen(text);
}

int CompareText(const char* a, const char* b)
{
    if (!IsWide(a) && !IsWide(b)) return strcmp(a, b);
    return NarrowText(a).compare(NarrowText(b));
}

bool HasPrefix(const char* text, const char* prefix)
{
    if (!IsWide(text) && !IsWide(prefix)) return strncmp(text, prefix, strlen(prefix)) == 0;
    return NarrowText(text).starts_with(NarrowText(prefix));
}

size_t CutLength(std::string_view text, size_t max_bytes)
{
    if (text.size() <= max_bytes) return text.size();
    size_t length = max_bytes;
    while (length > 0 && IsContinuation(text[length])) --length;
    return length;
}

std::string Format(const char* format, ...)
{
    va_list values;
    va_start(values, format);
    std::string text = FormatV(format, values);
    va_end(values);
    return text;
}

// One pass for texts that fit the buffer on the stack, a second one for longer ones.
std::string FormatV(const char* format, va_list values)
{
    const CLocale locale;
    va_list again;
    va_copy(again, values);
    char start[256];  // enough for most
    const int length = vsnprintf(start, sizeof start, format, values);
    std::string text(start, length < 0 ? 0 : std::min(size_t(length), sizeof start - 1));
    if (length >= int(sizeof start)) {
        text.resize(size_t(length));
        vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

void FormatInto(char* buffer, size_t size, const char* format, va_list values)
{
    const CLocale locale;
    const int length = vsnprintf(buffer, size, format, values);
    if (length < 0) buffer[0] = '\0';
    if (length < int(size)) return;
    // The last character may have been cut: it stays if as many bytes of it are there as its first one says.
    size_t last = size - 1;
    while (last > 0 && IsContinuation(buffer[last - 1])) --last;
    if (last == 0) return;
    const unsigned char lead = static_cast<unsigned char>(buffer[--last]);
    const size_t bytes = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (last + bytes > size - 1) buffer[last] = '\0';
}

std::string Ordinal(int64_t number)
{
    const int last_two = int(number % 100), last = int(number % 10);
    const char* ending = last_two >= 11 && last_two <= 13 ? "th"
                         : last == 1                      ? "st"
                         : last == 2                      ? "nd"
                         : last == 3                      ? "rd"
                                                          : "th";
    return std::to_string(number) + ending;
}

std::string FormatReal15(double value)
{
    char buffer[40];
    return {buffer, PrintDigits(buffer, buffer + sizeof buffer, value, std::chars_format::general, 15)};
}

std::string FormatReal(double value)
{
    char buffer[40];
    for (int digits = 15;; ++digits) {
        char* const end =
            PrintDigits(buffer, buffer + sizeof buffer, value, std::chars_format::general, digits);
        // Numbers next to the greatest are rounded up out of range.  Bits are compared, as denormal numbers
        // may count as equal here.
        double back = 0;
        const auto [read_end, error] = std::from_chars(buffer, end, back);
        if (digits == 17 ||
            (error == std::errc() && std::bit_cast<uint64_t>(back) == std::bit_cast<uint64_t>(value)))
            return {buffer, end};
    }
}

std::string FormatShortest(float value)
{
    char buffer[40];
    return {buffer, PrintDigits(buffer, buffer + sizeof buffer, value)};
}

std::string FormatShortest(double value)
{
    char buffer[40];
    return {buffer, PrintDigits(buffer, buffer + sizeof buffer, value)};
}

}  // namespace talora
