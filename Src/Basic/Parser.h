// The tokenizer of the text formats: words, punctuation, numbers, quoted strings, comments, places.
//
// It works on the whole text in one buffer that ends with a zero byte behind the text and outlives it.
// Nothing is copied or allocated for a token, and lines are counted only when a place is asked for.
//
// White space: blank, tab, CR, LF, VT, FF, and comments: // to the end of the line, /* */, and /# #/,
// which nests.  A word is a run of characters other than white space, the punctuation ( ) { } = , ; "
// and the start of a comment; whether a word is a legal name or number is its reader's question.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Basic/Error.h"

namespace talora {

constexpr size_t kMaxWord = 1023;
constexpr int kMaxCommentDepth = 32;
constexpr int kMaxBrackets = 10000;
constexpr size_t kMaxQuoted = 16 << 20;

class Tokenizer {
public:
    Tokenizer(std::string_view text, const char* file);

    // ---- Places.  What a message says about where it arose. ----
    size_t At() const { return static_cast<size_t>(at_ - begin_); }  // where the next token is looked for
    void GoTo(size_t at) { at_ = token_ = begin_ + at; }
    std::string_view Text(size_t from, size_t to) const { return {begin_ + from, to - from}; }
    int64_t LineOf(size_t at);
    FilePlace Place() { return PlaceOf(static_cast<size_t>(token_ - begin_)); }  // of the token read last
    FilePlace PlaceOf(size_t at);
    // What is being read, for messages: ", while reading field `x` of node 'A'"; "" for nothing.
    std::string context;

    // ---- Tokens ----
    void SkipBlanks();
    char Peek()  // the next character that is not white space, unread; 0 at the end
    {
        SkipBlanks();
        return *at_;
    }
    bool AtEnd() { return Peek() == 0 && at_ == end_; }
    bool TryRead(char punctuation)  // reads it if it is next
    {
        if (Peek() != punctuation || at_ == end_) return false;
        token_ = at_++;
        return true;
    }
    // The next word; empty, with nothing read, if punctuation is next.  Fails if it is too long.
    std::string_view ReadWord();
    // What stands next, for a message: a word or one punctuation character, cut short.
    std::string PeekText();
    // A quoted string without its quotes and escapes.  The next character is its opening quote.
    std::string ReadQuoted();

    // ---- Numbers ----
    double ReadReal();
    int64_t ReadInteger();
    // A number in the fast form for tables; false, with nothing read, if it is no plain number.
    bool TryReadFloat(float& value);

    // ---- Whole values ----
    // Reads on to the semicolon, comma-free end or closing bracket that ends the value which begins
    // here, past balanced brackets, strings and comments; the ending character stays unread.
    void SkipValue();
    // The same for an object of unknown kind, which ends with its block; and before a word that begins the
    // next one.
    void SkipObject(std::string_view next_word);
    // The body of a braced block whose '{' was just read, as it stands; reads the closing brace.
    // @param what  names the block in the message when it does not end
    std::string_view ReadBody(const char* what);

private:
    // While a value is skipped, for the messages of comments in it.
    struct Skipping {
        explicit Skipping(Tokenizer& tokenizer) : of(tokenizer) { of.is_skipping_ = true; }
        ~Skipping() { of.is_skipping_ = false; }
        Skipping(const Skipping&) = delete;
        Skipping& operator=(const Skipping&) = delete;
        Tokenizer& of;
    };
    void Skip(const std::string_view* next_word);
    void SkipComment();
    [[noreturn]] void FailNumber(std::string_view word);

    const char* begin_;
    const char* end_;
    const char* at_;
    const char* token_;
    const char* file_;
    bool is_skipping_ = false;
    std::vector<int64_t> lines_;  // lines_[i]: line breaks before byte i * kLineBlock, as far as needed yet
};

// ---- Number words, also used outside of files ----

// Correctly rounded value of a whole text; false if it is not a number.  Underflow gives 0.
bool ParseReal(std::string_view text, double& value);
bool ParseFloat(std::string_view text, float& value);

// Appends a quoted string with the escapes that ReadQuoted undoes.
void AppendQuoted(std::string& out, std::string_view text);

}  // namespace talora
