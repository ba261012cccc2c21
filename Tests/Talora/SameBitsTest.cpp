// The same input gives the same bits: in other threads, after other work, in another process, and files the
// same bytes whatever the locale.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <clocale>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Support/RandomNet.h"
#include "Support/TestEnviron.h"

namespace {

// All beliefs of some random nets under findings, as bytes.
std::string Beliefs(environ_vx* env)
{
    std::string bytes;
    for (unsigned seed = 0; seed < 20; ++seed) {
        std::mt19937 random(seed);
        const talora::RandomModel model = talora::MakeModel(random, seed % 2 ? 30 : 12, 4, 3, false);
        net_bn* const net = NewNet_bn("net", env);
        const std::vector<node_bn*> nodes = BuildNet(net, model);
        CompileNet_bn(net);
        for (size_t v = 0; v < nodes.size(); v += 7) {
            const std::vector<float> likelihood = {0.25, 1, 0.7f, 0.1f};
            EnterNodeLikelihood_bn(nodes[v], likelihood.data());
        }
        for (node_bn* node : nodes) {
            const char* const beliefs = reinterpret_cast<const char*>(GetNodeBeliefs_bn(node));
            bytes.append(beliefs, size_t(GetNodeNumberStates_bn(node)) * sizeof(float));
        }
        const double log_prob = LogFindingsProbability_bn(net);
        bytes.append(reinterpret_cast<const char*>(&log_prob), sizeof log_prob);
        DeleteNet_bn(net);
    }
    return bytes;
}

TEST(SameBitsTest, InThreadsAndAfterOtherWork)
{
    TestEnviron env;
    const std::string expected = Beliefs(env);
    std::vector<std::string> found(4);
    std::vector<std::thread> threads;
    for (std::string& each : found) threads.emplace_back([&] { each = Beliefs(env); });
    for (std::thread& thread : threads) thread.join();
    for (const std::string& each : found) EXPECT_EQ(each, expected);
    std::vector<std::vector<char>> holes;  // other places on the heap
    for (size_t k = 1; k < 200; ++k) holes.emplace_back(k * 37);
    EXPECT_EQ(Beliefs(env), expected);
}

// Run by the test below in processes of their own.
TEST(SameBitsTest, DISABLED_PrintHash)
{
    TestEnviron env;
    printf("hash %zx\n", std::hash<std::string>()(Beliefs(env)));
}

std::string HashInAnotherProcess(const char* kernels)
{
    const std::string command =
        "TALORA_KERNELS=" + std::string(kernels) + " " +
        std::filesystem::read_symlink("/proc/self/exe").string() +
        " --gtest_also_run_disabled_tests --gtest_filter=SameBitsTest.DISABLED_PrintHash";
    FILE* const pipe = popen(command.c_str(), "r");
    std::string hash;
    char line[256];
    while (pipe && fgets(line, sizeof line, pipe))
        if (!strncmp(line, "hash ", 5)) hash = line;
    if (pipe) pclose(pipe);
    return hash;
}

// Memory lies at other addresses there, and other instructions may be used.
TEST(SameBitsTest, InOtherProcesses)
{
    const std::string first = HashInAnotherProcess("");
    ASSERT_NE(first, "");
    for (const char* kernels : {"", "plain", "avx2", "avx512"})
        EXPECT_EQ(HashInAnotherProcess(kernels), first) << kernels;
}

// A net file, a case file, a report and a formula, with what reading them again gives.
std::string FilesAndReports(environ_vx* env)
{
    std::mt19937 random(5);
    const talora::RandomModel model = talora::MakeModel(random, 8, 3, 2, false);
    net_bn* const net = NewNet_bn("net", env);
    const std::vector<node_bn*> nodes = BuildNet(net, model);
    const double levels[] = {-1.5, 0.25, 1e6, 2.5e6};
    SetNodeLevels_bn(NewNode_bn("real", 0, net), 3, levels);
    SetNodeEquation_bn(GetNodeNamed_bn("real", net), "P (real | ) = NormalDist (real, 0.5, 1.25)");
    EquationToTable_bn(GetNodeNamed_bn("real", net), 100, 0, 0);
    std::string all = TextOf(net);
    net_bn* const again = ReadNet_bn(NewStreamOf(env, "net.dne", all), NO_WINDOW);
    all += TextOf(again);
    DeleteNet_bn(again);
    CompileNet_bn(net);
    stream_vx* const stream = NewMemoryStream_vx("cases.cas", env, nullptr);
    EnterNodeValue_bn(GetNodeNamed_bn("real", net), 0.75);
    WriteNetFindings_bn(GetNetNodes2_bn(net, nullptr), stream, 3, 1.5);
    all += ContentsOf(stream);
    all += ReportJunctionTree_bn(net);
    sensv_bn* const sensv = NewSensvToFinding_bn(nodes[0], GetNetNodes2_bn(net, nullptr), 0x31F);
    all += ReportSensvToAll_bn(sensv);
    SetNetMostProbable_bn(net, 1);
    all += ReportMostProbable_bn(net);
    char number[64];
    snprintf(number, sizeof number, "%a", CalcFormula_bn(env, "1.5 + 0.25", nullptr, nullptr, 0, nullptr));
    all += std::string(number).substr(0, 3);  // without what the locale may put there
    DeleteNet_bn(net);
    return all;
}

TEST(SameBitsTest, UnderACommaLocale)
{
    char folder[] = "/tmp/talora-locale-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string define =
        "localedef -i de_DE -f UTF-8 " + std::string(folder) + "/de_DE.UTF-8 2>/dev/null";
    [[maybe_unused]] const int status = system(define.c_str());
    TestEnviron env;
    SetReproducibleRandom_vx(env, 1);
    const std::string expected = FilesAndReports(env);
    const std::string before = setlocale(LC_ALL, nullptr);
    setenv("LOCPATH", folder, 1);
    const bool has_locale = setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
    const bool is_comma = localeconv()->decimal_point[0] == ',';
    const std::string found = FilesAndReports(env);
    setlocale(LC_ALL, before.c_str());
    unsetenv("LOCPATH");
    std::filesystem::remove_all(folder);
    EXPECT_EQ(env.Taken(WARNING_SEVERITY), 0) << env.Message();
    EXPECT_EQ(found, expected);
    if (!has_locale || !is_comma) GTEST_SKIP() << "no locale with a decimal comma can be had here";
}

}  // namespace
