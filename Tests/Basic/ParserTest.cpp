#include "Basic/Parser.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <random>

#include "Basic/Memory.h"

namespace talora {
namespace {

// The words and punctuation of a text, blanks between; "error N" at the end when it fails.
std::string Tokens(const std::string& text)
{
    Tokenizer t(text, "test");
    std::string out;
    try {
        while (!t.AtEnd()) {
            const std::string_view word = t.ReadWord();
            std::string token(word);
            if (word.empty()) {
                token = t.PeekText();
                if (token == "\"")
                    token = "'" + t.ReadQuoted() + "'";
                else
                    t.TryRead(token[0]);
            }
            out += (out.empty() ? "" : " ") + token;
        }
    } catch (const Unwind& failure) {
        out += (out.empty() ? "error " : " error ") + std::to_string(-failure.record->number);
    }
    return out;
}

std::string Nested(int depth)
{
    std::string text;
    for (int i = 0; i < depth; ++i) text += "/# ";
    for (int i = 0; i < depth; ++i) text += "#/ ";
    return text + "end";
}

TEST(Parser, SplitsTextIntoTokens)
{
    const struct {
        const char* label;
        std::string text;
        const char* tokens;
    } cases[] = {
        {"statement", "node A{x=(1,-2.5e3);};", "node A { x = ( 1 , -2.5e3 ) ; } ;"},
        {"all white space", "a\tb\rc\nd\ve\ff", "a b c d e f"},
        {"line comments end at any line end", "a// x\rb// y\nc// z\fd", "a b c d"},
        {"block comments", "a/* b */c/**/d", "a c d"},
        {"block comments do not nest", "/* /* */ a", "a"},
        {"nesting comments", "/# a /# b #/ c #/ d", "d"},
        {"32 deep", Nested(32), "end"},
        {"33 deep", Nested(33), "error 3339"},
        {"open block comment", "a /* b", "a error 4091"},
        {"open nesting comment", "a /# b /# #/", "a error 4092"},
        {"slashes inside words", "a/b 1/2 /x", "a/b 1/2 /x"},
        {"string with comment signs", "\"/* // /# x\" y", "'/* // /# x' y"},
        {"escapes", R"("a\"b\\c\nd\te\x41\q" z)", "'a\"b\\c\nd\teA\\q' z"},
        {"line ends in strings become LF", "\"a\r\nb\" c", "'a\nb' c"},
        {"open string", "a \"b", "a error 4101"},
        {"longest word", std::string(1023, 'w'), nullptr},
        {"word too long", std::string(1024, 'w'), "error 4102"},
        {"zero bytes are ordinary", std::string("a\0b c", 5), nullptr},
        {"nothing", "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        EXPECT_EQ(Tokens(c.text), c.tokens ? c.tokens : c.text);
    }
}

TEST(Parser, QuotedTextReadsBack)
{
    std::string text;
    for (int byte = 0; byte < 256; ++byte) text += static_cast<char>(byte);
    text += "\r\n \\x41 \\\" ";
    std::string quoted;
    AppendQuoted(quoted, text);
    EXPECT_EQ(Tokenizer(quoted, "test").ReadQuoted(), text);
    EXPECT_EQ(Tokenizer("\"a\r\nb\rc\"", "test").ReadQuoted(), "a\nb\rc");
}

TEST(Parser, CountsLinesOfAnyKind)
{
    const std::string text = "a\nb\r\nc\rd\n\ne";
    Tokenizer t(text, "test");
    const struct {
        char letter;
        int line;
    } lines[] = {{'e', 6}, {'a', 1}, {'b', 2}, {'c', 3}, {'d', 4}};
    for (const auto& l : lines) EXPECT_EQ(t.LineOf(text.find(l.letter)), l.line) << l.letter;

    std::string many;
    for (int i = 0; i < 20000; ++i) many += i % 3 == 0 ? "x\r\n" : "yy\n";
    Tokenizer far(many, "test");
    EXPECT_EQ(far.LineOf(many.size()), 20001);
    EXPECT_EQ(far.LineOf(3), 2);
}

TEST(Parser, RefusesWhatIsNoNumber)
{
    const std::string zeros(400, '0');
    const struct {
        std::string text;
        int error;  // 0: a number
        double value;
    } cases[] = {
        {"5", 0, 5},
        {"-.5", 0, -.5},
        {"+2.", 0, 2},
        {"1e3", 0, 1000},
        {"1e-400", 0, 0},
        {"1e400", 4134, 0},
        {"0." + zeros + "1", 0, 0},
        {"1" + zeros, 4134, 0},
        {"0.5x", 4001, 0},
        {"abc", 4002, 0},
        {"nan", 4002, 0},
        {"inf", 4002, 0},
        {"-inf", 4001, 0},
        {"0x10", 4001, 0},
        {"1,5", 0, 1},
        {"5\xC3\xA9", 2677, 0},
        {"--1", 4001, 0},
        {"", 4002, 0},
        {"undef", 0, UndefDbl()},
        {"@undef", 0, UndefDbl()},
        {"INFINITY", 0, InfinityDbl()},
        {"-INFINITY", 0, -InfinityDbl()},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        Tokenizer t(c.text, "test");
        try {
            EXPECT_EQ(t.ReadReal(), c.value);
            EXPECT_EQ(c.error, 0);
        } catch (const Unwind& failure) {
            EXPECT_EQ(-failure.record->number, c.error);
        }
    }
}

// The fast path must round like the exact conversion, whatever the digits.
TEST(Parser, FloatsAreCorrectlyRounded)
{
    std::mt19937_64 random(1);
    std::vector<std::string> texts = {"0.1",
                                      ".1",
                                      "1.",
                                      "16777217",
                                      "16777216.5",
                                      "0.000000059604645",
                                      "8388608.50000000001",
                                      "1e-40",
                                      "3.4028235e38",
                                      "0.00000000000000000001"};
    for (int i = 0; i < 20000; ++i) {
        std::string text = i % 2 == 0 ? "0." : std::to_string(random() % 100000) + ".";
        for (uint64_t digits = random() % 17; digits-- > 0;) text += static_cast<char>('0' + random() % 10);
        texts.push_back(text);
        // Middles of neighbouring floats, exact and with a last digit off.
        const float low = static_cast<float>(random() % (1 << 24)) / 4096;
        const double middle = (double(low) + double(std::nextafter(low, 1e9f))) / 2;
        char digits[64];
        const auto end = std::to_chars(digits, digits + 60, middle, std::chars_format::fixed).ptr;
        texts.emplace_back(digits, end);
        texts.push_back(texts.back() + "1");
    }
    for (const std::string& text : texts) {
        float expected = 0, value = -1;
        std::from_chars(text.data(), text.data() + text.size(), expected);
        Tokenizer t(text, "test");
        ASSERT_TRUE(t.TryReadFloat(value)) << text;
        ASSERT_EQ(value, expected) << text;
        ASSERT_TRUE(t.AtEnd());
    }
    for (const char* text : {".", "-", "1.2.3", "x", "@undef", "1e", ")"}) {
        float value;
        EXPECT_FALSE(Tokenizer(text, "test").TryReadFloat(value)) << text;
    }
}

TEST(Parser, SkipsValuesOfAnyShape)
{
    const struct {
        const char* label;
        const std::string text;
        const char* rest;  // null: an error
    } cases[] = {
        {"simple", "= 5; next", "; next"},
        {"nested", "round {a = (1, {2}); inner {y;};}; next", "; next"},
        {"string with brackets", "(\"};)\") ; n", "; n"},
        {"comment with brackets", "a /* }; */ b ; n", "; n"},
        {"end of the block", "a b } c", "} c"},
        {"end of the text", "((a", ""},
        {"10,000 deep", std::string(10000, '(') + std::string(10000, ')') + "; n", "; n"},
        {"deeper", std::string(10001, '('), nullptr},
        {"open string", "(\"a", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        Tokenizer t(c.text, "test");
        try {
            t.SkipValue();
            ASSERT_NE(c.rest, nullptr);
            EXPECT_EQ(t.Text(t.At(), c.text.size()), c.rest);
        } catch (const Unwind&) {
            EXPECT_EQ(c.rest, nullptr);
        }
    }
}

}  // namespace
}  // namespace talora
