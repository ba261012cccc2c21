// Text: narrow (bytes, UTF-8) or wide (16-bit units behind the bytes 0xFF 0xFE).
//
// Inside the library all text is narrow; wide text is converted where it comes in.
#pragma once

#include <string>
#include <string_view>

namespace talora {

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

// "1st", "2nd", "3rd", "4th", ... (counted from 1), for messages.
std::string Ordinal(int64_t number);

// Numbers without the C locale.  "%.15g" form; the shortest form that reads back the same float.
std::string FormatReal15(double value);
std::string FormatShortest(float value);
std::string FormatShortest(double value);

}  // namespace talora
