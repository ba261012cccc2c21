// Text: narrow (bytes, UTF-8) or wide (16-bit units behind the bytes 0xFF 0xFE).
//
// Inside the library all text is narrow; wide text is converted where it comes in.
#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

#define TALORA_PRINTF(format_index, first_argument) \
    __attribute__((format(printf, format_index, first_argument)))

namespace talora {

// ASCII characters, whatever the locale.
inline bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}
inline bool IsLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
inline bool IsNameChar(char c)
{
    return IsLetter(c) || IsDigit(c) || c == '_';
}
inline char Lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
bool EqualNoCase(std::string_view a, std::string_view b);
std::string LowerText(std::string_view text);
std::string_view Trimmed(std::string_view text);  // without blanks, tabs and line ends around it

bool IsWide(const char* text);
size_t WideLength(const char* text);  // 16-bit units, without the mark and the ending zero
// Narrow form of either kind (null gives an empty string).  Unpaired surrogates become U+FFFD.
std::string NarrowText(const char* text);
// Wide form with the mark and an ending 16-bit zero.
std::string WideText(std::string_view narrow);

size_t TextLength(const char* text);            // characters of narrow text are bytes; wide: units
int CompareText(const char* a, const char* b);  // either kind against either kind
bool HasPrefix(const char* text, const char* prefix);

// Cuts a UTF-8 text to at most so many bytes, never inside a character.
size_t CutLength(std::string_view text, size_t max_bytes);

// printf under the "C" locale, whatever the program has set: numbers have a decimal point.
std::string Format(const char* format, ...) TALORA_PRINTF(1, 2);
std::string FormatV(const char* format, va_list values);
// The same into a buffer, cut on a character boundary where it does not fit; allocates nothing.
void FormatInto(char* buffer, size_t size, const char* format, va_list values);

// "1st", "2nd", "3rd", "4th", ... (counted from 1), for messages.
std::string Ordinal(int64_t number);

// Numbers without the C locale.  "%.15g" form; the same with as many digits more as reading it back needs;
// the shortest form that reads back.
std::string FormatReal15(double value);
std::string FormatReal(double value);
std::string FormatShortest(float value);
std::string FormatShortest(double value);

}  // namespace talora
