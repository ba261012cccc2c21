// Reading case files: what a text gives as cases and messages.
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>

#include "../BN/TestNet.h"
#include "BN/BnParse.h"
#include "Basic/Text.h"
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
        {"bad weight", "NumCases A\nx yes\n",
         "FAIL illegal number 'x' for NumCases, in case 1 on line 2 (char 1) of file 't.cas'"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(Read(row.text, {FindNode(net, "A"), FindNode(net, "B")}), row.cases);
    }
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
