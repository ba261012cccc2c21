// Passwords and keys: no block of memory that is given back still holds one, whether a job succeeds or fails.
#include <cstdio>
#include <string>
#include <vector>

#include "BN/Files/NetCipher.h"
#include "Basic/Text.h"
#include "CountedMemory.h"
#include "FaultTest.h"

namespace faults {
namespace {

// Long enough not to stay inside a string object.
const std::string kPassword = "correct horse battery staple, and some more words";
const std::string kConnection = "Driver=None;UID=me;PWD=" + kPassword;
const std::string kWrong = "incorrect horse battery staple, and other words";

class SecretFaults : public FaultTest {
protected:
    void SetUp() override
    {
        OpenWorld(w_, folder_);
        // With fixed bytes for salt and nonce, the keys of the files that are written are known beforehand.
        GiveRandomBytes(RandomBytes::FIXED);
        talora::CipherBlock block;
        block.iterations = talora::kKeyIterations;
        block.salt.fill(kFixedRandomByte);
        block.nonce.fill(kFixedRandomByte);
        talora::DeriveKeys(block, kPassword, keys_);
    }
    void TearDown() override
    {
        GiveRandomBytes(RandomBytes::REAL);
        CloseWorld(w_);
    }

    void Watch()
    {
        const auto view = [](const auto& key) {
            return std::string_view(reinterpret_cast<const char*>(key.data()), key.size());
        };
        before_ = BytesSearched();
        WatchFreed(std::string_view(kPassword).substr(0, 24));
        WatchFreed(std::string_view(kPassword).substr(24));
        WatchFreed(std::string_view(kWrong).substr(0, 24));
        WatchFreed(view(keys_.cipher));
        WatchFreed(view(keys_.mac));
    }
    void ExpectNone(const char* label)
    {
        EXPECT_GT(BytesSearched(), before_) << label;
        EXPECT_EQ(EndWatching(), 0) << label << ": freed blocks held a password or a key";
        ClearErrors_vx(w_.env, INTERNAL_SEVERITY);
    }
    stream_vx* File(const char* password)
    {
        stream_vx* stream = NewFileStream_vx(w_.Path("secret.tala").c_str(), w_.env, nullptr);
        if (password) SetStreamPassword_vx(stream, password);
        return stream;
    }

    World w_;
    talora::FileKeys keys_;
    int64_t before_ = 0;
};

bool_vx AnswerPassword(environ_vx*, const char*, char* buffer, int size, void*)
{
    snprintf(buffer, static_cast<size_t>(size), "%s", kPassword.c_str());
    return 1;
}

TEST_F(SecretFaults, TheSearchFindsWhatIsLeft)
{
    Watch();
    delete new std::string(kPassword);
    EXPECT_GT(EndWatching(), 0);
}

TEST_F(SecretFaults, NothingIsLeftOfPasswordsAndKeys)
{
    for (const char* cipher : {"AES", "Blowfish"}) {
        SetFileCipher_vx(w_.env, cipher);
        Watch();
        stream_vx* stream = File(kPassword.c_str());
        WriteNet_bn(w_.net, stream);
        EXPECT_TRUE(NoErrors(w_.env));
        DeleteStream_vx(stream);
        ExpectNone("writing");

        Watch();
        stream = File(kPassword.c_str());
        net_bn* net = ReadNet_bn(stream, NO_WINDOW);
        EXPECT_NE(net, nullptr);
        DeleteStream_vx(stream);
        net_bn* copy = CopyNet_bn(net, "Copy", w_.env, nullptr);
        DeleteNet_bn(copy);
        DeleteNet_bn(net);
        ExpectNone("reading and copying");
    }
    Watch();
    stream_vx* stream = File(kWrong.c_str());
    EXPECT_EQ(ReadNet_bn(stream, NO_WINDOW), nullptr);
    SetStreamPassword_vx(stream, kPassword.c_str());
    SetStreamPassword_vx(stream, kWrong.c_str());
    SetStreamPassword_vx(stream, nullptr);
    DeleteStream_vx(stream);
    ExpectNone("a wrong password, passwords in turn");

    Watch();
    SetNetPassword_bn(w_.net, kPassword.c_str());
    SetNetPassword_bn(w_.net, kWrong.c_str());
    const std::string wide = talora::WideText(kPassword);
    SetNetPassword_bn(w_.net, wide.c_str());
    SetNetPassword_bn(w_.net, nullptr);
    SetPasswordHandler_vx(w_.env, AnswerPassword, nullptr);
    stream = File(nullptr);
    EXPECT_NE(ReadNet_bn(stream, NO_WINDOW), nullptr);
    ExpectNone("passwords of nets, asking for one");

    Watch();
    EXPECT_EQ(NewDatabaseManager_cs(kConnection.c_str(), nullptr, w_.env), nullptr);
    const report_vx* e = GetError_vx(w_.env, ERROR_SEVERITY, 0, nullptr);
    EXPECT_TRUE(e && std::string(ErrorMessage_vx(e)).find("battery") == std::string::npos);
    ExpectNone("a failed connection");
}

// Cut short by memory at every allocation.
TEST_F(SecretFaults, NothingIsLeftWhenMemoryIsOut)
{
    stream_vx* stream = NewMemoryStream_vx("s.tala", w_.env, nullptr);
    for (const Repeat repeat : {Repeat::ONCE, Repeat::FROM_THEN_ON}) {
        for (int64_t n = 1;; ++n) {
            Watch();
            FailAllocation(n, repeat);
            SetStreamPassword_vx(stream, kPassword.c_str());
            SetNetPassword_bn(w_.net, kPassword.c_str());
            SetNetPassword_bn(w_.net, nullptr);
            SetStreamEncryption_vx(stream, kPassword.c_str());
            SetStreamPassword_vx(stream, nullptr);
            NewDatabaseManager_cs(kConnection.c_str(), nullptr, w_.env);
            const bool failed = EndFailing() > 0;
            EXPECT_EQ(EndWatching(), 0) << "allocation " << n;
            ClearErrors_vx(w_.env, INTERNAL_SEVERITY);
            if (!failed) break;
        }
    }
}

}  // namespace
}  // namespace faults
