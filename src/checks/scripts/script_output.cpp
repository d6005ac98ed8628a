#include "checks/scripts/script_output.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <limits>
#include <memory>

#include "base/files.h"
#include "base/peer_watch.h"

namespace zot {

bool ScriptOutput::Open(const char* path) {
    // The script controls what is there now: no link is followed.
    struct stat ignored {};
    UniqueFd fd = OpenRegularFile(path, ignored, O_NOFOLLOW);
    if (!fd) return false;
    file_.reset(fdopen(fd.Get(), "r"));
    if (file_) fd.Release();
    return file_ != nullptr;
}

bool ScriptOutput::NextLine(std::string_view& line) {
    if (std::fgets(buffer_, sizeof buffer_, file_.get()) == nullptr) return false;
    line = buffer_;
    return !WorksInVain(line.size());
}

bool ScriptOutput::ReadInt(int& value) {
    const char* word = FirstWord();
    char* end = nullptr;
    long number = std::strtol(word, &end, 10);
    using Limits = std::numeric_limits<int>;
    value = static_cast<int>(std::clamp<long>(number, Limits::min(), Limits::max()));
    return end != word;
}

bool ScriptOutput::ReadFloat(float& value) {
    const char* word = FirstWord();
    char* end = nullptr;
    value = std::strtof(word, &end);
    return end != word;
}

const char* ScriptOutput::FirstWord() {
    int c = std::getc(file_.get());
    while (std::isspace(c) != 0) c = std::getc(file_.get());
    size_t length = 0;
    for (; c != EOF && std::isspace(c) == 0 && length < sizeof buffer_ - 1;
         c = std::getc(file_.get())) {
        buffer_[length++] = static_cast<char>(c);
    }
    buffer_[length] = '\0';
    return buffer_;
}

}  // namespace zot
