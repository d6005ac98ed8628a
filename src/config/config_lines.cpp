#include "config/config_lines.h"

#include <sys/stat.h>

#include <algorithm>
#include <memory>

#include "base/files.h"

namespace zot {
namespace {

constexpr size_t kStreamBufferSize = 4096;

// The text without leading bytes of the one set and trailing bytes of the other.
std::string_view Strip(std::string_view text, std::string_view front, std::string_view back) {
    text.remove_prefix(std::min(text.find_first_not_of(front), text.size()));
    return text.substr(0, text.find_last_not_of(back) + 1);
}

}  // namespace

ConfigReader::ConfigReader()
    : streamBuffer_(VyString::Fixed(kStreamBufferSize)),
      line_(VyString::Fixed(kMaxConfigLine + 1)) {}

ConfigReader::~ConfigReader() {
    file_.reset();
    streamBuffer_.Wipe();
    line_.Wipe();
}

bool ConfigReader::Open(const char* path) {
    struct stat ignored {};
    UniqueFd fd = OpenRegularFile(path, ignored);
    file_.reset(fd ? fdopen(fd.Get(), "r") : nullptr);
    if (file_ != nullptr) {
        fd.Release();
        setvbuf(file_.get(), streamBuffer_.Data(), _IOFBF, streamBuffer_.Capacity());
    }
    return file_ != nullptr;
}

bool ConfigReader::Next(std::string_view& line) {
    if (fgets(line_.Data(), static_cast<int>(line_.Capacity()), file_.get()) == nullptr) {
        return false;
    }
    line = line_.Data();
    return true;
}

bool SplitConfigLine(std::string_view line, ConfigLine& parts) {
    // Only the very first character starts a comment; after a blank it is part of a key.
    if (line.empty() || line.front() == '#' || line.front() == ';') return false;
    size_t equals = line.find('=');
    if (equals == std::string_view::npos) return false;
    parts.key = Strip(line.substr(0, equals), " \t", " \t");
    parts.valueAt = std::min(line.find_first_not_of(" \t", equals + 1), line.size());
    parts.value = Strip(line.substr(parts.valueAt), "", "\t\n\r ");
    return true;
}

}  // namespace zot
