#include "checks/files/directory_iterator.h"

#include <sys/stat.h>

#include <cstring>

#include "checks/files/path.h"

namespace zot {
namespace {

// The attributes that follow from name and kind; an unknown kind adds none.
int32_t KnownAttributes(const DirectoryEntry& entry) {
    int32_t attributes = entry.IsHidden() ? kAttrHidden : 0;
    switch (entry.kind) {
        case EntryKind::kDirectory:
            return attributes | kAttrDirectory;
        case EntryKind::kLink:
            return attributes | kAttrLink | kAttrSystem;
        case EntryKind::kSpecial:
            return attributes | kAttrSystem;
        default:
            return attributes;
    }
}

bool IsWanted(FindOptions::Kinds kinds, EntryKind kind) {
    if (kinds == FindOptions::Kinds::kAll || kind == EntryKind::kUnknown) return true;
    return (kind == EntryKind::kDirectory) == (kinds == FindOptions::Kinds::kDirectories);
}

// What name and kind alone can decide, before or after the lstat.
bool IsCandidate(const FindRecord& record, const DirectoryEntry& entry) {
    return IsWanted(record.options.kinds, entry.kind) &&
           (KnownAttributes(entry) & record.exclusion) == 0;
}

bool Accept(FindRecord& record, DirectoryEntry& entry) {
    if (!record.mask.Matches(entry.name) || !IsCandidate(record, entry)) return false;
    if (!record.directory.Look(entry) || !IsCandidate(record, entry)) return false;
    record.attributes = KnownAttributes(entry);
    bool readOnlyDecides = (record.exclusion & kAttrReadOnly) != 0;
    if ((readOnlyDecides || record.options.reportReadOnly) &&
        !record.directory.IsWritable(entry.name)) {
        record.attributes |= kAttrReadOnly;
    }
    return (record.attributes & record.exclusion) == 0;
}

}  // namespace

bool FindFirst(std::string_view directory, std::string_view mask, int32_t attributeMask,
               FindRecord& record, FindOptions options) {
    record.exclusion = ~(attributeMask & kFindAll);
    record.mask = NameMask(mask);
    record.options = options;
    if (!record.directory.Open(directory)) return false;
    bool found = FindNext(record);
    if (!found) record.directory.Close();
    return found;
}

bool FindNext(FindRecord& record) {
    DirectoryEntry entry;
    while (record.directory.Next(entry)) {
        if (!Accept(record, entry)) continue;
        record.mtime = entry.status.st_mtime;
        record.changeTime = entry.status.st_ctime;
        record.size = entry.status.st_size;
        record.mode = static_cast<uint16_t>(entry.status.st_mode);
        std::strncpy(record.name, entry.name, sizeof record.name - 1);
        return true;
    }
    return false;
}

VyString FindWildcardFile(std::string_view path) {
    FindRecord record;
    std::string_view folder = DirectoryPart(path);
    if (!FindFirst(folder, NamePart(path), kFindNoDirectories, record)) return {};
    if (record.directory.IsIncomplete()) return {};  // an entry before it may be the first
    return VyString::Concat(folder, record.name);
}

}  // namespace zot
