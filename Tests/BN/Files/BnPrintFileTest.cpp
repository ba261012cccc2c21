#include "BN/Files/BnPrintFile.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "Support/Texts.h"
#include "Talora.h"

namespace {

class BnPrintFileTest : public testing::Test {
protected:
    void SetUp() override
    {
        env_ = NewTaloraEnviron_vx(nullptr, nullptr);
        ASSERT_GE(InitTalora2_bn(env_, nullptr), 0);
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        net_ = NewNet_bn("New", env_);
        stream_ = NewMemoryStream_vx("test.dne", env_, nullptr);
    }
    void TearDown() override { CloseTalora_bn(env_, nullptr); }

    std::string Written(const net_bn* net)
    {
        WriteNet_bn(net, stream_);
        EXPECT_EQ(GetError_vx(env_, WARNING_SEVERITY, 0, nullptr), nullptr) << ListErrors_vx(env_, 2, 5);
        return ContentsOf(stream_);
    }
    // What is written is read and written again.
    std::string Rewritten()
    {
        net_bn* net = ReadNet_bn(stream_, NO_WINDOW);
        EXPECT_NE(net, nullptr) << ListErrors_vx(env_, 2, 5);
        if (net == nullptr) return "";
        const std::string text = Written(net);
        DeleteNet_bn(net);
        return text;
    }
    node_bn* Add(const char* name, const char* states)
    {
        node_bn* node = NewNode_bn(name, 2, net_);
        SetNodeStateNames_bn(node, states);
        return node;
    }

    environ_vx* env_ = nullptr;
    net_bn* net_ = nullptr;
    stream_vx* stream_ = nullptr;
};

TEST_F(BnPrintFileTest, WritesAnEmptyNet)
{
    SetNetAutoUpdate_bn(net_, 0);
    EXPECT_EQ(Written(net_), "// ~->[DNET-1]->~\n\nbnet New {\n\tautoupdate = FALSE;\n};\n");
    EXPECT_EQ(Rewritten(), Written(net_));
}

TEST_F(BnPrintFileTest, WritesStatementsInOrder)
{
    node_bn* a = Add("A", "yes,no");
    node_bn* b = Add("B", "x,y");
    node_bn* c = NewNode_bn("C", 0, net_);
    AddLink_bn(a, b);
    SetNodeInputName_bn(b, 0, "cause");
    const prob_bn first[] = {0.1f, 0.9f}, second[] = {1e-5f, 0.99999f};
    const state_bn yes[] = {0}, no[] = {1};
    SetNodeProbs_bn(b, yes, first);
    SetNodeProbs_bn(b, no, second);
    SetNodeExperience_bn(b, no, 2.5);
    SetNodeTitle_bn(b, "two\nlines \"quoted\" \\ caf\xC3\xA9");
    const level_bn levels[] = {0, 0.1, 1e20};
    SetNodeLevels_bn(c, 2, levels);
    EnterFinding_bn(a, 1);
    AddNodeToNodeset_bn(b, "Leaves");
    SetNetUserField_bn(net_, "blob", "a\0\xFF\n", 4, 0);
    const std::string expected =
        "// ~->[DNET-1]->~\n\nbnet New {\n\tautoupdate = TRUE;\n\n\tuser UserFields {\n\t\tblob = \"a\\x00\xFF\\n\";\n\t};\n"
        "\n\tnode A {\n\t\tdiscrete = TRUE;\n\t\tstates = (yes, no);\n\t\tkind = NATURE;\n\t\tevidence = no;\n\t};\n"
        "\n\tnode B {\n\t\tdiscrete = TRUE;\n\t\tstates = (x, y);\n\t\tkind = NATURE;\n\t\tinputs = (cause);\n\t\tparents = (A);\n"
        "\t\tprobs = \n\t\t\t((0.1, 0.9),\t// yes\n\t\t\t (1e-05, 0.99999));\t// no\n"
        "\t\tnumcases = \n\t\t\t(0,\t// yes\n\t\t\t 2.5);\t// no\n"
        "\t\ttitle = \"two\\nlines \\\"quoted\\\" \\\\ caf\xC3\xA9\";\n\t};\n"
        "\n\tnode C {\n\t\tdiscrete = FALSE;\n\t\tlevels = (0, 0.1, 1e+20);\n\t\tkind = NATURE;\n\t};\n"
        "\tNodeSet Leaves {Nodes = (B);};\n};\n";
    SetNetAutoUpdate_bn(net_, BELIEF_UPDATE);
    EXPECT_EQ(Written(net_), expected);
    EXPECT_EQ(Rewritten(), expected);
}

// Statements of every kind in other spellings and orders reach a form that stays.
TEST_F(BnPrintFileTest, WrittenTextIsStable)
{
    const struct {
        const char* label;
        const char* body;
        const char* contains;
    } cases[] = {
        {"documentation node", "node Note {};", "\tnode Note {\n\t};\n"},
        {"unnamed states", "node A {numstates = 3; evidence = #2;};", "numstates = 3;"},
        {"range", "node A {discrete = FALSE; levels = (0, INFINITY);};", "levels = (0, INFINITY);"},
        {"one interval", "node A {discrete = FALSE; numstates = 1; levels = (0, 1);};", "numstates = 1;"},
        {"some names", "node A {states = (a, , c); statetitles = (, \"t\",);};", "states = (a, , c);"},
        {"single empty title", "node A {states = (a); StateComments = (\"\");};", "states = (a);"},
        {"undefined level", "node A {discrete = TRUE; states = (a, b); levels = (, 2);};", "levels = (, 2);"},
        {"disconnected node", "param D {states = (a, b);}; node A {parents = (D); inputs = (x);};",
         "param D {"},
        {"unknown kind", "node A {kind = UNKNOWN_KIND; states = (a);};", "kind = UNKNOWN_KIND;"},
        {"function",
         "node P {states = (a, b);}; node A {states = (x, y); parents = (P); functable = (y, @imposs);};",
         "(y,\t// a\n\t\t\t @imposs);\t// b\n"},
        {"utilities",
         "node P {kind = DECISION; states = (a, b);}; node U {kind = UTILITY; discrete = FALSE; parents = (P); functable = (-1.5, @undef);};",
         "(-1.5,\t// a\n\t\t\t @undef);\t// b\n"},
        {"constant function", "node A {states = (x, y); functable = y;};", "functable = \n\t\t\ty;\n"},
        {"delays",
         "numdimensions = 2; node A {}; node B {parents = (A, B); delays = ((0, 0), (1, 0)); position = (1, 2);};",
         "delays = ((0, 0), (1, 0));"},
        {"impossible and missing", "node A {states = (x, y); probs = (@undef, 0.5);};", "(@undef, 0.5);"},
        {"one undefined level", "node A {discrete = TRUE; states = (a); levels = (\"\");};",
         "levels = (\"\");"},
        {"level of 17 digits",
         "node A {discrete = FALSE; levels = (0, 0.30000000000000004); value = 0.30000000000000004;};",
         "levels = (0, 0.30000000000000004);"},
        {"level of 15 digits", "node A {discrete = FALSE; levels = (0.1, 1e5);};", "levels = (0.1, 100000);"},
        {"numbers that cannot be",
         "node P {states = (a, b);}; node A {discrete = FALSE; parents = (P); functable = (@imposs, 2);};",
         "(@imposs,\t// a\n\t\t\t 2);\t// b\n"},
        {"no number at all", "node A {states = (x); levels = (2); functable = (undef);};",
         "\n\t\t\t@undef_value;\n"},
        {"every state",
         "node P {states = (a, b);}; node A {states = (INFINITY, y); parents = (P); functable = (@any, @uniform);};",
         "(@any,\t// a\n\t\t\t @uniform);\t// b\n"},
        {"state called infinity", "node A {states = (INFINITY, y); functable = INFINITY;};",
         "functable = \n\t\t\tINFINITY;\n"},
        {"two states of one level", "node A {states = (a, b); levels = (1, 1); evidence = b; value = 1;};",
         "evidence = b;\n\t\tvalue = 1;"},
        {"zero delay", "numdimensions = 1; node A {}; node B {parents = (A); delays = ((0e5));};",
         "parents = (A);\n\t};"},
        {"dimensions behind the nodes",
         "node A {}; node B {parents = (A, B); delays = ((0), (2)); persist = (0);}; numdimensions = 1;",
         "delays = ((0), (2));\n\t\tpersist = (0);"},
        {"original parent",
         "param S {user UserFields {u = \"1\"; Talora_original_parent = \"A\";};}; node B {parents = (S);};",
         "user UserFields {\n\t\t\tu = \"1\";\n\t\t\tTalora_original_parent = \"A\";\n\t\t};"},
        {"note with an equation", "node A {kind = UNKNOWN_KIND; equation = \"A = 1\";};",
         "kind = UNKNOWN_KIND;"},
        {"fields of define nodes",
         "define node T {user F {x = \"1\"; y = \"2\";};}; define node U (T) {user G {z = \"3\";};}; node A (U, T) {user H {y = \"9\";};};",
         "user H {\n\t\t\ty = \"9\";\n\t\t\tz = \"3\";\n\t\t\tx = \"1\";\n\t\t};"},
        {"least float", "node A {states = (x, y); probs = (1e-45, 1); likelihood = (1e-45, 3.4028235e38);};",
         "likelihood = (1e-45, 3.4028235e+38);"},
        {"short floats", "node A {states = (x, y, z); probs = (0.1000000001, 0.123456789, .77654321);};",
         "(0.1, 0.12345679, 0.7765432);"},
        {"verbatim section", "user U {a = 1; b {\"};\"} // c };\n\t};",
         "\n\tuser U {a = 1; b {\"};\"} // c };\n\t};\n"},
        {"two visual sections", "visual V1 {\n\t\ta;\n\t}; visual V2 { b };",
         "visual V1 {\n\t\ta;\n\t};\n\n\tvisual V2 { b };\n"},
        {"sections of a node", "node A {user U {x = 1;}; user F {y = \"2\";}; visual V {z;};};",
         "user U {x = 1;};"},
        {"user fields", "user Mine {  x=\"1\";y = \"\\\"\"; };",
         "user Mine {\n\t\tx = \"1\";\n\t\ty = \"\\\"\";\n\t};\n"},
        {"empty section", "user U {};", "\tuser U {};\n"},
        {"value", "node A {discrete = FALSE; levels = (0, 1, 2); value = 0.30000000000000004;};",
         "value = 0.30000000000000004;"},
        {"base and change",
         "author = \"me\"; whenchanged = 4294967295; node A {states = (a); ExperBase = 0.5; EqnDirty = TRUE;};",
         "whenchanged = 4294967295;"},
        {"elimination order", "node A {states = (a);}; node B {states = (a);}; ElimOrder = (B, A);",
         "\tElimOrder = (B, A);\n};\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        const std::string text = std::string("// ~->[DNET-1]->~\nbnet N {") + c.body + "};";
        SetStreamContents_vx(stream_, text.data(), static_cast<int64_t>(text.size()));
        net_bn* net = ReadNet_bn(stream_, NO_WINDOW);
        ASSERT_NE(net, nullptr) << ListErrors_vx(env_, 2, 5);
        const std::string written = Written(net);
        EXPECT_NE(written.find(c.contains), std::string::npos) << written;
        EXPECT_EQ(Rewritten(), written);
        DeleteNet_bn(net);
    }
}

// What cannot be saved as it is, is reported.
TEST_F(BnPrintFileTest, LossesAreReported)
{
    const auto last = [this] {
        const report_vx* error = GetError_vx(env_, WARNING_SEVERITY, 0, nullptr);
        const int number = error == nullptr ? 0 : -ErrorNumber_vx(error);
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        return number;
    };
    node_bn* a = Add("A", "yes,no");
    AddLink_bn(a, Add("B", "x,y"));
    node_bn* b = GetNodeNamed_bn("B", net_);
    const level_bn levels[] = {1, 2};
    SetNodeLevels_bn(b, 2, levels);
    SetNodeInputDelay_bn(b, 0, "-1");
    EXPECT_EQ(last(), 7251);
    SetNodeInputDelay_bn(b, 0, "1");
    SetNetNumDimensions_bn(net_, 2);
    WriteNet_bn(net_, stream_);
    EXPECT_EQ(last(), 7250);
    EXPECT_NE(std::string(GetStreamContents_vx(stream_, nullptr)).find("delays = ((1, 0));"),
              std::string::npos);
    SetNetNumDimensions_bn(net_, 1);
    const state_bn yes[] = {0};
    SetNodeFuncReal_bn(b, yes, 1);
    SetNodeFuncState_bn(b, yes, 1);
    WriteNet_bn(net_, stream_);
    EXPECT_EQ(last(), 7254);
    // The file stays what it was.
    const std::string before = GetStreamContents_vx(stream_, nullptr);
    const checking_vx level = ArgumentChecking_vx(CHECK_HANDLES, env_);
    const prob_bn odd[] = {-0.5f, 1.5f};
    SetNodeProbs_bn(a, nullptr, odd);
    ArgumentChecking_vx(level, env_);
    EXPECT_EQ(last(), 0);
    WriteNet_bn(net_, stream_);
    EXPECT_EQ(last(), 7253);
    EXPECT_EQ(GetStreamContents_vx(stream_, nullptr), before);
    DeleteNodeTables_bn(a);
    SetNetTitle_bn(net_, std::string((16 << 20) + 1, 'x').c_str());
    WriteNet_bn(net_, stream_);
    EXPECT_EQ(last(), 7253);
}

// A value that a new range leaves out goes, as one does that is in no interval any more.
TEST_F(BnPrintFileTest, RangesBoundValues)
{
    node_bn* c = NewNode_bn("C", 0, net_);
    EnterNodeValue_bn(c, 7);
    const level_bn wide[] = {0, 10}, narrow[] = {5, 0};
    SetNodeLevels_bn(c, 0, wide);
    EXPECT_EQ(GetNodeValueEntered_bn(c), 7);
    SetNodeLevels_bn(c, 0, narrow);
    EXPECT_FALSE(HasNodeFinding_bn(c));
}

TEST_F(BnPrintFileTest, FilesAreWrittenAndRead)
{
    const std::string path = (std::filesystem::temp_directory_path() / "talora-print-test.dne").string();
    stream_vx* file = NewFileStream_vx(path.c_str(), env_, nullptr);
    Add("A", "yes,no");
    WriteNet_bn(net_, file);
    net_bn* net = ReadNet_bn(file, REGULAR_WINDOW);
    ASSERT_NE(net, nullptr) << ListErrors_vx(env_, 2, 5);
    EXPECT_EQ(Written(net), Written(net_));
    std::filesystem::remove(path);
    EXPECT_EQ(ReadNet_bn(file, 0), nullptr);
    EXPECT_NE(GetError_vx(env_, ERROR_SEVERITY, 5177, nullptr), nullptr);
    EXPECT_EQ(ReadNet_bn(file, NO_WINDOW), nullptr);
    EXPECT_NE(GetError_vx(env_, ERROR_SEVERITY, 4030, nullptr), nullptr);
}

// A net that cannot be compiled is read all the same, with the reason as a warning.
TEST_F(BnPrintFileTest, FailedAutoCompileKeepsTheNet)
{
    const std::string text =
        "// ~->[DNET-1]->~\nbnet N {AutoCompile = TRUE; numdimensions = 1; node A {states = (a, b);};"
        "node B {states = (a, b); parents = (A); delays = ((1));};};";
    SetStreamContents_vx(stream_, text.data(), static_cast<int64_t>(text.size()));
    EXPECT_NE(ReadNet_bn(stream_, NO_WINDOW), nullptr);
    EXPECT_EQ(GetError_vx(env_, ERROR_SEVERITY, 0, nullptr), nullptr);
    EXPECT_NE(GetError_vx(env_, WARNING_SEVERITY, 0, nullptr), nullptr);
}

}  // namespace
