#include "Basic/Progress.h"

#include "Basic/Environ.h"
#include "Basic/FloatMode.h"
#include "Basic/MultiThread.h"

namespace talora {

namespace {

constexpr std::chrono::milliseconds kBetweenReports(100);

}  // namespace

Progress::Progress(const char* title)
    : title_(title), next_(std::chrono::steady_clock::now() + kBetweenReports)
{}

Progress::~Progress()
{
    const environ_vx* env = ThisThread().env;
    if (!shown_ || env == nullptr || env->progress_handler == nullptr) return;
    const CallerFloatMode caller;
    env->progress_handler(ThisThread().env, title_, -1, env->progress_data);
}

bool Progress::Step(double fraction)
{
    if (halted_ || IsHalted()) return !(halted_ = true);
    environ_vx* env = ThisThread().env;
    if (env == nullptr || env->progress_handler == nullptr) return true;
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) return true;
    next_ = now + kBetweenReports;
    shown_ = true;
    const CallerFloatMode caller;
    halted_ = !env->progress_handler(env, title_, fraction, env->progress_data);
    return !halted_;
}

bool IsHalted()
{
    const ThreadState& thread = ThisThread();
    return thread.aborted || (thread.env != nullptr && thread.env->halt.load(std::memory_order_relaxed));
}

}  // namespace talora
