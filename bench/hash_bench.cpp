// The file hashes on a block that stays in the cache, beside libgcrypt and beside our own portable
// code.
#include <benchmark/benchmark.h>
#include <gcrypt.h>

#include <cstdint>
#include <vector>

#include "base/crc32.h"
#include "base/md5.h"
#include "base/sha2.h"
#include "ratio.h"

namespace zot {
namespace {

const std::vector<uint8_t> kBlock(size_t{64} << 10, 'x');

void Measured(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kBlock.size()));
}

template <typename Hash, typename... Arguments>
void Digest(benchmark::State& state, Arguments... arguments) {
    for (auto _ : state) {
        Hash hash(arguments...);
        hash.Update(kBlock);
        uint8_t digest[Hash::kDigestSize];
        hash.Final(digest);
        benchmark::DoNotOptimize(&digest);
    }
    Measured(state);
}

void Md5Ours(benchmark::State& state) { Digest<Md5>(state); }
void Sha256Ours(benchmark::State& state) { Digest<Sha256>(state); }
void Sha512Ours(benchmark::State& state) { Digest<Sha512>(state); }
void Sha256InPortableCode(benchmark::State& state) { Digest<Sha256>(state, Sha256Portable); }
void Sha512InPortableCode(benchmark::State& state) { Digest<Sha512>(state, Sha512Portable); }

void Crc32Ours(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(Crc32Update(kCrc32Start, kBlock));
    Measured(state);
}

void Crc32InPortableCode(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(Crc32Portable(kCrc32Start, kBlock.data(), kBlock.size()));
    }
    Measured(state);
}

template <int algorithm>
void Peer(benchmark::State& state) {
    for (auto _ : state) {
        uint8_t digest[64];
        gcry_md_hash_buffer(algorithm, digest, kBlock.data(), kBlock.size());
        benchmark::DoNotOptimize(&digest);
    }
    Measured(state);
}

BENCHMARK(Md5Ours);
BENCHMARK(Peer<GCRY_MD_MD5>);
BENCHMARK(Sha256Ours);
BENCHMARK(Sha256InPortableCode);
BENCHMARK(Peer<GCRY_MD_SHA256>);
BENCHMARK(Sha512Ours);
BENCHMARK(Sha512InPortableCode);
BENCHMARK(Peer<GCRY_MD_SHA512>);
BENCHMARK(Crc32Ours);
BENCHMARK(Crc32InPortableCode);
BENCHMARK(Peer<GCRY_MD_CRC32>);

const std::vector<Ratio> kRatios = {
    {"MD5 / libgcrypt", "Md5Ours", "Peer<GCRY_MD_MD5>", 0},
    {"SHA-256 / libgcrypt", "Sha256Ours", "Peer<GCRY_MD_SHA256>", 0},
    {"SHA-256 / portable", "Sha256Ours", "Sha256InPortableCode", 0},
    {"SHA-512 / libgcrypt", "Sha512Ours", "Peer<GCRY_MD_SHA512>", 0},
    {"SHA-512 / portable", "Sha512Ours", "Sha512InPortableCode", 0},
    {"CRC-32 / libgcrypt", "Crc32Ours", "Peer<GCRY_MD_CRC32>", 0},
    {"CRC-32 / portable", "Crc32Ours", "Crc32InPortableCode", 0},
};

}  // namespace
}  // namespace zot

int main(int argc, char** argv) {
    gcry_check_version(nullptr);
    gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    return zot::RunWithRatios(argc, argv, zot::kRatios);
}
