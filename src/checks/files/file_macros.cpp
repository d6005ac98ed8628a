#include "checks/files/file_macros.h"

#include <cstdint>
#include <cstring>

#include "checks/files/directory.h"
#include "checks/files/directory_iterator.h"

namespace zot {
namespace {

struct Macro {
    std::string_view name;
    FindOptions::Kinds kinds;
    bool newest;
};

constexpr Macro kMacros[] = {
    {"%newestfile%", FindOptions::Kinds::kNoDirectories, true},
    {"%oldestfile%", FindOptions::Kinds::kNoDirectories, false},
    {"%newestfolder%", FindOptions::Kinds::kDirectories, true},
    {"%oldestfolder%", FindOptions::Kinds::kDirectories, false},
};

// The leftmost macro in the text, with its 0-based offset; null when there is none.
const Macro* FindMacro(std::string_view text, size_t& offset) {
    const Macro* found = nullptr;
    for (const Macro& macro : kMacros) {
        auto position = static_cast<size_t>(FindInBufferNoCase(text, macro.name));
        if (position == 0 || (found != nullptr && position > offset)) continue;
        found = &macro;
        offset = position - 1;
    }
    return found;
}

bool IsDots(const char* name) { return !std::strcmp(name, ".") || !std::strcmp(name, ".."); }

// The name that the macro stands for in the folder; empty without a candidate.
VyString Choose(const Macro& macro, std::string_view folder) {
    FindRecord record;
    VyString chosen;
    int32_t chosenTime = 0;
    bool more = FindFirst(folder, "*", kFindAll, record, {macro.kinds, false});
    for (; more; more = FindNext(record)) {
        if (IsDots(record.name)) continue;
        // Times are compared in 32 bits, here as everywhere in the agent.
        auto time = static_cast<int32_t>(record.mtime);
        bool better = macro.newest ? time > chosenTime : time < chosenTime;
        if (!chosen.Empty() && !better) continue;
        chosen = record.name;
        chosenTime = time;
    }
    // One of the entries that were not read may be newer.
    return record.directory.IsIncomplete() ? VyString() : chosen;
}

}  // namespace

VyString ResolveFileMacros(std::string_view text) {
    VyString resolved;
    std::string_view rest = text;
    size_t offset = 0;
    while (const Macro* macro = FindMacro(rest, offset)) {
        resolved.Append(rest.substr(0, offset));
        rest.remove_prefix(offset + macro->name.size());
        VyString name = Choose(*macro, resolved);
        if (name.Empty()) return text;
        resolved.Append(name);
    }
    resolved.Append(rest);
    return resolved;
}

}  // namespace zot
