// Interface functions: the calling thread's error records.
#include "Basic/Text.h"
#include "Talora/APICheck.h"

using namespace talora;

namespace {

// Reading a record: NULL and damaged records give their error and the failure value.
template <class R, class Body>
R CallRecord(const char* function, const report_vx* error, R failure, Body&& body) noexcept
{
    return CallReports(function, nullptr, failure, [&]() -> R {
        if (error == nullptr && CheckingLevel() < CHECK_HANDLES) return failure;
        CheckHandle(error);
        return static_cast<R>(body());
    });
}

}  // namespace

report_vx* GetError_vx(environ_vx* env, errseverity_vx severity, int number, const report_vx* after)
{
    return CallReports(__func__, env, static_cast<report_vx*>(nullptr), [&]() -> report_vx* {
        if (after != nullptr) CheckHandle(after);
        return FindReport(env, Severity(severity), number, after);
    });
}

int ErrorNumber_vx(const report_vx* error)
{
    return CallRecord(__func__, error, -1, [&] { return error->number; });
}

const char* ErrorMessage_vx(const report_vx* error)
{
    return CallRecord(__func__, error, static_cast<const char*>(nullptr), [&] { return MessageOf(*error); });
}

errseverity_vx ErrorSeverity_vx(const report_vx* error)
{
    return CallRecord(__func__, error, errseverity_vx(NULL_SEVERITY),
                      [&] { return errseverity_vx(error->severity); });
}

bool_vx ErrorCategory_vx(errcond_vx cond, const report_vx* error)
{
    return CallRecord(__func__, error, 0, [&] { return HasCondition(*error, cond); });
}

const char* ErrorFunction_vx(const report_vx* error)
{
    return CallRecord(__func__, error, static_cast<const char*>(nullptr),
                      [&] { return error->function ? error->function : ""; });
}

const char* ErrorFile_vx(const report_vx* error, int64_t* position)
{
    return CallRecord(__func__, error, static_cast<const char*>(nullptr), [&] {
        if (position) *position = error->position;
        return error->file.c_str();
    });
}

int ErrorDisposition_vx(const report_vx* error)
{
    return CallRecord(__func__, error, -1, [&] { return error->disposition; });
}

int ErrorFixStatus_vx(const report_vx* error)
{
    return CallRecord(__func__, error, -1, [&] { return error->fix; });
}

report_vx* GetNthSubError_vx(const report_vx* error, int index)
{
    return CallRecord(__func__, error, static_cast<report_vx*>(nullptr), [&] {
        report_vx* sub = error->first_sub;
        for (int i = 0; i < index && sub; ++i) sub = sub->newer;
        return index < 0 ? nullptr : sub;
    });
}

void ClearError_vx(report_vx* error)
{
    CallRecord(__func__, error, 0, [&] {
        ClearReport(error);
        return 0;
    });
}

void ClearErrors_vx(environ_vx* env, errseverity_vx severity)
{
    CallReports(__func__, env, 0, [&] {
        ClearReports(env, Severity(severity));
        return 0;
    });
}

report_vx* NewError_vx(environ_vx* env, int number, errseverity_vx severity, const char* message)
{
    if (env == nullptr) env = DefaultEnviron();
    return CallReports(__func__, env, static_cast<report_vx*>(nullptr), [&] {
        if (severity < NULL_SEVERITY || severity > INTERNAL_SEVERITY)
            Fail<5645>(int(severity), int(NULL_SEVERITY), int(INTERNAL_SEVERITY));
        ReportArgs args = {.severity = Severity(severity), .number = number};
        args.conditions = FROM_FRONT_END_CND;
        return Report(args, "%s", NarrowText(message).c_str());
    });
}

const char* ListErrors_vx(environ_vx* env, int verbosity, int max_records)
{
    return CallReports(__func__, env, static_cast<const char*>(nullptr), [&] {
        thread_local std::string listing;
        listing = ListReports(env, verbosity, max_records);
        return listing.c_str();
    });
}

void SetReportLimit_vx(environ_vx* env, int limit)
{
    CallEnviron(__func__, env, [&](environ_vx& e) {
        if (limit < 0) Fail<5646>(limit);
        e.report_limit = limit;
    });
}

int GetReportLimit_vx(environ_vx* env)
{
    return CallEnviron(__func__, env, -1, [](environ_vx& e) { return e.report_limit.load(); });
}

int SetRepeatMode_vx(environ_vx* env, int mode)
{
    return CallEnviron(__func__, env, -1, [&](environ_vx&) {
        if (mode < 0 || mode > 3) Fail<5647>(mode, 0, 3);
        const int before = ThisThread().repeat_mode;
        ThisThread().repeat_mode = mode;
        return before;
    });
}

int GetRepeatMode_vx(environ_vx* env)
{
    return CallEnviron(__func__, env, -1, [](environ_vx&) { return ThisThread().repeat_mode; });
}
