// Interface functions: passwords and what is done with them.
#include <climits>
#include <string>

#include "BN/Files/NetCipher.h"
#include "BN/Model/Bnet.h"
#include "Basic/Secret.h"
#include "Basic/Stream.h"
#include "Basic/Text.h"
#include "Talora/APICheck.h"

using namespace talora;

namespace {

// The password passed; none for NULL.
Secret PasswordArgument(const char* password)
{
    if (password == nullptr) return {};
    std::string text = NarrowText(password);
    const WipeAtEnd wipe(text);
    if (text.empty()) Fail<5172>();
    return Secret(text);
}

}  // namespace

void SetStreamEncryption_vx(stream_vx* stream, const char* password)
{
    CallApi(__func__, stream, [&] { stream->password = PasswordArgument(password); });
}

void SetStreamPassword_vx(stream_vx* stream, const char* password)
{
    CallApi(__func__, stream, [&] { stream->password = PasswordArgument(password); });
}

bool_vx HasStreamPassword_vx(const stream_vx* stream)
{
    return CallApi(__func__, stream, bool_vx{0}, [&] { return stream->password.IsSet(); });
}

void SetNetPassword_bn(net_bn* net, const char* password)
{
    CallApi(__func__, net, [&] { net->password = PasswordArgument(password); });
}

bool_vx HasNetPassword_bn(const net_bn* net)
{
    return CallApi(__func__, net, bool_vx{0}, [&] { return net->password.IsSet(); });
}

void SetPasswordHandler_vx(environ_vx* env, password_handler_vx handler, void* data)
{
    CallEnviron(__func__, env, [&](environ_vx& e) { e.password_handler.Set(handler, data); });
}

password_handler_vx GetPasswordHandler_vx(environ_vx* env, void** data)
{
    return CallEnviron(__func__, env, static_cast<password_handler_vx>(nullptr), [&](environ_vx& e) {
        const auto set = e.password_handler.Get();
        if (data != nullptr) *data = set.data;
        return set.function;
    });
}

void SetFileCipher_vx(environ_vx* env, const char* cipher)
{
    CallEnviron(__func__, env, [&](environ_vx& e) {
        const std::string name = NarrowText(cipher);
        const CipherDef* const found = FindCipher(name);
        if (found == nullptr) Fail<6855>(name.c_str());
        e.file_cipher = found->letter;
    });
}

const char* GetFileCipher_vx(environ_vx* env)
{
    return CallEnviron(__func__, env, static_cast<const char*>(nullptr),
                       [](environ_vx& e) { return FindCipher(e.file_cipher.load())->name; });
}

void SetMaxKeyIterations_vx(environ_vx* env, int iterations)
{
    CallEnviron(__func__, env, [&](environ_vx& e) {
        if (iterations < kKeyIterations) Fail<6856>(iterations, kKeyIterations, INT_MAX);
        e.max_key_iterations = iterations;
    });
}

int GetMaxKeyIterations_vx(environ_vx* env)
{
    return CallEnviron(__func__, env, -1, [](environ_vx& e) { return e.max_key_iterations.load(); });
}
