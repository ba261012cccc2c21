// Reading case files: what a text gives as cases and messages.
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "BN/Files/BnParse.h"
#include "Basic/Text.h"
#include "Support/TestNet.h"
#include "VarVal/CaseFindings.h"
#include "VarVal/Caseset.h"

namespace talora {
namespace {

class CaseFileTest : public ModelTest {
protected:
    // Cases as text, one per line: weight, id, then a state or value per node of the net.
    std::string Read(std::string_view text, std::vector<Node*> nodes, double degree = 1)
    {
        Caseset* cases = NewCaseset(*env_, "");
        CaseSource source;
        source.name = "t.cas";
        source.in_memory = true;
        source.contents = text;
        source.degree = degree;
        cases->sources.push_back(source);
        std::string out;
        try {
            CaseReader reader(*cases, nodes);
            CaseBlock block;
            while (reader.Next(block))
                for (int row = 0; row < block.num_cases; ++row) Print(block, row, out);
        } catch (const Unwind& failure) {
            out += "FAIL " + MessageOf(failure.record);
        }
        return out;
    }
    static std::string MessageOf(const report_vx* record) { return record->message; }
    static void Print(const CaseBlock& block, int row, std::string& out)
    {
        const auto at = static_cast<size_t>(row);
        out += FormatShortest(block.weights[at]);
        if (block.ids[at] >= 0) out += " id" + std::to_string(block.ids[at]);
        for (size_t i = 0; i < block.states.size(); ++i) {
            const bool has_value = !block.values[i].empty() && !IsUndef(block.values[i][at]);
            const int state = block.states[i][at];
            out += state >= 0 ? " " + std::to_string(state) : has_value ? "" : " *";
            if (has_value) out += " =" + FormatShortest(block.values[i][at]);
        }
        out += "\n";
    }
};

TEST_F(CaseFileTest, RowsOfTexts)
{
    Net& net = Make("A B:3");
    SetStateNames(*FindNode(net, "A"), {"no", "yes"});
    const struct {
        const char* label;
        std::string text;
        std::string cases;
    } kRows[] = {
        {"tabs", "A\tB\nyes\t2\nno\t*\n", "1 1 2\n1 0 *\n"},
        {"header comment, weights, ids", "// ~->[CASE-1]->~\n\nIDnum NumCases B A\n7 2.5 1 yes\n* 1 * no\n",
         "2.5 id7 1 1\n1 0 *\n"},
        {"commas, CR LF, quotes", "A , B\r\n \"yes\" , #1\r\n,2\r\nno,\r\n", "1 1 1\n1 * 2\n1 0 *\n"},
        {"runs of blanks", "A  B\n  yes   1 \nno\t0\n", "1 1 1\n1 0 0\n"},
        {"no case sensitivity", "A\nYES\nNo\n", "1 1 *\n1 0 *\n"},
        {"byte-order mark",
         "\xEF\xBB\xBF"
         "A\nyes",
         "1 1 *\n"},
        {"comments", "// c\n/* x\ny */\nA\tB\n// c\nyes\t1 // rest\n/* one\n two */ no\t2\n",
         "1 1 1\n1 0 2\n"},
        {"too few", "A\tB\nyes\t1\nno\n",
         "FAIL too few entries (1, but preceeding row had 2), in case 2 on line 3 (char 1) of file 't.cas'"},
        {"too many", "A\tB\nyes\t1\t0\n",
         "FAIL too many entries (the preceeding row only had 2, but this has more), in case 1 on line 2 (char "
         "5) of file 't.cas'"},
        {"two ids", "IDnum\tA\tIDnum\n", "FAIL multiple IDnum columns in case file 't.cas'"},
        {"comment within a line", "A\tB\nyes /* rest */\t1\n", "1 1 1\n"},
        {"a mark of no type", "// ~->[case-1]->~\nA\nyes\n", "1 1 *\n"},
        {"quotes and a comma at the end", "A,B\n\"yes\",1, \n", "1 1 1\n"},
        {"quotes, too many", "A,B\n\"yes\",1,0\n",
         "FAIL too many entries (the preceeding row only had 2, but this has more), in case 1 on line 2 (char "
         "7) of file 't.cas'"},
        {"negative weight", "A NumCases\nyes -1\n",
         "FAIL negative number '-1' for NumCases, in case 1 on line 2 (char 5) of file 't.cas'"},
        {"two weights", "A NumCases NumCases\nyes 1 1\n",
         "FAIL multiple NumCases columns in case file 't.cas'"},
        {"id that is no number", "IDnum\tA\n1.5\tyes\n",
         "FAIL illegal number '1.5' for IDnum, in case 1 on line 2 (char 1) of file 't.cas'"},
        {"nothing at all", "", "FAIL case file 't.cas' has no line of column names"},
        {"UTF-16",
         std::string("\xFF\xFE"
                     "A\0",
                     4),
         "FAIL case file 't.cas' is written in UTF-16; it should be plain ASCII or UTF-8"},
        {"a net file", "// ~->[DNET-1]->~\nbnet X {};",
         "FAIL not a case data file (it is a DNET file), in file 't.cas'"},
        {"comment of several lines behind a case", "A\nyes /* a\nb */\n",
         "FAIL multi-line comment found starting on a line which has case information, in case on line 2 (char 5) of file 't.cas'"},
        {"comment without end", "A\n/* a\n",
         "FAIL comment that begins on line 2 of case file 't.cas' does not end"},
        {"header of a database",
         "// ~->[CASE-1]->~\n\n// DB columns in order:  A\n//\n//\n//\n//\nA B\nyes\n",
         "FAIL too few entries (1, but preceeding row had 2), in case 1 on line 3 (char 1) of file 't.cas'"},
        {"NUL bytes", std::string("A\tB\nye\0s\t1\n", 11), "1 * 1\n"},
        {"blank lines, delimiter at the end", "A\tB\t\n\n \t\nyes\t\nno\t1\t\n", "1 1 *\n1 0 1\n"},
        {"comment signs within an entry", "A,B\n\"//\",1\nhttp://x,2\n", "1 * 1\n1 * 2\n"},
        {"bad weight", "NumCases A\nx yes\n",
         "FAIL illegal number 'x' for NumCases, in case 1 on line 2 (char 1) of file 't.cas'"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(Read(row.text, {FindNode(net, "A"), FindNode(net, "B")}), row.cases);
    }
}

// Warnings about a file as a whole come once, those of values once a form.
TEST_F(CaseFileTest, WarningsAreGivenOnce)
{
    Net& net = Make("A B");
    const struct {
        const char* label;
        std::string text;
        int number;
        const char* message;
    } kRows[] = {
        {"no version", "// ~->[CASE]->~\nA\n0\n", 2450,
         "case file doesn't indicate format version, in file 't.cas'"},
        {"too new", "// ~->[CASE-3]->~\nA\n0\n", 2082,
         "these cases were stored using a new version of file format (3). They may not read correctly, in file 't.cas'"},
        {"two columns", "A B A\n0 0 1\n", 6521,
         "more than 1 column for variable 'A' in case file 't.cas' (only first column will be used)"},
        {"no such nodes", "A X Y\n0 0 1\n", 6522,
         "case file 't.cas' referred to these nodes not in net 'Test':  X, Y"},
        {"unknown names", "A\nx\ny\nx\n", 6515,
         "unknown value 'x' for variable 'A', appears in case 1 on line 2 (char 1) of file 't.cas'"},
        {"unknown numbers", "A\n7\n8\n", 6513,
         "skipping value 7 for variable 'A' because it is not one of the possibilities, in case 1 on line 2 (char 1) of file 't.cas'"},
        {"number of no state", "A\n#7\n", 6511,
         "illegal value '#7' for variable 'A', in case 1 on line 2 (char 1) of file 't.cas'"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.label);
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        Read(row.text, net.nodes.nodes);
        const report_vx* record = GetError_vx(env_, WARNING_SEVERITY, 0, nullptr);
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(-ErrorNumber_vx(record), row.number);
        EXPECT_STREQ(ErrorMessage_vx(record), row.message);
        EXPECT_EQ(GetError_vx(env_, WARNING_SEVERITY, 0, record), nullptr);
    }
}

TEST_F(CaseFileTest, OfHundredsOfColumnsForANodeTheFirstCounts)
{
    Net& net = Make("A");
    std::string columns = "A", entries = "1";
    for (int i = 0; i < 300; ++i) columns += ",A", entries += ",0";
    EXPECT_EQ(Read(columns + "\n" + entries, net.nodes.nodes), "1 1\n");
    Stream* file = NewMemoryStream(*env_, "t.cas");
    SetContents(*file, columns + "\n" + entries);
    ReadFindings(*file, net, net.nodes.nodes, 0, AddMode::NEVER);
    EXPECT_EQ(net.nodes.nodes[0]->finding.state, 1);
}

TEST_F(CaseFileTest, WholeCasesAreSkippedOnRequest)
{
    Net& net = Make("A C:0");
    Caseset* cases = NewCaseset(*env_, "");
    Stream* file = NewMemoryStream(*env_, "t.cas");
    SetContents(*file, "C A\n1.5 0\n2.5 x\n* 1\n3 7\n");
    AddFileToCaseset(*cases, *file, 1, true);
    CaseReader reader(*cases, net.nodes.nodes);
    CaseBlock block;
    std::string text;
    while (reader.Next(block))
        for (int row = 0; row < block.num_cases; ++row) Print(block, row, text);
    EXPECT_EQ(text, "1 0 =1.5\n1 1 *\n");
}

TEST_F(CaseFileTest, DiscreteNumbersAreLevelsWhereTheyCouldBeBoth)
{
    Net& net = Make("A:3 B:3 D:0");
    const double small[] = {1, 2, 3}, large[] = {10, 20, 30}, thresholds[] = {0, 1, 5};
    SetLevels(*FindNode(net, "A"), 3, small);
    SetLevels(*FindNode(net, "B"), 3, large);
    SetLevels(*FindNode(net, "D"), 2, thresholds);
    EXPECT_EQ(Read("A B D\n1 20 1\n3 2 #0\n#1 0 {0.5;1}\n", net.nodes.nodes),
              "1 0 1 1 =1\n1 2 2 0\n1 1 0 *\n");
}

// One line of several megabytes, a file that gets shorter while it is read, and lines over block borders.
TEST_F(CaseFileTest, LongLinesAndFilesThatShrink)
{
    Net& net = Make("A");
    std::string columns = "A", entries = "1";
    for (int i = 0; i < 99000; ++i) columns += ",x" + std::to_string(i), entries += ",some text that is long";
    EXPECT_EQ(Read(columns + "\n" + entries + "\n" + entries, net.nodes.nodes), "1 1\n1 1\n");

    const std::string path = (std::filesystem::temp_directory_path() / "talora_shrinks.cas").string();
    std::ofstream(path) << "A\n" + std::string(3 << 20, '/') + "\n1\n";
    Caseset* cases = NewCaseset(*env_, "");
    AddFileToCaseset(*cases, *NewFileStream(*env_, path), 1, false);
    std::string text = "A";
    for (int i = 0; i < 1 << 20; ++i) text += i % 2 ? "\n1 // one" : "\n0";
    std::ofstream(path) << text << "\n";
    CaseReader reader(*cases, net.nodes.nodes);
    CaseBlock block;
    ASSERT_TRUE(reader.Next(block));
    std::filesystem::resize_file(path, 3 << 20);
    EXPECT_EQ(ErrorOf([&] {
                  while (reader.Next(block)) continue;
              }),
              6504);
    std::filesystem::remove(path);
}

TEST_F(CaseFileTest, CorpusCounts)
{
    const char* corpus = std::getenv("TALORA_CORPUS");
    if (corpus == nullptr) GTEST_SKIP() << "TALORA_CORPUS is not set";
    const struct {
        const char *net, *cases;
    } kFiles[] = {
        {"asia", "asia_10k"},          {"asia", "asia_10k_comma"},     {"asia", "asia_10k_space"},
        {"asia", "asia_1k_numbers"},   {"asia", "asia_200_extra"},     {"asia", "asia_2k_missing"},
        {"alarm", "alarm_20k"},        {"child", "child_5k_weighted"}, {"insurance", "insurance_20k_missing"},
        {"mushroom_empty", "mushroom"}};
    for (const auto& file : kFiles) {
        SCOPED_TRACE(file.cases);
        const std::string root = corpus;
        std::ifstream oracle(root + "/oracles/" + file.cases + ".counts.json");
        if (!oracle) continue;
        const std::string json((std::istreambuf_iterator<char>(oracle)), {});
        const auto number = [&](const std::string& field) {
            const size_t at = json.find("\"" + field + "\":");
            return at == std::string::npos ? -1.0 : std::atof(json.c_str() + at + field.size() + 3);
        };
        Stream* stream = NewFileStream(*env_, root + "/nets/" + file.net + ".dne");
        Net* net = ReadNet(*stream, {});
        Caseset* cases = NewCaseset(*env_, "");
        AddFileToCaseset(*cases, *NewFileStream(*env_, root + "/cases/" + file.cases + ".cas"), 1, false);
        CaseReader reader(*cases, net->nodes.nodes);
        double weight = 0, missing = 0, num_cases = 0;
        for (CaseBlock block; reader.Next(block);) {
            num_cases += block.num_cases;
            for (const double w : block.weights) weight += w;
            for (const auto& column : block.states)
                for (const int state : column) missing += state == UNDEF_STATE;
        }
        EXPECT_EQ(num_cases, number("num_cases"));
        EXPECT_NEAR(weight, number("total_weight"), 1e-9 * weight);
        EXPECT_EQ(missing, number("missing_entries"));
    }
}

}  // namespace
}  // namespace talora
