#include "Basic/Text.h"

#include <gtest/gtest.h>

#include <clocale>

using namespace talora;

namespace {

const std::string kBad = "\xEF\xBF\xBD";  // U+FFFD

TEST(TextTest, NarrowAndWide)
{
    struct Row {
        const char* label;
        std::string wide;    // units behind the mark, little endian
        std::string narrow;  // what it reads
        bool both_ways;
    };
    const Row rows[] = {
        {"empty", "", "", true},
        {"ascii", {"A\0b\0", 4}, "Ab", true},
        {"two bytes", {"\xE9\0", 2}, "\xC3\xA9", true},
        {"three bytes", {"\xAC\x20", 2}, "\xE2\x82\xAC", true},
        {"pair", {"\x3D\xD8\x00\xDE", 4}, "\xF0\x9F\x98\x80", true},
        {"first half alone", {"\x3D\xD8", 2}, kBad, false},
        {"halves swapped", {"\x00\xDE\x3D\xD8", 4}, kBad + kBad, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        const std::string wide = "\xFF\xFE" + row.wide + std::string(2, '\0');
        EXPECT_TRUE(IsWide(wide.c_str()));
        EXPECT_EQ(NarrowText(wide.c_str()), row.narrow);
        EXPECT_EQ(TextLength(wide.c_str()), row.wide.size() / 2);
        EXPECT_EQ(CompareText(wide.c_str(), row.narrow.c_str()), 0);
        EXPECT_TRUE(HasPrefix(row.narrow.c_str(), wide.c_str()));
        if (!row.both_ways) continue;
        EXPECT_EQ(WideText(row.narrow), wide);
    }
    EXPECT_EQ(NarrowText(nullptr), "");
}

TEST(TextTest, DamagedBytesBecomeTheReplacementCharacter)
{
    const char* damaged[] = {"\xC3",         "\xE2\x82",        "\xFF", "\x80", "\xC0\xAF",
                             "\xED\xA0\x80", "\xF4\x90\x80\x80"};
    for (const char* text : damaged)
        EXPECT_EQ(NarrowText(WideText(text).c_str()).substr(0, 3), kBad) << testing::PrintToString(text);
}

TEST(TextTest, CutsBetweenCharacters)
{
    const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";  // characters end at 1, 3, 6, 10
    const size_t expected[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 10};
    for (size_t max = 0; max < std::size(expected); ++max)
        EXPECT_EQ(CutLength(text, max), expected[max]) << max;
}

TEST(TextTest, NumbersIgnoreTheLocale)
{
    const std::string before = setlocale(LC_ALL, nullptr);
    for (const char* comma : {"de_DE.UTF-8", "fr_FR.UTF-8"}) setlocale(LC_ALL, comma);
    EXPECT_EQ(FormatReal15(0.1 + 0.2), "0.3");
    EXPECT_EQ(FormatReal15(1e300), "1e+300");
    EXPECT_EQ(FormatShortest(0.1f), "0.1");
    EXPECT_EQ(FormatShortest(0.1), "0.1");
    setlocale(LC_ALL, before.c_str());
}

TEST(TextTest, Ordinals)
{
    const std::pair<int, const char*> rows[] = {{1, "1st"},     {2, "2nd"},    {3, "3rd"},   {4, "4th"},
                                                {11, "11th"},   {12, "12th"},  {13, "13th"}, {21, "21st"},
                                                {111, "111th"}, {122, "122nd"}};
    for (const auto& [number, text] : rows) EXPECT_EQ(Ordinal(number), text);
}

}  // namespace
