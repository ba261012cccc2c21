// Every net file of the corpus is read, written, read and written again.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "BN/Model/Bnet.h"
#include "Support/Texts.h"
#include "Talora.h"

namespace {

namespace fs = std::filesystem;

class NetFilesTest : public testing::Test {
protected:
    void SetUp() override
    {
        const char* corpus = std::getenv("TALORA_CORPUS");
        if (corpus == nullptr) GTEST_SKIP() << "TALORA_CORPUS is not set: corpus files not read";
        folder_ = corpus;
        env_ = NewTaloraEnviron_vx(nullptr, nullptr);
        ASSERT_GE(InitTalora2_bn(env_, nullptr), 0);
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
    }
    void TearDown() override
    {
        if (env_) CloseTalora_bn(env_, nullptr);
    }

    net_bn* Read(const fs::path& path)
    {
        stream_vx* stream = NewFileStream_vx(path.c_str(), env_, nullptr);
        net_bn* net = ReadNet_bn(stream, NO_WINDOW);
        EXPECT_NE(net, nullptr) << ListErrors_vx(env_, 2, 5);
        DeleteStream_vx(stream);
        return net;
    }
    std::string Rewritten(const std::string& text)
    {
        net_bn* net = ReadNet_bn(NewStreamOf(env_, "m.dne", text), NO_WINDOW);
        EXPECT_NE(net, nullptr) << ListErrors_vx(env_, 2, 5);
        return net ? TextOf(net) : "";
    }
    int NumWarnings()
    {
        int count = 0;
        for (const report_vx* r = nullptr; (r = GetError_vx(env_, WARNING_SEVERITY, 0, r)) != nullptr;)
            ++count;
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        return count;
    }
    static std::string Contents(const fs::path& path)
    {
        std::stringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }

    fs::path folder_;
    environ_vx* env_ = nullptr;
};

// Numbers of more digits than a float holds come out shorter; all else is byte for byte the same.
TEST_F(NetFilesTest, PublishedNetsComeOutAsTheyWentIn)
{
    const std::regex number("\\b[0-9]+\\.?[0-9]*(e[-+][0-9]+)?");
    int files = 0, identical = 0;
    for (const auto& entry : fs::directory_iterator(folder_ / "nets")) {
        if (entry.path().extension() != ".dne") continue;
        SCOPED_TRACE(entry.path().filename());
        net_bn* net = Read(entry.path());
        ASSERT_NE(net, nullptr);
        const std::string written = TextOf(net), original = Contents(entry.path());
        EXPECT_EQ(Rewritten(written), written);
        ++files;
        identical += written == original;
        if (written == original) continue;
        std::istringstream a(written), b(original);
        std::string line_a, line_b;
        while (std::getline(b, line_b) && std::getline(a, line_a)) {
            if (line_a == line_b) continue;
            ASSERT_EQ(std::regex_replace(line_a, number, "0"), std::regex_replace(line_b, number, "0"));
        }
        EXPECT_FALSE(std::getline(a, line_a));
    }
    EXPECT_EQ(NumWarnings(), 0);
    EXPECT_GE(files, 17);
    RecordProperty("identical", identical);
    std::printf("%d of %d nets come out byte for byte\n", identical, files);
}

void ExpectSameModel(const net_bn& a, const net_bn& b)
{
    ASSERT_EQ(a.nodes.nodes.size(), b.nodes.nodes.size());
    for (const node_bn* node : a.nodes.nodes) {
        SCOPED_TRACE(node->name);
        const node_bn* other = talora::FindNode(b, node->name);
        ASSERT_NE(other, nullptr);
        EXPECT_EQ(node->states.num_states, other->states.num_states);
        EXPECT_EQ(node->states.type, other->states.type);
        EXPECT_EQ(node->kind, other->kind);
        EXPECT_EQ(node->tables.probs, other->tables.probs);
        ASSERT_EQ(node->links.size(), other->links.size());
        for (int s = 0; s < talora::NumStates(*node); ++s)
            EXPECT_EQ(talora::StateName(*node, s), talora::StateName(*other, s));
        for (size_t i = 0; i < node->links.size(); ++i)
            EXPECT_EQ(node->links[i].parent->name, other->links[i].parent->name);
    }
}

TEST_F(NetFilesTest, UnusualFormsAreRead)
{
    const auto forms = nlohmann::json::parse(std::ifstream(folder_ / "oracles" / "forms.json"));
    for (const auto& [name, form] : forms.items()) {
        SCOPED_TRACE(name);
        net_bn* net = Read(folder_ / "nets" / "forms" / name);
        ASSERT_NE(net, nullptr);
        EXPECT_EQ(NumWarnings(), form["warnings"].get<int>());
        const std::string written = TextOf(net);
        EXPECT_EQ(Rewritten(written), written);
        if (form.contains("same_as"))
            ExpectSameModel(*net, *Read(folder_ / "nets" / form["same_as"].get<std::string>()));
        if (form.contains("elimination_order")) {
            std::vector<std::string> order;
            for (const node_bn* node : net->elim_order.nodes) order.push_back(node->name);
            EXPECT_EQ(order, form["elimination_order"].get<std::vector<std::string>>());
        }
        if (!form.contains("node_sets")) continue;
        for (const auto& [set_name, members] : form["node_sets"].items()) {
            std::vector<std::string> found;
            for (const node_bn* node : talora::FindNodeSet(*net, set_name)->nodes)
                found.push_back(node->name);
            EXPECT_EQ(found, members.get<std::vector<std::string>>());
        }
    }
}

// Continuous nodes with thresholds and discrete ones with values.
TEST_F(NetFilesTest, LevelsAreRead)
{
    net_bn* net = Read(folder_ / "nets" / "forms" / "alarm_values.dne");
    ASSERT_NE(net, nullptr);
    const node_bn* volume = talora::FindNode(*net, "STROKEVOLUME");
    EXPECT_EQ(volume->states.type, talora::VarType::CONTINUOUS);
    EXPECT_EQ(volume->states.levels, (std::vector<double>{20, 60, 100.5, 140}));
    EXPECT_EQ(TextOf(net), Contents(folder_ / "nets" / "forms" / "alarm_values.dne"));
}

}  // namespace
