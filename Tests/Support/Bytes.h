// Numbers and texts taken off the front of an input, zeros where it has ended.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace talora {

class Bytes {
public:
    Bytes(const uint8_t* data, size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}
    uint8_t Byte()
    {
        if (rest_.empty()) return 0;
        const auto byte = static_cast<uint8_t>(rest_[0]);
        rest_.remove_prefix(1);
        return byte;
    }
    uint32_t Number(uint32_t below)  // two bytes
    {
        const uint32_t high = Byte();
        return (high << 8 | Byte()) % below;
    }
    std::string_view Rest() const { return rest_; }
    bool AtEnd() const { return rest_.empty(); }

private:
    std::string_view rest_;
};

}  // namespace talora
