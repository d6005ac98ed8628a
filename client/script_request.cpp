#include "client/script_request.h"

#include <algorithm>

#include "base/escaping.h"
#include "base/numbers.h"
#include "base/vystring.h"
#include "client/local_file.h"

namespace zot::client {
namespace {

constexpr size_t kMaxScriptSize = size_t{1} << 20;
constexpr size_t kMaxArguments = 19;  // of the agent's 23 words
// The agent's words have room for 1024 bytes, including the path of the script.
constexpr size_t kMaxArgumentsSize = 600;
constexpr int kOutputLines = 20;
constexpr std::string_view kResultMark = "scriptres:";
constexpr std::string_view kExitMark = "zotq-exit:";

// Nothing in a reply says how the script ended, so a shell runs it and says so in the first line.
// The quotes are those of the agent's command line, which has no escapes.
constexpr std::string_view kRunAndTell =
    "/bin/sh -c 'o=$(\"$0\" \"$@\" 2>&1); echo \"zotq-exit:$?\"; printf \"%s\\n\" \"$o\"' "
    "\"%script%\"";

// One word of the agent's command line; false when no quotes can hold it.
bool AppendWord(const std::string& word, std::string& line) {
    char quote = word.find('"') == std::string::npos ? '"' : '\'';
    if (quote == '\'' && word.find('\'') != std::string::npos) return false;
    if (!line.empty()) line += ' ';
    line += quote + word + quote;
    return true;
}

}  // namespace

int ScriptSeconds(int limitMs) {
    constexpr int kReplySeconds = 2;
    return std::max(1, limitMs / 1000 - kReplySeconds);
}

bool ScriptParams(const std::string& file, std::span<const std::string> arguments, int seconds,
                  std::vector<std::string>& params, std::string& error) {
    std::string script, line;
    if (!ReadWholeFile(file, kMaxScriptSize, script, error)) return false;
    if (TrimView(script).empty()) {
        error = file + " is empty";
        return false;
    }
    if (arguments.size() > kMaxArguments) {
        error = "the agent takes at most " + std::to_string(kMaxArguments) + " arguments";
        return false;
    }
    for (const std::string& argument : arguments) {
        if (AppendWord(argument, line)) continue;
        error = "the agent takes no argument with both kinds of quotes: " + argument;
        return false;
    }
    if (line.size() > kMaxArgumentsSize) {
        error = "the arguments are longer than the agent takes";
        return false;
    }
    // Without arguments their line must still not be empty, but nothing refers to it.
    params = {std::string(kRunAndTell) + (line.empty() ? "" : " %params%"), script,
              line.empty() ? "0" : line, std::to_string(seconds), std::to_string(kOutputLines + 1)};
    return true;
}

bool ReadScriptResult(const Answer& answer, ScriptResult& result) {
    if (answer.lines.size() < 2) return false;
    std::string line(TrimView(Unescape(answer.lines[0]).View()));
    result.output = Unescape(answer.lines[1]).View();
    if (result.output.starts_with(kExitMark)) {
        result.exitCode = ToInt(result.output.substr(kExitMark.size()));
        result.output.erase(0, std::min(result.output.find('\n'), result.output.size() - 1) + 1);
    }
    if (line.starts_with(kExitMark)) line.clear();  // it printed nothing
    if (line.starts_with(kResultMark))
        line = TrimView(std::string_view(line).substr(kResultMark.size()));
    result.line = std::move(line);
    return true;
}

}  // namespace zot::client
