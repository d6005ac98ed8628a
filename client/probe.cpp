#include "client/probe.h"

#include <algorithm>

#include "base/escaping.h"
#include "base/numbers.h"
#include "base/vystring.h"

namespace zot::client {
namespace {

std::string_view NamePart(std::string_view path) { return path.substr(path.rfind('/') + 1); }

std::string_view FolderPart(std::string_view path) {
    size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? "" : path.substr(0, slash + 1);
}

bool IsMask(std::string_view name) { return name.find_first_of("*?[") != std::string_view::npos; }

std::vector<std::string_view> WordsOf(std::string_view line) {
    std::vector<std::string_view> words;
    while (true) {
        line = TrimView(line);
        if (line.empty()) return words;
        size_t end = std::min(line.find(' '), line.size());
        words.push_back(line.substr(0, end));
        line.remove_prefix(end);
    }
}

// "sshd" from "/usr/sbin/sshd", "sshd:" and "-sshd".
std::string_view ProgramName(std::string_view word) {
    word = NamePart(word);
    if (word.starts_with('-')) word.remove_prefix(1);
    if (word.ends_with(':')) word.remove_suffix(1);
    return word;
}

// What the agent runs for its list of processes, and the process that asks for it.
bool IsOfTheQuestion(std::string_view line, const std::vector<std::string_view>& words) {
    if (line.find("zot_proclist") != std::string_view::npos) return true;
    // "-c" is that of older agents.
    if (line == "ps -A -ww -o args=" || line == "cut -b 1-500" || line == "cut -c 1-500")
        return true;
    // Also a shell that runs zotq with the name.
    return std::any_of(words.begin(), words.end(),
                       [](std::string_view word) { return ProgramName(word) == "zotq"; });
}

// `own` is the command line of the process that asks, whatever its program is called there.
int64_t CountIn(std::string_view list, const std::string& name, std::string_view own) {
    constexpr size_t kListedSize = 500;
    own = TrimView(own.substr(0, kListedSize));
    bool byProgram = name.starts_with('=');
    std::string_view wanted = std::string_view(name).substr(byProgram ? 1 : 0);
    int64_t count = 0;
    while (!list.empty()) {
        size_t end = std::min(list.find('\n'), list.size());
        std::string_view line = TrimView(list.substr(0, end));
        list.remove_prefix(std::min(end + 1, list.size()));
        auto words = WordsOf(line);
        if (words.empty() || line == own) continue;
        bool matches = byProgram ? ProgramName(words[0]) == wanted
                                 : line.find(wanted) != std::string_view::npos;
        // Somebody who asks for zotq by its name wants to know.
        bool asksForIt = byProgram && wanted == "zotq";
        if (matches && (asksForIt || !IsOfTheQuestion(line, words))) ++count;
    }
    return count;
}

}  // namespace

std::string QuotedForShell(std::string_view text) {
    std::string quoted = "'";
    for (char c : text) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted + "'";
}

SizeProbe::SizeProbe(std::string path) : path_(std::move(path)), isMask_(IsMask(NamePart(path_))) {}

std::optional<Question> SizeProbe::Next() {
    switch (step_) {
        case Step::kExists:
            return Question{"TEST-FileExists", {path_, "0", "0", "0", "0", "0", "1"}};
        case Step::kSize:
            return Question{"TEST-FolderSize", {path_, "1", "0", "0", "0", "0", "0", "1"}};
        case Step::kListFirst:
        case Step::kListAfter:
            // An existing folder lists at least the one above.
            return Question{"GetFilesList",
                            {isMask_ ? std::string(FolderPart(path_)) : path_ + "/", "*", "1", "1",
                             "1", "1", "0", "0", "0"}};
        case Step::kDone:
            break;
    }
    return {};
}

void SizeProbe::Take(const Answer& reply) {
    const bool good = reply.code == "200";
    const Answer gone = {"301", {"no such file or folder"}};
    switch (step_) {
        case Step::kExists:
            sure_ = good;
            step_ = Step::kSize;
            if (reply.code != "301") return;
            answer = gone;
            // A mask that matches no file at the top may match some below.
            step_ = isMask_ ? Step::kListFirst : Step::kDone;
            return;
        case Step::kSize: {
            answer = reply;
            bool nothing = good && !reply.lines.empty() && ToInt64(TrimView(reply.lines[0])) == 0;
            step_ = nothing && !sure_ ? Step::kListAfter : Step::kDone;
            return;
        }
        case Step::kListFirst:
        case Step::kListAfter: {
            bool empty = good && reply.lines.size() > 1 && ToInt64(TrimView(reply.lines[1])) == 0;
            if (empty) answer = gone;
            sure_ = true;
            step_ = empty || step_ == Step::kListAfter ? Step::kDone : Step::kSize;
            return;
        }
        case Step::kDone:
            return;
    }
}

std::optional<Question> ProcessProbe::Next() {
    if (step_ == Step::kList) return Question{"GetProcessesList", {}};
    if (step_ == Step::kCount) return Question{"TEST-Process", {"0", QuotedForShell(name_)}};
    return {};
}

void ProcessProbe::Take(const Answer& reply) {
    Step step = step_;
    step_ = Step::kDone;
    bool listed = step == Step::kList && reply.code == "200" && !reply.lines.empty();
    if (listed) {
        answer = {
            "200",
            {std::to_string(CountIn(Unescape(reply.lines[0]).View(), name_, ownCommandLine_))}};
        return;
    }
    answer = reply;
    if (step == Step::kList && reply.code == "301" && !name_.starts_with('=')) {
        step_ = Step::kCount;
        return;
    }
    bool ownCounted = step == Step::kCount && sameHost_ && reply.code == "200" &&
                      !reply.lines.empty() && ownCommandLine_.find(name_) != std::string::npos;
    if (!ownCounted) return;
    answer.lines[0] = std::to_string(std::max<int64_t>(ToInt64(TrimView(reply.lines[0])) - 1, 0));
}

}  // namespace zot::client
