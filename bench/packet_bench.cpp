// The packet cipher beside libgcrypt's Twofish in CFB8 mode and beside plain cipher feedback, and
// the whole path of a request's bytes.
#include <gcrypt.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "client/request_packet.h"
#include "protocol/packet.h"
#include "ratio.h"

namespace zot {
namespace {

// A typical request and a long reply.
constexpr size_t kShort = 200;
constexpr size_t kLong = 16 << 10;

// The peer knows only 128- and 256-bit keys; this is its 256-bit Twofish.
class Peer {
  public:
    Peer() {
        if (gcry_cipher_open(&handle_, GCRY_CIPHER_TWOFISH, GCRY_CIPHER_MODE_CFB8, 0) != 0) abort();
        SetKey(std::vector<uint8_t>(32, 3).data());
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() { gcry_cipher_close(handle_); }

    void SetKey(const uint8_t* key) {
        if (gcry_cipher_setkey(handle_, key, 32) != 0) abort();
    }
    void Encrypt(std::vector<uint8_t>& data) {
        gcry_cipher_setiv(handle_, kInitial, sizeof(kInitial));
        if (gcry_cipher_encrypt(handle_, data.data(), data.size(), nullptr, 0) != 0) abort();
    }
    void Decrypt(std::vector<uint8_t>& data) {
        gcry_cipher_setiv(handle_, kInitial, sizeof(kInitial));
        if (gcry_cipher_decrypt(handle_, data.data(), data.size(), nullptr, 0) != 0) abort();
    }

  private:
    static constexpr uint8_t kInitial[16] = {};
    gcry_cipher_hd_t handle_;
};

// Each iteration prepares another key, as each request does.
template <size_t size>
void PrepareOurs(benchmark::State& state) {
    uint8_t bytes[size] = {};
    TwofishKey key;
    for (auto _ : state) {
        bytes[0]++;
        key.Prepare(bytes);
        benchmark::DoNotOptimize(&key);
        benchmark::ClobberMemory();
    }
}

void PreparePeer(benchmark::State& state) {
    uint8_t bytes[32] = {};
    Peer peer;
    for (auto _ : state) {
        bytes[0]++;
        peer.SetKey(bytes);
    }
}

void PrepareFromKeyString(benchmark::State& state) {
    std::string keyString = "0123456789abcdef";
    for (auto _ : state) {
        keyString[0]++;
        PacketCipher cipher(keyString);
        benchmark::DoNotOptimize(&cipher);
        benchmark::ClobberMemory();
    }
}

template <typename Operation>
void Measure(benchmark::State& state, size_t size, Operation operation) {
    std::vector<uint8_t> data(size, 'x');
    for (auto _ : state) {
        operation(data);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

template <size_t size>
void EncryptOurs(benchmark::State& state) {
    PacketCipher cipher("session key");
    Measure(state, size, [&](auto& data) { cipher.Encrypt(data, data.data()); });
}

template <size_t size>
void DecryptOurs(benchmark::State& state) {
    PacketCipher cipher("session key");
    Measure(state, size, [&](auto& data) { cipher.Decrypt(data, data.data()); });
}

// Cipher feedback by its definition: a whole block for each byte, and a register that is shifted.
template <bool encrypt>
void FeedbackPlain(benchmark::State& state) {
    const uint8_t bytes[20] = {};
    TwofishKey key(bytes);
    Measure(state, kLong, [&](auto& data) {
        uint8_t shift[kTwofishBlockSize] = {};
        for (uint8_t& byte : data) {
            uint8_t block[kTwofishBlockSize];
            key.EncryptBlock(shift, block);
            uint8_t in = byte;
            byte ^= block[0];
            std::copy(shift + 1, std::end(shift), shift);
            shift[kTwofishBlockSize - 1] = encrypt ? byte : in;
        }
    });
}

template <size_t size>
void EncryptPeer(benchmark::State& state) {
    Peer peer;
    Measure(state, size, [&](auto& data) { peer.Encrypt(data); });
}

template <size_t size>
void DecryptPeer(benchmark::State& state) {
    Peer peer;
    Measure(state, size, [&](auto& data) { peer.Decrypt(data); });
}

// A request of 200 bytes is opened, and 200 bytes are sealed for the reply.
void DecodeAndSealOurs(benchmark::State& state) {
    SettingsStore store;
    Log log(store);
    const std::string sent =
        client::BuildRequest("password", "0123456789abcdef", std::string(kShort, 'x'));
    const std::string value(kShort - 6, 'y');
    const PasswordKey password("password");
    for (auto _ : state) {
        std::string packet(sent);
        RequestPacket request;
        if (!DecodeRequest(packet, password, 0, log, request)) abort();
        Reply reply;
        reply.Start("200", value);
        VyString sealed = SealReply(std::move(reply), *request.cipher);
        benchmark::DoNotOptimize(sealed.Data());
    }
}

// The same calls of the peer's library: password digest, two hashed keys, three ciphers.
void DecodeAndSealPeer(benchmark::State& state) {
    Peer cipher;
    std::vector<uint8_t> password(8, 'p');
    std::vector<uint8_t> key(16, 'k');
    std::vector<uint8_t> text(kShort, 'x');
    auto setHashedKey = [&cipher](const std::vector<uint8_t>& keyString) {
        uint8_t digest[32] = {};
        gcry_md_hash_buffer(GCRY_MD_SHA1, digest, keyString.data(), keyString.size());
        cipher.SetKey(digest);
    };
    for (auto _ : state) {
        uint8_t digest[16];
        gcry_md_hash_buffer(GCRY_MD_MD5, digest, password.data(), password.size());
        benchmark::DoNotOptimize(&digest);
        setHashedKey(password);
        cipher.Decrypt(key);
        setHashedKey(key);
        cipher.Decrypt(text);
        cipher.Encrypt(text);
        benchmark::ClobberMemory();
    }
}

BENCHMARK(DecodeAndSealOurs);
BENCHMARK(DecodeAndSealPeer);
BENCHMARK(PrepareOurs<20>);
BENCHMARK(PrepareOurs<32>);
BENCHMARK(PreparePeer);
BENCHMARK(PrepareFromKeyString);
BENCHMARK(EncryptOurs<kShort>);
BENCHMARK(EncryptPeer<kShort>);
BENCHMARK(EncryptOurs<kLong>);
BENCHMARK(EncryptPeer<kLong>);
BENCHMARK(DecryptOurs<kShort>);
BENCHMARK(DecryptPeer<kShort>);
BENCHMARK(DecryptOurs<kLong>);
BENCHMARK(DecryptPeer<kLong>);
BENCHMARK(FeedbackPlain<true>);
BENCHMARK(FeedbackPlain<false>);

const std::vector<Ratio> kRatios = {
    {"decode and seal 200 bytes / libgcrypt", "DecodeAndSealOurs", "DecodeAndSealPeer", 1.0},
    {"prepare a 20-byte key / libgcrypt, 32 bytes", "PrepareOurs<20>", "PreparePeer", 1.0},
    {"prepare a 32-byte key / libgcrypt, 32 bytes", "PrepareOurs<32>", "PreparePeer", 1.0},
    {"key string to cipher / libgcrypt, 32-byte key", "PrepareFromKeyString", "PreparePeer", 1.0},
    {"encrypt 200 bytes / libgcrypt", "EncryptOurs<kShort>", "EncryptPeer<kShort>", 1.0},
    {"encrypt 16 KiB / libgcrypt", "EncryptOurs<kLong>", "EncryptPeer<kLong>", 1.0},
    {"decrypt 200 bytes / libgcrypt", "DecryptOurs<kShort>", "DecryptPeer<kShort>", 0},
    {"decrypt 16 KiB / libgcrypt", "DecryptOurs<kLong>", "DecryptPeer<kLong>", 0},
    {"encrypt 16 KiB / plain", "EncryptOurs<kLong>", "FeedbackPlain<true>", 0},
    {"decrypt 16 KiB / plain", "DecryptOurs<kLong>", "FeedbackPlain<false>", 0},
    {"decrypt / encrypt, 200 bytes", "DecryptOurs<kShort>", "EncryptOurs<kShort>", 2.0},
    {"decrypt / encrypt, 16 KiB", "DecryptOurs<kLong>", "EncryptOurs<kLong>", 2.0},
};

}  // namespace
}  // namespace zot

int main(int argc, char** argv) {
    zot::TwofishInitialise();
    gcry_check_version(nullptr);
    gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    return zot::RunWithRatios(argc, argv, zot::kRatios);
}
