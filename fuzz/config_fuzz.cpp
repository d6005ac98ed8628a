// The configuration file: any bytes are loaded, saved and loaded again. What a save has written
// must mean the same at the next load, and saving that again must not change a byte, unless a line
// fills the buffer for reading lines: then its line end is a line of its own.
#include <algorithm>
#include <cstdint>
#include <string>

#include "config/config_file.h"
#include "config/config_keys.h"
#include "config/config_lines.h"
#include "config/config_save.h"
#include "fuzz/scratch.h"

namespace {

using namespace zot;

// The settings as one text; without those that a save does not store.
std::string Saved(const AgentSettings& settings) {
    std::string text;
    for (const ConfigKey& key : ConfigKeys()) {
        if (key.save != SaveRule::kAlways) continue;
        text.append(key.name).append("=");
        text.append(
            key.text != nullptr
                ? (settings.*key.text).View()
                : std::to_string(key.flag != nullptr ? settings.*key.flag : settings.*key.number));
        text.append("\n");
    }
    return text;
}

size_t LongestLine(std::string_view text) {
    size_t longest = 0;
    while (!text.empty()) longest = std::max(longest, fuzz::TakeLine(text).size() + 1);
    return longest;
}

AgentSettings Load(const std::string& path) {
    AgentSettings settings;
    VyString(path).CopyToBuffer(settings.configPath, sizeof settings.configPath);
    VyString errorText;
    bool loaded = LoadConfig(settings, errorText);
    if (!loaded) fuzz::Require(!errorText.Empty());
    return settings;
}

std::string Save(AgentSettings& settings) {
    VyString errorText;
    // Only what follows a usable path can be saved; the warning about the filter is not a failure.
    fuzz::Require(SaveConfig(settings, errorText));
    return fuzz::Scratch::Read(settings.configPath);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const fuzz::Scratch scratch;
    static const std::string path = scratch / "zot.cfg";
    fuzz::Scratch::Write(path, {reinterpret_cast<const char*>(data), size});
    AgentSettings first = Load(path);
    Save(first);
    AgentSettings second = Load(path);
    std::string once = Save(second);
    AgentSettings third = Load(path);
    fuzz::Require(Saved(third) == Saved(second));
    if (LongestLine(once) < kMaxConfigLine) fuzz::Require(Save(third) == once);
    return 0;
}
