#include <time.h>

#include <cstdint>
#include <string_view>

#include "base/vystring.h"
#include "checks/files/directory_iterator.h"
#include "checks/files/file_checks.h"
#include "checks/files/parameters.h"
#include "checks/files/path.h"
#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request_text.h"

namespace zot {
namespace {

// What each entry reports besides name and attributes.
struct Columns {
    bool size;
    bool changeTime;
    bool modificationTime;

    int32_t LinesPerEntry() const { return 2 + size + changeTime + modificationTime; }
};

// The lines of the entries listed so far.
class Listing {
  public:
    explicit Listing(Columns columns) : columns_(columns) {}

    // Adds the entries of the folder; none if it cannot be listed.
    void AddFolder(std::string_view folder, std::string_view mask, int32_t attributeMask,
                   FindOptions::Kinds kinds);
    int32_t Count() const { return count_; }
    std::string_view Lines() const { return lines_.Text(); }

  private:
    void AddEntry(const FindRecord& record);

    Columns columns_;
    Reply lines_;
    int32_t count_ = 0;
};

void Listing::AddFolder(std::string_view folder, std::string_view mask, int32_t attributeMask,
                        FindOptions::Kinds kinds) {
    FindRecord record;
    bool more = FindFirst(folder, mask, attributeMask, record, {kinds, true});
    for (; more; more = FindNext(record)) {
        bool isSelf = record.name[0] == '.' && record.name[1] == '\0';
        if (!isSelf) AddEntry(record);
    }
}

void Listing::AddEntry(const FindRecord& record) {
    lines_.AppendLine(record.name, Escaping::kLineBreaks);
    lines_.AppendInt(record.attributes);
    if (columns_.size) lines_.AppendInt64(record.size);
    if (columns_.changeTime) lines_.AppendLocalTime(static_cast<time_t>(record.changeTime));
    if (columns_.modificationTime) lines_.AppendLocalTime(static_cast<time_t>(record.mtime));
    ++count_;
}

// The folder to list, with its trailing "/".
VyString ListedFolder(std::string_view path) {
    if (!path.empty() && path.back() != '/' && !MayBeDirectory(path)) path = DirectoryPart(path);
    return WithSlash(path);
}

}  // namespace

void GetFilesList(std::string_view params, const AgentSettings& /*settings*/, Reply& reply) {
    VyString folder = ListedFolder(GetLine(params, 1));
    std::string_view mask = GetLine(params, 2);
    if (mask.empty()) mask = "*";
    int32_t attributeMask = kFindAll;
    if (!FlagLine(params, 5)) attributeMask -= kAttrHidden;
    if (!FlagLine(params, 6)) attributeMask -= kAttrSystem;
    Columns columns{FlagLine(params, 7), FlagLine(params, 8), FlagLine(params, 9)};

    Listing listing(columns);
    if (FlagLine(params, 3)) {
        listing.AddFolder(folder, "*", attributeMask, FindOptions::Kinds::kDirectories);
    }
    if (FlagLine(params, 4)) {
        listing.AddFolder(folder, mask, attributeMask, FindOptions::Kinds::kNoDirectories);
    }
    reply.Start("200");
    reply.AppendLine(folder, Escaping::kLineBreaks);
    reply.AppendInt(listing.Count());
    reply.AppendInt(columns.LinesPerEntry());
    reply.AppendRaw(listing.Lines());
}

}  // namespace zot
