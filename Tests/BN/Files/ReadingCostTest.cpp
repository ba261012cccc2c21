// What reading costs, in steps: twice the input takes about twice as many, whatever it holds.
#include <gtest/gtest.h>

#include <functional>

#include "BN/Model/Bnet.h"
#include "Basic/Steps.h"
#include "Support/TestEnviron.h"
#include "Talora.h"

namespace talora {
namespace {

std::string Repeated(int count, const std::function<std::string(int)>& piece)
{
    std::string text;
    for (int i = 0; i < count; ++i) text += piece(i);
    return text;
}

std::string Digits(int number, int count)
{
    std::string text;
    for (; count > 0; --count, number /= 2)
        text += std::string(text.empty() ? "" : ", ") + (number % 2 ? "a" : "@any");
    return text;
}

TEST(ReadingCostTest, NetsTakeStepsByTheirSize)
{
    const TestEnviron env;
    const auto n = [](const std::string& stem, int i) { return stem + std::to_string(i); };
    const struct {
        const char* label;
        int count;
        std::function<std::string(int)> body;
    } kRows[] = {
        {"unknown fields", 50000, [](int c) { return Repeated(c, [](int) { return "a = 1;"; }); }},
        {"messages in one place", 5000,
         [](int c) { return Repeated(c, [](int) { return "title = \"\";\n"; }); }},
        {"rules", 4000,
         [&](int c) {
             return Repeated(14, [&](int i) { return "node " + n("P", i) + " {states = (a, b);};"; }) +
                    "node A {states = (x, y); parents = (" +
                    Repeated(14, [&](int i) { return n(i ? ", P" : "P", i); }) + "); functable = " +
                    Repeated(c, [&](int i) { return (i ? ",(" : "(") + Digits(c - i, 14) + ") : x"; }) +
                    ";};";
         }},
        {"rules over many states", 1500,
         [&](int c) {
             return "node P {states = (" + Repeated(c, [&](int i) { return n(i ? ", s" : "s", i); }) +
                    ");}; node A {states = (x, y); parents = (P); functable = " +
                    Repeated(c, [&](int i) { return (i ? ",(s" : "(s") + std::to_string(i) + ") : x"; }) +
                    ";};";
         }},
        {"a template named often", 20000,
         [](int c) {
             return "define node T {title = \"\";}; node A (T" + Repeated(c, [](int) { return ",T"; }) +
                    ") {};";
         }},
        {"templates of templates", 40,
         [&](int c) {
             return "define node T0 {user U {a = \"b\";};};" + Repeated(c, [&](int i) {
                        return "define node " + n("T", i + 1) + " (" +
                               Repeated(i + 1, [&](int k) { return n(k ? ", T" : "T", k); }) +
                               ") {user U {a = \"b\";};};";
                    });
         }},
        {"statements put off", 5000,
         [&](int c) {
             return Repeated(c,
                             [&](int i) {
                                 return "node " + n("A", i) + " {parents = (" + n("A", i + 1) + ");};";
                             }) +
                    "node " + n("A", c) + " {};";
         }},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.label);
        uint64_t steps[2];
        for (const int twice : {0, 1}) {
            const std::string text = "// ~->[DNET-1]->~\nbnet N {" + row.body(row.count << twice) + "};";
            stream_vx* const stream = NewMemoryStream_vx("x.dne", env, nullptr);
            SetStreamContents_vx(stream, text.data(), static_cast<int64_t>(text.size()));
            steps_taken = 0;
            net_bn* const net = ReadNet_bn(stream, NO_WINDOW);
            steps[twice] = steps_taken;
            EXPECT_NE(net, nullptr);
            EXPECT_LE(steps[twice], MostSteps(text.size()));
            EXPECT_GE(steps[twice], text.size() / 4);
            ClearErrors_vx(env, WARNING_SEVERITY);
            if (net) DeleteNet_bn(net);
            DeleteStream_vx(stream);
        }
        // Templates of templates are a text that grows with the square; rules go along into several parts.
        EXPECT_LE(steps[1], (row.count == 40 ? 10 : 4) * steps[0]);
    }
}

// Cases that are read one by one, each with a message that tells its line.
TEST(ReadingCostTest, LinesOfCasesAreCountedOnce)
{
    const TestEnviron env;
    net_bn* const net = NewNet_bn("N", env);
    NewNode_bn("A", 2, net);
    uint64_t steps[2];
    for (const int twice : {0, 1}) {
        const std::string text =
            "A\n" + Repeated(1000 << twice, [](int i) { return "x" + std::to_string(i) + "\n"; });
        stream_vx* const stream = NewMemoryStream_vx("x.cas", env, nullptr);
        SetStreamContents_vx(stream, text.data(), static_cast<int64_t>(text.size()));
        steps_taken = 0;
        double position = FIRST_CASE_POSN;
        int64_t line = 0;
        for (int i = 0; ReadNetFindings2_bn(&position, stream, DONT_ADD_NEW, GetNetNodes2_bn(net, nullptr),
                                            nullptr, nullptr);
             ++i, position = NEXT_CASE_POSN) {
            ErrorFile_vx(GetError_vx(env, WARNING_SEVERITY, 6515, nullptr), &line);
            ASSERT_EQ(line, i + 2);
            ClearErrors_vx(env, WARNING_SEVERITY);
        }
        EXPECT_EQ(line, (1000 << twice) + 1);
        steps[twice] = steps_taken;
        DeleteStream_vx(stream);
    }
    EXPECT_LE(steps[1], 5 * steps[0] / 2);
}

}  // namespace
}  // namespace talora
