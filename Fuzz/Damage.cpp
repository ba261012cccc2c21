#include "Fuzz/Damage.h"

#include <iterator>
#include <vector>

namespace fuzz {

namespace {

const std::string kNumbers[] = {"0",
                                "1",
                                "-1",
                                "2147483647",
                                "2147483648",
                                "4294967295",
                                "9223372036854775807",
                                "9223372036854775808",
                                "1e308",
                                "1e-320",
                                "nan",
                                "inf",
                                std::string(100000, '7')};

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

struct Span {
    size_t begin, length;
};

std::vector<Span> Numbers(const std::string& bytes)
{
    std::vector<Span> numbers;
    for (size_t at = 0; at < bytes.size(); ++at) {
        if (!IsDigit(bytes[at])) continue;
        const size_t begin = at;
        while (at < bytes.size() && (IsDigit(bytes[at]) || bytes[at] == '.')) ++at;
        numbers.push_back({begin, at - begin});
    }
    return numbers;
}

std::vector<Span> Lines(const std::string& bytes)
{
    std::vector<Span> lines;
    for (size_t at = 0; at < bytes.size();) {
        const size_t end = std::min(bytes.find('\n', at), bytes.size() - 1) + 1;
        lines.push_back({at, end - at});
        at = end;
    }
    return lines;
}

}  // namespace

std::string Damaged(std::string bytes, std::minstd_rand& random)
{
    if (bytes.empty()) return bytes;
    const size_t at = random() % bytes.size();
    switch (random() % 6) {
        case 0:
            bytes[at] = static_cast<char>(bytes[at] ^ 1 << random() % 8);
            break;
        case 1:
            bytes[at] = '\0';
            break;
        case 2:
            bytes[at] = '\xFF';
            break;
        case 3:
            bytes.resize(at);
            break;
        case 4: {
            const std::vector<Span> lines = Lines(bytes);
            if (lines.size() < 2) break;
            const Span line = lines[random() % (lines.size() - 1)];
            const std::string text = bytes.substr(line.begin, line.length);
            const size_t next = bytes.find('\n', line.begin + line.length);
            bytes.erase(line.begin, line.length);
            bytes.insert(next == std::string::npos ? bytes.size() : next + 1 - line.length, text);
            break;
        }
        default: {
            const std::vector<Span> numbers = Numbers(bytes);
            if (numbers.empty()) break;
            const Span number = numbers[random() % numbers.size()];
            bytes.replace(number.begin, number.length, kNumbers[random() % std::size(kNumbers)]);
            break;
        }
    }
    return bytes;
}

}  // namespace fuzz
