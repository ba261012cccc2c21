// The limits of Docs/limits.md: each at n, where it holds, and at n + 1, where it is refused.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "BN/Model/BnProbs.h"
#include "BN/Testing/TestRecord.h"
#include "Basic/Environ.h"
#include "Basic/Error.h"
#include "Basic/Names.h"
#include "Basic/Parser.h"
#include "Misc/Equations/EqnTable.h"
#include "Support/TestEnviron.h"
#include "VarVal/CaseFile.h"

namespace {

using namespace talora;

std::string Repeated(std::string_view text, int64_t count)
{
    std::string all;
    all.reserve(text.size() * size_t(count));
    for (int64_t k = 0; k < count; ++k) all += text;
    return all;
}

void ReadNetText(environ_vx* env, const std::string& text)
{
    stream_vx* const stream = NewStreamOf(env, "limit.dne", text);
    if (net_bn* net = ReadNet_bn(stream, NO_WINDOW)) DeleteNet_bn(net);
    DeleteStream_vx(stream);
}

void ReadNetBody(environ_vx* env, const std::string& body)
{
    ReadNetText(env, "// ~->[DNET-1]->~\nbnet Limit {\n" + body + "\n};\n");
}

void ReadCases(environ_vx* env, const std::string& text)
{
    net_bn* const net = NewNet_bn("n", env);
    NewNode_bn("a", 2, net);
    stream_vx* const stream = NewStreamOf(env, "limit.cas", text);
    double position = FIRST_CASE_POSN;
    ReadNetFindings2_bn(&position, stream, DONT_ADD_NEW, GetNetNodes2_bn(net, nullptr), nullptr, nullptr);
    DeleteStream_vx(stream);
    DeleteNet_bn(net);
}

void Calculate(environ_vx* env, const std::string& formula)
{
    CalcFormula_bn(env, formula.c_str(), nullptr, nullptr, 0, nullptr);
}

void NameNet(environ_vx* env, int64_t n)
{
    if (net_bn* net = NewNet_bn(Repeated("n", n).c_str(), env)) DeleteNet_bn(net);
}
void Word(environ_vx* env, int64_t n)
{
    ReadNetBody(env, Repeated("w", n) + " = 1;");
}
void Comments(environ_vx* env, int64_t n)
{
    ReadNetBody(env, Repeated("/# ", n) + Repeated("#/ ", n));
}
void Quoted(environ_vx* env, int64_t n)
{
    ReadNetBody(env, "title = \"" + Repeated("q", n) + "\";");
}
void Brackets(environ_vx* env, int64_t n)
{
    ReadNetBody(env, "unheard = " + Repeated("(", n) + Repeated(")", n) + ";");
}
void EquationText(environ_vx* env, int64_t n)
{
    Calculate(env, "1" + std::string(size_t(n - 1), ' '));
}
void EquationDepth(environ_vx* env, int64_t n)
{
    Calculate(env, Repeated("-", n - 1) + "(1)");
}
void CaseColumns(environ_vx* env, int64_t n)
{
    ReadCases(env, "a" + Repeated(",x", n - 1) + "\n#0" + Repeated(",1", n - 1) + "\n");
}
void CaseEntry(environ_vx* env, int64_t n)
{
    ReadCases(env, "a,x\n#0," + Repeated("e", n) + "\n");
}
void BinEdges(environ_vx* env, int64_t n)
{
    net_bn* const net = NewNet_bn("n", env);
    nodelist_bn* const tested = NewNodeList2_bn(1, net);
    nodelist_bn* const none = NewNodeList2_bn(0, net);
    SetNthNode_bn(tested, 0, NewNode_bn("a", 2, net));
    tester_bn* const tester = NewNetTester_bn(tested, none, -1);
    std::vector<double> edges;
    for (int64_t k = 0; k < n; ++k) edges.push_back(double(k) / double(n - 1));
    SetTestBins_bn(tester, NthNode_bn(tested, 0), GIVEN_TEST_BINS, edges.data(), int(edges.size()));
    DeleteNet_bn(net);
}

TEST(LimitsTest, HoldAtTheLimitAndRefuseBeyond)
{
    TestEnviron env;
    const struct {
        const char* label;
        int64_t limit;
        int error;  // beyond
        void (*use)(environ_vx* env, int64_t n);
    } rows[] = {
        {"name", kMaxNameLength, 5118, NameNet},
        {"word", int64_t(kMaxWord), 4102, Word},
        {"nested comments", kMaxCommentDepth, 3339, Comments},
        {"quoted string", int64_t(kMaxQuoted), 4103, Quoted},
        {"brackets that are skipped", kMaxBrackets, 4104, Brackets},
        {"text of an equation", kMaxEqnText, 6402, EquationText},
        {"depth of an equation", kMaxEqnDepth, 6401, EquationDepth},
        {"columns of a case file", kMostCaseColumns, 6556, CaseColumns},
        {"entry of a case file", int64_t(kLongestCaseEntry), 6557, CaseEntry},
        {"edges of the bins of a test", kMaxGivenBins, 6740, BinEdges},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        row.use(env, row.limit);
        EXPECT_EQ(env.Taken(), 0) << env.Message();
        row.use(env, row.limit + 1);
        const int error = env.Taken();
        EXPECT_EQ(error, row.error) << env.Message();
    }
}

// Tables are refused before memory is taken for them.  Those at the limit would take gigabytes: that it is
// not the limit that refuses them shows from another message when memory is short.

TEST(LimitsTest, EntriesOfATable)
{
    TestEnviron env;
    const state_bn row[] = {0};
    const struct {
        const char* label;
        int num_states, num_rows;  // 19,801 x 20,201 is the limit and 1
        bool is_function, is_too_large;
    } rows[] = {
        {"probabilities", 20000, 20000, false, false},
        {"probabilities and one", 19801, 20201, false, true},
        {"function", 3, int(kMaxTableEntries), true, false},
        {"function and one", 3, int(kMaxTableEntries) + 1, true, true},
    };
    ASSERT_EQ(int64_t{20000} * 20000, int64_t(kMaxTableEntries));
    ASSERT_EQ(int64_t{19801} * 20201, int64_t(kMaxTableEntries) + 1);
    for (const auto& r : rows) {
        SCOPED_TRACE(r.label);
        net_bn* const net = NewNet_bn("n", env);
        node_bn *const parent = NewNode_bn("p", r.num_rows, net), *node = NewNode_bn("a", r.num_states, net);
        AddLink_bn(parent, node);
        const std::vector<prob_bn> probs(size_t(r.num_states), 1.0f / float(r.num_states));
        const double limit = LimitMemoryUsage_vx(kMaxTableEntries * sizeof(float) - 1, env);
        r.is_function ? SetNodeFuncState_bn(node, row, 2) : SetNodeProbs_bn(node, row, probs.data());
        LimitMemoryUsage_vx(limit, env);
        // At the limit it is memory that lacks a byte, for the same table.
        const report_vx* const error = GetError_vx(env, ERROR_SEVERITY, 0, nullptr);
        EXPECT_EQ(ErrorCategory_vx(MEMORY_CONDITION, error) != 0, !r.is_too_large);
        EXPECT_EQ(env.Taken() == 3615, r.is_too_large) << env.Message();
        EXPECT_FALSE(HasNodeTable_bn(node, nullptr));
        DeleteNet_bn(net);
    }
}

TEST(LimitsTest, StatesOfANode)
{
    TestEnviron env;
    net_bn* const net = NewNet_bn("n", env);
    node_bn* const node = NewNode_bn("a", INT32_MAX, net);
    EXPECT_EQ(GetNodeNumberStates_bn(node), INT32_MAX);
    AddNodeStates_bn(node, -1, nullptr, 1, -1);
    EXPECT_EQ(env.Taken(), 6131);
    EXPECT_EQ(GetNodeNumberStates_bn(node), INT32_MAX);
    const prob_bn one[] = {1};
    SetNodeProbs_bn(node, nullptr, one);
    EXPECT_EQ(env.Taken(), 3615) << "before the vector is read";
    EXPECT_FALSE(HasNodeTable_bn(node, nullptr));
    DeleteNet_bn(net);
    ReadNetBody(env, "node a {discrete = TRUE; numstates = 2147483647;};");
    EXPECT_EQ(env.Taken(), 0);
    ReadNetBody(env, "node a {discrete = TRUE; numstates = 2147483648;};");
    EXPECT_EQ(env.Taken(), 6131);
}

TEST(LimitsTest, TablesOfAJunctionTree)
{
    TestEnviron env;
    for (const int extra : {0, 1}) {
        net_bn* const net = NewNet_bn("n", env);
        NewNode_bn("a", 250000000, net);
        node_bn* const node = NewNode_bn("b", 249999999 + extra, net);  // and 1 for the separator
        const double limit = LimitMemoryUsage_vx(4e9, env);
        CompileNet_bn(net);
        EXPECT_EQ(GetError_vx(env, WARNING_SEVERITY, 6008, nullptr) != nullptr, extra > 0);
        EXPECT_EQ(SizeCompiledNet_bn(net, 0), 5e8 + extra);
        env.Taken();
        LimitMemoryUsage_vx(1e7, env);
        GetNodeBeliefs_bn(node);
        const report_vx* const error = GetError_vx(env, ERROR_SEVERITY, 0, nullptr);
        EXPECT_EQ(ErrorCategory_vx(MEMORY_CONDITION, error) != 0, extra == 0);
        EXPECT_EQ(env.Taken() == 6010, extra > 0);
        LimitMemoryUsage_vx(limit, env);
        DeleteNet_bn(net);
    }
}

// What nodes inherit may be 1 MB and 16 bytes for every byte of the file.
TEST(LimitsTest, InheritedStatements)
{
    TestEnviron env;
    constexpr int kHeirs = 17;  // so that each byte of the statement is one more than it earns
    const auto text = [&](int64_t length) {
        std::string all =
            "// ~->[DNET-1]->~\nbnet n {\ndefine node d {comment = \"" + Repeated("c", length) + "\";};\n";
        for (int k = 0; k < kHeirs; ++k) all += "node n" + std::to_string(k) + " (d) {};\n";
        return all + "};\n";
    };
    const std::string without = text(0);
    const int64_t quotes = 3;  // with the blank before
    const int64_t limit = (1 << 20) + 16 * int64_t(without.size()) - kHeirs * quotes;
    ReadNetText(env, text(limit));
    EXPECT_EQ(env.Taken(), 0) << env.Message();
    ReadNetText(env, text(limit + 1));
    EXPECT_TRUE(ErrorCategory_vx(MEMORY_CONDITION, GetError_vx(env, ERROR_SEVERITY, 0, nullptr)))
        << env.Message();
    EXPECT_NE(env.Taken(), 0);
}

TEST(LimitsTest, Environments)
{
    TestEnviron env;
    std::vector<environ_vx*> more;
    while (environ_vx* next = NewTaloraEnviron_vx("more", nullptr)) more.push_back(next);
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    EXPECT_EQ(more.size(), size_t(MAX_NUM_ENVIROS - 1));
    for (environ_vx* next : more) CloseTalora_bn(next, nullptr);
    environ_vx* const again = NewTaloraEnviron_vx("again", nullptr);
    EXPECT_NE(again, nullptr);
    CloseTalora_bn(again, nullptr);
    ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
}

}  // namespace
