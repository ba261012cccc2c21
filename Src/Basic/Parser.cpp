// The tokenizer of text net files: blanks, comments, words, quoted strings, numbers, and places for
// messages.
#include "Basic/Parser.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstring>

#include "Basic/Memory.h"
#include "Basic/Steps.h"
#include "Basic/Text.h"

namespace talora {

namespace {

constexpr size_t kLineBlock = 512;

// One look-up per character: words are runs of WORD_CHAR, and a zero byte ends the text or stands in it.
enum CharClass : uint8_t { WORD_CHAR, BLANK_CHAR, PUNCTUATION_CHAR, SLASH_CHAR, ZERO_CHAR };

constexpr std::array<uint8_t, 256> MakeClasses()
{
    std::array<uint8_t, 256> classes{};
    for (const char c : {' ', '\t', '\r', '\n', '\v', '\f'}) classes[static_cast<uint8_t>(c)] = BLANK_CHAR;
    for (const char c : {'(', ')', '{', '}', '=', ',', ';', '"'})
        classes[static_cast<uint8_t>(c)] = PUNCTUATION_CHAR;
    classes['/'] = SLASH_CHAR;
    classes[0] = ZERO_CHAR;
    return classes;
}
constexpr auto kClasses = MakeClasses();

uint8_t ClassOf(char c)
{
    return kClasses[static_cast<uint8_t>(c)];
}

bool StartsComment(const char* at)
{
    return at[0] == '/' && (at[1] == '/' || at[1] == '*' || at[1] == '#');
}

// One past the last character of the word that begins here.
const char* WordEnd(const char* at, const char* end)
{
    for (; at < end; ++at) {
        const uint8_t kind = ClassOf(*at);
        if (kind == WORD_CHAR || kind == ZERO_CHAR) continue;
        if (kind == SLASH_CHAR && !StartsComment(at)) continue;
        break;
    }
    return at;
}

// Powers of ten that a float, and a double, holds exactly.
constexpr float kFloatTens[] = {1e0f, 1e1f, 1e2f, 1e3f, 1e4f, 1e5f, 1e6f, 1e7f, 1e8f, 1e9f, 1e10f};
constexpr double kDoubleTens[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                  1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// The float nearest to digits / 10^decimals, where that can be computed cheaply; false otherwise.
// Short numbers are one exact division.  Longer ones are divided in double; rounding that again to
// float could only go wrong when the quotient lies within an ulp of the middle of two floats.
bool TryDivide(uint64_t digits, int decimals, float& value)
{
    if (digits < (1u << 24) && decimals <= 10) {
        value = static_cast<float>(digits) / kFloatTens[decimals];
        return true;
    }
    if (digits >= (uint64_t{1} << 53) || decimals > 22) return false;
    const double quotient = static_cast<double>(digits) / kDoubleTens[decimals];
    const uint64_t tail = std::bit_cast<uint64_t>(quotient) & 0x1FFFFFFF;
    if (tail >= 0x0FFFFFFF && tail <= 0x10000001) return false;
    value = static_cast<float>(quotient);
    return true;
}

// Whether a number text that is out of range is so because it is too small.
bool IsTiny(std::string_view text)
{
    const size_t exponent = text.find_first_of("eE");
    if (exponent != std::string_view::npos && text.find_first_not_of("0.+-") < exponent)
        return exponent + 1 < text.size() && text[exponent + 1] == '-';
    const size_t digit = text.find_first_of("123456789");
    return text.find('.') < digit;
}

// from_chars, with what the format allows besides (a plus sign) and without what it does not (words); a
// number too small to hold is 0.
template <class T>
bool ParseNumber(std::string_view text, T& value)
{
    if (text.starts_with("+-")) return false;
    if (text.starts_with('+')) text.remove_prefix(1);
    const size_t first = !text.empty() && text[0] == '-' ? 1 : 0;
    // from_chars would take "inf" and "nan".
    if (first >= text.size() || !(IsDigit(text[first]) || text[first] == '.')) return false;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ptr != text.data() + text.size()) return false;
    if (result.ec == std::errc()) return true;
    if (result.ec != std::errc::result_out_of_range || !IsTiny(text)) return false;
    value = 0;
    return true;
}

}  // namespace

Tokenizer::Tokenizer(std::string_view text, const char* file)
    : begin_(text.data()), end_(text.data() + text.size()), at_(begin_), token_(begin_), file_(file)
{}

// ---- Places ----

// Counts line breaks; sums per block of the text are kept, so that many messages cost one pass.
int64_t Tokenizer::LineOf(size_t at)
{
    const auto count = [this](size_t from, size_t to) {
        int64_t breaks = 0;
        CountSteps(to - from);
        for (const char* p = begin_ + from; p < begin_ + to; ++p)
            breaks += *p == '\n' || (*p == '\r' && p[1] != '\n');
        return breaks;
    };
    if (lines_.empty()) lines_.push_back(0);
    const size_t block = at / kLineBlock;
    while (lines_.size() <= block) {
        const size_t from = (lines_.size() - 1) * kLineBlock;
        lines_.push_back(lines_.back() + count(from, from + kLineBlock));
    }
    return 1 + lines_[block] + count(block * kLineBlock, at);
}

FilePlace Tokenizer::PlaceOf(size_t at)
{
    FilePlace place;
    place.file = file_;
    place.position = LineOf(std::min(at, static_cast<size_t>(end_ - begin_)));
    place.context = context.c_str();
    return place;
}

// ---- Tokens ----

// Comments count as blanks.
void Tokenizer::SkipBlanks()
{
    for (;;) {
        while (ClassOf(*at_) == BLANK_CHAR) ++at_;
        if (*at_ != '/' || !StartsComment(at_)) return;
        SkipComment();
    }
}

// Three forms: to the end of the line, C's, and one that nests.
void Tokenizer::SkipComment()
{
    const char* const start = at_;
    if (at_[1] == '/') {
        while (at_ < end_ && *at_ != '\n' && *at_ != '\r' && *at_ != '\f') ++at_;
        return;
    }
    at_ += 2;
    if (start[1] == '*') {
        const std::string_view rest(at_, static_cast<size_t>(end_ - at_));
        const size_t close = rest.find("*/");
        if (close == std::string_view::npos) {
            const FilePlace place = PlaceOf(static_cast<size_t>(start - begin_));
            if (is_skipping_) FailAt<4093>(place);
            FailAt<4091>(place);
        }
        at_ += close + 2;
        return;
    }
    for (int depth = 1; depth > 0;) {
        if (at_ >= end_) {
            const FilePlace place = PlaceOf(static_cast<size_t>(start - begin_));
            if (is_skipping_) FailAt<4094>(place);
            FailAt<4092>(place);
        }
        if (at_[0] == '/' && at_[1] == '#') {
            if (++depth > kMaxCommentDepth) FailAt<3339>(PlaceOf(At()));
            at_ += 2;
        } else if (at_[0] == '#' && at_[1] == '/') {
            --depth;
            at_ += 2;
        } else {
            ++at_;
        }
    }
}

std::string_view Tokenizer::ReadWord()
{
    SkipBlanks();
    const char* const word_end = WordEnd(at_, end_);
    const std::string_view word(at_, static_cast<size_t>(word_end - at_));
    token_ = at_;
    if (word.size() > kMaxWord) FailAt<4102>(Place(), word.data(), word.size(), kMaxWord);
    at_ = word_end;
    CountSteps(1 + word.size());
    return word;
}

// What stands at the place of an error, at most 40 bytes of it.
std::string Tokenizer::PeekText()
{
    SkipBlanks();
    const char* const word_end = WordEnd(at_, end_);
    const auto length = std::min<size_t>(static_cast<size_t>(word_end - at_), 40);
    if (length > 0) return std::string(at_, length);
    return at_ < end_ ? std::string(1, *at_) : "end of file";
}

namespace {

int HexDigit(char c)
{
    if (IsDigit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Appends what an escape stands for and returns how many characters it took behind the backslash.  What
// is no escape of ours stands for itself, backslash included.
int AppendEscape(std::string& out, const char* at)
{
    switch (*at) {
        case 'n':
            out += '\n';
            return 1;
        case 't':
            out += '\t';
            return 1;
        case 'r':
            out += '\r';
            return 1;
        case '"':
        case '\\':
            out += *at;
            return 1;
        case 'x': {
            const int high = HexDigit(at[1]);
            const int low = high < 0 ? -1 : HexDigit(at[2]);
            if (low < 0) break;
            out += static_cast<char>(high * 16 + low);
            return 3;
        }
        default:
            break;
    }
    out += '\\';
    return 0;
}

}  // namespace

// Line ends inside are kept as one line feed each; escapes are replaced.
std::string Tokenizer::ReadQuoted()
{
    std::string out;
    token_ = at_;
    const char* p = at_ + 1;
    for (;;) {
        const char* run = p;
        while (p < end_ && *p != '"' && *p != '\\' && *p != '\r') ++p;
        out.append(run, p);
        if (out.size() > kMaxQuoted) FailAt<4103>(Place(), kMaxQuoted);
        if (p >= end_) FailAt<4101>(Place());
        const char c = *p++;
        if (c == '"') break;
        if (c == '\\')
            p += p < end_ ? AppendEscape(out, p) : 0;
        else if (*p != '\n')
            out += c;  // a CR that is not part of a line end
    }
    CountSteps(static_cast<uint64_t>(p - at_));
    at_ = p;
    return out;
}

void AppendQuoted(std::string& out, std::string_view text)
{
    out += '"';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c == '\r') {
            out += "\\r";
        } else if (byte < 0x20 || byte == 0x7F) {
            out += Format("\\x%02X", byte);
        } else {
            out += c;
        }
    }
    out += '"';
}

// ---- Numbers ----

bool ParseReal(std::string_view text, double& value)
{
    return ParseNumber(text, value);
}
bool ParseFloat(std::string_view text, float& value)
{
    return ParseNumber(text, value);
}

namespace {

// A number as it should be written, but beyond what can be kept.
bool IsOutOfRange(std::string_view word)
{
    if (word.starts_with('+')) word.remove_prefix(1);
    double value;
    const auto result = std::from_chars(word.data(), word.data() + word.size(), value);
    return !word.empty() && result.ptr == word.data() + word.size() &&
           (result.ec == std::errc::result_out_of_range ||
            word.find_first_not_of("-0123456789") == std::string_view::npos);
}

}  // namespace

// Raises the error that fits: a character beyond ASCII (with its code), a malformed number, or no number at
// all.
void Tokenizer::FailNumber(std::string_view word)
{
    // 1. The first character beyond ASCII, decoded as far as its bytes go.
    for (size_t i = 0; i < word.size(); ++i) {
        const auto lead = static_cast<unsigned char>(word[i]);
        if (lead < 0x80) continue;
        unsigned code = lead < 0xC0   ? lead
                        : lead < 0xE0 ? lead & 0x1F
                        : lead < 0xF0 ? lead & 0x0F
                                      : lead & 0x07;
        for (++i; i < word.size() && (static_cast<unsigned char>(word[i]) & 0xC0) == 0x80 && code < 0x4000;
             ++i)
            code = code << 6 | (static_cast<unsigned char>(word[i]) & 0x3F);
        FailAt<2677>(Place(), code);
    }
    // 2. Else what stands there.
    const std::string shown(word.empty() ? PeekText() : std::string(word.substr(0, 40)));
    if (IsOutOfRange(word)) FailAt<4134>(Place(), shown.c_str());
    const char first = shown.empty() ? ' ' : shown[0];
    if (IsDigit(first) || first == '+' || first == '-' || first == '.') FailAt<4001>(Place(), shown.c_str());
    FailAt<4002>(Place(), shown.c_str());
}

double Tokenizer::ReadReal()
{
    const std::string_view word = ReadWord();
    if (word == "INFINITY") return InfinityDbl();
    if (word == "-INFINITY") return -InfinityDbl();
    if (word == "undef" || word == "@undef") return UndefDbl();
    double value;
    if (!ParseReal(word, value)) FailNumber(word);
    return value;
}

int64_t Tokenizer::ReadInteger()
{
    const std::string_view word = ReadWord();
    int64_t value = 0;
    const char* const first = word.data() + (word.starts_with('+') ? 1 : 0);
    const auto result = std::from_chars(first, word.data() + word.size(), value);
    if (word.empty() || word.starts_with("+-") || result.ec != std::errc() ||
        result.ptr != word.data() + word.size())
        FailNumber(word);
    return value;
}

// Tables are millions of numbers of few digits: these are taken digit by digit and divided once; the rest go
// through from_chars.
bool Tokenizer::TryReadFloat(float& value)
{
    SkipBlanks();
    const char* p = at_;
    uint64_t digits = 0;
    for (; IsDigit(*p); ++p) digits = digits * 10 + static_cast<uint64_t>(*p - '0');
    const char* const whole_end = p;
    if (*p == '.')
        for (++p; IsDigit(*p); ++p) digits = digits * 10 + static_cast<uint64_t>(*p - '0');
    const auto length = p - at_;
    const int decimals = whole_end == p ? 0 : static_cast<int>(p - whole_end) - 1;
    const uint8_t after = ClassOf(*p);
    const bool ends = after == BLANK_CHAR || after == PUNCTUATION_CHAR;
    // Up to 18 digits cannot overflow; a lone point is no number.
    if (ends && length <= 18 && length > (whole_end == p ? 0 : 1) && TryDivide(digits, decimals, value)) {
        token_ = at_;
        at_ = p;
        return true;
    }
    const char* const word_end = WordEnd(at_, end_);
    if (!ParseFloat({at_, static_cast<size_t>(word_end - at_)}, value)) return false;
    token_ = at_;
    at_ = word_end;
    return true;
}

// ---- Whole values ----

namespace {

// Past the string that begins here; null if it does not end.
const char* StringEnd(const char* at, const char* end)
{
    for (++at; at < end; ++at) {
        if (*at == '"') return at + 1;
        if (*at == '\\') ++at;
    }
    return nullptr;
}

}  // namespace

// For fields that are not known: up to the semicolon or brace that ends the statement.
void Tokenizer::SkipValue()
{
    Skip(nullptr);
}

void Tokenizer::SkipObject(std::string_view next_word)
{
    Skip(&next_word);
}

void Tokenizer::Skip(const std::string_view* next_word)
{
    const Skipping skipping(*this);
    // Only the depth is kept: brackets of one kind may close those of another in what is skipped.
    int depth = 0;
    struct Count {  // however it ends
        const char* const& at;
        const char* const start = at;
        ~Count() { CountSteps(static_cast<uint64_t>(at - start)); }
    };
    const Count count{at_};
    for (;;) {
        const char c = Peek();
        if (at_ >= end_) return;
        if (c == '"') {
            const char* const past = StringEnd(at_, end_);
            if (past == nullptr) FailAt<4146>(PlaceOf(At()));
            at_ = past;
            continue;
        }
        if (depth == 0 && (c == ';' || c == '}')) return;
        if (c == '(' || c == '{') {
            if (++depth > kMaxBrackets) FailAt<4104>(PlaceOf(At()), kMaxBrackets);
        } else if ((c == ')' || c == '}') && depth > 0) {
            --depth;
            if (next_word != nullptr && depth == 0 && c == '}') return void(++at_);
        }
        const char* const word_end = WordEnd(at_, end_);
        if (next_word != nullptr && depth == 0 && std::string_view(at_, word_end) == *next_word) return;
        at_ = word_end > at_ ? word_end : at_ + 1;
    }
}

// Braces are counted outside of strings and comments; the block is read later by its own reader.
std::string_view Tokenizer::ReadBody(const char* what)
{
    const Skipping skipping(*this);
    const size_t start = At();
    for (int depth = 0;;) {
        const char c = Peek();
        if (at_ >= end_) FailAt<2927>(PlaceOf(start), what);
        if (c == '"') {
            const char* const past = StringEnd(at_, end_);
            if (past == nullptr) FailAt<4147>(PlaceOf(At()));
            at_ = past;
            continue;
        }
        if (c == '}' && depth == 0) break;
        if (c == '{' && ++depth > kMaxBrackets) FailAt<4104>(PlaceOf(At()), kMaxBrackets);
        if (c == '}') --depth;
        const char* const word_end = WordEnd(at_, end_);
        at_ = word_end > at_ ? word_end : at_ + 1;
    }
    CountSteps(At() - start);
    return Text(start, static_cast<size_t>(at_++ - begin_));
}

}  // namespace talora
