// Case files: opening one, its header, and the lines that hold cases.
//
// The file is read in blocks of about a megabyte; only the line at hand is in memory, however long the
// file is.  Lines end with LF, CR LF or CR.  Lines given out are views into the block and hold until the next
// one is asked for; at least kLinePadding bytes behind their end may be read (and mean nothing), so that
// vector code need not care.
//
// A file whose first lines give the columns of a database query counts its lines from behind that block.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Basic/Memory.h"
#include "Basic/Stream.h"
#include "VarVal/Caseset.h"

namespace talora {

constexpr size_t kLinePadding = 64;
constexpr size_t kLongestCaseLine = size_t{1} << 30;
constexpr int kMostCaseColumns = 100000;
constexpr size_t kLongestCaseEntry = 64 << 10;
constexpr int kDatabaseHeaderLines = 6;
constexpr const char kIdColumn[] = "IDnum";
constexpr const char kFreqColumn[] = "NumCases";
// In front of these two it says that the column is a node which is called so.
constexpr char kNodeColumnMark = '@';
inline bool IsSpecialColumn(std::string_view name)
{
    return name == kIdColumn || name == kFreqColumn;
}

struct CaseFileHeader {
    bool from_database = false;
    char delimiter = '\t';  // comma, tab or blank
    std::vector<std::string> columns;
    int id_column = -1, freq_column = -1;
};

struct CaseLine {
    std::string_view text;
    int64_t number = 0;    // from 1; 0 if not known
    int64_t position = 0;  // of its first byte in the file
};

// The bytes of a case file, or where they are; what it refers to outlives its readers.
struct CaseBytes {
    const std::string& name;
    bool in_memory;
    std::string_view contents;
    size_t most_at_once = SIZE_MAX;  // that one read of the contents gives, as a pipe may give few

    CaseBytes(const CaseSource& source)
        : name(source.name), in_memory(source.in_memory), contents(source.contents)
    {}
    CaseBytes(const Stream& stream)
        : name(stream.name), in_memory(stream.in_memory), contents(stream.contents)
    {}
};

int64_t SourceSize(const CaseBytes& bytes);  // 0 if not known

// Where a case stands, for messages.
struct CasePlace {
    const CaseBytes* bytes = nullptr;
    int64_t case_number = 0;   // 0 if not known
    mutable int64_t line = 0;  // 0 if not known: it is then found from the position when first asked for
    int64_t position = 0;
    int64_t character = 1;  // in the line, from 1
    bool from_database = false;
};
// "case 3 on line 5 (char 7) of file 'x.cas'"
std::string PlaceText(const CasePlace& place);
// The same for the record of a message that has that text.
FilePlace RecordPlace(const CasePlace& place);
// For the record of a message about a file as a whole, which names it.
inline FilePlace RecordPlace(const std::string& file)
{
    return {.file = file.c_str(), .in_text = true};
}

// ---- What all readers of cases check ----
[[noreturn]] void FailWrongCount(int count, int wanted, const CasePlace& place);
double ReadCaseWeight(std::string_view text, const CasePlace& place);
int64_t ReadCaseId(std::string_view text, char missing, const CasePlace& place);  // -1 if missing
[[noreturn]] void FailCasesHalted(int64_t num_cases, double fraction);

struct EntrySpan {
    uint32_t begin, end;
};

// The delimiter that a line of column names shows.  One name in quotes is a whole line with commas.
char ShownDelimiter(std::string_view text, char default_delimiter);
// Where a comment begins: two characters that do not stand within an entry.  npos if none does.
size_t FindCaseComment(std::string_view text, char delimiter);

// Splits lines at one delimiter.  Runs of blanks count once where the delimiter is a blank; blanks around
// other entries are dropped; with commas, entries may be in double quotes (doubled inside).
class LineSplitter {
public:
    explicit LineSplitter(char delimiter) : delimiter_(delimiter) {}

    // @param most  stop when there are more entries than this
    // @return the number of entries, most + 1 if there are more
    int Split(const CaseLine& line, int most);
    std::string_view Entry(int index) const
    {
        const EntrySpan span = spans_[static_cast<size_t>(index)];
        return {text_ + span.begin, span.end - span.begin};
    }
    // Where the entry begins in the line, from 1.
    int64_t Character(int index) const;

private:
    int SplitQuoted(std::string_view line, int most);

    char delimiter_;
    const char* text_ = nullptr;
    bool unquoted_ = false;  // the entries are in scratch_, not in the line
    std::vector<EntrySpan> spans_;
    std::vector<uint32_t> places_;  // of the entries in the line, when they are in scratch_
    std::string scratch_;
};

constexpr size_t kCaseBlockBytes = 1 << 20;
constexpr size_t kSmallCaseBlockBytes = 1 << 13;  // for whoever reads a single case

class CaseFileReader {
public:
    // Opens the file, looks at its beginning and reads the line of column names.
    // @param default_delimiter  where the header line has but one column
    // @param warn  whether to warn of what is odd about the file as a whole
    CaseFileReader(const CaseBytes& bytes, char default_delimiter, bool warn,
                   size_t block_bytes = kCaseBlockBytes);

    const CaseFileHeader& Header() const { return header_; }
    const std::string& Name() const { return source_.name; }
    // Of an entry of a line; the reader outlives the place.
    CasePlace PlaceOf(const CaseLine& line, int64_t case_number, int64_t character) const
    {
        return {&source_, case_number, line.number, line.position, character, header_.from_database};
    }

    // The next line that holds a case; false at the end of the file.
    bool Next(CaseLine& line);
    // Goes to the line that holds this byte, or begins there; positions within the header: to the first case.
    // @param line  its number, 0 if not known
    void GoTo(int64_t position, int64_t line = 0);

    int64_t BytesTaken() const { return block_position_ + static_cast<int64_t>(at_); }
    int64_t Size() const { return size_; }  // when it was opened; 0 if not known
    int64_t FirstCase() const { return first_case_; }
    int64_t NextLineNumber() const { return lines_known_ ? lines_ + 1 : 0; }

private:
    bool NextLine(CaseLine& line);
    size_t Find(char c, size_t& known) const;
    bool Fill();
    bool SkipComments(CaseLine& line);
    void CheckBeginning(bool warn);
    void ReadHeader(char default_delimiter);
    void CheckEntries(const CaseLine& line, int most) const;
    void TakeComment(CaseLine& line, size_t begin);

    CaseBytes source_;
    ByteSource bytes_;
    CaseFileHeader header_;
    TableVector<char> block_;
    int64_t block_position_ = 0;  // of the first byte of the block in the file
    size_t at_ = 0, end_ = 0;     // what is not taken yet
    // None of these characters stands between at_ and here.
    size_t slash_ = 0, feed_ = 0, return_ = 0;
    bool ended_ = false;
    int64_t size_ = 0;
    int64_t lines_ = 0;  // taken so far
    bool lines_known_ = true;
    int64_t first_case_ = 0;
};

}  // namespace talora
