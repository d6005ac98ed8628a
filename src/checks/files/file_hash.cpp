#include "checks/files/file_hash.h"

#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <span>

#include "base/crc32.h"
#include "base/files.h"
#include "base/md5.h"
#include "base/numbers.h"
#include "base/sha2.h"
#include "checks/files/file_checks.h"
#include "checks/files/path.h"
#include "checks/files/regular_file.h"
#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

constexpr uint64_t kAnsweredBlock = 20480;
// Large enough to make system calls rare, small enough to stay in a processor's second-level cache.
constexpr size_t kBlock = size_t{128} * 1024;

class Crc32Hash {
  public:
    void Update(std::span<const uint8_t> data) { state_ = Crc32Update(state_, data); }
    VyString Value() const {
        char text[11];
        std::snprintf(text, sizeof text, "%u", state_);
        return text;
    }

  private:
    uint32_t state_ = kCrc32Start;
};

template <typename Algorithm>
class DigestHash {
  public:
    void Update(std::span<const uint8_t> data) { hash_.Update(data); }
    VyString Value() {
        uint8_t digest[Algorithm::kDigestSize];
        hash_.Final(digest);
        VyString text;
        for (uint8_t byte : digest) {
            text.Append("0123456789abcdef"[byte >> 4]);
            text.Append("0123456789abcdef"[byte & 15]);
        }
        return text;
    }

  private:
    Algorithm hash_;
};

template <typename Hash>
bool ReadAll(RegularFile& file, VyString& value) {
    Hash hash;
    auto block = ReadBuffer<uint8_t>(kBlock);
    uint64_t total = 0;
    for (size_t fresh = kBlock; fresh == kBlock; total += fresh) {
        ssize_t count = file.Read(reinterpret_cast<char*>(block.get()), kBlock);
        if (count < 0) return false;
        fresh = static_cast<size_t>(count);
        hash.Update({block.get(), fresh});
    }
    if (total % kAnsweredBlock == 0) return false;
    value = hash.Value();
    return true;
}

using Reader = bool(RegularFile&, VyString&);

Reader* ReaderFor(HashAlgorithm algorithm) {
    switch (algorithm) {
        case HashAlgorithm::kCrc32:
            return ReadAll<Crc32Hash>;
        case HashAlgorithm::kMd5:
            return ReadAll<DigestHash<Md5>>;
        case HashAlgorithm::kSha256:
            return ReadAll<DigestHash<Sha256>>;
        case HashAlgorithm::kSha512:
            return ReadAll<DigestHash<Sha512>>;
    }
    return nullptr;
}

}  // namespace

bool HashFile(std::string_view path, HashAlgorithm algorithm, VyString& value,
              std::string_view& errorText) {
    Reader* reader = ReaderFor(algorithm);
    RegularFile file;
    if (reader == nullptr) {
        errorText = "";
    } else if (path.empty()) {
        errorText = "File is not specified";
    } else if (!file.Open(path)) {
        errorText = "Cannot open file";
    } else if (!reader(file, value)) {
        errorText = "Read error";
    } else {
        return true;
    }
    return false;
}

void TestFileHash(std::string_view params, const AgentSettings& /*settings*/, Reply& reply) {
    std::string_view path = GetLine(params, 1);
    struct stat status {};
    if (!StatPath(path, status) || !S_ISREG(status.st_mode)) {
        return reply.Start("301", "File doesn`t exist");
    }
    int64_t limit = ToInt64(GetLine(params, 3));
    if (limit > 0 && limit < status.st_size) {
        reply.Start("200");
        return reply.AppendFormatted("File size %d MB", static_cast<int>(status.st_size >> 20));
    }
    VyString value;
    std::string_view errorText;
    auto algorithm = static_cast<HashAlgorithm>(ToInt(GetLine(params, 2)));
    if (!HashFile(path, algorithm, value, errorText)) return reply.Start("301", errorText);
    reply.Start("200", value);
}

}  // namespace zot
