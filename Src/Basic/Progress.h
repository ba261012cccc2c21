// Long operations: a title, how far they are, and whether to go on.
//
// Engine code makes a Progress for the length of an operation and calls Step now and then; Step
// is cheap (without a handler no clock is read), asks the environment's progress handler at
// most ten times a second, and is false once the handler or the halt flag says stop.
#pragma once

#include <chrono>

namespace talora {

class Progress {
public:
    explicit Progress(const char* title);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // fraction is between 0 and 1.  False: stop, finish with what there is.
    bool Step(double fraction);
    bool IsDue() const;  // the next step asks the handler, for which the fraction may then be worked out
    bool Halted() const { return halted_; }

private:
    const char* title_;
    std::chrono::steady_clock::time_point next_;
    bool halted_ = false;
    bool shown_ = false;
};

// Whether the current environment's halt flag is set, or the user asked to abort when a report was
// shown in this call.  Safe to call in inner loops.
bool IsHalted();

}  // namespace talora
