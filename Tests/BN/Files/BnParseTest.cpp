#include "BN/Files/BnParse.h"

#include <gtest/gtest.h>

#include "Basic/Memory.h"
#include "Talora.h"

namespace talora {
namespace {

const std::string kHeader = "// ~->[DNET-1]->~\n\n";

class BnParseTest : public testing::Test {
protected:
    void SetUp() override
    {
        env_ = NewTaloraEnviron_vx(nullptr, nullptr);
        ASSERT_GE(InitTalora2_bn(env_, nullptr), 0);
        ClearErrors_vx(env_, INTERNAL_SEVERITY);  // of other tests
        stream_ = NewMemoryStream(*env_, "test.dne");
    }
    void TearDown() override { CloseTalora_bn(env_, nullptr); }

    // Reads a whole file; the numbers of all its records, oldest first, are in numbers_.
    Net* Read(const std::string& text, const ReadNetOptions& options = {})
    {
        SetContents(*stream_, text);
        Net* net = nullptr;
        try {
            net = ReadNet(*stream_, options);
        } catch (const Unwind&) {
        } catch (const OutOfMemory&) {
            numbers_ = {5622};
            return nullptr;
        }
        numbers_.clear();
        messages_.clear();
        for (const report_vx* r = nullptr; (r = GetError_vx(env_, NULL_SEVERITY, 0, r)) != nullptr;) {
            numbers_.insert(numbers_.begin(), -ErrorNumber_vx(r));
            messages_.insert(messages_.begin(), ErrorMessage_vx(r));
        }
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        return net;
    }
    Net* ReadBody(const std::string& body) { return Read(kHeader + "bnet N {" + body + "};"); }

    environ_vx* env_ = nullptr;
    Stream* stream_ = nullptr;
    std::vector<int> numbers_;
    std::vector<std::string> messages_;
};

// A node A among parents P (yes, no), Q (a, b, c), continuous C, discretised D, and define node T.
std::string WithNode(const std::string& body)
{
    return "numdimensions = 1; define node T {states = (yes, no); kind = NATURE; discrete = TRUE;};"
           "node P (T) {}; node Q {states = (a, b, c);}; node C {discrete = FALSE;};"
           "node D {discrete = FALSE; levels = (0, 1, 2);};"
           "node A {\n" +
           body + "};";
}

using Numbers = std::vector<int>;

TEST_F(BnParseTest, FaultsOfNodeStatements)
{
    const struct {
        const char* label;
        std::string body;
        Numbers numbers;
        bool net_is_read;
    } cases[] = {
        {"nothing wrong", "states = (x, y); parents = (P, Q); title = \"t\";", {}, true},
        {"unknown field", "foo = (1, {2;}, \"};\"); states = (x, y);", {3291}, true},
        {"unknown object", "shape s {a = 1;}; states = (x, y);", {3291}, true},
        {"no equals sign", "title \"x\";", {2922}, false},
        {"no semicolon", "title = \"x\" }; node B {", {2926}, false},
        {"stray punctuation", "= 5;", {2919}, false},
        {"twice", "title = \"x\"; title = \"y\";", {2924}, true},
        {"not implemented", "children = (P);", {3021}, true},
        {"count below 1", "numstates = 0;", {2948}, true},
        {"discrete without states", "numstates = 0; discrete = TRUE;", {2948, 4137}, true},
        {"count and names differ", "numstates = 3; states = (a, b);", {2950}, false},
        {"names and count differ", "states = (a, b); numstates = 3;", {2949}, false},
        {"illegal state name", "states = (a, 2b);", {2917}, false},
        {"state named twice", "states = (a, b, a);", {2928}, false},
        {"illegal name in quotes", "states = (a, \"2b\");", {2917}, false},
        {"list without brackets", "states = a, b;", {3293}, false},
        {"list without anything", "states = ;", {3298}, false},
        {"list that does not end", "states = (a, b;", {3298}, false},
        {"list without commas", "states = (a b);", {3297}, false},
        {"other name", "name = Z; states = (a, b);", {}, true},
        {"name of another node", "name = P;", {2928}, false},
        {"titles of other states", "states = (a, b); statetitles = (\"x\");", {2951}, true},
        {"comments of other states", "states = (a, b); StateComments = (\"x\");", {2952}, true},
        {"one threshold", "discrete = FALSE; levels = (1);", {2953}, false},
        {"levels per state", "discrete = TRUE; states = (a, b); levels = (1, 2, 3);", {2954}, false},
        {"thresholds of states", "states = (a, b); discrete = FALSE; levels = (1, 2);", {2954}, false},
        {"levels before discrete", "levels = (1, 2, 3); discrete = FALSE; states = (a, b);", {}, true},
        {"thresholds up and down", "discrete = FALSE; levels = (1, 3, 2);", {2972}, false},
        {"illegal words", "discrete = X; measure = X; chance = X; kind = X;", {2945, 2946, 2947, 2955}, true},
        {"illegal EqnDirty", "EqnDirty = PERHAPS;", {2976}, true},
        {"not a string", "title = x;", {2978}, false},
        {"undefined parent", "parents = (P, Nobody);", {3295}, false},
        {"define node as parent", "parents = (T);", {2957}, false},
        {"parent twice", "parents = (P, P);", {2928}, false},
        {"no comma", "parents = (P Q);", {3297}, false},
        {"no closing bracket", "parents = (P, Q; title = \"\";", {3298}, false},
        {"bad punctuation", "parents = (P, =);", {3296}, false},
        {"own parent", "parents = (A);", {3278}, false},
        {"inputs without parents", "inputs = (x);", {2941}, false},
        {"too few inputs", "parents = (P, Q); inputs = (x);", {2956}, false},
        {"too few inputs before parents", "inputs = (x); parents = (P, Q);", {3403}, false},
        {"delays of no parent", "delays = ((1));", {2941}, false},
        {"delays and inputs of no parent", "delays = ((1)); inputs = (x);", {2941}, false},
        {"delays and other inputs", "delays = ((1), (1)); inputs = (x);", {3402}, false},
        {"inputs and delays differ", "inputs = (x); delays = ((1), (1)); parents = (P);", {2937}, false},
        {"delay vector without brackets", "parents = (P); delays = (1);", {2959}, false},
        {"delays without brackets", "parents = (P); delays = 1;", {2958}, false},
        {"delay lengths", "parents = (P, Q); delays = ((1), (1, 2));", {2961}, false},
        {"delay dimensions", "parents = (P); delays = ((1, 2));", {2963}, false},
        {"delay no number", "parents = (P); delays = ((x));", {3026, 2938}, false},
        {"negative delay", "parents = (P); delays = ((-1));", {7252}, false},
        {"disconnected behind its parents", "parents = (P); kind = DISCONNECTED;", {2939}, false},
        {"delays fine", "parents = (P, A); delays = ((0), (1));", {}, true},
        {"persist dimensions", "persist = (1, 2);", {2967}, true},
        {"position dimensions", "position = (1, 2);", {2968}, true},
        {"persist without brackets", "persist = 1;", {2965}, true},
        {"negative experience base", "ExperBase = -1;", {3597}, true},
        {"bad number", "ExperBase = 1.2.3;", {4001}, false},
        {"number out of range", "ExperBase = 1e999;", {4134}, false},
        {"integer out of range", "numstates = 99999999999999999999;", {4134}, false},
        {"states without thresholds", "discrete = FALSE; states = (x, y);", {2942}, false},
        {"evidence without states", "evidence = a;", {2969}, false},
        {"unknown evidence", "states = (a, b); evidence = c;", {2970}, false},
        {"evidence by number", "numstates = 2; evidence = #1;", {}, true},
        {"evidence against likelihood", "states = (a, b); likelihood = (0, 1); evidence = a;", {4139}, false},
        {"likelihood against evidence", "states = (a, b); evidence = a; likelihood = (0, 1);", {4140}, false},
        {"likelihood entries", "states = (a, b); likelihood = (1, 1, 1);", {2971}, false},
        {"negative likelihood", "states = (a, b); likelihood = (1, -1);", {3597}, false},
        {"value out of range", "discrete = FALSE; levels = (0, 1, 2); value = 3;", {2974}, false},
        {"value out of bounds", "discrete = FALSE; levels = (2, 0); value = 3;", {2974}, false},
        {"value against evidence",
         "discrete = FALSE; levels = (0, 1, 2); evidence = #0; value = 1.5;",
         {2975},
         false},
        {"finding in words", "states = (a, b); Finding = \"not a\";", {}, true},
        {"finding by number", "states = (a, b); Finding = \"#1\";", {}, true},
        {"finding by value", "discrete = FALSE; levels = (2, 0); Finding = \"1.5\";", {}, true},
        {"finding not understood", "states = (a, b); Finding = \"a or so\";", {3344}, true},
        {"beliefs", "states = (a, b); belief = (1, 0, 0);", {3019}, true},
        {"visual before parents", "states = (a, b); visual V {x;}; parents = (P);", {2932}, true},
        {"block does not end", "title = \"x\";};", {}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        Net* net = ReadBody(WithNode(c.body));
        EXPECT_EQ(numbers_, c.numbers) << (messages_.empty() ? "" : messages_[0]);
        EXPECT_EQ(net != nullptr, c.net_is_read);
        if (net) DeleteNet(net);
        EXPECT_TRUE(env_->nets.empty());
    }
}

TEST_F(BnParseTest, FaultsOfTables)
{
    const std::string ab = "states = (x, y); parents = (P, Q); ";
    const struct {
        const char* label;
        std::string body;
        Numbers numbers;
        bool net_is_read;
    } cases[] = {
        {"full nesting", ab + "probs = (((1,0),(1,0),(1,0)),((0,1),(0,1),(0,1)));", {}, true},
        {"flat", ab + "probs = (1,0,1,0,1,0,0,1,0,1,0,1);", {}, true},
        {"no brackets", ab + "probs = 1,0,1,0,1,0,0,1,0,1,0,1;", {}, true},
        {"rows", ab + "probs = ((1,0),(1,0),(1,0),(0,1),(0,1),(0,1));", {}, true},
        {"outer groups", ab + "probs = ((1,0,1,0,1,0),(0,1,0,1,0,1));", {}, true},
        {"groups across rows", ab + "probs = ((1,0,1),(0,1,0),(0,1,0),(1,0,1));", {2987}, false},
        {"table before parents", "states = (x, y); probs = ((1,0),(0,1)); parents = (P);", {}, true},
        {"table before states", "probs = (1, 0); states = (x, y);", {}, true},
        {"escapes", ab + "probs = (@undef,@undef,@imposs,@imposs,1,0,0,0,0,1,0,1);", {}, true},
        {"too many brackets", ab + "probs = ((((1,0", {2982}, false},
        {"row too short", ab + "probs = (((1),(1,0)", {2987}, false},
        {"row too long", ab + "probs = (((1,0,0)", {2988}, false},
        {"one bracket of two", ab + "probs = (((1,0),(1,0),(1,0),(0,1)", {2989}, false},
        {"brackets closed too early", ab + "probs = (((1,0)),", {2990}, false},
        {"extra bracket at the end", "states = (x, y); probs = (1,0));", {2991}, false},
        {"entries missing", ab + "probs = (((1,0),(1,0),(1,0)),((0,1),(0,1)));", {2990}, false},
        {"list ends early", ab + "probs = 1,0,1,0;", {2993}, false},
        {"entries too many", "states = (x, y); probs = (1,0,0);", {2988}, false},
        {"rows too many", ab + "probs = (1,0,1,0,1,0,0,1,0,1,0,1),(1,0);", {2988}, false},
        {"no entries", "states = (x, y); probs = ;", {2993}, false},
        {"bracket missing on the way", ab + "probs = (((1,0),(1,0),(1,0)),0,1", {2992}, false},
        {"no closing bracket", "states = (x, y); probs = (1,0;", {2989}, false},
        {"no comma", "states = (x, y); probs = (1 0);", {2986}, false},
        {"punctuation", "states = (x, y); probs = (1 = 0);", {2992}, false},
        {"no number", "states = (x, y); probs = (1, z);", {2983}, false},
        {"negative", "states = (x, y); probs = (1.5, -0.5);", {2983}, false},
        {"unknown escape", "states = (x, y); probs = (1, @foo);", {2984}, false},
        {"half impossible", "states = (x, y); probs = (1, @imposs);", {2983}, false},
        {"sum within 2e-6", "states = (x, y); probs = (0.3, 0.7000015);", {}, true},
        {"sum not 1", "states = (x, y); probs = (0.3, 0.7001);", {2994}, true},
        {"continuous node", "discrete = FALSE; probs = (1, 0);", {2980}, false},
        {"no states", "discrete = TRUE; probs = (1, 0);", {2941}, false},
        {"continuous parent", "states = (x, y); parents = (C); probs = (1, 0);", {2981}, false},
        {"discretised parent", "states = (x, y); parents = (D); probs = ((1,0),(0,1));", {}, true},
        {"function", "states = (x, y); parents = (Q); functable = (x, @undef, #1);", {}, true},
        {"function of unknown state",
         "states = (x, y); parents = (Q); functable = (x, z, y);",
         {2985},
         false},
        {"real function", "discrete = FALSE; parents = (Q); functable = (1.5, @undef, -2e3);", {}, true},
        {"by condition", ab + "functable = (no, @any) : x, (yes, b) : y;", {}, true},
        {"more conditions than rows",
         "states = (x, y); parents = (P); functable = (no) : x, (no) : y, (yes) : x;",
         {2996},
         false},
        {"condition too short", ab + "functable = (no) : x;", {2551}, false},
        {"condition without brackets", ab + "functable = (no, a) : x, y;", {2992}, false},
        {"condition too long", ab + "functable = (no, a, b) : x;", {2554}, false},
        {"condition empty", ab + "functable = (no, a) : x, (no, ,) : x;", {2553}, false},
        {"condition of unknown state", ab + "functable = (no, d) : x;", {2550}, false},
        {"experience", ab + "numcases = ((1,2,3),(4,5,6e3));", {}, true},
        {"negative experience", "states = (x, y); numcases = -1;", {2983}, false},
        {"experience in words", "states = (x, y); numcases = many;", {2983}, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        Net* net = ReadBody(WithNode(c.body));
        EXPECT_EQ(numbers_, c.numbers) << (messages_.empty() ? "" : messages_[0]);
        EXPECT_EQ(net != nullptr, c.net_is_read);
        if (net) DeleteNet(net);
    }
}

TEST_F(BnParseTest, FaultsOfFilesAndNets)
{
    const struct {
        const char* label;
        std::string text;
        Numbers numbers;
        bool net_is_read;
    } cases[] = {
        {"smallest", kHeader + "bnet New {};", {}, true},
        {"behind a byte-order mark", "\xEF\xBB\xBF" + kHeader + "bnet New {};", {}, true},
        {"no header", "bnet New {};", {4109}, false},
        {"another file", "// ~->[TALA=1]->~ 1 2\r\n", {4109}, false},
        {"empty", "", {4109}, false},
        {"newer version", "// ~->[DNET-2]->~\nbnet New {};", {2912}, true},
        {"no version", "// ~->[DNET]->~\nbnet New {};", {2912}, true},
        {"no semicolon behind another object", kHeader + "foo F {a = 1;} bnet New {};", {3341, 2915}, false},
        {"no semicolon before the net", kHeader + "foo bnet New {};", {3341, 2915}, false},
        {"other objects first", kHeader + "foo F {a = 1;}; bnet New {};", {3341}, true},
        {"no word", kHeader + "{", {2913}, false},
        {"no net", kHeader, {2920}, false},
        {"illegal name", kHeader + "bnet 1x {};", {2917}, false},
        {"no brace", kHeader + "bnet New;", {2916}, false},
        {"no end", kHeader + "bnet New {", {2927}, false},
        {"no last semicolon", kHeader + "bnet New {}", {2914}, false},
        {"no semicolon behind a node", kHeader + "bnet N {node A {}}", {2925}, false},
        {"node without end", kHeader + "bnet N {node A {title = \"\"; ", {2933}, false},
        {"field twice", kHeader + "bnet N {title = \"a\"; title = \"b\";};", {2923}, true},
        {"field not implemented", kHeader + "bnet N {nodes = (a);};", {2943}, true},
        {"unknown field", kHeader + "bnet N {foo = 1;};", {3291}, true},
        {"old elimination order", kHeader + "bnet N {elimorder = (a, b);};", {}, true},
        {"bad boolean", kHeader + "bnet N {autoupdate = YES;};", {2977}, false},
        {"node twice", kHeader + "bnet N {node A {}; node A {};};", {2928}, false},
        {"define node missing", kHeader + "bnet N {node A (D) {};};", {2929}, false},
        {"define node later", kHeader + "bnet N {node A (D) {}; define node D {};};", {2929}, false},
        {"define node twice", kHeader + "bnet N {define node D {}; define node D {};};", {2928}, false},
        {"define of something else", kHeader + "bnet N {define shape S {a = 1;}; node A {};};", {3291}, true},
        {"punctuation in a define node", kHeader + "bnet N {define node D {= 5;};};", {2919}, false},
        {"fields of a define node",
         kHeader + "bnet N {define node D {foo = 1; title = \"a\"; title = \"b\"; visual V {};};};",
         {3291, 2924},
         true},
        {"other name of the net", kHeader + "bnet N {name = M;};", {}, true},
        {"define node in the order", kHeader + "bnet N {define node D {}; ElimOrder = (D);};", {2944}, false},
        {"unknown node in the order", kHeader + "bnet N {ElimOrder = (A);};", {3295}, false},
        {"node sets before nodes", kHeader + "bnet N {NodeSet S {Nodes = (A);}; node A {};};", {}, true},
        {"node set twice",
         kHeader + "bnet N {NodeSet S {Nodes = ();}; NodeSet S {Nodes = ();};};",
         {4116},
         false},
        {"node set without brace", kHeader + "bnet N {NodeSet S;};", {4115}, false},
        {"node set without equals", kHeader + "bnet N {NodeSet S {Nodes ();};};", {4117}, false},
        {"node set without semicolon", kHeader + "bnet N {NodeSet S {Nodes = ()};};", {4118}, false},
        {"parents declared later", kHeader + "bnet N {node B {parents = (A);}; node A {};};", {}, true},
        {"cycle", kHeader + "bnet N {node B {parents = (A);}; node A {parents = (B);};};", {3278}, false},
        {"comment without end", kHeader + "bnet N {/* };", {4091}, false},
        {"comment without end in what is skipped", kHeader + "bnet N {x = (/* };", {3291, 4093}, false},
        {"nested comment without end", kHeader + "bnet N {/# /# #/ };", {4092}, false},
        {"nested comment without end in a section", kHeader + "bnet N {user U {/# };", {4094}, false},
        {"string without end", kHeader + "bnet N {title = \"};", {4101}, false},
        {"long name", kHeader + "bnet N {node " + std::string(10 << 20, 'a') + " {};};", {4102}, false},
        {"deep brackets", kHeader + "bnet N {x = " + std::string(100000, '('), {3291, 4104}, false},
        {"deep sections", kHeader + "bnet N {user U {" + std::string(100000, '{'), {4104}, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        Net* net = Read(c.text);
        EXPECT_EQ(numbers_, c.numbers) << (messages_.empty() ? "" : messages_[0]);
        EXPECT_EQ(net != nullptr, c.net_is_read);
        if (net) DeleteNet(net);
        EXPECT_TRUE(env_->nets.empty());
    }
}

TEST_F(BnParseTest, MessagesNameThePlace)
{
    EXPECT_EQ(ReadBody("\r\n\rnode A {\n  numstates = x;};"), nullptr);
    EXPECT_EQ(
        messages_[0],
        "there is not a valid number starting with 'x', on line 6, in file 'test.dne', while reading field `numstates` of node 'A'");
    EXPECT_EQ(
        ReadBody("node A {states = (x, y);}; node B {states = (x, y); parents = (A); probs = (1,0,0.5,z);};"),
        nullptr);
    EXPECT_EQ(messages_[0].substr(0, 62), "'z' is not a valid number in table entry [y] of node B, on lin");
    Net* net = ReadBody("nodes = (A); node A {children = (B);};");
    EXPECT_EQ(messages_[0].substr(messages_[0].find(", while")), ", while reading field `nodes` of net 'N'");
    EXPECT_EQ(messages_[1].substr(messages_[1].find(", while")),
              ", while reading field `children` of node 'A'");
    DeleteNet(net);
    // A string that does not end is reported where it begins.
    EXPECT_EQ(ReadBody("\ntitle = \"x\n\n\n"), nullptr);
    EXPECT_EQ(messages_[0].substr(0, 44), "unterminated quote (\"), starting, on line 4,");
}

TEST_F(BnParseTest, RepeatedWarningsAreReportedOnce)
{
    std::string body;
    for (int i = 0; i < 1000; ++i) body += "foo = 1;";
    Net* net = ReadBody(body);
    ASSERT_NE(net, nullptr);
    EXPECT_EQ(numbers_.size(), 21u);
    EXPECT_EQ(messages_.back().substr(0, 46), "More warnings of the form: unknown field 'foo'");
    DeleteNet(net);
}

TEST_F(BnParseTest, ReadingCanBeHalted)
{
    std::string text = kHeader + "bnet N {";
    while (text.size() < (3 << 20))
        text += "node A" + std::to_string(text.size()) + " {comment = \"" + std::string(999, 'c') + "\";};";
    SetContents(*stream_, text + "};");
    env_->halt = true;
    EXPECT_EQ(ReadNet_bn(stream_, NO_WINDOW), nullptr);
    EXPECT_NE(GetError_vx(env_, ERROR_SEVERITY, 3605, nullptr), nullptr);
    EXPECT_TRUE(env_->nets.empty());
    env_->halt = false;
    EXPECT_NE(ReadNet_bn(stream_, NO_WINDOW), nullptr);
    // The user is asked about another version and may prefer not to read on.
    SetQuestionHandler_vx(
        env_, [](environ_vx*, const char*, const char*, const char*, void*) { return 1; }, nullptr);
    ClearErrors_vx(env_, INTERNAL_SEVERITY);
    SetContents(*stream_, "// ~->[DNET-2]->~\nbnet New {};");
    EXPECT_EQ(ReadNet_bn(stream_, NO_WINDOW), nullptr);
    EXPECT_NE(GetError_vx(env_, ERROR_SEVERITY, 3605, nullptr), nullptr);
}

// Statements of define nodes stand for those that the node does not give.
TEST_F(BnParseTest, DefineNodesAreInherited)
{
    const std::string body =
        "define node Base {states = (a, b); title = \"base\"; comment = \"c\";};"
        "define node Derived (Base) {title = \"derived\"; probs = (0.25, 0.75);};"
        "node A (Derived) {comment = \"own\";};"
        "node B (Base, Derived) {parents = (A); probs = (1, 0, 0, 1);};";
    Net* net = ReadBody(body);
    ASSERT_NE(net, nullptr) << messages_[0];
    EXPECT_TRUE(numbers_.empty());
    const Node& a = *FindNode(*net, "A");
    const Node& b = *FindNode(*net, "B");
    EXPECT_EQ(a.text.title, "derived");
    EXPECT_EQ(a.text.comment, "own");
    EXPECT_EQ(StateName(a, 1), "b");
    EXPECT_EQ(a.tables.probs, (TableVector<float>{0.25f, 0.75f}));
    EXPECT_EQ(b.text.title, "base");  // of the first that gives it
    EXPECT_EQ(b.tables.probs.size(), 4u);
    DeleteNet(net);

    const struct {
        const char* label;
        const char* statement;
        int number;
    } cases[] = {{"given again", "comment = \"own\";", 2930},
                 {"too late for the table", "parents = ();", 2931}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        net = Read(
            kHeader +
                "bnet N {define node D {states = (a, b); comment = \"c\"; probs = (1, 0);}; node A (D) {" +
                c.statement + "};};",
            {.keep_visual = true, .single_pass = true});
        ASSERT_NE(net, nullptr) << messages_[0];
        EXPECT_EQ(numbers_, Numbers{c.number});
        DeleteNet(net);
    }
}

TEST_F(BnParseTest, SinglePassNeedsOrder)
{
    const struct {
        const char* body;
        int number;
    } cases[] = {
        {"node B {parents = (A);}; node A {};", 3295},
        {"node A {states = (x, y);}; node B {states = (x, y); probs = (1, 0); parents = (A);};", 2940},
        {"node A {probs = (1, 0); states = (x, y);};", 2941},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body);
        EXPECT_EQ(Read(kHeader + "bnet N {" + c.body + "};", {.keep_visual = true, .single_pass = true}),
                  nullptr);
        EXPECT_EQ(numbers_, Numbers{c.number});
    }
}

TEST_F(BnParseTest, ValuesArriveInTheModel)
{
    Net* net = ReadBody(WithNode(
        "kind = INPUT; measure = RATIONAL; chance = DETERMIN; EqnDirty = MAYBE; units = \"m\"; whenchanged = 4000000000;"
        "states = (x, , z); statetitles = (\"X\", , \"Z\"); levels = (1, INFINITY, ); discrete = TRUE;"
        "likelihood = (0.5, 0, 1); evidence = x; position = (3); user U {f1 = \"a\\x00b\"; f2 = \"\";};"));
    ASSERT_NE(net, nullptr) << messages_[0];
    const Node& a = *FindNode(*net, "A");
    EXPECT_EQ(a.kind, DISCONNECTED_NODE);
    EXPECT_EQ(a.measure, Measure::RATIO);
    EXPECT_EQ(a.relation, Relation::DETERMIN);
    EXPECT_EQ(a.eqn_dirty, EqnDirty::MAYBE);
    EXPECT_EQ(a.units, "m");
    EXPECT_EQ(a.text.when_changed, 4000000000u);
    EXPECT_EQ(NumStates(a), 3);
    EXPECT_EQ(StateName(a, 1), "");
    EXPECT_EQ(StateTitle(a, 2), "Z");
    EXPECT_EQ(a.states.levels, (std::vector<double>{1, InfinityDbl(), UndefDbl()}));
    EXPECT_EQ(a.finding.state, 0);
    EXPECT_EQ(a.finding.likelihood.size(), 3u);
    EXPECT_EQ(a.position, "3");
    EXPECT_EQ(a.text.user_fields, (std::vector<UserField>{{"f1", std::string("a\0b", 3)}, {"f2", ""}}));
    EXPECT_EQ(FindNode(*net, "P")->kind, NATURE_NODE);
    DeleteNet(net);
}

TEST_F(BnParseTest, VisualInformationCanBeLeftOut)
{
    const std::string text = kHeader + "bnet N {visual V {a = 1;}; node A {visual V {b};};};";
    Net* net = Read(text, {.keep_visual = false});
    ASSERT_NE(net, nullptr);
    EXPECT_EQ(net->text.visual_name + FindNode(*net, "A")->text.visual_name, "");
    DeleteNet(net);
}

// What a file only declares must not take memory.
TEST_F(BnParseTest, DeclarationsTakeNoMemory)
{
    std::string parents, nodes;
    for (int i = 0; i < 40; ++i) {
        const std::string name = "P" + std::to_string(i);
        nodes += "node " + name + " {numstates = 2;};";
        parents += (i ? ", " : "") + name;
    }
    const std::string big = "define node D {numstates = 2; comment = \"" + std::string(100000, 'x') + "\";};";
    std::string heirs;
    for (int i = 0; i < 2000; ++i) heirs += "node H" + std::to_string(i) + " (D) {};";
    const struct {
        const char* label;
        std::string body;
        bool net_is_read;
    } cases[] = {
        {"two billion states", "node A {numstates = 2000000000;};", true},
        {"their probabilities", "node A {numstates = 2000000000; probs = (1, 0);};", false},
        {"a finding for them", "node A {numstates = 2000000000; Finding = \"not #1\";};", false},
        {"forty binary parents",
         nodes + "node A {numstates = 2; parents = (" + parents + "); probs = (1, 0);};", false},
        {"a large statement inherited often", big + heirs, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        const int64_t before = MemoryInUse();
        Net* net = ReadBody(c.body);
        EXPECT_EQ(net != nullptr, c.net_is_read);
        if (net) DeleteNet(net);
        EXPECT_EQ(MemoryInUse(), before);
    }
}

}  // namespace
}  // namespace talora
