// One run of the command: starting the library, interrupts, progress, messages, and the result.
#include "talora/Session.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <nlohmann/json.hpp>
#include <vector>

#include "talora/Password.h"
#include "talora/Text.h"

namespace command {

namespace {

using Clock = std::chrono::steady_clock;

// The word of a record's severity, in lines and in JSON.
constexpr const char* kSeverityWords[] = {"nothing", "false alert", "report",        "notice",
                                          "warning", "error",       "internal error"};

environ_vx* g_interrupted_environ = nullptr;
volatile sig_atomic_t g_interrupted = 0;

// The first interrupt asks the library to stop; the next one has the system's usual effect.
void Interrupt(int)
{
    g_interrupted = 1;
    SetHaltFlag_vx(g_interrupted_environ, 1);
}

struct ProgressBar {
    bool enabled = false;
    bool shown = false;
    Clock::time_point began = Clock::now();
    Clock::time_point drawn;

    void Erase()
    {
        if (shown) fputs("\r\033[K", stderr);
        shown = false;
    }

    // Only jobs that take over a second get a bar, redrawn ten times a second at most.
    void Draw(const char* title, double fraction)
    {
        const auto now = Clock::now();
        if (fraction < 0) {
            Erase();
            began = now;
            return;
        }
        if (now - began < std::chrono::seconds(1) || now - drawn < std::chrono::milliseconds(100)) return;
        drawn = now;
        shown = true;
        const std::string bar = Bar(fraction, 30);
        fprintf(stderr, "\r\033[K%s %3.0f %%  %s", bar.c_str(), 100 * std::min(fraction, 1.0),
                Printable(title ? title : "").c_str());
        fflush(stderr);
    }
};

// Returns false after an interrupt, which ends the operation at this report.
bool_vx ShowProgress(environ_vx*, const char* title, double fraction, void* data)
{
    static_cast<ProgressBar*>(data)->Draw(title, fraction);
    return !g_interrupted;
}

struct Message {
    int number = 0;  // 0 for the command's own
    std::string severity, text, function, file;
    int64_t line = -1;
    bool is_error = false;
};

// Copied at once: the next call may change the list of records.
Message FromRecord(const report_vx* record)
{
    Message m;
    const int severity = ErrorSeverity_vx(record);
    m.is_error = severity >= ERROR_SEVERITY;
    m.number = ErrorNumber_vx(record);
    m.severity = kSeverityWords[std::clamp(severity, 0, int{std::size(kSeverityWords)} - 1)];
    m.text = ErrorMessage_vx(record);
    m.function = ErrorFunction_vx(record);
    m.file = ErrorFile_vx(record, &m.line);
    return m;
}

// The thread's records, oldest first.
std::vector<Message> CollectMessages(environ_vx* env)
{
    std::vector<Message> messages;
    const report_vx* record = nullptr;
    while ((record = GetError_vx(env, REPORT_SEVERITY, 0, record)) != nullptr)
        messages.push_back(FromRecord(record));
    return {messages.rbegin(), messages.rend()};
}

Json ToJson(const Message& m)
{
    Json json;
    json["number"] = m.number ? Json(m.number) : Json(nullptr);
    json["severity"] = m.severity;
    json["text"] = m.text;
    json["function"] = m.function.empty() ? Json(nullptr) : Json(m.function);
    json["file"] = m.file.empty() ? Json(nullptr) : Json(m.file);
    json["line"] = m.line >= 0 ? Json(m.line) : Json(nullptr);
    return json;
}

// Text of the library may come from files and is made safe for the terminal; place and file are added unless
// the message has them.
void PrintLine(Message m)
{
    m.text.erase(m.text.find_last_not_of('\n') + 1);
    std::string line = "talora: " + m.severity;
    if (m.number) line += " " + std::to_string(m.number);
    line +=
        ": " + (m.number ? Printable(m.text) : PrintableLines(m.text));  // the command's own may show a text
    if (!m.file.empty() && m.text.find("in file '") == std::string::npos) {
        if (m.line >= 0) line += ", on line " + std::to_string(m.line);
        line += ", in file '" + Printable(m.file) + "'";
    }
    line += "\n";
    fputs(line.c_str(), stderr);
}

}  // namespace

struct Session::Impl {
    Json fields = Json::object();
    ProgressBar progress;
    const report_vx* accepted_error = nullptr;  // newest record that no longer counts as a failure
    std::string start_failure;                  // why the library could not be started
};

Session::Session() : impl_(new Impl)
{
    char reason[MESG_LEN_vx] = "";
    env = NewTaloraEnviron_vx("talora", nullptr);
    if (!env || InitTalora2_bn(env, reason) < 0)
        impl_->start_failure = std::string("could not start: ") + reason;
}

// After this an interrupt ends the program at once: there is no environment left to halt.
Session::~Session()
{
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    if (env) CloseTalora_bn(env, nullptr);
}

void Session::Begin()
{
    if (!impl_->start_failure.empty()) throw CommandFailed(impl_->start_failure);
    g_interrupted_environ = env;
    struct sigaction action = {};
    action.sa_handler = Interrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    SetPasswordHandler_vx(env, AskPassword, nullptr);
    impl_->progress.enabled = !options.quiet && isatty(STDERR_FILENO);
    if (impl_->progress.enabled) SetProgressHandler_vx(env, ShowProgress, &impl_->progress);
}

// The interrupt comes second, as a halted operation has reported why it ended.
void Session::Check()
{
    const report_vx* newest = GetError_vx(env, ERROR_SEVERITY, 0, nullptr);
    if (newest && newest != impl_->accepted_error) throw CommandFailed();
    if (g_interrupted) throw CommandFailed("interrupted");
}

void Session::AcceptErrors()
{
    impl_->accepted_error = GetError_vx(env, ERROR_SEVERITY, 0, nullptr);
}

Json& Session::Field(const char* name)
{
    return impl_->fields[name];
}

void Session::Print(std::string_view text)
{
    if (!options.json) PrintRaw(text);
}

void Session::PrintRaw(std::string_view bytes)
{
    impl_->progress.Erase();
    fwrite(bytes.data(), 1, bytes.size(), stdout);
}

// 1. Collect what there is to report.
int Session::Finish(ExitStatus status, const std::string& failure)
{
    impl_->progress.Erase();
    std::vector<Message> messages = CollectMessages(env);
    if (!failure.empty()) {
        Message own;
        own.severity = "error";
        own.text = failure;
        own.is_error = true;
        messages.push_back(own);
    }
    // The answer first, so that it stands above the messages where both go to one terminal.
    if (options.json) {
        Json document;
        document["ok"] = status == kDone;
        document["messages"] = Json::array();
        for (const Message& m : messages) document["messages"].push_back(ToJson(m));
        document.update(impl_->fields);
        PrintRaw(document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
    }
    // 2. A result that could not be written is a failure, whatever else happened.
    const bool written = fflush(stdout) == 0 && !ferror(stdout);
    for (const Message& m : messages)
        if (m.is_error || !options.quiet) PrintLine(m);
    if (!written) {
        fprintf(stderr, "talora: error: could not write to standard output: %s\n", SystemReason().c_str());
        return kFailed;
    }
    return status;
}

}  // namespace command
