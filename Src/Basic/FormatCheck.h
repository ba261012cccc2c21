// Whether arguments fit a printf format, decided when the compiler meets the call.
//
// The compiler's own check sees only formats that stand in the call; texts of messages stand in a list of
// their own (Messages.inc), so this checks them.  It accepts what the compiler's would: the conversions d i u
// x X o c s g f e p %, the lengths h l ll z, a width or precision of `*`.  An argument has the type after the
// promotions of a call with variable arguments.
#pragma once

#include <cstddef>
#include <type_traits>

namespace talora {

enum class FormatArg : char { NONE, INT, LONG, LONG_LONG, REAL, TEXT, POINTER, OTHER };

// The class of an argument as it is passed.
template <class T>
consteval FormatArg FormatArgOf()
{
    using Plain = std::remove_cvref_t<T>;
    if constexpr (std::is_same_v<Plain, long> || std::is_same_v<Plain, unsigned long>)
        return FormatArg::LONG;
    else if constexpr (std::is_same_v<Plain, long long> || std::is_same_v<Plain, unsigned long long>)
        return FormatArg::LONG_LONG;
    else if constexpr (std::is_integral_v<Plain> ||
                       (std::is_enum_v<Plain> && std::is_convertible_v<Plain, int>))
        return sizeof(Plain) <= sizeof(int) ? FormatArg::INT : FormatArg::OTHER;
    else if constexpr (std::is_same_v<Plain, float> || std::is_same_v<Plain, double>)
        return FormatArg::REAL;
    else if constexpr (std::is_same_v<Plain, char*> || std::is_same_v<Plain, const char*>)
        return FormatArg::TEXT;
    else
        return std::is_pointer_v<Plain> ? FormatArg::POINTER : FormatArg::OTHER;
}

constexpr bool IsOneOf(char c, const char* set)
{
    while (*set != 0 && *set != c) ++set;
    return *set != 0;
}

// Takes the next argument if the text wants one of this class.
struct FormatArgs {
    const FormatArg* next;
    const FormatArg* end;
    constexpr bool Take(FormatArg wanted) { return next != end && *next++ == wanted; }
};

// One conversion, which begins behind its `%`; moves the text behind it.
constexpr bool TakeConversion(const char*& text, FormatArgs& args)
{
    if (*text == '%') return ++text, true;
    while (IsOneOf(*text, "-+ #0123456789.*"))
        if (*text++ == '*' && !args.Take(FormatArg::INT)) return false;
    FormatArg integer = FormatArg::INT;
    while (*text == 'h') ++text;
    if (*text == 'z') integer = FormatArg::LONG, ++text;  // where this is built size_t is a long
    if (*text == 'l') integer = FormatArg::LONG, ++text;
    if (*text == 'l') integer = FormatArg::LONG_LONG, ++text;
    const char conversion = *text++;
    if (IsOneOf(conversion, "diuxXo")) return args.Take(integer);
    if (conversion == 'c') return args.Take(FormatArg::INT);
    if (conversion == 's') return args.Take(FormatArg::TEXT);
    if (conversion == 'p') return args.Take(FormatArg::POINTER);
    return IsOneOf(conversion, "gGfFeE") && args.Take(FormatArg::REAL);
}

template <class... Args>
consteval bool FitsFormat(const char* text)
{
    const FormatArg classes[sizeof...(Args) + 1] = {FormatArgOf<Args>()..., FormatArg::NONE};
    FormatArgs args{classes, classes + sizeof...(Args)};
    while (*text != 0)
        if (*text++ == '%' && !TakeConversion(text, args)) return false;
    return args.next == args.end;
}

}  // namespace talora
