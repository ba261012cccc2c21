// Interface functions: the environment, its settings and handlers.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <stdexcept>

#include "Basic/Memory.h"
#include "Basic/Text.h"
#include "Talora/APICheck.h"
#include "Talora/Main.h"

using namespace talora;

namespace {

// Added to what is in use when a memory limit is set below that.
constexpr double kMemoryLeeway = 100000;
constexpr double kLeastMemoryLimit = 200000;

// Copies text into a caller's buffer of MESG_LEN_vx bytes.
void CopyMessage(char* buffer, std::string_view text)
{
    if (buffer == nullptr) return;
    const size_t length = CutLength(text, MESG_LEN_vx - 1);
    memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
}

// Runs the body of a function that makes, initialises or closes an environment: no ready environment is
// needed, and a failure is reported in the caller's buffer too.
template <class R, class Body>
R CallLifeCycle(const char* function, environ_vx* env, char* mesg, R failure, Body&& body) noexcept
{
    EntryFrame frame(function, true);
    frame.UseEnviron(env);
    try {
        frame.CheckLocks();
        return body();
    } catch (...) {
        frame.RecordException();
        const report_vx* newest = FindReport(nullptr, ERROR_SEV, 0, nullptr);
        if (newest) CopyMessage(mesg, MessageOf(*newest));
        return failure;
    }
}

// A setting 1 to 4, or -1 to query.
void CheckSetting(int number, int setting)
{
    if (setting == -1 || (setting >= 1 && setting <= 4)) return;
    if (number == 5529) Fail<5529>(setting, -1, 1, 4);
    Fail<5530>(setting, -1, 1, 4);
}

constexpr const char* kFlavorNames[] = {"interface", "programming", "automation", "managed"};
constexpr const char* kWindowStatus[] = {"Regular", "Hidden", "Minimized", "Maximized"};

void CheckCoordinate(const char* argument, int value)
{
    if (value < -1 || value > 32000) Fail<5633>(argument, value);
}

}  // namespace

environ_vx* NewTaloraEnviron_vx(const char* name, const char* locn)
{
    return CallLifeCycle(__func__, nullptr, nullptr, static_cast<environ_vx*>(nullptr), [&] {
        const std::string where = NarrowText(locn);
        if (!where.empty() && where != "local" && where != "remote") Fail<5634>(where.c_str());
        std::string text = NarrowText(name);
        environ_vx* env = NewEnviron();
        env->name = std::move(text);
        env->remote = where == "remote";
        return env;
    });
}

int InitTalora2_bn(environ_vx* env, char* mesg)
{
    return CallLifeCycle(__func__, env, mesg, -1, [&] {
        if (WasClosed(env)) Fail<5631>(kProduct);
        environ_vx* wanted = env ? env : DefaultEnviron();
        CheckEnviron(wanted);
        CopyMessage(mesg, InitEnviron(*wanted));
        return 0;
    });
}

int CloseTalora_bn(environ_vx* env, char* mesg)
{
    if (env == nullptr) env = DefaultEnviron();
    return CallLifeCycle(__func__, env, mesg, -1, [&] {
        if (env == nullptr) Fail<7204>();
        if (!IsLive(env, ENVIRON_TYPE)) Fail<5635>(kProduct);
        if (ThisThread().depth > 1) Fail<5648>(kProduct);
        const EnvironLocks locks(env);
        if (!IsLive(env, ENVIRON_TYPE)) Fail<5635>(kProduct);
        CloseEnviron(env);
        ThisThread().env = nullptr;
        if (mesg) snprintf(mesg, MESG_LEN_vx, "Closed %s.\n", kProduct);
        return 0;
    });
}

environ_vx* GetDefaultEnviron_vx(void)
{
    return DefaultEnviron();
}

int GetTaloraVersion_bn(environ_vx* env, const char** version)
{
    return CallReports(__func__, env, -1, [&] {
        static const std::string text = VersionText();
        if (version) *version = text.c_str();
        return kVersionNumber;
    });
}

checking_vx ArgumentChecking_vx(checking_vx setting, environ_vx* env)
{
    return CallEnviron(__func__, env, checking_vx(CHECK_QUERY), [&](environ_vx&) {
        CheckSetting(5529, setting);
        const int before = CheckingLevel();
        if (setting != CHECK_QUERY) SetCheckingLevel(setting);
        return checking_vx(before);
    });
}

double LimitMemoryUsage_vx(double max_mem, environ_vx* env)
{
    return CallEnviron(__func__, env, UndefDbl(), [&](environ_vx&) {
        const double before = MemoryLimit();
        if (max_mem == -1) return before;
        if (!(max_mem >= kLeastMemoryLimit)) Fail<5620>(max_mem, kLeastMemoryLimit, -1.0);
        const double in_use = double(MemoryInUse());
        if (max_mem < in_use) {
            const double raised = in_use + kMemoryLeeway;
            Notice<5636>(max_mem, in_use, raised);
            SetMemoryLimit(raised);
        } else {
            SetMemoryLimit(max_mem);
        }
        return before;
    });
}

double GetMemoryUsage_vx(environ_vx* env)
{
    return CallEnviron(__func__, env, UndefDbl(), [&](environ_vx&) { return double(MemoryInUse()); });
}

// Not inside the frame while the mode changes: the change waits until no call is inside.
int ControlConcurrency_vx(environ_vx* env, const char* command, const char* value)
{
    int wanted = -1;
    const bool is_outermost = ThisThread().depth == 0;
    const int before = CallEnviron(__func__, env, -1, [&](environ_vx&) {
        const std::string word = NarrowText(command), mode = NarrowText(value);
        if (word != "mode") Fail<5637>(word.c_str());
        if (mode.empty()) return int(Concurrency());
        if (mode.size() != 1 || mode[0] < '0' || mode[0] > '2') Fail<5638>(mode.c_str());
        if (!is_outermost) Fail<5639>();
        wanted = mode[0] - '0';
        return int(Concurrency());
    });
    if (before >= 0 && wanted >= 0) ChangeConcurrency(ConcurrencyMode(wanted));
    return before;
}

void SetEnvironUserData_vx(environ_vx* env, void* data)
{
    CallEnviron(__func__, env, [&](environ_vx& e) { e.user_data = data; });
}

void* GetEnvironUserData_vx(environ_vx* env)
{
    return CallEnviron(__func__, env, static_cast<void*>(nullptr),
                       [](environ_vx& e) { return e.user_data.load(); });
}

double GetUndefDbl_vx(void)
{
    return UndefDbl();
}
double GetInfinityDbl_vx(void)
{
    return InfinityDbl();
}

void PrintToMessagesWindow_vx(environ_vx* env, const char* text)
{
    CallEnviron(__func__, env, [&](environ_vx&) { PrintMessage(NarrowText(text)); });
}

void SetLanguage_vx(environ_vx* env, const char* language)
{
    CallEnviron(__func__, env, [&](environ_vx&) {
        const std::string name = NarrowText(language);
        if (name != "English") Fail<5640>(name.c_str());
    });
}

const char* GetLanguage_vx(environ_vx* env)
{
    return CallEnviron(__func__, env, static_cast<const char*>(nullptr),
                       [](environ_vx&) { return "English"; });
}

void SetMessageFlavor_vx(environ_vx* env, const char* flavor)
{
    CallEnviron(__func__, env, [&](environ_vx& e) {
        const std::string name = NarrowText(flavor);
        for (size_t i = 0; i < std::size(kFlavorNames); ++i)
            if (name == kFlavorNames[i]) return void(e.flavor = Flavor(i));
        Fail<5641>(name.c_str());
    });
}

const char* GetMessageFlavor_vx(environ_vx* env)
{
    return CallEnviron(__func__, env, static_cast<const char*>(nullptr),
                       [](environ_vx& e) { return kFlavorNames[e.flavor]; });
}

int ExecuteScript_vx(environ_vx* env, const char* script)
{
    return CallEnviron(__func__, env, -1, [&](environ_vx&) {
        const std::string text = NarrowText(script);
        if (text.find_first_not_of(" \t\r\n") != std::string::npos) Fail<5642>(text.c_str());
        return 0;
    });
}

int UserAllowed_vx(environ_vx* env, int setting)
{
    return CallEnviron(__func__, env, -1, [&](environ_vx& e) {
        CheckSetting(5530, setting);
        const int before = e.user_allowed;
        if (setting != -1) e.user_allowed = setting;
        return before;
    });
}

void SetAppWindowPosition_vx(environ_vx* env, int left, int top, int width, int height, const char* status)
{
    CallEnviron(__func__, env, [&](environ_vx& e) {
        CheckCoordinate("left", left);
        CheckCoordinate("top", top);
        CheckCoordinate("width", width);
        CheckCoordinate("height", height);
        const std::string word = NarrowText(status);
        const char* found = word.empty() ? e.window.status : nullptr;
        for (const char* known : kWindowStatus)
            if (word == known) found = known;
        if (found == nullptr) Fail<5643>(word.c_str());
        const auto keep = [](int& old, int value) { old = value == -1 ? old : value; };
        keep(e.window.left, left);
        keep(e.window.top, top);
        keep(e.window.width, width);
        keep(e.window.height, height);
        e.window.status = found;
    });
}

const char* GetAppWindowPosition_vx(environ_vx* env, int* left, int* top, int* width, int* height)
{
    return CallEnviron(__func__, env, static_cast<const char*>(nullptr), [&](environ_vx& e) {
        if (left) *left = e.window.left;
        if (top) *top = e.window.top;
        if (width) *width = e.window.width;
        if (height) *height = e.window.height;
        return e.window.status;
    });
}

void SetQuestionHandler_vx(environ_vx* env, question_handler_vx handler, void* data)
{
    CallEnviron(__func__, env, [&](environ_vx& e) { e.question_handler.Set(handler, data); });
}

void SetProgressHandler_vx(environ_vx* env, progress_handler_vx handler, void* data)
{
    CallEnviron(__func__, env, [&](environ_vx& e) { e.progress_handler.Set(handler, data); });
}

void SetMessageHandler_vx(environ_vx* env, message_handler_vx handler, void* data)
{
    CallEnviron(__func__, env, [&](environ_vx& e) { e.message_handler.Set(handler, data); });
}

namespace {

template <class Function>
Function GetHandler(const char* name, environ_vx* env, Handler<Function> environ_vx::*handler, void** data)
{
    return CallEnviron(name, env, static_cast<Function>(nullptr), [&](environ_vx& e) {
        const auto set = (e.*handler).Get();
        if (data != nullptr) *data = set.data;
        return set.function;
    });
}

}  // namespace

question_handler_vx GetQuestionHandler_vx(environ_vx* env, void** data)
{
    return GetHandler(__func__, env, &environ_vx::question_handler, data);
}

progress_handler_vx GetProgressHandler_vx(environ_vx* env, void** data)
{
    return GetHandler(__func__, env, &environ_vx::progress_handler, data);
}

message_handler_vx GetMessageHandler_vx(environ_vx* env, void** data)
{
    return GetHandler(__func__, env, &environ_vx::message_handler, data);
}

// No frame and no lock: called from signal handlers while the environment is in use.
void SetHaltFlag_vx(environ_vx* env, bool_vx halt)
{
    if (env == nullptr) env = DefaultEnviron();
    if (IsLive(env, ENVIRON_TYPE)) env->halt.store(halt != 0, std::memory_order_relaxed);
}

bool_vx GetHaltFlag_vx(environ_vx* env)
{
    if (env == nullptr) env = DefaultEnviron();
    return IsLive(env, ENVIRON_TYPE) && env->halt.load(std::memory_order_relaxed);
}

void SetFindingChecking_vx(environ_vx* env, bool_vx check)
{
    CallEnviron(__func__, env, [&](environ_vx& e) { e.check_findings = check != 0; });
}

bool_vx GetFindingChecking_vx(environ_vx* env)
{
    return CallEnviron(__func__, env, 0, [](environ_vx& e) { return e.check_findings.load(); });
}

void SetInheritInFirstPass_vx(environ_vx* env, bool_vx inherit)
{
    CallEnviron(__func__, env, [&](environ_vx& e) { e.inherit_in_first_pass = inherit != 0; });
}

bool_vx GetInheritInFirstPass_vx(environ_vx* env)
{
    return CallEnviron(__func__, env, 0, [](environ_vx& e) { return e.inherit_in_first_pass.load(); });
}

int TestFaultRecovery_vx(environ_vx* env, const char* test)
{
    return CallEnviron(__func__, env, -1, [&](environ_vx&) -> int {
        const std::string name = NarrowText(test);
        if (name == "out of memory") throw std::bad_alloc();
        if (name == "exception") throw std::runtime_error("test of fault recovery");
        if (name == "foreign exception") throw 1;
        if (name == "assertion") TALORA_CHECK(name.empty());
        Fail<5644>(name.c_str());
    });
}
