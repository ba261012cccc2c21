// Numbers in files, lowest byte first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace talora {

inline void AppendLittleEndian(std::string& out, uint64_t value, size_t num_bytes)
{
    for (size_t i = 0; i < num_bytes; ++i) out += static_cast<char>(value >> (8 * i));
}

// The number in at most 8 bytes.
inline uint64_t LittleEndian(std::string_view bytes)
{
    uint64_t value = 0;
    for (size_t i = 0; i < bytes.size(); ++i)
        value |= uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
    return value;
}

}  // namespace talora
