// The list of records of each thread, how records are made and shown, and failures that unwind to the frame.
#include "Basic/Error.h"

#include <locale.h>
#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iterator>
#include <mutex>
#include <new>
#include <vector>

#include "Basic/Environ.h"
#include "Basic/FloatMode.h"
#include "Basic/Markup.h"
#include "Basic/MultiThread.h"
#include "Basic/Text.h"

namespace talora {

namespace {

using RecordPool = HandlePool<report_vx, ERRLOG_TYPE>;

// Never destroyed, as threads that end late still give their records back.
RecordPool& Records()
{
    static RecordPool* pool = new RecordPool;
    return *pool;
}

// Guards every thread's list: closing an environment removes records from all of them.
std::mutex& ListMutex()
{
    static std::mutex* mutex = new std::mutex;
    return *mutex;
}

// The records of one thread.  Registered while the thread lives.
struct ErrorGroup {
    report_vx* newest = nullptr;
    report_vx* oldest = nullptr;
    int count = 0;
    int num_droppable = 0;  // below severity "error"
    int num_shown = 0;
    bool has_reported_dropping = false;
    bool is_silent = false;          // what is raised now is not shown
    report_vx* retired = nullptr;    // cleared by another thread, linked by newer; freed by this one
    std::vector<int> repeats_shown;  // numbers for which "More ..." was shown
    struct WarningCount {
        int number, count;
    };
    std::vector<WarningCount> warnings;  // in the current call

    report_vx memory_record{};  // for "out of memory": needs no memory itself
    char memory_text[kMessageBytes] = {};
    bool memory_record_listed = false;

    ErrorGroup* previous = nullptr;
    ErrorGroup* next = nullptr;

    ErrorGroup();
    ~ErrorGroup();
};

ErrorGroup* first_group = nullptr;  // guarded by ListMutex

// Not to be called first with the list's mutex held: a new group registers itself.
ErrorGroup& Group()
{
    thread_local ErrorGroup group;
    return group;
}

constexpr int kDroppingNumber = -5623;  // the record that reports records dropped

// Whether a record goes before those of errors when there are too many.
bool IsDroppable(const report_vx& record)
{
    return record.severity < ERROR_SEV && record.number != kDroppingNumber;
}

// The list is linked both ways: a record in the middle goes when an environment closes.
void Unlink(ErrorGroup& group, report_vx* record)
{
    (record->newer ? record->newer->older : group.newest) = record->older;
    (record->older ? record->older->newer : group.oldest) = record->newer;
    record->newer = record->older = nullptr;
    --group.count;
    if (IsDroppable(*record)) --group.num_droppable;
}

void LinkNewest(ErrorGroup& group, report_vx* record)
{
    record->older = group.newest;
    record->newer = nullptr;
    (group.newest ? group.newest->newer : group.oldest) = record;
    group.newest = record;
    ++group.count;
    if (IsDroppable(*record)) ++group.num_droppable;
}

// Gives a record and its sub-errors back. The preallocated record stays, marked as deleted.
void Free(ErrorGroup& group, report_vx* record) noexcept
{
    if (record == &group.memory_record) {
        record->header.SetTag(DELETED_TYPE);
        group.memory_record_listed = false;
        return;
    }
    for (report_vx* sub = record->first_sub; sub != nullptr;) {
        report_vx* next = sub->newer;
        Records().Release(sub);
        sub = next;
    }
    Records().Release(record);
}

void ForgetShown(ErrorGroup& group) noexcept
{
    group.has_reported_dropping = false;
    group.num_shown = 0;
    group.repeats_shown.clear();
}

void FreeRetired(ErrorGroup& group) noexcept
{
    if (group.retired == nullptr) return;
    while (report_vx* record = group.retired) {
        group.retired = record->newer;
        Free(group, record);
    }
    if (group.count == 0) ForgetShown(group);
}

// Out of the list of another thread, which may be reading it.
void Retire(ErrorGroup& group, report_vx* record) noexcept
{
    Unlink(group, record);
    record->header.SetTag(ERRLOG_TYPE | kDeletedFlag);
    if (record == &group.memory_record) return Free(group, record);
    for (report_vx* sub = record->first_sub; sub != nullptr; sub = sub->newer)
        sub->header.SetTag(ERRLOG_TYPE | kDeletedFlag);
    record->newer = group.retired;
    group.retired = record;
}

// Takes a record out of the list of its thread or of its parent. An empty list begins counting anew.
void Remove(ErrorGroup& group, report_vx* record) noexcept
{
    if (report_vx* parent = record->parent) {
        report_vx** link = &parent->first_sub;
        while (*link != record) link = &(*link)->newer;
        *link = record->newer;
    } else {
        Unlink(group, record);
    }
    Free(group, record);
    if (group.count == 0) ForgetShown(group);
}

ErrorGroup::ErrorGroup()
{
    std::lock_guard guard(ListMutex());
    next = first_group;
    if (next) next->previous = this;
    first_group = this;
}

ErrorGroup::~ErrorGroup()
{
    std::lock_guard guard(ListMutex());
    while (newest) {
        report_vx* record = newest;
        Unlink(*this, record);
        Free(*this, record);
    }
    FreeRetired(*this);
    (previous ? previous->next : first_group) = next;
    if (next) next->previous = previous;
}

// What ends a message about the contents of a file: line, file, context.
std::string PlaceSuffix(const FilePlace& place)
{
    std::string suffix;
    if (place.in_text) return suffix;
    if (place.position != kNoPosition) suffix += ", on line " + std::to_string(place.position);
    if (place.file) suffix += std::string(", in file '") + place.file + "'";
    if (place.context) suffix += place.context;
    return suffix;
}

// The record for "out of memory", moved to the front of the list.  It keeps the highest severity that it was
// used with.
report_vx* UseMemoryRecord(const char* text, Severity severity) noexcept
{
    ErrorGroup& group = Group();
    std::lock_guard guard(ListMutex());
    report_vx* record = &group.memory_record;
    if (group.memory_record_listed) {
        severity = std::max(severity, record->severity);
        Unlink(group, record);
    }
    snprintf(group.memory_text, sizeof group.memory_text, "%s", text);
    const ThreadState& thread = ThisThread();
    record->env = thread.env;
    record->thread_id = thread.thread_id;
    record->number = -5622;
    record->severity = severity;
    record->display_result = 0;
    record->fixed_message = group.memory_text;
    record->disposition = NOTDISP_ERR;
    record->fix = REMAINS_ERR;
    record->conditions = OUT_OF_MEMORY_CND;
    record->position = kNoPosition;
    record->function = thread.function;
    record->header.SetTag(ERRLOG_TYPE | kStaticFlag);
    LinkNewest(group, record);
    group.memory_record_listed = true;
    return record;
}

// Keeps the list within its limit: the oldest record below "error" goes, else the oldest.  The record that
// reports this stays.
void DropOldest(ErrorGroup& group) noexcept
{
    report_vx* victim = group.oldest;
    while (group.num_droppable > 0 && victim->newer && !IsDroppable(*victim)) victim = victim->newer;
    if (victim->number == kDroppingNumber && victim->newer) victim = victim->newer;
    Remove(group, victim);
}

// A record with the function, environment and thread of the running call; not yet in a list. Sub-errors hang
// on the outermost record, so they form one level.
report_vx* NewRecord(const ReportArgs& args, std::string message)
{
    const ThreadState& thread = ThisThread();
    report_vx* record = Records().New(nullptr);
    record->env = thread.env;
    record->thread_id = thread.thread_id;
    record->number = args.number < 0 ? args.number : -args.number;
    record->severity = args.severity;
    record->display_result = 0;
    record->message = std::move(message);
    record->fixed_message = nullptr;
    record->disposition = NOTDISP_ERR;
    record->fix = args.fix;
    record->conditions = args.conditions | (args.place.file ? uint32_t(FILE_CND) : 0u);
    record->parent = args.parent;
    while (record->parent && record->parent->parent) record->parent = record->parent->parent;
    record->first_sub = nullptr;
    record->position = args.place.position;
    record->function = thread.function;
    record->older = record->newer = nullptr;
    try {
        if (args.place.file) record->file = args.place.file;
    } catch (...) {
        Records().Release(record);
        throw;
    }
    return record;
}

// Sub-errors go behind those that the parent has; others become the newest of the thread's list.
void Enlist(report_vx* record)
{
    ErrorGroup& group = Group();
    std::lock_guard guard(ListMutex());
    // In a handler, the calls around may still be showing a record.
    if (ThisThread().depth <= 1) FreeRetired(group);
    if (record->parent) {
        report_vx** link = &record->parent->first_sub;
        while (*link) link = &(*link)->newer;
        *link = record;
        return;
    }
    if (group.count >= kMaxRecordsPerThread) DropOldest(group);
    LinkNewest(group, record);
}

void NotifyWatcher(int number)
{
    if (const auto watcher = message_watcher.load(std::memory_order_relaxed)) watcher(std::abs(number));
}

// Adds the one record which reports that records are dropped, when the list first becomes full.
void ReportDropping()
{
    ErrorGroup& group = Group();
    {
        std::lock_guard guard(ListMutex());  // another thread may be closing an environment
        if (group.count < kMaxRecordsPerThread || group.has_reported_dropping) return;
        group.has_reported_dropping = true;
    }
    NotifyWatcher(5623);
    Enlist(NewRecord(
        {.severity = NOTICE_SEV, .number = 5623, .place = {}},
        "more than " + std::to_string(kMaxRecordsPerThread) + " reports: the oldest are being dropped"));
}

// ---- Showing ----

bool WasInDialog(const report_vx& record)
{
    std::lock_guard guard(ListMutex());
    for (const report_vx* other = record.older; other; other = other->older)
        if (other->number == record.number && other->severity >= FALSE_ALERT_SEV &&
            other->disposition == DIALOGED_ERR)
            return true;
    return false;
}

// The text to show, empty for none: the thread's repeat mode decides.
std::string TextToShow(const report_vx& record)
{
    ErrorGroup& group = Group();
    const int mode = ThisThread().repeat_mode;
    const std::string prefix = record.function && *record.function
                                   ? FunctionNameIn(CurrentFlavor(), record.function) + ": "
                                   : std::string();
    const bool repeated = (mode == 1 || mode == 2) && WasInDialog(record);
    if (mode < 1 || mode > 3 || (mode == 1 && repeated)) return "";
    if (mode == 2 && repeated) {
        auto& shown = group.repeats_shown;
        if (std::find(shown.begin(), shown.end(), record.number) != shown.end()) return "";
        shown.push_back(record.number);
        return prefix + "More " + SeverityWord(record.severity) + "s of the form: " + MessageOf(record);
    }
    return prefix + MessageOf(record);
}

// Hands a record to the message handler, as often as the report limit allows, and keeps what it returns: how
// the record was shown, or -4 for the user's wish to abort.
void Show(report_vx* record)
{
    environ_vx* env = record->env;
    if (env == nullptr || env->state != READY_ENV) return;
    if (!env->message_handler.IsSet()) return;
    ErrorGroup& group = Group();
    if (group.is_silent || group.num_shown >= env->report_limit) return;
    const std::string text = TextToShow(*record);
    if (text.empty()) return;
    ++group.num_shown;
    const int result = RunMessageHandler(*env, text.c_str(), record);
    if (!IsLive(record, ERRLOG_TYPE)) return;  // the handler cleared it
    record->display_result = result;
    if (result == -4) {
        record->conditions |= ABORTED_CND;
        ThisThread().aborted = true;
    }
    if (result > record->disposition && result < NUM_DISPLAY_ERR) record->disposition = Disposition(result);
}

// Showing may allocate; failing at that must not fail the call a second time.
report_vx* ShowMemoryRecord(const char* message, Severity severity) noexcept
{
    report_vx* record = UseMemoryRecord(message, severity);
    try {
        Show(record);
    } catch (const std::bad_alloc&) {
        // It stays unseen, but it is in the list.
    }
    return record;
}

// Counts a warning of the current call; past the limit it is not to be stored.  True: store it.
bool CountWarning(int number, bool* last)
{
    std::vector<ErrorGroup::WarningCount>& warnings = Group().warnings;
    ThisThread().has_warned = true;
    auto found =
        std::find_if(warnings.begin(), warnings.end(), [&](const auto& w) { return w.number == number; });
    if (found == warnings.end()) found = warnings.insert(warnings.end(), {number, 0});
    *last = ++found->count == kMaxRepeatedWarnings + 1;
    return found->count <= kMaxRepeatedWarnings + 1;
}

}  // namespace

int RunMessageHandler(environ_vx& env, const char* text, const report_vx* record) noexcept
{
    const auto handler = env.message_handler.Get();
    if (handler.function == nullptr) return 0;
    char what[200] = "of a type that is no std::exception";
    try {
        const CallerFloatMode caller;
        return handler.function(&env, text, record, handler.data);
    } catch (const std::exception& exception) {
        CopyText(what, exception.what());
    } catch (...) {
        // There is nothing to read in it.
    }
    Group().is_silent = true;
    Warn<7301>("message", static_cast<const char*>(what));
    Group().is_silent = false;
    return 0;
}

std::string Phrase(const char* format, ...)
{
    va_list values;
    va_start(values, format);
    std::string text = FormatV(ExpandMarkup(format).c_str(), values);
    va_end(values);
    return text;
}

std::atomic<void (*)(int number)> message_watcher{nullptr};

const char* MessageOf(const report_vx& report)
{
    return report.fixed_message ? report.fixed_message : report.message.c_str();
}

const char* SeverityWord(Severity severity)
{
    static constexpr const char* kWords[] = {"null-error", "false alert", "report",        "notice",
                                             "warning",    "error",       "internal error"};
    return kWords[severity];
}

// The one way by which a record comes to be.
report_vx* ReportV(const ReportArgs& args, const char* format, va_list values)
{
    if (args.severity >= ERROR_SEV) ThisThread().failed = true;
    if ((args.conditions & FROM_FRONT_END_CND) == 0) NotifyWatcher(args.number);
    try {
        // 1. Warnings are counted: after kMaxRepeatedWarnings of one number in one call, one more says "More
        // ...".
        bool last = false;
        if (args.severity == WARNING_SEV && !CountWarning(args.number, &last)) return Group().newest;
        // 2. Markup first, arguments after it, so that no argument acts as markup.
        char wording[2 * kMessageBytes], buffer[kMessageBytes];
        ExpandMarkupInto(CurrentFlavor(), format, wording, sizeof wording);
        FormatInto(buffer, sizeof buffer, wording, values);
        std::string message =
            (last ? "More warnings of the form: " : "") + std::string(buffer) + PlaceSuffix(args.place);
        // 3. Into the list, then to the handler, which may clear it again.
        ReportDropping();
        report_vx* record = NewRecord(args, std::move(message));
        Enlist(record);
        Show(record);
        return record;
    } catch (const std::bad_alloc&) {
        if (args.severity >= ERROR_SEV) return ReportOutOfMemory("not enough memory to report an error");
        // Only the report has failed, so the call goes on.
        return ShowMemoryRecord("not enough memory to report a warning or notice", WARNING_SEV);
    }
}

report_vx* Report(const ReportArgs& args, const char* format, ...)
{
    va_list values;
    va_start(values, format);
    report_vx* record = ReportV(args, format, values);
    va_end(values);
    return record;
}

void FailInternal(const char* condition, const char* file, int line)
{
    const char* name = strrchr(file, '/');
    throw Unwind{Raise<5624>(condition, name ? name + 1 : file, line)};
}

void FailOutOfMemory(const char* format, ...)
{
    va_list values;
    va_start(values, format);
    FailOutOfMemoryV(format, values);
    va_end(values);
}

// The text is composed in the exception itself, as there may be no memory for a string.
void FailOutOfMemoryV(const char* format, va_list values)
{
    static constexpr char kStart[] = "not enough memory ";
    char wording[kMessageBytes];
    memcpy(wording, kStart, sizeof kStart);
    ExpandMarkupInto(CurrentFlavor(), format, wording + sizeof kStart - 1,
                     sizeof wording - sizeof kStart + 1);
    OutOfMemory out;
    FormatInto(out.message, sizeof out.message, wording, values);
    throw out;
}

report_vx* ReportOutOfMemory(const char* message) noexcept
{
    NotifyWatcher(5622);
    ThisThread().failed = true;
    return ShowMemoryRecord(message, ERROR_SEV);
}

// Records without an environment are found from every one.
report_vx* FindReport(const environ_vx* env, Severity least, int number, const report_vx* after)
{
    ErrorGroup& group = Group();
    std::lock_guard guard(ListMutex());
    const int wanted = number < 0 ? number : -number;
    report_vx* record = after ? after->older : group.newest;
    for (; record; record = record->older) {
        const bool of_env = env == nullptr || record->env == nullptr || record->env == env;
        const bool is_ours = of_env && record->thread_id == ThisThread().thread_id;
        if (is_ours && record->severity >= least && (number == 0 || record->number == wanted)) return record;
    }
    return nullptr;
}

// The count of records that may be dropped follows, except for sub-errors, which are in no list.
void SetSeverity(report_vx& report, Severity severity) noexcept
{
    ErrorGroup& group = Group();
    std::lock_guard guard(ListMutex());
    const bool was_droppable = IsDroppable(report);
    report.severity = severity;
    if (report.parent == nullptr) group.num_droppable += int(IsDroppable(report)) - int(was_droppable);
}

void ClearReport(report_vx* report) noexcept
{
    ErrorGroup& group = Group();
    std::lock_guard guard(ListMutex());
    if (report->thread_id == ThisThread().thread_id && IsLive(report, ERRLOG_TYPE)) Remove(group, report);
}

void ClearReports(const environ_vx* env, Severity most) noexcept
{
    ErrorGroup& group = Group();
    std::lock_guard guard(ListMutex());
    for (report_vx* record = group.newest; record != nullptr;) {
        report_vx* older = record->older;
        const bool of_env = env == nullptr || record->env == nullptr || record->env == env;
        if (of_env && record->severity <= most) Remove(group, record);
        record = older;
    }
}

// An environment that closes takes its records along from the lists of all threads.
void ClearReportsOf(const environ_vx* env) noexcept
{
    const ErrorGroup* own = &Group();
    std::lock_guard guard(ListMutex());
    for (ErrorGroup* group = first_group; group; group = group->next)
        for (report_vx* record = group->newest; record != nullptr;) {
            report_vx* older = record->older;
            if (record->env == env) group == own ? Remove(*group, record) : Retire(*group, record);
            record = older;
        }
}

int CountReports()
{
    ErrorGroup& group = Group();
    std::lock_guard guard(ListMutex());
    return group.count;
}

bool IsMuted(int number)
{
    if (!ThisThread().has_warned) return false;
    for (const ErrorGroup::WarningCount& warning : Group().warnings)
        if (warning.number == number) return warning.count > kMaxRepeatedWarnings;
    return false;
}

// Called with every call: the flag saves the look into thread-local storage where nothing was counted.
void ForgetWarningCounts() noexcept
{
    if (!ThisThread().has_warned) return;
    ThisThread().has_warned = false;
    Group().warnings.clear();
}

// Flags of the record, or implied by its number.
bool HasCondition(const report_vx& report, uint32_t condition)
{
    // Numbers whose records are inconsistencies of findings by definition.
    static constexpr int kInconsistencies[] = {2078, 2327, 2437, 2438, 2487, 2488, 2489, 2490,
                                               2491, 3302, 3303, 3305, 3306, 3307, 3310, 3311,
                                               3312, 3313, 3315, 3319, 3320, 3381, 3382, 3588};
    if (report.conditions & condition) return true;
    return condition == INCONSISTENT_FINDING_CND &&
           std::any_of(std::begin(kInconsistencies), std::end(kInconsistencies),
                       [&](int number) { return report.number == -number; });
}

// Each level of verbosity adds: 1 file and position, 2 conditions and fate, 3 an empty line, 4 sub-errors.
std::string PrintReport(report_vx& report, int verbosity)
{
    static constexpr const char* kDisplay[NUM_DISPLAY_ERR] = {
        "not displayed", "printed to Messages window", "made warning sound and printed to Messages window",
        "displayed in dialog box"};
    static constexpr const char* kFix[NUM_STATUS_ERR] = {"doesn't need fixing", "was fixed",
                                                         "was patched",         "was covered up",
                                                         "still remains",       "can't be fixed"};
    std::string text =
        Format("%s %5lld - t %u", SeverityWord(report.severity), -static_cast<long long>(report.number),
               report.thread_id);  // a front end may number with the least int, which has no opposite
    if (verbosity >= 1 && !report.file.empty()) {
        text += " in file '" + report.file + "'";
        if (report.position != kNoPosition) text += ", position " + std::to_string(report.position);
    }
    text += ": ";
    if (report.function && *report.function) text += FunctionNameIn(CurrentFlavor(), report.function) + ": ";
    text += std::string(MessageOf(report)) + ".";
    if (verbosity >= 2) {
        text += Format("  reason 0x%x, ", report.conditions) + std::string(kDisplay[report.disposition]) +
                ", " + kFix[report.fix];
    }
    if (verbosity >= 4 && report.first_sub) {
        text += "\n--- Sub Errors ------------------\n";
        for (report_vx* sub = report.first_sub; sub; sub = sub->newer) text += PrintReport(*sub, verbosity);
        text += "---------------------------------\n";
    }
    if (report.disposition == NOTDISP_ERR) report.disposition = PRINTED_ERR;
    text += verbosity >= 3 ? "\n\n" : "\n";
    return text;
}

std::string ListReports(const environ_vx* env, int verbosity, int max_records)
{
    std::vector<report_vx*> records;
    for (report_vx* r = FindReport(env, NULL_SEV, 0, nullptr); r; r = FindReport(env, NULL_SEV, 0, r))
        records.push_back(r);
    std::string text;
    int printed = 0;
    for (auto r = records.rbegin(); r != records.rend() && printed < max_records; ++r, ++printed)
        text += PrintReport(**r, verbosity);
    if (verbosity >= 2 && printed < int(records.size())) text += "...\n\n";
    return text;
}

}  // namespace talora
