// Case files as lines of entries: their beginning, the line of column names, comments, splitting.
#include "VarVal/CaseFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "Basic/Error.h"
#include "Basic/Parser.h"
#include "Basic/Steps.h"

namespace talora {

namespace {

constexpr size_t kFewestBlockBytes = 4096;
constexpr size_t kBeginningBytes = 256;
constexpr std::string_view kTypeMark = "// ~->[";
constexpr std::string_view kDatabaseMark = "// DB columns in order:  ";
constexpr int kLastVersion = 2;

bool IsBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

std::string_view Trim(std::string_view text)
{
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

// Opened anew by each reader, so that several can be at different places.
ByteSource OpenBytes(const CaseBytes& bytes)
{
    return bytes.in_memory ? ByteSource::OfBytes(bytes.contents, bytes.most_at_once) : ByteSource(bytes.name);
}

// The number of the line that a position is in.
int64_t LineAt(const CaseBytes& bytes, int64_t position)
{
    ByteSource source = OpenBytes(bytes);
    std::vector<char> block(1 << 16);
    int64_t lines = 1;
    char last = 0;
    while (position > 0) {
        const size_t got = source.Read(
            block.data(), static_cast<size_t>(std::min<int64_t>(int64_t(block.size()), position)));
        if (got == 0) break;
        for (size_t i = 0; i < got; ++i) {
            lines += block[i] == '\r' || (block[i] == '\n' && last != '\r');
            last = block[i];
        }
        position -= static_cast<int64_t>(got);
        CountSteps(got);
    }
    return lines;
}

// As it is reported.
int64_t LineOf(const CasePlace& place)
{
    if (place.line == 0) place.line = LineAt(*place.bytes, place.position);
    return place.from_database ? place.line - kDatabaseHeaderLines : place.line;
}

// What a file says of its type: "CASE", "DNET", ...; empty if it says nothing.  The rest follows the type.
std::string_view FileType(std::string_view beginning, std::string_view& rest)
{
    if (!beginning.starts_with(kTypeMark)) return {};
    const std::string_view type = beginning.substr(kTypeMark.size(), 4);
    if (type.size() < 4 ||
        !std::all_of(type.begin(), type.end(), [](char c) { return c >= 'A' && c <= 'Z'; }))
        return {};
    rest = beginning.substr(kTypeMark.size() + 4);
    return type;
}

// The number behind the type in the first line; other versions may read well enough, so they only warn.
void CheckVersion(std::string_view rest, const std::string& file)
{
    int version = 0;
    if (rest.starts_with('-'))
        std::from_chars(rest.data() + 1, rest.data() + std::min<size_t>(rest.size(), 12), version);
    if (version == 0)
        WarnAt<2450>(FilePlace{file.c_str()});
    else if (version < 0 || version > kLastVersion)
        WarnAt<2082>(FilePlace{file.c_str()}, version < 0 ? "old" : "new", version);
}

// Takes a line end off the front of a text; false if there is none.
bool TakeLineEnd(std::string_view& text)
{
    const size_t length = text.starts_with("\r\n") ? 2 : text.starts_with('\n') || text.starts_with('\r');
    text.remove_prefix(length);
    return length > 0;
}

// The block that FileHeader of DbCases.cpp writes, whose lines do not count.
bool IsFromDatabase(std::string_view beginning)
{
    if (!beginning.starts_with("// ~->[CASE-1]->~")) return false;
    beginning.remove_prefix(std::min(beginning.find_first_of("\r\n"), beginning.size()));
    return TakeLineEnd(beginning) && TakeLineEnd(beginning) && beginning.starts_with(kDatabaseMark);
}

// Places of the delimiters in a line, at most `most` of them; kLinePadding bytes behind it can be read.
// @return how many there are, most + 1 if more
int FindDelimiters(const char* text, size_t length, char first, char second, uint32_t* places, int most)
{
    int count = 0;
#ifdef __SSE2__
    const __m128i wanted = _mm_set1_epi8(first), also = _mm_set1_epi8(second);
    for (size_t at = 0; at < length; at += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + at));
        const __m128i hits = _mm_or_si128(_mm_cmpeq_epi8(bytes, wanted), _mm_cmpeq_epi8(bytes, also));
        uint32_t mask = static_cast<uint32_t>(_mm_movemask_epi8(hits));
        if (length - at < 16) mask &= (1u << (length - at)) - 1;
        for (; mask != 0; mask &= mask - 1) {
            if (count == most) return most + 1;
            places[count++] = static_cast<uint32_t>(at) + static_cast<uint32_t>(__builtin_ctz(mask));
        }
    }
#else
    for (size_t at = 0; at < length; ++at) {
        if (text[at] != first && text[at] != second) continue;
        if (count == most) return most + 1;
        places[count++] = static_cast<uint32_t>(at);
    }
#endif
    return count;
}

}  // namespace

// For shares of the work done; 0 where the size cannot be known, as for pipes.
int64_t SourceSize(const CaseBytes& bytes)
{
    if (bytes.in_memory) return static_cast<int64_t>(bytes.contents.size());
    struct stat info;
    return ::stat(bytes.name.c_str(), &info) == 0 && S_ISREG(info.st_mode) ? info.st_size : 0;
}

// Where the line number was not counted along the way the file is read up to there.
std::string PlaceText(const CasePlace& place)
{
    return "case " + (place.case_number > 0 ? std::to_string(place.case_number) + " " : "") + "on line " +
           std::to_string(LineOf(place)) + " (char " + std::to_string(place.character) + ") of file '" +
           place.bytes->name + "'";
}

FilePlace RecordPlace(const CasePlace& place)
{
    return {.file = place.bytes->name.c_str(), .position = LineOf(place), .in_text = true};
}

void FailWrongCount(int count, int wanted, const CasePlace& place)
{
    if (count > wanted) FailAt<6523>(RecordPlace(place), wanted, PlaceText(place).c_str());
    FailAt<6524>(RecordPlace(place), count, wanted, PlaceText(place).c_str());
}

// The entry of column NumCases: a number that is not negative.
double ReadCaseWeight(std::string_view text, const CasePlace& place)
{
    double weight = 0;
    if (!ParseReal(text, weight))
        FailAt<6525>(RecordPlace(place), std::string(text.substr(0, 80)).c_str(), PlaceText(place).c_str());
    if (weight < 0)
        FailAt<6526>(RecordPlace(place), std::string(text.substr(0, 80)).c_str(), PlaceText(place).c_str());
    return weight;
}

// The entry of column IDnum: a whole number, or -1 where it is missing.
int64_t ReadCaseId(std::string_view text, char missing, const CasePlace& place)
{
    if (text.empty() || text == "*" || (text.size() == 1 && text[0] == missing)) return -1;
    int64_t id = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), id);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size() || id < 0)
        FailAt<6527>(RecordPlace(place), std::string(text.substr(0, 80)).c_str(), PlaceText(place).c_str());
    return id;
}

void FailCasesHalted(int64_t num_cases, double fraction)
{
    FailWith<6520>(ABORTED_CND, static_cast<int>(std::min<int64_t>(num_cases, INT32_MAX)), 100 * fraction);
}

// ---- Splitting ----

// Whether all of the text stands in one pair of quotes; those within are doubled.
static bool IsOneQuoted(std::string_view text)
{
    if (!text.starts_with('"')) return false;
    for (size_t end = text.find('"', 1); end != std::string_view::npos; end = text.find('"', end + 2))
        if (end + 1 == text.size() || text[end + 1] != '"') return end + 1 == text.size();
    return false;
}

// The line of column names decides: comma, then tab, then blank.
char ShownDelimiter(std::string_view text, char default_delimiter)
{
    text = Trim(text);
    if (IsOneQuoted(text) || text.find(',') != std::string_view::npos) return ',';
    if (text.find('\t') != std::string_view::npos) return '\t';
    return text.find(' ') != std::string_view::npos ? ' ' : default_delimiter;
}

// A comment begins behind a blank or a delimiter, so "a//b" is an entry.
size_t FindCaseComment(std::string_view text, char delimiter)
{
    bool quoted = false;
    for (size_t i = 0; i + 1 < text.size(); ++i) {
        if (delimiter == ',' && text[i] == '"') quoted = !quoted;
        if (quoted || text[i] != '/' || (text[i + 1] != '/' && text[i + 1] != '*')) continue;
        if (i == 0 || IsBlank(text[i - 1]) || text[i - 1] == delimiter) return i;
    }
    return std::string_view::npos;
}

int LineSplitter::Split(const CaseLine& line, int most)
{
    const std::string_view text = line.text;
    unquoted_ = false;
    if (delimiter_ == ',' && std::memchr(text.data(), '"', text.size()) != nullptr)
        return SplitQuoted(text, most);
    // 1. Places of all delimiters, sixteen bytes at a time.
    text_ = text.data();
    const size_t room = std::min<size_t>(static_cast<size_t>(most) + 1, text.size() + 1);
    const bool by_blanks = delimiter_ == ' ';
    // Blanks may come in runs, so that only the length of the line bounds how many there are.
    const size_t most_places = by_blanks ? text.size() : room;
    if (places_.size() < most_places + 1) places_.resize(most_places + 1);
    int count = FindDelimiters(text.data(), text.size(), delimiter_, by_blanks ? '\t' : delimiter_,
                               places_.data(), static_cast<int>(most_places));
    count = std::min(count, static_cast<int>(most_places));
    if (spans_.size() < room + 1) spans_.resize(room + 1);
    // 2. Entries between them: runs of blanks count once; with other delimiters blanks around an entry go.
    EntrySpan* out = spans_.data();
    uint32_t begin = 0;
    if (by_blanks) {
        int entries = 0;
        for (int i = 0; i <= count; ++i) {
            const uint32_t end = i < count ? places_[static_cast<size_t>(i)] : uint32_t(text.size());
            if (end > begin) {
                if (entries == most) return most + 1;
                out[entries++] = {begin, end};
            }
            begin = end + 1;
        }
        return entries;
    }
    for (int i = 0; i <= count; ++i) {
        uint32_t from = begin, end = i < count ? places_[static_cast<size_t>(i)] : uint32_t(text.size());
        begin = end + 1;
        while (from < end && static_cast<unsigned char>(text[from]) <= ' ') ++from;
        while (from < end && static_cast<unsigned char>(text[end - 1]) <= ' ') --end;
        if (i == most) {
            // A delimiter at the end of the line is no further entry.
            const bool is_last = i == count && from == end;
            return is_last ? most : most + 1;
        }
        out[i] = {from, end};
    }
    return count + 1;
}

// The entries without their quotes go one after the other into the scratch text.
int LineSplitter::SplitQuoted(std::string_view line, int most)
{
    unquoted_ = true;
    scratch_.clear();
    spans_.clear();
    places_.clear();
    size_t at = 0;
    bool is_too_long = false;
    for (;;) {
        while (at < line.size() && IsBlank(line[at])) ++at;
        if (static_cast<int>(spans_.size()) == most) {
            // A comma at the end of the line is no further entry.
            is_too_long = at < line.size();
            break;
        }
        const auto begin = static_cast<uint32_t>(scratch_.size());
        places_.push_back(static_cast<uint32_t>(at));
        if (at < line.size() && line[at] == '"') {
            for (++at; at < line.size(); ++at) {
                if (line[at] == '"' && (at + 1 >= line.size() || line[at + 1] != '"')) break;
                if (line[at] == '"') ++at;
                scratch_ += line[at];
            }
            ++at;
        }
        const size_t comma = std::min(line.find(',', std::min(at, line.size())), line.size());
        if (at < comma) scratch_ += Trim(line.substr(at, comma - at));
        spans_.push_back({begin, static_cast<uint32_t>(scratch_.size())});
        at = comma + 1;
        if (comma >= line.size()) break;
    }
    scratch_.resize(scratch_.size() + kLinePadding);
    text_ = scratch_.data();
    return is_too_long ? most + 1 : static_cast<int>(spans_.size());
}

int64_t LineSplitter::Character(int index) const
{
    const auto i = static_cast<size_t>(index);
    return int64_t{1} + (unquoted_ ? places_[i] : spans_[i].begin);
}

// ---- The file ----

// A small file gets a block of its size.
CaseFileReader::CaseFileReader(const CaseBytes& bytes, char default_delimiter, bool warn, size_t block_bytes)
    : source_(bytes), bytes_(OpenBytes(bytes))
{
    size_ = bytes_.SizeHint();
    if (size_ > 0) block_bytes = std::clamp(static_cast<size_t>(size_) + 1, kFewestBlockBytes, block_bytes);
    block_.resize(block_bytes + kLinePadding);
    while (end_ < kBeginningBytes && Fill()) continue;
    CheckBeginning(warn);
    ReadHeader(default_delimiter);
}

// Reads more behind what is not taken yet; false at the end of the file.
bool CaseFileReader::Fill()
{
    if (ended_) return false;
    // 1. What is left moves to the front of the block.
    if (at_ > 0) {
        std::memmove(block_.data(), block_.data() + at_, end_ - at_);
        block_position_ += static_cast<int64_t>(at_);
        end_ -= at_;
        for (size_t* const known : {&slash_, &feed_, &return_}) *known = *known > at_ ? *known - at_ : 0;
        at_ = 0;
    }
    // 2. A line longer than the block makes it grow, up to a limit.
    if (end_ + kLinePadding >= block_.size()) {
        if (end_ >= kLongestCaseLine)
            FailAt<6503>(RecordPlace(Name()), static_cast<long long>(lines_ + 1), Name().c_str(),
                         static_cast<long long>(kLongestCaseLine));
        CheckMemory(double(block_.size()) * 2, "to read a line of %lld bytes from file '%s'",
                    static_cast<long long>(end_), Name().c_str());
        block_.resize(block_.size() * 2);
    }
    // 3. A file that is shorter than it was when it was opened is being changed, which is an error.
    const size_t got = bytes_.Read(block_.data() + end_, block_.size() - kLinePadding - end_);
    end_ += got;
    ended_ = got == 0;
    if (ended_ && block_position_ + static_cast<int64_t>(end_) < size_)
        FailWith<6504>(FILE_CND, Name().c_str(), static_cast<long long>(size_),
                       static_cast<long long>(block_position_ + static_cast<int64_t>(end_)));
    return !ended_;
}

// Wide text is refused, the mark of UTF-8 skipped; a file that states another type is no case file.
void CaseFileReader::CheckBeginning(bool warn)
{
    std::string_view beginning(block_.data(), std::min(end_, kBeginningBytes));
    if (beginning.starts_with("\xFF\xFE") || beginning.starts_with("\xFE\xFF"))
        FailAt<6505>(RecordPlace(Name()), Name().c_str());
    if (beginning.starts_with("\xEF\xBB\xBF")) {
        beginning.remove_prefix(3);
        at_ = 3;
    }
    std::string_view rest;
    const std::string_view type = FileType(beginning, rest);
    if (type.empty()) return;
    if (type != "CASE") FailAt<2081>(FilePlace{Name().c_str()}, std::string(type).c_str());
    if (warn) CheckVersion(rest, Name());
    header_.from_database = IsFromDatabase(beginning);
}

// The first place of what is not taken yet where the character stands; the end if it does not.  What was
// found out before is in known, so that each byte is looked at once, whatever ends the lines.
size_t CaseFileReader::Find(char c, size_t& known) const
{
    if (known < at_) known = at_;
    if (known >= end_ || block_[known] == c) return known;
    const void* const found = std::memchr(block_.data() + known, c, end_ - known);
    known = found != nullptr ? static_cast<size_t>(static_cast<const char*>(found) - block_.data()) : end_;
    return known;
}

// The next line, whatever it holds.
bool CaseFileReader::NextLine(CaseLine& line)
{
    // Its end: the first LF or CR.  Behind a CR there has to be something to see whether it is CR LF.
    size_t end = 0;
    for (;;) {
        end = std::min(Find('\n', feed_), Find('\r', return_));
        const bool is_known = end < end_ && (block_[end] == '\n' || end + 1 < end_);
        if (is_known) break;
        if (Fill()) continue;
        end = std::min(Find('\n', feed_), Find('\r', return_));  // the block may have moved
        break;
    }
    if (at_ == end_) return false;
    const size_t begin = at_;
    CountSteps(end - begin + 1);
    at_ = end < end_ ? end + 1 : end_;
    if (end + 1 < end_ && block_[end] == '\r' && block_[end + 1] == '\n') ++at_;
    line.text = {block_.data() + begin, end - begin};
    line.position = block_position_ + static_cast<int64_t>(begin);
    line.number = lines_known_ ? ++lines_ : 0;
    return true;
}

// Whether the line is, or begins, a comment; a comment of several lines is read to its end, and what
// follows it on its last line becomes the line.  A comment behind a case is cut off.
bool CaseFileReader::SkipComments(CaseLine& line)
{
    const auto begin = static_cast<size_t>(line.text.data() - block_.data());
    if (slash_ < begin) slash_ = begin;
    const size_t end = begin + line.text.size();
    if (slash_ >= end) return false;
    const void* slash = std::memchr(block_.data() + slash_, '/', end_ - slash_);
    slash_ = slash != nullptr ? static_cast<size_t>(static_cast<const char*>(slash) - block_.data()) : end_;
    if (slash_ >= end) return false;
    const std::string_view text = Trim(line.text);
    if (text.starts_with("//")) return true;
    const size_t comment = FindCaseComment(line.text, header_.delimiter);
    if (comment == std::string_view::npos) return false;
    if (line.text[comment + 1] == '/') {
        line.text = line.text.substr(0, comment);
        // The delimiter in front of the comment belongs to it.
        while (!line.text.empty() && IsBlank(line.text.back())) line.text.remove_suffix(1);
        return false;
    }
    TakeComment(line, comment);
    return SkipComments(line);
}

void CaseFileReader::TakeComment(CaseLine& line, size_t begin)
{
    const bool has_data = !Trim(line.text.substr(0, begin)).empty();
    size_t end = line.text.find("*/", begin + 2);
    if (end != std::string_view::npos) {
        // On one line: as good as blanks.
        char* text = block_.data() + (line.text.data() - block_.data());
        std::fill(text + begin, text + end + 2, ' ');
        return;
    }
    if (has_data) {
        const CasePlace place = PlaceOf(line, 0, static_cast<int64_t>(begin) + 1);
        FailAt<6506>(RecordPlace(place), PlaceText(place).c_str());
    }
    const int64_t first_line = line.number;
    do {
        if (!NextLine(line))
            FailAt<6507>({.file = Name().c_str(), .position = first_line, .in_text = true},
                         static_cast<long long>(first_line), Name().c_str());
        end = line.text.find("*/");
    } while (end == std::string_view::npos);
    line.position += static_cast<int64_t>(end) + 2;
    line.text.remove_prefix(end + 2);
}

bool CaseFileReader::Next(CaseLine& line)
{
    while (NextLine(line)) {
        if (SkipComments(line)) continue;
        const std::string_view text = line.text;
        // Most lines begin with something to see.
        if (text.empty() || (IsBlank(text.front()) && Trim(text).empty())) continue;
        if (!header_.columns.empty()) CheckEntries(line, static_cast<int>(header_.columns.size()));
        return true;
    }
    return false;
}

// Only a line that is longer than an entry may be can have one that is too long.
void CaseFileReader::CheckEntries(const CaseLine& line, int most) const
{
    if (line.text.size() <= kLongestCaseEntry) return;
    LineSplitter splitter(header_.delimiter);
    const int count = std::min(most, splitter.Split(line, most));
    for (int i = 0; i < count; ++i) {
        if (splitter.Entry(i).size() <= kLongestCaseEntry) continue;
        const CasePlace place = PlaceOf(line, 0, splitter.Character(i));
        FailAt<6557>(RecordPlace(place), static_cast<long long>(splitter.Entry(i).size()),
                     static_cast<long long>(kLongestCaseEntry), PlaceText(place).c_str());
    }
}

void CaseFileReader::ReadHeader(char default_delimiter)
{
    CaseLine line;
    header_.delimiter = ',';  // so that quotes are minded
    if (!Next(line)) FailAt<6508>(RecordPlace(Name()), Name().c_str());
    const std::string_view text = Trim(line.text);
    header_.delimiter = ShownDelimiter(text, default_delimiter);
    LineSplitter splitter(header_.delimiter);
    const int count = splitter.Split(line, kMostCaseColumns);
    if (count > kMostCaseColumns) FailAt<6556>(RecordPlace(Name()), Name().c_str(), kMostCaseColumns);
    CheckEntries(line, kMostCaseColumns);
    for (int i = 0; i < count; ++i) {
        std::string_view name = splitter.Entry(i);
        const int column = static_cast<int>(header_.columns.size());
        if (name.empty() && i > 0 && i == count - 1) break;  // a delimiter at the end of the line
        int* special = name == kIdColumn     ? &header_.id_column
                       : name == kFreqColumn ? &header_.freq_column
                                             : nullptr;
        if (special == &header_.id_column && *special >= 0) FailAt<6509>(RecordPlace(Name()), Name().c_str());
        if (special == &header_.freq_column && *special >= 0)
            FailAt<6510>(RecordPlace(Name()), Name().c_str());
        if (special != nullptr) *special = column;
        if (name.starts_with(kNodeColumnMark) && IsSpecialColumn(name.substr(1))) name.remove_prefix(1);
        header_.columns.emplace_back(name);
    }
    if (header_.columns.empty()) FailAt<6508>(RecordPlace(Name()), Name().c_str());
    first_case_ = block_position_ + static_cast<int64_t>(at_);
}

void CaseFileReader::GoTo(int64_t position, int64_t line)
{
    position = std::max(position, first_case_);
    bytes_.GoTo(position);
    block_position_ = position;
    at_ = end_ = slash_ = feed_ = return_ = 0;
    ended_ = false;
    lines_known_ = line > 0 || (position == first_case_ && lines_known_);
    if (line > 0) lines_ = line - 1;
}

}  // namespace talora
