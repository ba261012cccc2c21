// The life of an environment: made, initialised, closed.
#pragma once

#include <string>
#include <vector>

#include "Basic/Environ.h"
#include "Basic/MultiThread.h"

namespace talora {

constexpr const char* kProduct = "Talora";
constexpr const char* kVersionText = "6.01";
constexpr int kVersionNumber = 601;

std::string VersionText();                 // product, version and what it was built with
std::string InitEnviron(environ_vx& env);  // @return the banner
// Waits until no other thread is at work on an object of the environment.  The caller holds the process-wide
// lock alone; another thread may have closed the environment when this returns.
class EnvironLocks {
public:
    explicit EnvironLocks(environ_vx* env);
    ~EnvironLocks();
    EnvironLocks(const EnvironLocks&) = delete;
    EnvironLocks& operator=(const EnvironLocks&) = delete;

private:
    std::vector<RecursiveLock*> held_;
};
void CloseEnviron(environ_vx* env) noexcept;

}  // namespace talora
