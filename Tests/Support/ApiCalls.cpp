// A call of every interface function, made from its declaration.
#include "Support/ApiCalls.h"

#include <algorithm>
#include <tuple>
#include <type_traits>

#include "Talora.h"
#include "Talora/APICheck.h"

namespace talora {

namespace {

template <class T>
constexpr char kLetter = HandleTraits<T>::kLetter;

template <class A>
char LetterOf()
{
    if constexpr (std::is_pointer_v<A>) {
        using T = std::remove_const_t<std::remove_pointer_t<A>>;
        if (kLetter<T>) return kLetter<T>;
        if (std::is_function_v<T>) return 'h';
        return std::is_same_v<A, const char*> ? 't' : 'p';
    } else {
        return std::is_floating_point_v<A> ? 'd' : 'i';
    }
}

template <class T>
constexpr ArrayOf EntriesOf()
{
    if (std::is_void_v<T>) return ArrayOf::BYTES;
    if (std::is_same_v<std::remove_const_t<T>, const char*>) return ArrayOf::TEXTS;
    if (std::is_same_v<T, const float>) return ArrayOf::PROBS;
    if (std::is_same_v<T, const int>) return ArrayOf::STATES;
    if (std::is_same_v<T, const double>) return ArrayOf::REALS;
    return std::is_same_v<T, double> ? ArrayOf::REAL_TO_WRITE : ArrayOf::OTHERS_TO_WRITE;
}

template <class A>
A Make(ArgumentMaker& maker, size_t& next_place)
{
    [[maybe_unused]] const size_t place = next_place++;
    if constexpr (std::is_pointer_v<A>) {
        using T = std::remove_pointer_t<A>;
        if constexpr (std::is_function_v<T>)
            return nullptr;
        else if constexpr (kLetter<std::remove_const_t<T>> != 0)
            return static_cast<A>(maker.Handle(kLetter<std::remove_const_t<T>>, place));
        else if constexpr (std::is_same_v<A, const char*>)
            return maker.Text();
        else
            return static_cast<A>(
                maker.Array(std::is_same_v<T, const void> ? ArrayOf::BYTES : EntriesOf<T>()));
    } else if constexpr (std::is_floating_point_v<A>) {
        const double value = maker.Real();
        return static_cast<A>(std::is_same_v<A, float> ? std::clamp(value, -1e30, 1e30) : value);
    } else {
        return static_cast<A>(maker.Integer(place, sizeof(A)));
    }
}

template <class R, class... A>
Returned Call(R (*function)(A...), ArgumentMaker& maker)
{
    [[maybe_unused]] size_t place = 0;
    std::tuple<A...> arguments{Make<A>(maker, place)...};  // in order
    maker.Ready();
    if constexpr (std::is_void_v<R>) {
        std::apply(function, arguments);
        return {};
    } else if constexpr (std::is_function_v<std::remove_pointer_t<R>>) {
        return {0, reinterpret_cast<const void*>(std::apply(function, arguments)), 0};
    } else if constexpr (std::is_pointer_v<R>) {
        return {kLetter<std::remove_const_t<std::remove_pointer_t<R>>>, std::apply(function, arguments), 0};
    } else if constexpr (std::is_unsigned_v<R> && !std::is_same_v<R, bool>) {
        return {0, nullptr, static_cast<double>(std::make_signed_t<R>(std::apply(function, arguments)))};
    } else {
        return {0, nullptr, static_cast<double>(std::apply(function, arguments))};
    }
}

template <class R, class... A>
std::string TypesOf(R (*)(A...))
{
    return {LetterOf<A>()...};
}

}  // namespace

const std::vector<ApiFunction>& ApiFunctions()
{
    static const std::vector<ApiFunction> functions = {
#define TALORA_FUNCTION(name, automation, arguments) \
    {#name, arguments, TypesOf(&name), [](ArgumentMaker& maker) { return Call(&name, maker); }},
#include "Talora/ApiFunctions.inc"
#undef TALORA_FUNCTION
    };
    return functions;
}

}  // namespace talora
