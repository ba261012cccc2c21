// Net files of other programs: every fault is told, what breaks a rule is repaired, and nothing of the small
// points that no collection of files happens to show is lost.
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "Foreign/ForeignNames.h"
#include "Foreign/Formats.h"
#include "Support/MessageTest.h"

namespace {

using namespace talora;

const std::string kBif =
    "network n { }\nvariable A { type discrete [ 2 ] { yes, no }; }\nvariable B { type discrete [ 2 ] { yes, no }; }\n";
const std::string kBifA = kBif + "probability ( A ) { table 0.25, 0.75; }\n";
const std::string kNet = "net { }\nnode A { states = (\"a\" \"b\"); }\nnode B { states = (\"a\" \"b\"); }\n";
const std::string kXbn =
    "<ANALYSISNOTEBOOK><BNMODEL><VARIABLES><VAR NAME=\"A\"><STATENAME>x</STATENAME></VAR><VAR NAME=\"B\">"
    "<STATENAME>y</STATENAME></VAR></VARIABLES><STRUCTURE><ARC PARENT=\"A\" CHILD=\"B\"/></STRUCTURE><DISTRIBUTIONS>"
    "<DIST><PRIVATE NAME=\"B\"/><DPIS><DPI>1</DPI></DPIS></DIST></DISTRIBUTIONS></BNMODEL></ANALYSISNOTEBOOK>";

class ForeignFilesTest : public MessageTest {
protected:
    net_bn* ReadNamed(const std::string& text, const char* name)
    {
        stream_ = NewMemoryStream_vx(name, env_, nullptr);
        SetStreamContents_vx(stream_, text.data(), int64_t(text.size()));
        return ReadNet_bn(stream_, REGULAR_WINDOW);
    }
    std::string WriteTo(net_bn* net, const char* format, const char* options = nullptr)
    {
        stream_ = NewMemoryStream_vx("net", env_, nullptr);
        WriteNetAs_bn(net, stream_, format, options);
        int64_t length = 0;
        const char* text = GetStreamContents_vx(stream_, &length);
        return std::string(text ? text : "", size_t(length));
    }
    std::vector<std::string> Losses()
    {
        std::vector<std::string> losses;
        const char *what = nullptr, *nodes = nullptr;
        for (int i = 0; GetNthStreamLoss_vx(stream_, i, nullptr, &what, &nodes, nullptr); ++i)
            losses.push_back(what + std::string(": ") + nodes);
        return losses;
    }
    stream_vx* stream_ = nullptr;
};

TEST_F(ForeignFilesTest, EveryFaultIsTold)
{
    const auto read = [&](const std::string& text, const char* name) {
        return [=, this] { ReadNamed(text, name); };
    };
    const auto bif = [&](const std::string& text) { return read(text, "x.bif"); };
    const auto net = [&](const std::string& text) { return read(text, "x.net"); };
    const auto xml = [&](const std::string& text) { return read(text, "x.xml"); };
    const auto uai = [&](const std::string& text) { return read(text, "x.uai"); };
    const auto row = [&](const std::string& numbers) {
        return kBif + "probability ( B ) { table " + numbers + "; }";
    };
    ExpectRaised({
        {7000, bif("nothing of a net")},
        {7001, read("digraph { a -> b; }", "x.dot")},
        {7002, bif("network n { } variable A { kind discrete; }")},
        {7003, bif("network n { property a")},
        {7003, uai("BAYES 2 2")},
        {7004, bif("network n { /* } ")},
        {7005, bif("network \"n { }")},
        {7006, bif(row("a, 1"))},
        {7007, bif(kBif + "variable A { }")},
        {7008, bif("network n { } variable A { type discrete { a, a }; }")},
        {7009, bif("network n { } variable A { type discrete [ 3 ] { a, b }; }")},
        {7010, bif(kBif + "probability ( A | C ) { table 1; }")},
        {7011, bif(kBifA + "probability ( B | A, A ) { default 0.5, 0.5; }")},
        {7012, bif(kBifA + "probability ( B | A ) { (maybe) 0.5, 0.5; }")},
        {7013, bif(kBifA + "probability ( A ) { table 0.25, 0.75; }")},
        {7014, bif(row("0.5, 0.25, 0.25"))},
        {7015, bif(row("0.5, 0.4"))},
        {7016,
         xml("<BIF VERSION='0.3'><NETWORK><VARIABLE><NAME>A</NAME><OUTCOME>a</OUTCOME><OUTCOME>b</OUTCOME>"
             "</VARIABLE><VARIABLE><NAME>B</NAME><OUTCOME>a</OUTCOME><OUTCOME>b</OUTCOME></VARIABLE><DEFINITION>"
             "<FOR>B</FOR><GIVEN>A</GIVEN><TABLE>.1 .2 .9 .8</TABLE></DEFINITION></NETWORK></BIF>")},
        {7017, bif(row("0, 0"))},
        {7018, bif(row("1.5, -0.5"))},
        {7019,
         bif(kBif +
             "probability ( A | B ) { default 0.5, 0.5; } probability ( B | A ) { default 0.5, 0.5; }")},
        {7020, bif(kBifA + "probability ( B | A ) { (yes) 0.5, 0.5; }")},
        {7021, bif(row("0.33333, 0.66666"))},
        {7022, net(kNet + "potential (A) { data = (1 3); }")},
        {7023, net("net { } instance a : B ( ) { }")},
        {7025, xml("<BIF><NETWORK></BIF>")},
        {7026, xml("<BIF VERSION='0.3'></BIF>")},
        {7027, read("{\"nodes\": [,]}", "x.jgum")},
        {7029, bif("network n { } variable A { type discrete { a, b }; }" +
                   [] {
                       std::string text, names;
                       for (int i = 0; i < 30; ++i) {
                           text += " variable p" + std::to_string(i) + " { type discrete { a, b }; }";
                           names += ", p" + std::to_string(i);
                       }
                       return text + " probability ( A | " + names + ") { default 0.5, 0.5; }";
                   }())},
        {7030,
         bif("network n { } variable \xFC { type discrete { a, b }; } probability ( \xFC ) { table 0.5, 0.5; }")},
        {7032, bif(kBif)},
        {7035, xml("<!DOCTYPE BIF [<!ENTITY a \"b\">]><BIF/>")},
        {7037, [&] { WriteTo(net_, "nonsense"); }},
        {7039, [&] { SetNodeKind_bn(a_, DECISION_NODE), WriteTo(net_, "bif", "strict"); }},
        {7040, net("net { } node A { }")},
        {7041,
         xml("<BIF VERSION='0.3'><NETWORK><VARIABLE TYPE='utility'><NAME>U</NAME></VARIABLE><VARIABLE><NAME>A</NAME>"
             "<OUTCOME>a</OUTCOME></VARIABLE><DEFINITION><FOR>A</FOR><GIVEN>U</GIVEN></DEFINITION></NETWORK></BIF>")},
        {7042, uai("BAYES 1 1000000 1 1 0 2 0.5 0.5")},
        {7043, bif(kBifA + "probability ( B | A ) { property function max; (yes) 0.5, 0.5; }")},
        {7044, uai("MARKOV 2 2 2 1 2 0 1 4 1 2 3 4")},
        {7045, read("{\"nodes\": [\"A{\"]}", "x.jgum")},
        {7046,
         read("network \"n\" node A { type : discrete [1] = { \"a\" }; } probability (A) { (0, 0) : 1; }",
              "x.dsc")},
        {7047, read(kXbn, "x.xbn")},
        {7050, [&] { WriteTo(net_, "bif", "gently"); }},
        {7051, [&] { GetNthStreamLoss_vx(Cases(""), -1, nullptr, nullptr, nullptr, nullptr); }},
    });
}

// Texts that collide when they are repaired, and names that must not be touched.
TEST_F(ForeignFilesTest, NamesBecomeLegalAndUnique)
{
    const std::vector<std::string> texts = {
        "<5", ">5", "x_0", "0", "", "ok", "ok ", std::string(40, 'a'), "\xC3\xB6"};
    const std::vector<std::string> names = UniqueLegalNames(texts);
    const std::vector<std::string> expected = {
        "x__5", "x__5_2", "x_0", "x_0_2", "x", "ok", "ok_", std::string(30, 'a'), "x__"};
    EXPECT_EQ(names, expected);
    for (size_t i = 0; i < names.size(); ++i)
        EXPECT_TRUE(texts[i].empty() || IsMadeFrom(names[i], texts[i])) << names[i];
}

// The parts of the notation that no file of the collection has, and what is none.
TEST_F(ForeignFilesTest, TheShortNotationOfNodes)
{
    const struct {
        const char* text;
        std::vector<std::string> states;
        std::vector<double> levels;
    } kCases[] = {
        {"a", {"0", "1"}, {}},
        {"a[3]", {"0", "1", "2"}, {}},
        {"a[-1,1]", {"-1", "0", "1"}, {-1, 0, 1}},
        {"a+[1,2.5,inf]", {"[1;2.5[", "[2.5;inf]"}, {1, 2.5, INFINITY}},
        {"a[0:3:3]", {"[0;1[", "[1;2[", "[2;3]"}, {0, 1, 2, 3}},
        {"a{0:1:3}", {"0", "0.5", "1"}, {0, 0.5, 1}},
        {"a{10|2}", {"2", "10"}, {2, 10}},
        {"a?[x]{u|v w}", {"u", "v w"}, {}},
        {"a[0]", {}, {}},
        {"a[3,1]", {}, {}},
        {"a[1,3,2]", {}, {}},
        {"a{", {}, {}},
        {"[2]", {}, {}},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.text);
        ForeignNode node;
        ASSERT_EQ(TakeFast(node, c.text), !c.states.empty());
        if (c.states.empty()) continue;
        EXPECT_EQ(node.states, c.states);
        EXPECT_EQ(node.levels, c.levels);
    }
}

// A format is told by what is in the file, whatever its name says.
TEST_F(ForeignFilesTest, FormatsAreToldByContents)
{
    const struct {
        const char *text, *format;
    } kCases[] = {
        {"% c\nnet { }", "NET"},
        {"class C { }", "NET"},
        {"net n { };", "DSL"},
        {"// x\nnetwork n { property node = 1; }\nvariable A { }", "BIF"},
        {"network \"n\"\nnode A { }", "DSC"},
        {"trouble network \"n\"", "DSC"},
        {"bayes 1 2", "UAI"},
        {"<?xml version='1.0'?><!-- a --><!DOCTYPE b [ <!ELEMENT c ANY> ]><p:smile>", "XDSL"},
        {"<BIF VERSION='0.3'>", "XMLBIF"},
        {" {\"nodes\": []}", "JGUM"},
        {"strict digraph { }", "DOT"},
        {"<html>", nullptr},
        {"hello", nullptr},
    };
    for (const auto& c : kCases) {
        const FileFormat* const format = FormatByContents(c.text, "x.tmp");
        EXPECT_STREQ(format ? format->name : nullptr, c.format) << c.text;
    }
}

TEST_F(ForeignFilesTest, WhatANetHoldsIsWrittenOrNamedAsLost)
{
    NewNet();
    SetNodeTitle_bn(a_, "The first");
    SetNodeComment_bn(a_, "one;\ntwo");
    SetNodeStateTitle_bn(a_, 0, "Surely");
    SetNodeEquation_bn(b_, "B (A) = A");
    EnterFinding_bn(a_, 0);
    SetNodeUserField_bn(b_, "key", "value", 5, 0);
    const std::string text = WriteTo(net_, "bif");
    const std::vector<std::string> losses = Losses();
    const auto has = [&](const std::string& loss) {
        return std::count(losses.begin(), losses.end(), loss) == 1;
    };
    EXPECT_TRUE(has("findings: A"));
    EXPECT_TRUE(has("titles of states: A"));
    EXPECT_TRUE(has("equations: B"));
    EXPECT_TRUE(has("continuous nodes without intervals: R"));
    EXPECT_TRUE(has("signs in properties: A"));
    EXPECT_STREQ(GetStreamFormat_vx(stream_), "BIF");
    net_bn* again = ReadNamed(text, "any name");
    ASSERT_NE(again, nullptr) << ListErrors_vx(env_, 0, 5);
    EXPECT_STREQ(GetNodeTitle_bn(GetNodeNamed_bn("A", again)), "The first");
    EXPECT_STREQ(GetNodeUserField_bn(GetNodeNamed_bn("B", again), "key", nullptr, 0), "value");
    DeleteNet_bn(again);
}

}  // namespace
