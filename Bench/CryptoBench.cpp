// Ciphers and hashes over a megabyte, and the derivation of a key, each with the processor's instructions and
// without.
#include <benchmark/benchmark.h>

#include <vector>

#include "Misc/Crypto/CryptoAES.h"
#include "Misc/Crypto/CryptoBlowfish.h"
#include "Misc/Crypto/CryptoGCM.h"
#include "Misc/Crypto/CryptoHash.h"

namespace {

using namespace talora;

const std::vector<uint8_t> kKey(32);

template <class Work>
void OverMegabyte(benchmark::State& state, Work work)
{
    std::vector<uint8_t> bytes(1 << 20);
    for (auto _ : state) {
        work(bytes);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
}

void AesBlocks(benchmark::State& state, Instructions instructions)
{
    const Aes aes(kKey, instructions);
    OverMegabyte(state,
                 [&](auto& bytes) { aes.Encrypt(bytes.data(), bytes.data(), bytes.size() / kAesBlock); });
}

void Gcm(benchmark::State& state, Instructions instructions)
{
    const AesGcm gcm(kKey, instructions);
    OverMegabyte(state, [&](auto& bytes) { gcm.Encrypt(GcmNonce{}, {}, bytes, bytes.data()); });
}

void BlowfishCount(benchmark::State& state)
{
    const Blowfish blowfish(kKey);
    OverMegabyte(state, [&](auto& bytes) { blowfish.Count(0, bytes, bytes.data()); });
}

void Hash(benchmark::State& state, Instructions instructions)
{
    OverMegabyte(state, [&](auto& bytes) {
        Sha256 hash(instructions);
        hash.Add(bytes);
        benchmark::DoNotOptimize(hash.Finish());
    });
}

void Pbkdf2(benchmark::State& state, Instructions instructions)
{
    constexpr uint32_t kIterations = 600000;
    std::vector<uint8_t> key(32);
    for (auto _ : state)
        DerivePbkdf2(
            AsBytes("password"), kKey, kIterations, key, [] { return true; }, instructions);
}

const auto kUnit = benchmark::kMillisecond;
BENCHMARK_CAPTURE(AesBlocks, best, Instructions::BEST)->Name("Crypto/aes256");
BENCHMARK_CAPTURE(AesBlocks, portable, Instructions::PORTABLE)->Name("Crypto/aes256_portable");
BENCHMARK_CAPTURE(Gcm, best, Instructions::BEST)->Name("Crypto/aes256_gcm");
BENCHMARK_CAPTURE(Gcm, portable, Instructions::PORTABLE)->Name("Crypto/aes256_gcm_portable");
BENCHMARK(BlowfishCount)->Name("Crypto/blowfish");
BENCHMARK_CAPTURE(Hash, best, Instructions::BEST)->Name("Crypto/sha256");
BENCHMARK_CAPTURE(Hash, portable, Instructions::PORTABLE)->Name("Crypto/sha256_portable");
BENCHMARK_CAPTURE(Pbkdf2, best, Instructions::BEST)->Name("Crypto/pbkdf2")->Unit(kUnit);
BENCHMARK_CAPTURE(Pbkdf2, portable, Instructions::PORTABLE)->Name("Crypto/pbkdf2_portable")->Unit(kUnit);

}  // namespace
