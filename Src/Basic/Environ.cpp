// Environments: the list of those that are open, and what they ask of their front end.
#include "Basic/Environ.h"

#include <string.h>

#include <algorithm>
#include <string_view>

#include "Basic/Error.h"
#include "Basic/FloatMode.h"
#include "Basic/MultiThread.h"

namespace talora {

namespace {

constexpr size_t kPasswordBuffer = 4096;

struct Environs {
    std::mutex mutex;
    HandlePool<environ_vx, ENVIRON_TYPE> pool;
    std::vector<environ_vx*> open;
};

// Never destroyed: see the thread-local records in Error.cpp.
Environs& All()
{
    static Environs* all = new Environs;
    return *all;
}

std::atomic<int> checking_level{CHECK_VALUES};
std::atomic<environ_vx*> default_environ{nullptr};  // the last of `open`; read in signal handlers

}  // namespace

// Makes an environment and makes it the default one.
environ_vx* NewEnviron()
{
    Environs& all = All();
    std::lock_guard guard(all.mutex);
    TALORA_CHECK(all.open.size() < MAX_NUM_ENVIROS);
    all.open.reserve(all.open.size() + 1);
    environ_vx* env = all.pool.New(nullptr);
    all.open.push_back(env);
    default_environ.store(env);
    return env;
}

// The default passes to the environment made before. A record that calls still use is only marked as deleted;
// the last UnpinEnviron releases it.
void ReleaseEnviron(environ_vx* env) noexcept
{
    Environs& all = All();
    std::lock_guard guard(all.mutex);
    all.open.erase(std::remove(all.open.begin(), all.open.end(), env), all.open.end());
    default_environ.store(all.open.empty() ? nullptr : all.open.back());
    // Pins are counted under the same mutex, so none can be taken in between.
    if (env->num_pins == 0) return all.pool.Release(env);
    env->header.SetTag(ENVIRON_TYPE | kDeletedFlag);
    env->is_closed = true;
}

// A pin keeps the record readable for a call although another thread closes the environment meanwhile.
environ_vx* PinEnviron(const environ_vx* env) noexcept
{
    Environs& all = All();
    std::lock_guard guard(all.mutex);
    const auto found = std::find(all.open.begin(), all.open.end(), env);
    if (found == all.open.end()) return nullptr;
    ++(*found)->num_pins;
    return *found;
}

environ_vx* PinDefaultEnviron() noexcept
{
    Environs& all = All();
    std::lock_guard guard(all.mutex);
    if (all.open.empty()) return nullptr;
    ++all.open.back()->num_pins;
    return all.open.back();
}

void UnpinEnviron(environ_vx* env) noexcept
{
    Environs& all = All();
    std::lock_guard guard(all.mutex);
    if (--env->num_pins > 0 || !env->is_closed) return;
    ClearReportsOf(env);  // those that the calls have made since
    all.pool.Release(env);
}

environ_vx* DefaultEnviron()
{
    return default_environ.load();
}

int CheckingLevel()
{
    return checking_level.load(std::memory_order_relaxed);
}
void SetCheckingLevel(int level)
{
    checking_level.store(level, std::memory_order_relaxed);
}

int AskQuestion(const char* question, const char* answers, const char* deflt)
{
    // 1. Count the answers and find the default among them.
    // Position of the default among the answers, and how many there are.
    const std::string_view wanted = deflt;
    int num_answers = 0, default_answer = 0;
    for (std::string_view rest = answers;;) {
        const size_t comma = std::min(rest.find(','), rest.size());
        if (rest.substr(0, comma) == wanted) default_answer = num_answers;
        ++num_answers;
        if (comma == rest.size()) break;
        rest.remove_prefix(comma + 1);
    }
    environ_vx* env = ThisThread().env;
    if (env == nullptr) return default_answer;
    const auto handler = env->question_handler.Get();
    if (handler.function == nullptr) return default_answer;
    const int answer =
        RunHandler("question", [&] { return handler.function(env, question, answers, deflt, handler.data); });
    return answer >= 0 && answer < num_answers ? answer : default_answer;
}

void PrintMessage(const std::string& text)
{
    environ_vx* env = ThisThread().env;
    if (env == nullptr || text.empty()) return;
    RunMessageHandler(*env, text.c_str(), nullptr);
}

Secret AskPassword(const char* question)
{
    environ_vx* env = ThisThread().env;
    if (env == nullptr) return {};
    const auto handler = env->password_handler.Get();
    if (handler.function == nullptr) return {};
    struct Buffer {
        char text[kPasswordBuffer] = "";
        ~Buffer() { Wipe(text, sizeof text); }  // also when the handler fails
    } wiped;
    auto& buffer = wiped.text;
    const bool given = RunHandler("password", [&] {
        return handler.function(env, question, buffer, sizeof buffer, handler.data) != 0;
    });
    buffer[sizeof buffer - 1] = '\0';
    const size_t length = given ? strlen(buffer) : 0;
    return length > 0 ? Secret(std::string_view(buffer, length)) : Secret();
}

}  // namespace talora
