// The limits of Docs/limits.md: each at n, where it holds, and at n + 1, where it is refused.
#include <gtest/gtest.h>

#include <string>

#include "BN/TestRecord.h"
#include "Basic/Environ.h"
#include "Basic/Error.h"
#include "Basic/Names.h"
#include "Basic/Parser.h"
#include "Misc/EqnTable.h"
#include "Talora/TestEnviron.h"
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
    stream_vx* const stream = NewMemoryStream_vx("limit.dne", env, nullptr);
    SetStreamContents_vx(stream, text.data(), int64_t(text.size()));
    DeleteNet_bn(ReadNet_bn(stream, NO_WINDOW));
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
    stream_vx* const stream = NewMemoryStream_vx("limit.cas", env, nullptr);
    SetStreamContents_vx(stream, text.data(), int64_t(text.size()));
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
    DeleteNet_bn(NewNet_bn(Repeated("n", n).c_str(), env));
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
void EquationArguments(environ_vx* env, int64_t n)
{
    Calculate(env, "max (" + Repeated("1, ", n - 1) + "1)");
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
        {"arguments in an equation", kMaxEqnArguments, 2325, EquationArguments},
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

TEST(LimitsTest, RecordsOfAThread)
{
    TestEnviron env;
    SetReportLimit_vx(env, 0);
    for (const int extra : {0, 1}) {
        ClearErrors_vx(env, INTERNAL_SEVERITY);
        for (int k = 0; k < kMaxRecordsPerThread + extra; ++k)
            NewError_vx(env, 10, NOTICE_SEVERITY, ("notice " + std::to_string(k)).c_str());
        int count = 0;
        for (const report_vx* r = GetError_vx(env, NULL_SEVERITY, 0, nullptr); r;
             r = GetError_vx(env, NULL_SEVERITY, 0, r))
            ++count;
        EXPECT_EQ(count, kMaxRecordsPerThread);
        EXPECT_EQ(GetError_vx(env, NULL_SEVERITY, -5623, nullptr) != nullptr, extra > 0);
    }
    ClearErrors_vx(env, INTERNAL_SEVERITY);
}

}  // namespace
