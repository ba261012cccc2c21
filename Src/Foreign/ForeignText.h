// The text of a foreign file: its letters brought to UTF-8, places in it, and a scanner for the formats
// that are not XML or JSON.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "Basic/Error.h"
#include "Basic/Text.h"
#include "Foreign/ForeignNet.h"

namespace talora {

constexpr size_t kMaxForeignDepth = 200;  // nesting of blocks and elements

// A text with the name of its file; both outlive it.
struct ForeignSource {
    std::string_view text;
    const char* file;

    FilePlace PlaceAt(size_t at) const;
    int64_t LineOf(size_t at) const;  // from 1; CR, LF and CR LF end a line
};

// The text in UTF-8 without a mark of byte order.  UTF-16 is told by its mark; what is no valid UTF-8 is read
// as Windows-1252, with a warning unless the text itself says so (an XML declaration).
// @param changed  holds the text if it had to be changed
std::string_view ToUtf8(std::string_view bytes, const char* file, std::string& changed);
bool IsUtf8(std::string_view text);

// A number that begins at `at`, in plain decimal form; false, with nothing read, if there is none.
bool TryScanNumber(const char*& at, const char* end, double& value);
// A whole text as a number; false for anything else.
bool ParseNumber(std::string_view text, double& value);
// As ParseNumber, and also "infinity" and "inf" with a sign.
bool ParseLimit(std::string_view text, double& value);

// The beginning of a text, for a message.
std::string Shown(std::string_view text);

struct ScanRules {
    std::string_view blanks;       // that separate tokens and mean nothing, besides white space
    std::string_view punctuation;  // single characters that end words
    char line_comment = 0;         // begins a comment to the end of the line
    bool slash_comments = false;   // // and /* */
    bool nested_comments = false;  // /# #/
    bool escapes = false;          // backslashes in strings
};

class Scanner {
public:
    Scanner(const ForeignSource& source, const ScanRules& rules, size_t begin = 0);

    void Skip();  // blanks and comments
    char Peek()   // the next character of a token; 0 at the end
    {
        Skip();
        return at_ == end_ ? '\0' : *at_;
    }
    bool AtEnd() { return Skip(), at_ == end_; }
    bool Try(char punctuation);
    void Need(char punctuation);  // fails with what is there instead
    bool TryWord(std::string_view word);
    std::string_view Word();  // "" if there is none
    std::string Name();       // a word or a string; fails if there is neither
    std::string_view PeekWord();
    std::string Quoted();  // the next character is its opening quote
    bool TryNumber(double& value);
    double Number();
    int64_t Integer();
    // Past a value: to the character that ends it, over brackets, strings and comments.
    void SkipValue(std::string_view ends);

    size_t At() const { return static_cast<size_t>(at_ - source_.text.data()); }
    size_t Token() const { return token_; }  // where the last token began
    void GoTo(size_t at) { at_ = source_.text.data() + at; }
    FilePlace Here() { return Skip(), source_.PlaceAt(At()); }
    FilePlace LastPlace() const { return source_.PlaceAt(token_); }
    const ForeignSource& Source() const { return source_; }
    // What stands next, for a message.
    std::string Found();
    [[noreturn]] void FailExpected(const char* what);

private:
    enum Class : unsigned char { WORD, BLANK, PUNCTUATION, QUOTE, COMMENT };
    bool SkipComment();

    const ForeignSource& source_;
    ScanRules rules_;
    std::array<unsigned char, 256> class_{};
    const char* at_;
    const char* end_;
    size_t token_ = 0;
};

// Where entry number `entry` of a table stands, for the formats whose tables are numbers among brackets and
// blanks.
size_t FindEntry(std::string_view text, const ScanRules& rules, size_t table_at, size_t entry);

// ---- Writing ----

// The shortest text that reads back as the same number.
void AppendNumber(std::string& out, double value);
std::string NumberText(double value);
// The same for an entry of a table: probabilities are floats in the engine, utilities are not.
void AppendEntry(std::string& out, double value, const ForeignNode& node);

}  // namespace talora
