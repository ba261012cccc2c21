// Going over the limit of memory where the user has agreed to it.
#pragma once

namespace talora {

// While one is alive, the limit of memory does not hold for its thread.
class MemoryAllowance {
public:
    explicit MemoryAllowance(bool is_given) noexcept;
    ~MemoryAllowance();
    MemoryAllowance(const MemoryAllowance&) = delete;
    MemoryAllowance& operator=(const MemoryAllowance&) = delete;

private:
    bool before_;
};

}  // namespace talora
