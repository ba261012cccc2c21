// Letters, numbers and tokens of foreign files.
#include "Foreign/ForeignText.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace talora {

namespace {

constexpr std::string_view kWhiteSpace = " \t\r\n\v\f";

// Code points of the bytes 80 to 9F in Windows-1252; 0 where there is none.
constexpr char16_t kWindows1252[32] = {0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                       0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
                                       0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                       0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

void AppendUtf8(std::string& out, uint32_t code)
{
    if (code < 0x80) {
        out += static_cast<char>(code);
        return;
    }
    const int more = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    constexpr unsigned char kFirst[] = {0, 0xC0, 0xE0, 0xF0};
    out += static_cast<char>(kFirst[more] | (code >> (6 * more)));
    for (int i = more; i-- > 0;) out += static_cast<char>(0x80 | ((code >> (6 * i)) & 0x3F));
}

std::string FromWindows1252(std::string_view bytes)
{
    std::string out;
    out.reserve(bytes.size() + bytes.size() / 8);
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        const bool is_special = byte >= 0x80 && byte < 0xA0 && kWindows1252[byte - 0x80] != 0;
        AppendUtf8(out, is_special ? kWindows1252[byte - 0x80] : byte);
    }
    return out;
}

// A lone half of a pair becomes the replacement character.
std::string FromUtf16(std::string_view bytes, bool big_endian)
{
    std::string out;
    out.reserve(bytes.size());
    const auto unit = [&](size_t i) {
        const auto a = static_cast<unsigned char>(bytes[i]), b = static_cast<unsigned char>(bytes[i + 1]);
        return static_cast<uint32_t>(big_endian ? a << 8 | b : b << 8 | a);
    };
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        uint32_t code = unit(i);
        if (code >= 0xD800 && code < 0xDC00 && i + 3 < bytes.size() && (unit(i + 2) & 0xFC00) == 0xDC00) {
            code = 0x10000 + ((code - 0xD800) << 10) + (unit(i + 2) - 0xDC00);
            i += 2;
        } else if (code >= 0xD800 && code < 0xE000) {
            code = 0xFFFD;
        }
        AppendUtf8(out, code);
    }
    return out;
}

// Whether an XML declaration names one of the one-byte alphabets.
bool DeclaresLatin(std::string_view bytes)
{
    const std::string start = LowerText(bytes.substr(0, 200));
    const size_t end = start.find("?>");
    const std::string declaration = start.substr(0, end == std::string::npos ? 0 : end);
    return declaration.find("iso-8859-1") != std::string::npos ||
           declaration.find("windows-1252") != std::string::npos;
}

}  // namespace

// ---- Places ----

int64_t ForeignSource::LineOf(size_t at) const
{
    int64_t line = 1;
    at = std::min(at, text.size());
    for (size_t i = 0; i < at; ++i)
        if (text[i] == '\n' || (text[i] == '\r' && (i + 1 == text.size() || text[i + 1] != '\n'))) ++line;
    return line;
}

FilePlace ForeignSource::PlaceAt(size_t at) const
{
    return {.file = file, .position = LineOf(at)};
}

// ---- Letters ----

bool IsUtf8(std::string_view text)
{
    for (size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x80) {
            ++i;
            continue;
        }
        const size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : 2;
        if (byte < 0xC2 || byte > 0xF4 || i + length > text.size()) return false;
        uint32_t code = byte & (0xFFu >> (length + 1));
        for (size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            code = code << 6 | (next & 0x3F);
        }
        constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
        if (code < kLeast[length] || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return false;
        i += length;
    }
    return true;
}

std::string_view ToUtf8(std::string_view bytes, const char* file, std::string& changed)
{
    if (bytes.starts_with("\xFF\xFE")) return changed = FromUtf16(bytes.substr(2), false);
    if (bytes.starts_with("\xFE\xFF")) return changed = FromUtf16(bytes.substr(2), true);
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
    if (IsUtf8(bytes)) return bytes;
    if (!DeclaresLatin(bytes)) WarnAt<7030>(FilePlace{.file = file});
    return changed = FromWindows1252(bytes);
}

// ---- Numbers ----

// Up to 15 digits with a small power of ten are exact in one operation (Clinger 1990); all others go the way
// of the standard library.
bool TryScanNumber(const char*& at, const char* end, double& value)
{
    static constexpr double kPowers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                         1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    const char* p = at;
    const bool is_negative = p < end && *p == '-';
    if (p < end && (*p == '-' || *p == '+')) ++p;
    const char* const start = p;
    uint64_t digits = 0;
    int num_digits = 0, num_decimals = 0;
    bool has_digit = false;
    for (; p < end && *p >= '0' && *p <= '9'; ++p) {
        has_digit = true;
        digits = digits * 10 + static_cast<uint64_t>(*p - '0');
        if (digits != 0) ++num_digits;
    }
    if (p < end && *p == '.')
        for (++p; p < end && *p >= '0' && *p <= '9'; ++p) {
            has_digit = true;
            digits = digits * 10 + static_cast<uint64_t>(*p - '0');
            if (digits != 0) ++num_digits;
            ++num_decimals;
        }
    if (!has_digit) return false;
    const bool has_exponent = p < end && (*p == 'e' || *p == 'E');
    if (!has_exponent && num_digits <= 15 && num_decimals <= 15) {
        value = static_cast<double>(digits) / kPowers[num_decimals];
        if (is_negative) value = -value;
        at = p;
        return true;
    }
    const auto [stop, error] = std::from_chars(start, end, value);
    if (error == std::errc::invalid_argument) return false;
    if (error == std::errc::result_out_of_range) {
        // The library gives no value: very large or very small, as the exponent says.
        const char* e = std::find_if(start, stop, [](char c) { return c == 'e' || c == 'E'; });
        value = e + 1 < stop && e[1] == '-' ? 0 : std::numeric_limits<double>::infinity();
    }
    if (is_negative) value = -value;
    at = stop;
    return true;
}

bool ParseNumber(std::string_view text, double& value)
{
    const char* at = text.data();
    const char* const end = at + text.size();
    return TryScanNumber(at, end, value) && at == end && std::isfinite(value);
}

bool ParseLimit(std::string_view text, double& value)
{
    if (ParseNumber(text, value)) return true;
    std::string word = LowerText(text);
    const bool is_negative = word.starts_with('-');
    if (is_negative || word.starts_with('+')) word.erase(0, 1);
    if (word != "inf" && word != "infinity") return false;
    value = std::numeric_limits<double>::infinity();
    if (is_negative) value = -value;
    return true;
}

std::string Shown(std::string_view text)
{
    constexpr size_t kMost = 40;
    if (text.size() <= kMost) return std::string(text);
    size_t cut = kMost;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;  // whole letters
    return std::string(text.substr(0, cut)) + "...";
}

// ---- Tokens ----

Scanner::Scanner(const ForeignSource& source, const ScanRules& rules, size_t begin)
    : source_(source),
      rules_(rules),
      at_(source.text.data() + begin),
      end_(source.text.data() + source.text.size()),
      token_(begin)
{
    const auto mark = [&](std::string_view characters, Class as) {
        for (const char c : characters) class_[static_cast<unsigned char>(c)] = as;
    };
    mark(kWhiteSpace, BLANK);
    mark(rules.blanks, BLANK);
    mark(rules.punctuation, PUNCTUATION);
    mark("\"", QUOTE);
    if (rules.line_comment) mark({&rules.line_comment, 1}, COMMENT);
    if (rules.slash_comments || rules.nested_comments) mark("/", COMMENT);
}

// Past a comment that begins here; false if there is none.
bool Scanner::SkipComment()
{
    const auto to_line_end = [&] {
        while (at_ < end_ && *at_ != '\n' && *at_ != '\r') ++at_;
        return true;
    };
    if (rules_.line_comment && *at_ == rules_.line_comment) return to_line_end();
    if (*at_ != '/' || at_ + 1 == end_) return false;
    if (rules_.slash_comments && at_[1] == '/') return to_line_end();
    const bool is_nested = rules_.nested_comments && at_[1] == '#';
    if (!is_nested && !(rules_.slash_comments && at_[1] == '*')) return false;
    const size_t start = At();
    const char sign = at_[1];
    int depth = 1;
    for (at_ += 2; at_ + 1 < end_; ++at_) {
        if (at_[0] == sign && at_[1] == '/') {
            ++at_;
            if (--depth == 0) return ++at_, true;
        } else if (is_nested && at_[0] == '/' && at_[1] == sign) {
            ++at_;
            ++depth;
        }
    }
    FailAt<7004>(source_.PlaceAt(start));
}

void Scanner::Skip()
{
    for (; at_ < end_; ++at_) {
        const unsigned char kind = class_[static_cast<unsigned char>(*at_)];
        if (kind == BLANK) continue;
        if (kind != COMMENT || !SkipComment()) return;
        --at_;  // a comment ends behind its last character
    }
}

bool Scanner::Try(char punctuation)
{
    if (Peek() != punctuation || at_ == end_) return false;
    token_ = At();
    ++at_;
    return true;
}

void Scanner::Need(char punctuation)
{
    if (Try(punctuation)) return;
    const char what[] = {'\'', punctuation, '\'', 0};
    FailExpected(what);
}

std::string_view Scanner::Word()
{
    Skip();
    const char* const start = at_;
    for (; at_ < end_; ++at_) {
        const unsigned char kind = class_[static_cast<unsigned char>(*at_)];
        if (kind == WORD) continue;
        if (kind != COMMENT) break;
        // A slash that begins no comment is a letter like any other.
        if (*at_ == rules_.line_comment || at_ + 1 == end_) {
            if (*at_ == rules_.line_comment) break;
            continue;
        }
        if (rules_.slash_comments && (at_[1] == '/' || at_[1] == '*')) break;
        if (rules_.nested_comments && at_[1] == '#') break;
    }
    if (at_ > start) token_ = static_cast<size_t>(start - source_.text.data());
    return {start, static_cast<size_t>(at_ - start)};
}

bool Scanner::TryWord(std::string_view word)
{
    const size_t before = At();
    if (Word() == word) return true;
    GoTo(before);
    return false;
}

std::string_view Scanner::PeekWord()
{
    const size_t before = At(), token = token_;
    const std::string_view word = Word();
    GoTo(before);
    token_ = token;
    return word;
}

std::string Scanner::Name()
{
    if (Peek() == '"') return Quoted();
    const std::string_view word = Word();
    if (word.empty()) FailExpected("a name");
    return std::string(word);
}

std::string Scanner::Quoted()
{
    Skip();
    token_ = At();
    std::string text;
    for (const char* p = at_ + 1; p < end_; ++p) {
        const char* const run = p;
        while (p < end_ && *p != '"' && !(rules_.escapes && *p == '\\')) ++p;
        text.append(run, p);
        if (p == end_) break;
        if (*p == '"') {
            at_ = p + 1;
            return text;
        }
        if (++p == end_) break;
        text += *p == 'n' ? '\n' : *p == 't' ? '\t' : *p == 'r' ? '\r' : *p;
    }
    FailAt<7005>(source_.PlaceAt(token_));
}

bool Scanner::TryNumber(double& value)
{
    Skip();
    const char* p = at_;
    if (!TryScanNumber(p, end_, value)) return false;
    if (p < end_ && class_[static_cast<unsigned char>(*p)] == WORD) return false;
    token_ = At();
    at_ = p;
    return true;
}

double Scanner::Number()
{
    double value = 0;
    Skip();
    const size_t start = At();
    if (TryNumber(value) && std::isfinite(value)) return value;
    GoTo(start);
    FailAt<7006>(Here(), Found().c_str());
}

int64_t Scanner::Integer()
{
    constexpr double kMost = 2147483647;
    Skip();
    const size_t start = At();
    const double value = Number();
    if (value != std::floor(value) || std::abs(value) > kMost) {
        GoTo(start);
        FailAt<7006>(Here(), Found().c_str());
    }
    return static_cast<int64_t>(value);
}

void Scanner::SkipValue(std::string_view ends)
{
    int depth = 0;
    for (;;) {
        const char c = Peek();
        if (at_ == end_) return;
        if (depth == 0 && ends.find(c) != std::string_view::npos) return;
        if (c == '"') {
            Quoted();
            continue;
        }
        if (c == '(' || c == '{' || c == '[') ++depth;
        if (c == ')' || c == '}' || c == ']') --depth;
        if (depth < 0) return;
        ++at_;
    }
}

std::string Scanner::Found()
{
    Skip();
    if (at_ == end_) return "the end of the text";
    const size_t before = At(), token = token_;
    const std::string_view word = Word();
    const std::string found = word.empty() ? std::string(1, *at_) : Shown(word);
    GoTo(before);
    token_ = token;
    return "'" + found + "'";
}

void Scanner::FailExpected(const char* what)
{
    FailAt<7002>(Here(), what, Found().c_str());
}

size_t FindEntry(std::string_view text, const ScanRules& rules, size_t table_at, size_t entry)
{
    const ForeignSource source{text, nullptr};
    Scanner scanner(source, rules, table_at);
    double value = 0;
    for (;;) {
        scanner.Skip();
        const size_t at = scanner.At();
        if (at >= text.size()) return table_at;
        if (scanner.TryNumber(value)) {
            if (entry-- == 0) return at;
        } else if (scanner.Word().empty()) {
            scanner.GoTo(at + 1);
        }
    }
}

// ---- Writing ----

namespace {

template <class Real>
void AppendShortest(std::string& out, Real value)
{
    char text[40];
    out.append(text, std::to_chars(text, text + sizeof text, value).ptr);
}

}  // namespace

void AppendNumber(std::string& out, double value)
{
    AppendShortest(out, value);
}

std::string NumberText(double value)
{
    std::string text;
    AppendNumber(text, value);
    return text;
}

void AppendEntry(std::string& out, double value, const ForeignNode& node)
{
    if (node.kind == ForeignKind::UTILITY) return AppendShortest(out, value);
    AppendShortest(out, static_cast<float>(value));
}

}  // namespace talora
