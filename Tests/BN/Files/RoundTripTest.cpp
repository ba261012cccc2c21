// What is written reads, and says the same: nets with every field at the edges of what it may hold.
#include <gtest/gtest.h>

#include "Support/ExtremeNet.h"
#include "Support/TestEnviron.h"

namespace talora {
namespace {

std::string WarningsBut(environ_vx* env, std::initializer_list<int> expected)
{
    std::string others;
    for (const report_vx* r = GetError_vx(env, WARNING_SEVERITY, 0, nullptr); r != nullptr;
         r = GetError_vx(env, WARNING_SEVERITY, 0, r))
        if (std::find(expected.begin(), expected.end(), -ErrorNumber_vx(r)) == expected.end())
            others += std::string(ErrorMessage_vx(r)) + "\n";
    ClearErrors_vx(env, INTERNAL_SEVERITY);
    return others;
}

TEST(RoundTripTest, NetsWithExtremeFields)
{
    const TestEnviron env;
    for (unsigned seed = 0; seed < 3000; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        net_bn* const net = ExtremeNet(env, seed).Build(60 + static_cast<int>(seed % 200));
        stream_vx* const stream = NewMemoryStream_vx(seed % 8 == 0 ? "x.tala" : "x.dne", env, nullptr);
        WriteNet_bn(net, stream);
        EXPECT_EQ(WarningsBut(env, {7250, 7254}), "");
        net_bn* const read = ReadNet_bn(stream, REGULAR_WINDOW);
        EXPECT_EQ(WarningsBut(env, {}), "");
        ASSERT_NE(read, nullptr) << GetStreamContents_vx(stream, nullptr);
        ASSERT_EQ(Difference(*net, *read), "");
        DeleteStream_vx(stream);
        DeleteNet_bn(read);
        DeleteNet_bn(net);
    }
}

// The findings of such nets in case files, under all settings.  A case holds of a node its value, or else its
// state, or else its likelihood.
TEST(RoundTripTest, CasesWithExtremeFindings)
{
    const TestEnviron env;
    constexpr std::pair<char, char> kSettings[] = {
        {'\t', '*'}, {',', '\0'}, {',', ' '}, {' ', '?'}, {',', '-'}};
    for (unsigned seed = 0; seed < 1000; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        ExtremeNet maker(env, seed);
        net_bn* const net = maker.Build(150);
        const auto [delimiter, missing] = kSettings[seed % std::size(kSettings)];
        SetMissingDataChar_vx('*', env);
        SetCaseFileDelimChar_vx(delimiter, env);
        SetMissingDataChar_vx(missing, env);
        if (net->nodes.nodes.empty()) continue;
        stream_vx* const stream = NewMemoryStream_vx("x.cas", env, nullptr);
        const nodelist_bn* const nodes = GetNetNodes2_bn(net, nullptr);
        WriteNetFindings_bn(nodes, stream, seed % 3 == 0 ? -1 : 7, seed % 2 == 0 ? -1 : 0.1);
        std::vector<NodeFinding> written;
        for (const Node* node : net->nodes.nodes) written.push_back(node->finding);
        RetractNetFindings_bn(net);
        double position = FIRST_CASE_POSN;
        EXPECT_TRUE(ReadNetFindings2_bn(&position, stream, DONT_ADD_NEW, nodes, nullptr, nullptr));
        ASSERT_EQ(WarningsBut(env, {}), "") << GetStreamContents_vx(stream, nullptr);
        for (size_t i = 0; i < written.size(); ++i) {
            const Node& node = *net->nodes.nodes[i];
            SCOPED_TRACE(node.name + "\n" + GetStreamContents_vx(stream, nullptr));
            const bool has_value = !IsUndef(written[i].value) && !IsDiscrete(node);
            ASSERT_EQ(node.finding.state, written[i].state);
            ASSERT_TRUE(!has_value || node.finding.value == written[i].value);
            ASSERT_TRUE(has_value || written[i].state >= 0 ||
                        AreSameBits(node.finding.likelihood, written[i].likelihood));
        }
        DeleteStream_vx(stream);
        DeleteNet_bn(net);
    }
}

}  // namespace
}  // namespace talora
