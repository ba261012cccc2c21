// Case sets, and findings written and read as cases, through the interface.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>

#include "Basic/Stream.h"
#include "Support/TestNet.h"
#include "VarVal/Caseset.h"

namespace talora {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

class CasesetTest : public ModelTest {
protected:
    // A memory stream that holds a text.
    Stream* Memory(std::string_view text)
    {
        Stream* stream = NewMemoryStream(*env_, "t.cas");
        SetContents(*stream, text);
        return stream;
    }
    // Number of the newest record of at least this severity, 0 for none; its text goes into message_.
    int Taken(errseverity_vx severity = ERROR_SEVERITY)
    {
        const report_vx* record = GetError_vx(env_, severity, 0, nullptr);
        const int number = record ? -ErrorNumber_vx(record) : 0;
        message_ = record ? ErrorMessage_vx(record) : "";
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        return number;
    }
    // The findings of all nodes: states, values, weights.
    std::string Findings() const
    {
        std::string text;
        for (const Node* node : net_->nodes.nodes) {
            const NodeFinding& finding = node->finding;
            text += text.empty() ? "" : " ";
            if (!IsUndef(finding.value))
                text += std::to_string(finding.value).substr(0, 4);
            else if (finding.state >= 0)
                text += std::to_string(finding.state);
            else
                text += finding.likelihood.empty() ? "*" : "{";
            for (const float weight : finding.likelihood) text += std::to_string(weight).substr(0, 4) + ";";
        }
        return text;
    }
    // Answers questions with these answers in turn, and keeps what was asked.
    void AnswerWith(std::vector<int> answers)
    {
        answers_ = std::move(answers);
        questions_.clear();
        SetQuestionHandler_vx(
            env_,
            [](environ_vx*, const char* question, const char* choices, const char*, void* data) {
                auto& self = *static_cast<CasesetTest*>(data);
                self.questions_.push_back(std::string(question) + "|" + choices);
                const size_t asked = self.questions_.size() - 1;
                return asked < self.answers_.size() ? self.answers_[asked] : -1;
            },
            this);
    }

    std::string message_;
    std::vector<int> answers_;
    std::vector<std::string> questions_;
};

TEST_F(CasesetTest, SettingsKeepDelimiterAndMissingCharApart)
{
    const struct {
        const char* label;
        bool sets_delimiter;
        int newchar, result, error;
        const char* message;
    } kSteps[] = {
        {"delimiter at first", true, QUERY_CASE_CHAR, '\t', 0, ""},
        {"missing at first", false, QUERY_CASE_CHAR, '*', 0, ""},
        {"space while tabs", false, ' ', -1, 6549,
         "argument 'newchar' cannot be absent (0) or a space (it is a space), unless the delimeter is a comma (it is a tab)"},
        {"commas", true, ',', '\t', 0, ""},
        {"absent while commas", false, 0, '*', 0, ""},
        {"spaces while absent", true, ' ', -1, 6547,
         "argument 'newchar' should be a comma (it is a space), unless the missing data symbol is not a space or absent (it is absent (0))"},
        {"no such delimiter", true, ';', -1, 6546,
         "argument 'newchar' should be a comma, a space or a tab (it is 59)"},
        {"no such missing char", false, 'x', -1, 6548,
         "argument 'newchar' should be 0, a space, '*', '?' or '-' (it is 120)"},
        {"nothing was changed", true, QUERY_CASE_CHAR, ',', 0, ""},
        {"question marks", false, '?', 0, 0, ""},
    };
    for (const auto& step : kSteps) {
        SCOPED_TRACE(step.label);
        EXPECT_EQ(step.sets_delimiter ? SetCaseFileDelimChar_vx(step.newchar, env_)
                                      : SetMissingDataChar_vx(step.newchar, env_),
                  step.result);
        EXPECT_EQ(Taken(), step.error);
        EXPECT_EQ(message_, step.message);
    }
}

// Written under all settings and read again, in memory and on disk.
TEST_F(CasesetTest, FindingsComeBackAsTheyWere)
{
    Net& net = Make("A B:3 C:0 D:0");
    SetStateNames(*FindNode(net, "A"), {"no", "yes"});
    const double thresholds[] = {0, 1, 2.5};
    SetLevels(*FindNode(net, "D"), 2, thresholds);
    const float weights[] = {0.25f, 0, 1};
    const std::string path =
        (std::filesystem::temp_directory_path() / ("talora_cases_" + std::to_string(getpid()))).string();
    for (const auto& [delimiter, missing] :
         {std::pair{'\t', '*'}, {',', '\0'}, {',', ' '}, {' ', '?'}, {',', '-'}}) {
        for (const bool on_disk : {false, true}) {
            SCOPED_TRACE(std::string(1, delimiter) + missing + (on_disk ? " disk" : " memory"));
            SetMissingDataChar_vx('*', env_);
            SetCaseFileDelimChar_vx(delimiter, env_);
            SetMissingDataChar_vx(missing, env_);
            std::remove(path.c_str());
            Stream* file = on_disk ? NewFileStream(*env_, path) : NewMemoryStream(*env_, "m.cas");
            std::vector<double> positions;
            std::vector<std::string> written;
            for (int i = 0; i < 3; ++i) {
                RetractNetFindings_bn(&net);
                if (i > 0) EnterNodeValue_bn(FindNode(net, "C"), -1.5 * i);
                if (i > 0) EnterNodeValue_bn(FindNode(net, "D"), 2.25);
                if (i > 1) EnterFinding_bn(FindNode(net, "A"), 1);
                if (i > 1) EnterNodeLikelihood_bn(FindNode(net, "B"), weights);
                written.push_back(Findings());
                positions.push_back(WriteNetFindings_bn(&net.nodes, file, i == 1 ? -1 : 7 + i, 0.5 * i));
            }
            double position = FIRST_CASE_POSN, freq = 0;
            int64_t id = 0;
            for (int i = 0; i < 3; ++i) {
                EXPECT_TRUE(ReadNetFindings2_bn(&position, file, DONT_ADD_NEW, &net.nodes, &id, &freq));
                EXPECT_EQ(Findings(), written[static_cast<size_t>(i)]);
                EXPECT_EQ(position, positions[static_cast<size_t>(i)]);
                EXPECT_EQ(id, i == 1 ? -1 : 7 + i);
                EXPECT_EQ(freq, 0.5 * i);
                position = NEXT_CASE_POSN;
            }
            EXPECT_FALSE(ReadNetFindings2_bn(&position, file, DONT_ADD_NEW, &net.nodes, &id, &freq));
            EXPECT_EQ(position, NO_CASE_POSN);
            position = positions[1];
            EXPECT_TRUE(ReadNetFindings2_bn(&position, file, DONT_ADD_NEW, &net.nodes, nullptr, nullptr));
            EXPECT_EQ(Findings(), written[1]);
            EXPECT_EQ(Taken(WARNING_SEVERITY), 0) << message_;
        }
    }
    std::remove(path.c_str());
}

TEST_F(CasesetTest, AppendingKeepsTheColumnsAndEndsTornLines)
{
    Net& net = Make("A B");
    EnterFinding_bn(FindNode(net, "A"), 1);
    Stream* file = Memory("Other,A,NumCases\nx,0,3\ny,1");
    EXPECT_EQ(WriteNetFindings_bn(&net.nodes, file, -1, -1), 27);
    EXPECT_EQ(Taken(WARNING_SEVERITY), 6535);
    EXPECT_EQ(file->contents, "Other,A,NumCases\nx,0,3\ny,1\n*,1,1\n");
    const struct {
        const char* label;
        int64_t id;
        double freq;
        int error;
    } kRows[] = {
        {"id without a column", 3, 1, 6529},       {"id too small", -2, 1, 6550},
        {"frequency below 0", -1, -0.5, 6551},     {"frequency not a number", -1, kNaN, 6551},
        {"infinite frequency", -1, 1 / 0.0, 6552},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(WriteNetFindings_bn(&net.nodes, file, row.id, row.freq), NO_CASE_POSN);
        EXPECT_EQ(Taken(), row.error);
    }
    EnterFinding_bn(FindNode(net, "B"), 0);
    WriteNetFindings_bn(&net.nodes, file, -1, -1);
    EXPECT_EQ(Taken(), 6531);
}

TEST_F(CasesetTest, PositionsMustBeThoseOfCases)
{
    Net& net = Make("A B");
    Stream* file = Memory("A B\n0 1\n1 x\n");
    const struct {
        double position;
        int error;
        const char* message;
    } kRows[] = {
        {-2, 6543, "the case position argument is less than 0 (it is -2)"},
        {5, 6539, "no case begins at position 5 of file 't.cas'"},
        {0.5, 6544, "the case position argument is no position (it is 0.5)"},
    };
    for (const auto& row : kRows) {
        double position = row.position;
        EXPECT_FALSE(ReadNetFindings2_bn(&position, file, DONT_ADD_NEW, &net.nodes, nullptr, nullptr));
        EXPECT_EQ(Taken(), row.error);
        EXPECT_EQ(message_, row.message);
    }
    EXPECT_EQ(FindCasePosition_cs(file, 3), NO_CASE_POSN);
    EXPECT_EQ(FindCasePosition_cs(file, 0), NO_CASE_POSN);
    EXPECT_EQ(Taken(), 6555);
    double position = FindCasePosition_cs(file, 2);
    EXPECT_EQ(position, 8);
    EXPECT_TRUE(ReadNetFindings2_bn(&position, file, DONT_ADD_NEW, &net.nodes, nullptr, nullptr));
    EXPECT_EQ(Findings(), "1 *");
    EXPECT_EQ(Taken(WARNING_SEVERITY), 6515);
    EXPECT_EQ(message_,
              "unknown value 'x' for variable 'B', appears in case on line 3 (char 3) of file 't.cas'");
}

// Single cases: columns that come twice, lines that end with CR, numbers that are titles too, and where it
// was.
TEST_F(CasesetTest, SingleCasesReadAsBlocksDo)
{
    Net& net = Make("A:3");
    Node& a = *FindNode(net, "A");
    SetStateText(a, 0, &StateText::title, "2", "");
    SetStateText(a, 1, &StateText::title, "#0", "");
    SetStateText(a, 2, &StateText::title, "1990", "");
    const struct {
        const char* label;
        const char* text;
        int warning;
        int64_t line;
        const char* findings;
    } kRows[] = {
        {"two columns", "A A\n1 2\n", 6521, -1, "1"},
        {"CR alone", "A B\r// c\r1 0\r", 6522, -1, "1"},
        {"number before title", "A\n2\n", 0, -1, "2"},
        {"number of a state before title", "A\n#0\n", 0, -1, "0"},
        {"title that is no number of a state", "A\r1990", 0, -1, "2"},
        {"nothing of that name", "// c\r\n// d\rA\n\nx\n", 6515, 5, "*"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.label);
        double position = FIRST_CASE_POSN;
        EXPECT_TRUE(
            ReadNetFindings2_bn(&position, Memory(row.text), DONT_ADD_NEW, &net.nodes, nullptr, nullptr));
        EXPECT_EQ(Findings(), row.findings);
        int64_t line = -1;
        const report_vx* record = GetError_vx(env_, WARNING_SEVERITY, 0, nullptr);
        if (record != nullptr) {
            EXPECT_STREQ(ErrorFile_vx(record, &line), "t.cas");
        }
        EXPECT_EQ(Taken(WARNING_SEVERITY), row.warning);
        EXPECT_EQ(line, row.line);
    }
    SetNodeKind_bn(&a, UTILITY_NODE);
    double position = FIRST_CASE_POSN;
    EXPECT_FALSE(
        ReadNetFindings2_bn(&position, Memory("A\n\n1\n"), DONT_ADD_NEW, &net.nodes, nullptr, nullptr));
    EXPECT_EQ(Taken(), 6034);
    EXPECT_EQ(message_, "findings are not allowed for utility nodes (node 'A'), on line 3, in file 't.cas'");
}

TEST_F(CasesetTest, NodesAreAddedFromColumns)
{
    const char* text = "IDnum,A,Color,Count,Size\n1,0,dark red,2,1.5\n2,1,green,*,-3\n3,*,dark red,0,7\n";
    const struct {
        const char* label;
        int mode;
        std::vector<int> answers;
        size_t num_nodes;
        int report;
    } kRows[] = {
        {"never", DONT_ADD_NEW, {}, 1, 6522},
        {"asked, no answer", QUERY_ADD_NEW, {}, 1, 6522},
        {"asked, one wanted", QUERY_ADD_NEW, {1, 0, 1}, 2, 6522},
        {"told", PRINT_AND_ADD_NEW, {}, 4, 6537},
        {"quietly", QUIETLY_ADD_NEW, {}, 4, 0},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.label);
        Net& net = Make("A");
        AnswerWith(row.answers);
        double position = FIRST_CASE_POSN;
        EXPECT_TRUE(ReadNetFindings2_bn(&position, Memory(text), row.mode, &net.nodes, nullptr, nullptr));
        EXPECT_EQ(net.nodes.nodes.size(), row.num_nodes);
        EXPECT_EQ(Taken(NOTICE_SEVERITY), row.report);
        if (row.mode == QUERY_ADD_NEW) {
            ASSERT_EQ(questions_.size(), 3u);
            EXPECT_EQ(questions_[0], "Add node 'Color' from case file 't.cas'?|Yes,No");
        }
        if (row.num_nodes < 4) continue;
        const Node& color = *FindNode(net, "Color");
        EXPECT_EQ(StateName(color, 0), "dark_red");
        EXPECT_EQ(StateTitle(color, 0), "dark red");
        EXPECT_EQ(NumStates(*FindNode(net, "Count")), 3);
        EXPECT_FALSE(IsDiscrete(*FindNode(net, "Size")));
        EXPECT_EQ(Findings(), "0 0 2 1.50");
    }
}

TEST_F(CasesetTest, AnswersChangeTheNetOrSkip)
{
    const double thresholds[] = {0, 1, 2}, levels[] = {10, 20};
    enum { DO, DO_ALL, SKIP, SKIP_ALL, HALT };
    const struct {
        const char *label, *text;
        int answer;
        const char *question, *findings;
        int report;
        const char* message;
    } kRows[] = {
        {"bounds expanded", "D\n2.5\n", DO,
         "value 2.5 for variable 'D' is out of bounds (as defined in node properties), in case on line 2 (char 1) of file 't.cas'|Expand Bounds,Expand All,Skip,Skip All,Halt",
         "* * * 2.50 *", 6516,
         "range of variable 'D' expanded to include 2.5, to read case on line 2 (char 1) of file 't.cas'"},
        {"bounds skipped", "D\n-1\n", SKIP, nullptr, "* * * * *", 6512,
         "skipping value -1 for variable 'D' because it is out of bounds (as defined in node properties), in case on line 2 (char 1) of file 't.cas'"},
        {"plain bounds expanded", "R\n-3\n", DO, nullptr, "* * * * -3.0", 6516,
         "range of variable 'R' expanded to include -3, to read case on line 2 (char 1) of file 't.cas'"},
        {"number adds states", "B\n4\n", DO, nullptr, "* 4 * * *", 6517,
         "state '#4' added to variable 'B' to read case on line 2 (char 1) of file 't.cas'"},
        {"number adds a level", "L\n30\n", DO,
         "value 30 does not correspond to any state of variable 'L', in case on line 2 (char 1) of file 't.cas'|Add State,Add All States,Skip,Skip All,Halt",
         "* * 2 * *", 6518,
         "added state 2 to variable 'L', with level 30, to read case on line 2 (char 1) of file 't.cas'"},
        {"name added", "A\nmaybe\n", DO_ALL,
         "value 'maybe' is not one of the possible states of variable 'A', in case on line 2 (char 1) of file 't.cas'|Add State,Add All States,Skip,Skip All,Halt",
         "2 * * * *", 6517,
         "state 'maybe' added to variable 'A' to read case on line 2 (char 1) of file 't.cas'"},
        {"fraction", "B\n0.5\n", SKIP - 2,
         "value 0.5 is not one of the possibilities for variable 'B', in case on line 2 (char 1) of file 't.cas'|Skip,Skip All,Halt",
         "* * * * *", 6513,
         "skipping value 0.5 for variable 'B' because it is not one of the possibilities, in case on line 2 (char 1) of file 't.cas'"},
        {"halted", "A\nmaybe\n", HALT, nullptr, "* * * * *", 6520,
         "only 0 cases were read before action was halted (25%)"},
        {"text for a number", "D\nx\n", SKIP, "", "* * * * *", 6511,
         "illegal value 'x' for variable 'D', in case on line 2 (char 1) of file 't.cas'"},
        {"weights of the wrong number", "B\n{1;0.5;1}\n", SKIP, "", "* * * * *", 6511, nullptr},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.label);
        Net& net = Make("A B L D:0 R:0");
        SetStateNames(*FindNode(net, "A"), {"no", "yes"});
        SetLevels(*FindNode(net, "D"), 2, thresholds);
        SetLevels(*FindNode(net, "L"), 2, levels);
        FindNode(net, "R")->states.levels = {5, 0};
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        AnswerWith({row.answer});
        double position = FIRST_CASE_POSN;
        ReadNetFindings2_bn(&position, Memory(row.text), DONT_ADD_NEW, &net.nodes, nullptr, nullptr);
        EXPECT_EQ(Findings(), row.findings);
        EXPECT_EQ(Taken(NOTICE_SEVERITY), row.report);
        if (row.message) {
            EXPECT_EQ(message_, row.message);
        }
        if (row.question) {
            EXPECT_EQ(questions_.empty() ? "" : questions_[0], row.question);
        }
    }
}

TEST_F(CasesetTest, SetsAreCountedAndWrittenAsOneFile)
{
    caseset_cs* cases = NewCaseset_cs("both", env_);
    AddFileToCaseset_cs(cases, Memory("A B\nyes 1\n* 0\n"), 2, nullptr);
    Stream* second = Memory("IDnum,C,A,NumCases\n5,\"x, y\",no,0.5\n");
    second->name = "second.cas";
    AddFileToCaseset_cs(cases, second, 1, "");
    DeleteStream_vx(second);
    AddFileToCaseset_cs(cases, Memory(""), -1, nullptr);
    EXPECT_EQ(Taken(), 6528);
    double weight = 0;
    EXPECT_EQ(CountCasesetCases_cs(cases, &weight), 3);
    EXPECT_EQ(weight, 4.5);
    EXPECT_EQ(CountCasesetSources_cs(cases), 2);
    EXPECT_STREQ(GetCasesetName_cs(cases), "both");
    EXPECT_STREQ(GetCasesetSourceName_cs(cases, 1), "second.cas");
    EXPECT_EQ(GetCasesetSourceDegree_cs(cases, 0), 2);
    EXPECT_EQ(GetCasesetSourceName_cs(cases, 2), nullptr);
    EXPECT_EQ(Taken(), 6545);
    Stream* file = NewMemoryStream(*env_, "out.cas");
    SetCaseFileDelimChar_vx(',', env_);
    WriteCaseset_cs(cases, file, nullptr);
    EXPECT_EQ(file->contents,
              "// ~->[CASE-1]->~\n\nIDnum,NumCases,A,B,C\n*,2,yes,1,*\n*,2,*,0,*\n5,0.5,no,*,\"x, y\"\n");
    SetCaseFileDelimChar_vx(' ', env_);
    WriteCaseset_cs(cases, file, nullptr);
    EXPECT_EQ(Taken(), 6532);
    DeleteCaseset_cs(cases);
}

// All that is asked is asked before the first case is given out, so that numbers of states stay.
TEST_F(CasesetTest, ReadersAskFirst)
{
    Net& net = Make("A");
    SetStateNames(*FindNode(net, "A"), {"no", "yes"});
    std::string text = "A\n";
    for (int i = 0; i < 20000; ++i) text += "yes\n";
    text += "maybe\nperhaps\nmaybe\n";
    Caseset* cases = NewCaseset(*env_, "");
    AddFileToCaseset(*cases, *Memory(text), 1, false);
    AnswerWith({0, 3});
    environ_vx* const before = ThisThread().env;
    ThisThread().env = env_;
    CaseReader reader(*cases, net.nodes.nodes);
    EXPECT_EQ(NumStates(*FindNode(net, "A")), 3);
    int64_t num_cases = 0, added = 0, unknown = 0;
    for (int round = 0; round < 2; ++round) {
        for (CaseBlock block; reader.Next(block);) {
            num_cases += block.num_cases;
            added += std::count(block.states[0].begin(), block.states[0].end(), 2);
            unknown += std::count(block.states[0].begin(), block.states[0].end(), UNDEF_STATE);
        }
        reader.Rewind();
    }
    EXPECT_EQ(questions_.size(), 2u);
    AnswerWith({4});
    EXPECT_EQ(ErrorOf([&] { CaseReader(*cases, net.nodes.nodes); }), 6520) << "halted";
    ThisThread().env = before;
    EXPECT_EQ(num_cases, 2 * 20003);
    EXPECT_EQ(added, 4);
    EXPECT_EQ(unknown, 2);
}

}  // namespace
}  // namespace talora
