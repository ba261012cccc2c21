// Making names legal and telling which texts a format takes for names.
#include "Foreign/ForeignNames.h"

#include <algorithm>
#include <unordered_set>

#include "Basic/Names.h"
#include "Basic/Text.h"

namespace talora {

std::string LegalName(std::string_view text)
{
    std::string name;
    for (const char c : text) {
        if ((static_cast<unsigned char>(c) & 0xC0) == 0x80) continue;  // one sign for each letter of UTF-8
        name += IsNameChar(c) ? c : '_';
    }
    if (name.empty() || IsDigit(name[0]) || !IsNameChar(text[0])) name.insert(0, name.empty() ? "x" : "x_");
    if (name.size() > size_t{kMaxNameLength}) name.resize(size_t{kMaxNameLength});
    return name;
}

std::vector<std::string> UniqueLegalNames(const std::vector<std::string>& texts)
{
    std::vector<std::string> names(texts.size());
    std::unordered_set<std::string> used;
    for (size_t i = 0; i < texts.size(); ++i)
        if (!texts[i].empty() && LegalName(texts[i]) == texts[i] && used.insert(texts[i]).second)
            names[i] = texts[i];
    std::unordered_map<std::string, int> next;  // so that many equal ones are no search each
    for (size_t i = 0; i < texts.size(); ++i) {
        if (!names[i].empty()) continue;
        const std::string base = LegalName(texts[i]);
        std::string name = base;
        for (int& n = next.try_emplace(base, 2).first->second; !used.insert(name).second; ++n) {
            const std::string suffix = "_" + std::to_string(n);
            name = base.substr(0, size_t{kMaxNameLength} - suffix.size()) + suffix;
        }
        names[i] = name;
    }
    return names;
}

bool IsMadeFrom(std::string_view name, std::string_view text)
{
    if (text.empty()) return false;
    const std::string base = LegalName(text);
    if (name == base) return true;
    // A number was put behind it.
    const size_t split = name.rfind('_');
    if (split == std::string_view::npos || split == 0 || split + 1 == name.size()) return false;
    return std::all_of(name.begin() + std::ptrdiff_t(split) + 1, name.end(), IsDigit) &&
           base.starts_with(name.substr(0, split)) &&
           (base.size() == split || name.size() == size_t{kMaxNameLength});
}

bool FitsRule(std::string_view text, NameRule rule)
{
    if (text.empty()) return false;
    const bool has_control =
        std::any_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; });
    const bool is_padded = Trimmed(text).size() != text.size();
    const auto all = [&](auto&& allowed) { return std::all_of(text.begin(), text.end(), allowed); };
    const auto has = [&](std::string_view signs) {
        return text.find_first_of(signs) != std::string_view::npos;
    };
    switch (rule) {
        case NameRule::ANY_TEXT:
            return true;
        case NameRule::NO_CONTROLS:
            return !has_control && !is_padded;
        case NameRule::NO_QUOTES:
            return !has_control && !has("\"");
        case NameRule::WORDS:
            return all([](char c) { return IsNameChar(c) || c == '.' || c == '-' || (c & 0x80) != 0; });
        case NameRule::IDENTIFIERS:
            return all(IsNameChar) && !IsDigit(text[0]);
        case NameRule::FAST_NAMES:
            return !has_control && !is_padded && !has("[]{}+");
        case NameRule::FAST_LABELS:
            return !has_control && !is_padded && !has("|{}");
        case NameRule::NONE:
            break;
    }
    return false;
}

std::string NoisyMaxText(const NoisyMax& noisy)
{
    std::string text = noisy.first_is_strongest ? "first;" : "last;";
    for (const double p : noisy.rows) text += " " + NumberText(p);
    return text;
}

bool ParseNoisyMax(std::string_view text, NoisyMax& noisy)
{
    noisy.first_is_strongest = text.starts_with("first;");
    if (!noisy.first_is_strongest && !text.starts_with("last;")) return false;
    text.remove_prefix(text.find(';') + 1);
    const char* at = text.data();
    const char* const end = at + text.size();
    for (double value = 0;;) {
        while (at < end && *at == ' ') ++at;
        if (at == end) return true;
        if (!TryScanNumber(at, end, value) || !(value >= 0 && value <= 1)) return false;
        noisy.rows.push_back(value);
    }
}

}  // namespace talora
