#include "Basic/Names.h"

#include <gtest/gtest.h>

#include "Basic/Text.h"

using namespace talora;

namespace {

const std::string kLong31(31, 'n');

struct NameRow {
    std::string name;
    uint32_t problems;
    std::string reason;
    std::string repaired;
};

const NameRow kRows[] = {
    {"a", 0, "", "a"},
    {"_Node_2", 0, "", "_Node_2"},
    {std::string(30, 'n'), 0, "", std::string(30, 'n')},
    {"", NAME_EMPTY, "is empty (contains no characters)", "x"},
    {kLong31, NAME_TOO_LONG, "'" + kLong31 + "...' is too long (31 characters, maximum is 30)",
     std::string(30, 'n')},
    {"a b", NAME_BAD_CHAR, "'a b' contains a space", "a_b"},
    {"a\tb", NAME_BAD_CHAR, "'a\tb' contains a tab", "a_b"},
    {"a\rb", NAME_BAD_CHAR, "'a\rb' contains a 'return' character", "a_b"},
    {"a\nb", NAME_BAD_CHAR, "'a\nb' contains a 'new-line' character", "a_b"},
    {"a-b", NAME_BAD_CHAR, "'a-b' contains the illegal character '-'", "a_b"},
    {"a\x01", NAME_BAD_CHAR, "'a\x01' contains an illegal character (ascii code 1)", "a_"},
    {"2a", NAME_BAD_FIRST, "'2a' starts with non-alphabetic character '2'", "xa"},
    {"\xC3\xA9", NAME_BAD_CHAR | NAME_BAD_FIRST, "'\xC3\xA9' contains an illegal character (ascii code 195)",
     "__"},
    {"*a", NAME_BAD_CHAR | NAME_BAD_FIRST, "'*a' contains the illegal character '*'", "_a"},
};

TEST(NamesTest, RulesReasonsAndRepairs)
{
    for (const NameRow& row : kRows) {
        SCOPED_TRACE(row.name);
        std::string reason;
        EXPECT_EQ(CheckName(row.name.c_str(), true, &reason), row.problems);
        EXPECT_EQ(reason, row.reason);
        EXPECT_EQ(RepairName(row.name), row.repaired);
        EXPECT_EQ(CheckName(RepairName(row.name).c_str(), false, nullptr), 0u);
    }
    EXPECT_EQ(CheckName(nullptr, true, nullptr), uint32_t(NAME_MISSING));
}

TEST(NamesTest, TheStarIsLegalWhereItIsAllowed)
{
    EXPECT_EQ(CheckName("*", true, nullptr), 0u);
    EXPECT_EQ(CheckName("*", false, nullptr), uint32_t(NAME_IS_STAR));
}

TEST(NamesTest, WideNames)
{
    std::string reason;
    EXPECT_EQ(CheckName(WideText("Node_1").c_str(), true, nullptr), 0u);
    EXPECT_EQ(CheckName(WideText(std::string(30, 'w')).c_str(), true, nullptr), 0u);
    EXPECT_EQ(CheckName(WideText(std::string(31, 'w')).c_str(), true, nullptr), uint32_t(NAME_TOO_LONG));
    EXPECT_NE(CheckName(WideText("ab\xC3\xA9").c_str(), true, &reason), 0u);
    EXPECT_EQ(reason, "contains a non-ascii character (3rd char is U+00E9)");
}

TEST(NamesTest, SplitsLists)
{
    using Names = std::vector<std::string>;
    const std::pair<const char*, Names> rows[] = {{"", {}},          {"  ", {}},
                                                  {"a", {"a"}},      {" a , b\t,c\n", {"a", "b", "c"}},
                                                  {"a,", {"a", ""}}, {",", {"", ""}}};
    for (const auto& [list, names] : rows) EXPECT_EQ(SplitNames(list), names) << list;
}

}  // namespace
