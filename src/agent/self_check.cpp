#include "agent/self_check.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "base/sha1.h"
#include "base/twofish.h"
#include "protocol/packet_cipher.h"

namespace zot {
namespace {

constexpr int kExitCipher = 3;
constexpr char kKeyText[] = "test cipherkey";
// With its terminating NUL this is exactly one block.
constexpr char kPlainText[] = "503718264930571";
constexpr size_t kTextLength = sizeof kPlainText - 1;
static_assert(sizeof kPlainText == kTwofishBlockSize);

std::span<const uint8_t> Bytes(const char* text, size_t length) {
    return {reinterpret_cast<const uint8_t*>(text), length};
}

bool BlockRoundTrip() {
    TwofishKey key(Sha1Digest(Bytes(kKeyText, sizeof kKeyText - 1)));
    uint8_t encrypted[kTwofishBlockSize];
    uint8_t decrypted[kTwofishBlockSize];
    key.EncryptBlock(Bytes(kPlainText, sizeof kPlainText).data(), encrypted);
    key.DecryptBlock(encrypted, decrypted);
    return std::memcmp(decrypted, kPlainText, sizeof decrypted) == 0;
}

bool PacketRoundTrip() {
    uint8_t text[kTextLength];
    PacketCipher(kKeyText).Encrypt(Bytes(kPlainText, kTextLength), text);
    PacketCipher(kKeyText).Decrypt(text, text);
    return std::memcmp(text, kPlainText, sizeof text) == 0;
}

void Report(const char* name, bool passed) {
    // Operators and their scripts know the line in this spelling.
    std::printf("%s encyption checking .. %s\n", name, passed ? "Ok" : "Error");
    if (!passed) std::exit(kExitCipher);
}

}  // namespace

void RunCipherChecks() {
    TwofishInitialise();
    Report("Basic", BlockRoundTrip());
    Report("ZOT", PacketRoundTrip());
}

void PrintSizes() {
    struct stat record {};
    constexpr unsigned kSearchRecordSize = sizeof(int64_t);
    std::printf("stat.size: %u\n", static_cast<unsigned>(sizeof record.st_size));
    std::printf("srec.size: %u\n", kSearchRecordSize);
    std::printf("file.size: %u\n", static_cast<unsigned>(sizeof(off_t)));
    std::printf("int64 = long long = %d\n", static_cast<int>(sizeof(long long) * 8));
}

}  // namespace zot
