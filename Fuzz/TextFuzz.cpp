// The smallest readers: tokenizer, numbers, quoted strings, wide text, and what becomes of a message.
//
// Numbers that are accepted are those of the standard conversion; a quoted string reads back as what it was;
// conversions between narrow and wide text agree; a message keeps to its length and never ends inside a
// character; text in a message never acts as markup.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Basic/Error.h"
#include "Basic/Markup.h"
#include "Basic/Names.h"
#include "Basic/Parser.h"
#include "Basic/Stream.h"
#include "Basic/Text.h"
#include "Fuzz/Harness.h"
#include "Talora/APICheck.h"

namespace {

using namespace talora;
using fuzz::Check;

template <class T>
bool SameBits(T a, T b)
{
    return memcmp(&a, &b, sizeof a) == 0;
}

// Numbers too small to be normal count as 0.
template <class T>
bool SameNumber(T ours, T standard)
{
    return SameBits(ours, standard) || (ours == 0 && std::fabs(standard) <= std::numeric_limits<T>::min());
}

void CheckNumber(const std::string& text)
{
    double real = 0;
    if (ParseReal(text, real)) {
        char* end = nullptr;
        Check(SameNumber(real, strtod(text.c_str(), &end)) && *end == 0, "a real is the standard one");
        double again = 0;
        Check(ParseReal(FormatShortest(real), again) && SameNumber(again, real), "a real is written whole");
    }
    float single = 0;
    if (ParseFloat(text, single)) {
        char* end = nullptr;
        Check(SameNumber(single, strtof(text.c_str(), &end)) && *end == 0, "a float is the standard one");
        float again = 0;
        Check(ParseFloat(FormatShortest(single), again) && SameNumber(again, single),
              "a float is written whole");
    }
    float fast = 0;
    Tokenizer tokens(text, "x");
    if (tokens.TryReadFloat(fast) && tokens.AtEnd()) {
        tokens.GoTo(0);
        const std::string word(tokens.ReadWord());
        float slow = 0;
        Check(ParseFloat(word, slow) && SameBits(slow, fast), "the fast reader of floats agrees");
    }
}

// Reads everything, one kind of token after the other as the bytes have it.
void ReadTokens(const std::string& text)
{
    Tokenizer tokens(text, "x");
    for (size_t steps = 0; !tokens.AtEnd(); ++steps) {
        Check(steps <= text.size(), "every token takes a byte");
        const size_t before = tokens.At();
        const char next = tokens.Peek();
        float number = 0;
        if (next == '"') {
            tokens.ReadQuoted();
        } else if (next == '{' && tokens.TryRead('{')) {
            tokens.ReadBody("block");
        } else if (!tokens.TryReadFloat(number)) {
            tokens.PeekText();
            if (tokens.ReadWord().empty()) tokens.GoTo(tokens.At() + 1);
        }
        Check(tokens.At() > before && tokens.At() <= text.size(), "every token takes a byte");
        Check(tokens.Place().position >= 1, "a token is on a line");
    }
    tokens.GoTo(0);
    tokens.SkipValue();
    Check(tokens.At() <= text.size(), "a value ends in the text");
}

void CheckQuoted(const std::string& text)
{
    std::string quoted;
    AppendQuoted(quoted, text);
    Tokenizer tokens(quoted, "x");
    Check(tokens.ReadQuoted() == text && tokens.AtEnd(), "a quoted string reads back");
}

void CheckWide(const std::string& text)
{
    const std::string wide = WideText(text), narrow = NarrowText(wide.c_str());
    Check(IsWide(wide.c_str()), "wide text is recognised by its mark");
    const bool has_zero = text.find('\0') != std::string::npos;
    Check(IsPlainText(narrow), "narrow text is UTF-8");
    if (IsPlainText(text)) Check(narrow == text, "text survives being wide");
    if (!has_zero) Check(WideText(narrow) == wide, "wide text survives being narrow");
    Check(CompareText(wide.c_str(), narrow.c_str()) == 0, "both forms compare as equal");
    // The bytes themselves as wide text; two zero bytes end it.
    const std::string raw = "\xFF\xFE" + text + std::string(3, '\0');
    Check(IsPlainText(NarrowText(raw.c_str())), "any wide text becomes UTF-8");
}

void CheckMessage(const std::string& text)
{
    environ_vx* const env = fuzz::Environ();
    const std::string ended = text + std::string(3, '\0');  // also as wide text
    const report_vx* const record = NewError_vx(env, 1, WARNING_SEVERITY, ended.c_str());
    if (record) {
        const std::string message = ErrorMessage_vx(record);
        Check(message.size() <= size_t{kMessageBytes}, "a message keeps to its length");
        const std::string shown = NarrowText(ended.c_str());
        Check(!IsPlainText(shown) || IsPlainText(message), "a message does not end inside a character");
        Check(message.substr(0, 8) == shown.substr(0, 8), "text in a message is no markup");
    }
    ClearErrors_vx(env, WARNING_SEVERITY);
    for (const Flavor flavor : {INTERFACE_FLAVOR, PROGRAMMING_FLAVOR, AUTOMATION_FLAVOR, MANAGED_FLAVOR}) {
        const std::string whole = ExpandMarkupIn(flavor, text);
        char buffer[40];
        ExpandMarkupInto(flavor, text, buffer, sizeof buffer);
        Check(whole.compare(0, strlen(buffer), buffer) == 0, "expanding into a buffer gives the beginning");
    }
    const size_t cut = CutLength(text, 20);
    Check(cut <= 20 || cut == text.size(), "a text is cut");
    const std::string name = RepairName(text);
    Check(CheckName(name.c_str(), false, nullptr) == 0, "a repaired name is legal");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const fuzz::Input input;
    const std::string text(reinterpret_cast<const char*>(data), size);
    CallEnviron(__func__, fuzz::Environ(), [&](environ_vx&) { CheckNumber(text.c_str()); });
    CallEnviron(__func__, fuzz::Environ(), [&](environ_vx&) { ReadTokens(text); });
    CallEnviron(__func__, fuzz::Environ(), [&](environ_vx&) { CheckQuoted(text); });
    CheckWide(text);
    CheckMessage(text.c_str());
    return 0;
}
