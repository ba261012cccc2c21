// Reports to the progress handler, at most ten a second, and requests to stop.
#include "Basic/Progress.h"

#include "Basic/Environ.h"
#include "Basic/FloatMode.h"
#include "Basic/MultiThread.h"

namespace talora {

namespace {

constexpr std::chrono::milliseconds kBetweenReports(100);

bool HasHandler()
{
    const environ_vx* env = ThisThread().env;
    return env != nullptr && env->progress_handler.IsSet();
}

}  // namespace

Progress::Progress(const char* title) : title_(title)
{
    if (HasHandler()) next_ = std::chrono::steady_clock::now() + kBetweenReports;
}

// A handler that was called learns that the operation has ended.
Progress::~Progress()
{
    environ_vx* env = ThisThread().env;
    if (!shown_ || env == nullptr) return;
    const bool had_failed = ThisThread().failed;
    const auto handler = env->progress_handler.Get();
    if (handler.function == nullptr) return;
    // Nothing may leave a destructor; and what was worked out is not lost because its end was not heard.
    try {
        RunHandler("progress", [&] { return handler.function(env, title_, -1, handler.data); });
    } catch (const Unwind& failure) {
        SetSeverity(*failure.record, WARNING_SEV);
        ThisThread().failed = had_failed;
    }
}

// Once halted it stays halted, also when the flag is withdrawn meanwhile.
bool Progress::Step(double fraction)
{
    if (halted_ || IsHalted()) return !(halted_ = true);
    if (!IsDue()) return true;
    next_ = std::chrono::steady_clock::now() + kBetweenReports;
    environ_vx* env = ThisThread().env;
    const auto handler = env->progress_handler.Get();
    if (handler.function == nullptr) return true;
    shown_ = true;
    halted_ = !RunHandler("progress", [&] { return handler.function(env, title_, fraction, handler.data); });
    return !halted_;
}

bool Progress::IsDue() const
{
    return HasHandler() && std::chrono::steady_clock::now() >= next_;
}

bool IsHalted()
{
    const ThreadState& thread = ThisThread();
    return thread.aborted || (thread.env != nullptr && thread.env->halt.load(std::memory_order_relaxed));
}

}  // namespace talora
