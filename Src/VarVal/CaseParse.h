// Tables of the parser of case files: what entries mean, by their text.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace talora {

// The meaning of the entries of one column: text -> state, open addressing with linear probing.  Up to 16
// bytes of a text are kept in its slot as two words that overlap when it is shorter, so that finding a name
// usually is two loads, a multiplication and one comparison; longer ones are compared byte by byte too.
//
// At least 8 bytes behind the beginning of any text that is looked up can be read.
class EntryTable {
public:
    static constexpr int kNotFound = INT32_MIN;

    EntryTable() { Clear(); }
    void Clear();
    void Insert(std::string_view text, int state);
    size_t Count() const { return used_; }

    int Find(std::string_view text) const
    {
        const Key key = KeyOf(text);
        for (size_t at = SlotOf(key);; ++at) {
            const Slot& slot = slots_[at & mask_];
            if (slot.key == key && (key.length <= 16 || IsSame(slot, text))) return slot.state;
            if (slot.key.length == kFree) return kNotFound;
        }
    }

private:
    static constexpr uint32_t kFree = UINT32_MAX;
    struct Key {
        uint64_t first = 0, last = 0;  // of up to 8 bytes: the same
        uint32_t length = kFree;
        bool operator==(const Key&) const = default;
    };
    struct Slot {
        Key key;
        int32_t state = kNotFound;
        uint32_t text = 0;  // where it begins in texts_
    };

    static Key KeyOf(std::string_view text)
    {
        Key key;
        key.length = static_cast<uint32_t>(text.size());
        std::memcpy(&key.first, text.data(), 8);
        if (text.size() >= 8) {
            std::memcpy(&key.last, text.data() + text.size() - 8, 8);
        } else {
            // The bytes behind the text are shifted out or masked away.
            if constexpr (std::endian::native == std::endian::big)
                key.first = text.empty() ? 0 : key.first >> (64 - 8 * text.size());
            else
                key.first &= (uint64_t{1} << (8 * text.size())) - 1;
            key.last = key.first;
        }
        return key;
    }
    size_t SlotOf(const Key& key) const
    {
        // Two odd constants of good spread (Knuth 1973, section 6.4, on multiplicative hashing).
        uint64_t hash = (key.first ^ key.length) * UINT64_C(0x9E3779B97F4A7C15);
        hash = (hash ^ (hash >> 32) ^ key.last) * UINT64_C(0xD6E8FEB86659FD93);
        return static_cast<size_t>(hash >> shift_);
    }
    bool IsSame(const Slot& slot, std::string_view text) const
    {
        return std::memcmp(texts_.data() + slot.text, text.data(), text.size()) == 0;
    }
    void Grow();

    std::vector<Slot> slots_;
    size_t mask_ = 0;
    int shift_ = 0;
    size_t used_ = 0;
    std::string texts_;  // those of more than 16 bytes
};

}  // namespace talora
