// Error records: how anything that goes wrong is reported.
//
// A failure is one line where it happens: Fail<3300>(state, num_states - 1) formats message 3300 of
// Messages.inc, adds a record to the calling thread's list and unwinds to the entry frame of the interface
// function, which returns its preset failure value.  Warn and Notice add a record and return.
// Numbers are written positive here and stored negative.
//
// Messages are written in a markup: ">-Bnet" stands for a term that each front end calls by its
// own name, ">-cr-" for a line break.  The markup is expanded in the format, before the arguments
// go in, so text that comes from a file never acts as markup.
//
// Records belong to the thread that raised them and live until they are cleared or the thread
// ends.  Closing an environment clears those of other threads, too; but as they may just be showing or
// listing them, their memory goes only when that thread adds its next record.  At most kMaxRecordsPerThread
// are kept.  Reporting never throws, and reporting that memory is out needs none.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <string>

#include "Basic/FormatCheck.h"
#include "Basic/Handle.h"
#include "Basic/Text.h"

struct environ_vx;

namespace talora {

enum Severity : int {
    NULL_SEV,
    FALSE_ALERT_SEV,
    REPORT_SEV,
    NOTICE_SEV,
    WARNING_SEV,
    ERROR_SEV,
    INTERNAL_SEV
};

enum Disposition { NOTDISP_ERR, PRINTED_ERR, SOUNDED_ERR, DIALOGED_ERR, NUM_DISPLAY_ERR };

enum FixStatus { ERR_OKAY, FIXED_ERR, PATCHED_ERR, COVERED_ERR, REMAINS_ERR, UNFIXABLE_ERR, NUM_STATUS_ERR };

// Condition flags of a record; the first, third and fourth can be asked for by ErrorCategory_vx.
enum Condition : uint32_t {
    OUT_OF_MEMORY_CND = 0x08,
    ABORTED_CND = 0x20,
    FROM_FRONT_END_CND = 0x40,
    FILE_CND = 0x80,
    INCONSISTENT_FINDING_CND = 0x200
};

constexpr int kMaxRecordsPerThread = 10000;
constexpr int kMessageBytes = 512;
constexpr int64_t kNoPosition = -1;

// Where a reader stands in a file, for records about its contents.
struct FilePlace {
    const char* file = nullptr;
    int64_t position = kNoPosition;  // line number
    const char* context = nullptr;   // ends the message: ", while reading field `x` of node 'A'"
    bool in_text = false;            // the message itself names the place: it is only kept in the record
};

// Thrown by Fail once its record is in the list, caught only by the entry frame (or by code that
// turns one failure into another and then calls Fail again).
struct Unwind {
    report_vx* record;
};

// Thrown where memory is out or over the limit; becomes the preallocated record.
struct OutOfMemory {
    char message[kMessageBytes];
};

// An inconsistency of our own: severity "internal error" with the condition and its place.
[[noreturn]] void FailInternal(const char* condition, const char* file, int line);
#define TALORA_CHECK(condition) \
    ((condition) ? void(0) : ::talora::FailInternal(#condition, __FILE__, __LINE__))

// The record for "out of memory", which needs none.
report_vx* ReportOutOfMemory(const char* message) noexcept;

// Memory is out: unwinds to the frame without allocating.  The text continues "not enough memory ",
// for example "to build table for >-node '%s' (see >-LimitMemoryUsage_vx)".
[[noreturn]] void FailOutOfMemory(const char* format, ...) TALORA_PRINTF(1, 2);
[[noreturn]] void FailOutOfMemoryV(const char* format, va_list values);

// Called with the number of every message of the library that is raised, positive; null in programs.  The
// tests use it to record which messages they raise.
extern std::atomic<void (*)(int number)> message_watcher;

// The text of a record, in the preallocated one too.
const char* MessageOf(const report_vx& report);

// Everything about one report, for callers that need more than the short forms above.
struct ReportArgs {
    Severity severity = ERROR_SEV;
    int number = 0;
    uint32_t conditions = 0;
    FilePlace place = {};
    FixStatus fix = ERR_OKAY;
    report_vx* parent = nullptr;  // becomes a sub-error of this record
};
// A record with a text of its own, for messages that come from a front end.
report_vx* ReportV(const ReportArgs& args, const char* format, va_list values);
report_vx* Report(const ReportArgs& args, const char* format, ...) TALORA_PRINTF(2, 3);

// ---- Raising a message of Messages.inc ----

// The row of a message, as constants.
template <int number, int form = 0>
struct MessageRow;
#define TALORA_MESSAGE(number, severity, text) TALORA_MESSAGE_FORM(number, 0, severity, text)
#define TALORA_MESSAGE_FORM(number, form, severity, text)     \
    template <>                                               \
    struct MessageRow<number, form> {                         \
        static constexpr Severity kSeverity = severity##_SEV; \
        static constexpr char kText[] = text;                 \
    };
#include "Basic/Messages.inc"
#undef TALORA_MESSAGE
#undef TALORA_MESSAGE_FORM

// Adds the record; number, severity and text are those of the row, everything else is taken from `more`.
template <int number, int form = 0, class... Args>
report_vx* RaiseWith(ReportArgs more, Args... values)
{
    using Row = MessageRow<number, form>;
    static_assert(FitsFormat<Args...>(Row::kText), "the arguments do not fit the text in Messages.inc");
    more.severity = Row::kSeverity;
    more.number = number;
    return Report(more, Row::kText, values...);
}

template <int number, int form = 0, class... Args>
report_vx* Raise(Args... values)
{
    return RaiseWith<number, form>({}, values...);
}

template <int number, int form = 0, class... Args>
[[noreturn]] void Fail(Args... values)
{
    static_assert(MessageRow<number, form>::kSeverity == ERROR_SEV);
    throw Unwind{RaiseWith<number, form>({}, values...)};
}
template <int number, int form = 0, class... Args>
[[noreturn]] void FailWith(uint32_t conditions, Args... values)
{
    static_assert(MessageRow<number, form>::kSeverity == ERROR_SEV);
    throw Unwind{RaiseWith<number, form>({.conditions = conditions}, values...)};
}
template <int number, int form = 0, class... Args>
[[noreturn]] void FailAt(const FilePlace& place, Args... values)
{
    static_assert(MessageRow<number, form>::kSeverity == ERROR_SEV);
    throw Unwind{RaiseWith<number, form>({.place = place}, values...)};
}
template <int number, int form = 0, class... Args>
report_vx* Warn(Args... values)
{
    static_assert(MessageRow<number, form>::kSeverity == WARNING_SEV);
    return RaiseWith<number, form>({}, values...);
}
template <int number, int form = 0, class... Args>
report_vx* WarnAt(const FilePlace& place, Args... values)
{
    static_assert(MessageRow<number, form>::kSeverity == WARNING_SEV);
    return RaiseWith<number, form>({.place = place}, values...);
}
template <int number, int form = 0, class... Args>
report_vx* Notice(Args... values)
{
    static_assert(MessageRow<number, form>::kSeverity == NOTICE_SEV);
    return RaiseWith<number, form>({}, values...);
}

// ---- The calling thread's list ----

// The next record older than `after` (null: the newest) of at least this severity and, unless 0, this
// number; null if there is none.
report_vx* FindReport(const environ_vx* env, Severity least, int number, const report_vx* after);
void SetSeverity(report_vx& report, Severity severity) noexcept;  // of a record of the calling thread
void ClearReport(report_vx* report) noexcept;
void ClearReports(const environ_vx* env, Severity most) noexcept;  // up to and including a severity
void ClearReportsOf(const environ_vx* env) noexcept;               // of every thread, when it closes
int CountReports();                                                // of the calling thread

// Copies as much of a text as fits.
template <size_t size>
void CopyText(char (&buffer)[size], const char* text)
{
    size_t length = 0;
    while (text[length] != '\0' && length + 1 < size) ++length;
    std::copy(text, text + length, buffer);
    buffer[length] = '\0';
}

// Shows a text, of a record unless null, in the front end; 0 without a handler.  An exception that leaves the
// handler becomes a warning, which is not shown: the text is lost, not the work of the call.
int RunMessageHandler(environ_vx& env, const char* text, const report_vx* record) noexcept;

const char* SeverityWord(Severity severity);
bool HasCondition(const report_vx& report, uint32_t condition);

// One record as text, see ListReports.  A record printed for the first time counts as shown.
std::string PrintReport(report_vx& report, int verbosity);
// The calling thread's records, oldest first, at most so many.
std::string ListReports(const environ_vx* env, int verbosity, int max_records);

// Whether a warning of this number would not be kept any more: there were too many in this call.
bool IsMuted(int number);
// Called when a call of the interface begins: repeats of warnings are counted per call.
void ForgetWarningCounts() noexcept;
constexpr int kMaxRepeatedWarnings = 20;  // of one form in one call; then one "More ..." and no more

// The message without markup in the flavour of the thread's environment (or the programming
// interface's), before arguments go in.
std::string ExpandMarkup(const char* format);
// A piece of a message or a question: markup in the format is expanded, in the arguments it is not.
std::string Phrase(const char* format, ...) TALORA_PRINTF(1, 2);

}  // namespace talora

struct report_vx {
    talora::HandleHeader header;
    environ_vx* env;
    uint32_t thread_id;
    int number;  // negative
    talora::Severity severity;
    int display_result;
    std::string message;  // empty in the preallocated record, which uses fixed_message
    const char* fixed_message;
    talora::Disposition disposition;
    talora::FixStatus fix;
    uint32_t conditions;
    report_vx* parent;     // the record this is a sub-error of
    report_vx* first_sub;  // sub-errors, oldest first, linked by newer
    std::string file;
    int64_t position;
    const char* function;  // static text
    report_vx* older;
    report_vx* newer;
};
