// The entry frame: what every interface function runs around its work, and the argument checks.
//
//   int LengthNodeList_bn(const nodelist_bn* list)
//   {
//       return CallApi(__func__, list, -1, [&] { return Length(*list); });
//   }
//
// CallApi takes the lock of the concurrency mode, makes the function current for the thread, checks
// the handle to the current level, runs the body with denormals off and turns every failure into an
// error record and the preset failure value.  Nothing leaves it as an exception.  Handles beyond the
// first, names and options are checked inside the body with the functions below.
//
// Functions without a handle, or with an environment that may be NULL, use CallEnviron; functions
// on two nets use CallApi2, which takes both locks in order of address.
#pragma once

#include <string>
#include <type_traits>

#include "Basic/Environ.h"
#include "Basic/Error.h"
#include "Basic/FloatMode.h"
#include "Basic/MultiThread.h"
#include "Talora.h"

namespace talora {

// ---- Handles.  Each fails with the stated error from checking level 2 on. ----
void CheckHandle(const environ_vx* env);
void CheckHandle(const net_bn* net);
void CheckHandle(const node_bn* node);
void CheckHandle(const nodelist_bn* list);  // the list alone: it may hold NULL entries
void CheckHandle(const stream_vx* stream);
void CheckHandle(const report_vx* report);
void CheckHandle(const randgen_vx* generator);
void CheckHandle(const caseset_cs* cases);
void CheckHandle(const dbmgr_cs* manager);
void CheckHandle(const learner_bn* learner);
void CheckHandle(const tester_bn* tester);
void CheckHandle(const sensv_bn* sensv);

// An environment passed, or the default one.  Checked at every level, as there is no working without.
void CheckEnviron(const environ_vx* env);
void CheckLocal(const environ_vx& env);  // fails if its objects live elsewhere
bool WasClosed(const environ_vx* env);   // a handle of an environment that has been closed

// Every entry of a list is a live node, as functions need that work on the nodes.
void CheckListEntries(const nodelist_bn* list);
// The one net that the nodes of a list, which is not empty, are of; fails if they are of several (6881).
net_bn& NetOfAll(const nodelist_bn* list);

// Full consistency of the object, run at level 4.
void ValidateHandle(const environ_vx* env);
void ValidateHandle(const net_bn* net);
void ValidateHandle(const node_bn* node);
void ValidateHandle(const nodelist_bn* list);
void ValidateHandle(const stream_vx* stream);
void ValidateHandle(const report_vx* report);
void ValidateHandle(const randgen_vx* generator);
void ValidateHandle(const caseset_cs* cases);
void ValidateHandle(const dbmgr_cs* manager);
void ValidateHandle(const learner_bn* learner);
void ValidateHandle(const tester_bn* tester);
void ValidateHandle(const sensv_bn* sensv);

// The environment an object belongs to; null if the handle is null or damaged.
environ_vx* EnvironOf(const environ_vx* env);
environ_vx* EnvironOf(const net_bn* net);
environ_vx* EnvironOf(const node_bn* node);
environ_vx* EnvironOf(const nodelist_bn* list);
environ_vx* EnvironOf(const stream_vx* stream);
environ_vx* EnvironOf(const report_vx* report);
environ_vx* EnvironOf(const randgen_vx* generator);
environ_vx* EnvironOf(const caseset_cs* cases);
environ_vx* EnvironOf(const dbmgr_cs* manager);
environ_vx* EnvironOf(const learner_bn* learner);
environ_vx* EnvironOf(const tester_bn* tester);
environ_vx* EnvironOf(const sensv_bn* sensv);

// The lock kept with a handle's net; null for handles without one and for bad handles.
RecursiveLock* LockOf(const environ_vx*);
RecursiveLock* LockOf(const net_bn* net);
RecursiveLock* LockOf(const node_bn* node);
RecursiveLock* LockOf(const nodelist_bn* list);
RecursiveLock* LockOf(const stream_vx*);
RecursiveLock* LockOf(const report_vx*);
RecursiveLock* LockOf(const randgen_vx*);
RecursiveLock* LockOf(const caseset_cs*);
RecursiveLock* LockOf(const dbmgr_cs*);
RecursiveLock* LockOf(const learner_bn*);
RecursiveLock* LockOf(const tester_bn* tester);
RecursiveLock* LockOf(const sensv_bn* sensv);

// Whether calls on functions without a net take the process-wide lock: true for these handles.
template <class H>
constexpr bool kHasNet =
    std::is_same_v<H, net_bn> || std::is_same_v<H, node_bn> || std::is_same_v<H, nodelist_bn> ||
    std::is_same_v<H, tester_bn> || std::is_same_v<H, sensv_bn>;

// ---- Other arguments ----

// A name passed: NULL 5114, empty 5142; from level 3 on illegal 5118.  @return it as narrow text
std::string NameArgument(const char* name, const char* argument, bool allow_star = false);
// A text passed: NULL gives "", wide is converted.
std::string TextArgument(const char* text);
// 'options' must be empty or NULL.
void CheckNoOptions(const char* options);
// Splits an options string; a word that is not among those allowed fails "in argument 'options',".
// @return one bit per allowed word present
uint32_t OptionsArgument(const char* options, std::initializer_list<const char*> allowed);

// ---- The frame ----

// Holds the lock of a net while it lives, in the mode where nets have their own: for functions on lists and
// environments, which find out only then which net they work on.
class NetLockScope {
public:
    explicit NetLockScope(RecursiveLock* lock) : lock_(Concurrency() == LOCK_PER_NET ? lock : nullptr)
    {
        if (lock_) lock_->Enter();
    }
    ~NetLockScope()
    {
        if (lock_) lock_->Leave();
    }
    NetLockScope(const NetLockScope&) = delete;
    NetLockScope& operator=(const NetLockScope&) = delete;

private:
    RecursiveLock* lock_;
};

class EntryFrame {
public:
    EntryFrame(const char* function, RecursiveLock* lock, RecursiveLock* second, bool has_net) noexcept;
    ~EntryFrame();
    EntryFrame(const EntryFrame&) = delete;
    EntryFrame& operator=(const EntryFrame&) = delete;

    void UseEnviron(environ_vx* env) noexcept;  // found under the lock: the handle may be on its way out
    void CheckReady();                          // environment initialised, enough memory to start
    bool Failed() const noexcept;               // an error was raised since the frame was entered
    // Turns the exception being handled into a record, and takes back what the call has changed so far
    // in nets whose edits are recorded.
    void RecordException() noexcept;

private:
    DenormalsOff float_mode_;
    const char* callers_function_;
    environ_vx* callers_env_;
    bool callers_failed_;
    RecursiveLock* first_;
    RecursiveLock* second_;
    uint64_t undo_mark_;
};

template <class R, class Body>
R RunFramed(EntryFrame& frame, R failure, Body&& body) noexcept
{
    try {
        frame.CheckReady();
        R result = body();
        return frame.Failed() ? failure : result;
    } catch (...) {
        frame.RecordException();
        return failure;
    }
}

struct NoResult {};

// The body of a function that reads or clears error records: works without an environment too, and adds
// no record of its own about that.
template <class R, class Body>
R CallReports(const char* function, environ_vx* env, R failure, Body&& body) noexcept
{
    EntryFrame frame(function, nullptr, nullptr, true);
    frame.UseEnviron(EnvironOf(env));
    try {
        return body();
    } catch (...) {
        frame.RecordException();
        return failure;
    }
}

// The body of a function on one handle; R is the type of the failure value.
template <class H, class R, class Body>
R CallApi(const char* function, const H* handle, R failure, Body&& body) noexcept
{
    EntryFrame frame(function, LockOf(handle), nullptr, kHasNet<H>);
    frame.UseEnviron(EnvironOf(handle));
    return RunFramed(frame, failure, [&]() -> R {
        // Without checking, nothing is said of a NULL handle; but neither is it followed.
        if (handle == nullptr && CheckingLevel() < CHECK_HANDLES) return failure;
        CheckHandle(handle);
        if (CheckingLevel() >= CHECK_OBJECTS) ValidateHandle(handle);
        return static_cast<R>(body());
    });
}

// The same for functions that return nothing.
template <class H, class Body>
void CallApi(const char* function, const H* handle, Body&& body) noexcept
{
    CallApi(function, handle, NoResult{}, [&] {
        body();
        return NoResult{};
    });
}

// Two handles, possibly of different nets: both are checked, both nets locked.
template <class H1, class H2, class R, class Body>
R CallApi2(const char* function, const H1* first, const H2* second, R failure, Body&& body) noexcept
{
    EntryFrame frame(function, LockOf(first), LockOf(second), kHasNet<H1>);
    frame.UseEnviron(EnvironOf(first));
    return RunFramed(frame, failure, [&]() -> R {
        if ((first == nullptr || second == nullptr) && CheckingLevel() < CHECK_HANDLES) return failure;
        CheckHandle(first);
        CheckHandle(second);
        if (CheckingLevel() >= CHECK_OBJECTS) {
            ValidateHandle(first);
            ValidateHandle(second);
        }
        return static_cast<R>(body());
    });
}

template <class H1, class H2, class Body>
void CallApi2(const char* function, const H1* first, const H2* second, Body&& body) noexcept
{
    CallApi2(function, first, second, NoResult{}, [&] {
        body();
        return NoResult{};
    });
}

// A function that takes an environment, NULL meaning the default one; the body gets it.
template <class R, class Body>
R CallEnviron(const char* function, environ_vx* env, R failure, Body&& body) noexcept
{
    EntryFrame frame(function, nullptr, nullptr, false);
    if (env == nullptr) env = DefaultEnviron();
    frame.UseEnviron(EnvironOf(env));
    return RunFramed(frame, failure, [&]() -> R {
        CheckEnviron(env);
        return static_cast<R>(body(*env));
    });
}

template <class Body>
void CallEnviron(const char* function, environ_vx* env, Body&& body) noexcept
{
    CallEnviron(function, env, NoResult{}, [&](environ_vx& checked) {
        body(checked);
        return NoResult{};
    });
}

}  // namespace talora
