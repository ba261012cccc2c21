// Passwords and keys: bytes that are overwritten before their memory is given back.
#pragma once

#include <string.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace talora {

inline void Wipe(void* bytes, size_t count) noexcept
{
    if (count > 0) explicit_bzero(bytes, count);  // not optimised away
}

// Wipes also what a longer text before has left behind.
inline void Wipe(std::string& text) noexcept
{
    text.resize(text.capacity());
    Wipe(text.data(), text.size());
    text.clear();
}

// Wipes a text at the end of its scope, however that is left.
class WipeAtEnd {
public:
    explicit WipeAtEnd(std::string& text) : text_(text) {}
    ~WipeAtEnd() { Wipe(text_); }
    WipeAtEnd(const WipeAtEnd&) = delete;
    WipeAtEnd& operator=(const WipeAtEnd&) = delete;

private:
    std::string& text_;
};

// A text that may or may not have been given.  There is one copy of it, in memory taken once.
class Secret {
public:
    Secret() = default;
    explicit Secret(std::string_view text) : bytes_(text.begin(), text.end()), is_set_(true) {}
    Secret(const Secret& other) = default;
    Secret(Secret&& other) noexcept
        : bytes_(std::move(other.bytes_)), is_set_(std::exchange(other.is_set_, false))
    {}
    ~Secret() { Remove(); }
    Secret& operator=(Secret other) noexcept
    {
        bytes_.swap(other.bytes_);
        std::swap(is_set_, other.is_set_);
        return *this;
    }

    bool IsSet() const { return is_set_; }
    std::string_view Text() const { return {bytes_.data(), bytes_.size()}; }
    void Remove() noexcept
    {
        Wipe(bytes_.data(), bytes_.size());
        bytes_.clear();
        is_set_ = false;
    }

private:
    std::vector<char> bytes_;
    bool is_set_ = false;
};

}  // namespace talora
