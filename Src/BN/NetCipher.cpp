#include "BN/NetCipher.h"

#include <strings.h>

#include <string>

namespace talora {

namespace {

constexpr CipherDef kCiphers[] = {
    {'G', "AES"},
    {'B', "Blowfish"},
};

}  // namespace

const CipherDef* FindCipher(char letter)
{
    for (const CipherDef& cipher : kCiphers)
        if (cipher.letter == letter) return &cipher;
    return nullptr;
}

const CipherDef* FindCipher(std::string_view name)
{
    for (const CipherDef& cipher : kCiphers)
        if (strcasecmp(cipher.name, std::string(name).c_str()) == 0) return &cipher;
    return nullptr;
}

}  // namespace talora
