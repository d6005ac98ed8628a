// A save writes a second file: its content is complete and on the disk, with the owner and the
// permissions of the old file, before one rename puts it in place. Whenever the process or the
// machine stops, the configuration path leads to a whole file.
#include "config/config_save.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "base/files.h"
#include "base/loose_ends.h"
#include "base/owners.h"
#include "base/vystring.h"
#include "config/config_file.h"
#include "config/config_keys.h"
#include "config/config_lines.h"
#include "config/settings.h"

namespace zot {
namespace {

constexpr std::string_view kPasswordNotWhole = "Password does not fit into the configuration file";

// A file under construction, removed unless Keep is called.
class NewFile {
  public:
    explicit NewFile(VyString path)
        : path_(std::move(path)), buffer_(VyString::Fixed(kBufferSize)) {}
    ~NewFile() {
        buffer_.Wipe();
        if (fd_ && !kept_) unlink(path_.Terminate());
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    const VyString& Path() const { return path_; }

    // Creates the file for its owner alone, replacing one that an interrupted save left.
    bool Create() {
        fd_ = CreateAnew(path_.Terminate());
        return static_cast<bool>(fd_);
    }

    void Append(std::string_view text) {
        if (text.size() > kBufferSize - buffer_.View().size()) Flush();
        buffer_.Append(text);
    }

    // Completes the file on the disk, with owner, group and permissions like those given. False if
    // any part of that, or an earlier write, failed.
    bool Finish(const struct stat& like) {
        Flush();
        return intact_ && TakeOwnership(like) && fsync(fd_.Get()) == 0;
    }

    void Keep() { kept_ = true; }

  private:
    static constexpr size_t kBufferSize = 4096;  // a line and its line end fit

    void Flush() {
        intact_ = intact_ && WriteAll(fd_.Get(), buffer_);
        buffer_.Clear();
    }

    bool TakeOwnership(const struct stat& like) {
        mode_t mode = like.st_mode & 07777;
        if (fchown(fd_.Get(), like.st_uid, like.st_gid) != 0 &&
            fchown(fd_.Get(), static_cast<uid_t>(-1), like.st_gid) != 0) {
            // The group's bits would now let in other people than before.
            mode &= 0700;
        }
        return fchmod(fd_.Get(), mode) == 0;
    }

    VyString path_;
    VyString buffer_;
    UniqueFd fd_;
    bool intact_ = true;
    bool kept_ = false;
};

// Appends at most `room` bytes of a value. A line end in it becomes a blank, or a value could bring
// settings of its own; a NUL ends the value, as it does on reading.
void AppendValue(VyString& line, std::string_view value, size_t room) {
    value = value.substr(0, value.find('\0')).substr(0, room);
    for (size_t at; (at = value.find('\n')) != std::string_view::npos;) {
        line.Append(value.substr(0, at));
        line.Append(' ');
        value.remove_prefix(at + 1);
    }
    line.Append(value);
}

// The same for a list of addresses, of which only whole items are written: the beginning of an
// address would let in others.
void AppendWholeItems(VyString& line, std::string_view list, std::string_view separators,
                      size_t room) {
    list = list.substr(0, list.find('\0'));
    if (list.size() > room) {
        size_t end = list.find_last_of(separators, room);
        list = list.substr(0, end == std::string_view::npos ? 0 : end);
    }
    AppendValue(line, list, room);
}

// Appends the value of a key to the line, up to the limit of a line: anything beyond would be read
// as a line of its own.
void AppendSetting(VyString& line, const ConfigKey& key, const AgentSettings& settings) {
    size_t room = kMaxConfigLine - line.View().size();
    switch (key.kind) {
        case ConfigKind::kString:
            AppendValue(line, settings.*key.text, room);
            break;
        case ConfigKind::kAddressList:
            AppendWholeItems(line, settings.*key.text, ",", room);
            break;
        case ConfigKind::kFilterList:
            AppendWholeItems(line, (settings.*key.text).ReplaceAll("\r\n", " ", true), " \n", room);
            break;
        case ConfigKind::kFlag:
            AppendValue(line, settings.*key.flag ? "1" : "0", room);
            break;
        case ConfigKind::kNumber:
        case ConfigKind::kPort: {
            std::array<char, 12> digits{};
            std::to_chars(digits.data(), digits.data() + digits.size(), settings.*key.number);
            AppendValue(line, digits.data(), room);
            break;
        }
    }
}

// Turns settings into lines of the file, and remembers which it has written.
class LineRewriter {
  public:
    explicit LineRewriter(const AgentSettings& settings)
        : settings_(settings), line_(VyString::Fixed(kMaxConfigLine + 2)) {}
    ~LineRewriter() { line_.Wipe(); }
    LineRewriter(const LineRewriter&) = delete;
    LineRewriter& operator=(const LineRewriter&) = delete;

    // The line of the old file with the current value; unchanged if it holds no saved setting.
    std::string_view Rewrite(std::string_view line) {
        line_ = line;
        ConfigLine parts;
        const ConfigKey* key = SplitConfigLine(line, parts) ? FindConfigKey(parts.key) : nullptr;
        if (key != nullptr && key->save != SaveRule::kNever) {
            Written(*key) = true;
            if (key->kind == ConfigKind::kFlag && !parts.value.empty()) {
                // The mark replaces one character, so "yes" becomes "1es". Only the first character
                // counts on reading, and a remark may follow.
                line_.Set(static_cast<int32_t>(parts.valueAt) + 1,
                          settings_.*key->flag ? '1' : '0');
            } else {
                line_.Cut(static_cast<int32_t>(parts.valueAt));
                AppendValueOf(*key);
            }
        }
        if (line_.At(line_.Length()) != '\n') line_.Append("\r\n");
        return line_;
    }

    // The next line to append: the first setting that belongs in the file and is not yet written.
    // False when there is none.
    bool NextMissing(std::string_view& line) {
        for (const ConfigKey& key : ConfigKeys()) {
            if (key.save != SaveRule::kAlways || Written(key)) continue;
            Written(key) = true;
            line_ = key.name;
            line_.Append('=');
            AppendValueOf(key);
            line_.Append("\r\n");
            line = line_;
            return true;
        }
        return false;
    }

    // Whether every line written so far with the password holds all of it.
    bool PasswordIsWhole() const { return passwordIsWhole_; }

  private:
    void AppendValueOf(const ConfigKey& key) {
        size_t at = line_.View().size();
        AppendSetting(line_, key, settings_);
        if (key.text != &AgentSettings::password) return;
        passwordIsWhole_ = passwordIsWhole_ && line_.View().substr(at) == settings_.password.View();
    }
    std::vector<bool>::reference Written(const ConfigKey& key) {
        return written_[static_cast<size_t>(&key - ConfigKeys().data())];
    }

    const AgentSettings& settings_;
    VyString line_;
    bool passwordIsWhole_ = true;
    std::vector<bool> written_ = std::vector<bool>(ConfigKeys().size());
};

// Keeps the current file under the name `old` and puts the new one in its place. With the hard link
// the path always leads to a file; where there are no links, two renames do.
bool PutInPlace(const char* fresh, const char* path, const char* old) {
    unlink(old);
    bool moved = linkat(AT_FDCWD, path, AT_FDCWD, old, 0) != 0 && rename(path, old) == 0;
    if (rename(fresh, path) == 0) return true;
    if (moved) rename(old, path);
    return false;
}

// Makes the renames in a file's directory permanent. File systems that cannot do that do not need
// it.
void SyncDirectoryOf(std::string_view path) {
    VyString directory = path.substr(0, path.rfind('/') + 1);
    if (directory.Empty()) directory = ".";
    UniqueFd fd(open(directory.Terminate(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd) fsync(fd.Get());
}

bool Fail(VyString& errorText, std::string_view what, std::string_view path) {
    errorText = what;
    errorText.Append(" configuration file '");
    errorText.Append(path);
    errorText.Append('\'');
    return false;
}

}  // namespace

bool SaveConfigLocked(SettingsStore& store, const std::function<void(AgentSettings&)>& change,
                      VyString& errorText) {
    // The end of the agent leaves no half of it behind.
    Making making;
    return store.Change([&](AgentSettings& settings) {
        if (!settings.loadError.Empty()) {
            errorText = VyString::Concat("Settings cannot be saved before they are loaded again: ",
                                         settings.loadError);
            return false;
        }
        const AgentSettings before = settings;
        change(settings);
        bool saved = SaveConfig(settings, errorText);
        if (errorText == kPasswordNotWhole) settings = before;
        return saved;
    });
}

bool SaveConfig(AgentSettings& settings, VyString& errorText) {
    errorText.Clear();
    PostProcessConfig(settings, errorText);
    const char* path = settings.configPath;
    if (*path == '\0') {
        errorText = "Configuration file is not specified";
        return false;
    }
    ConfigReader current;
    struct stat like {};
    if (!current.Open(path) || fstat(current.Descriptor(), &like) != 0) {
        return Fail(errorText, "Cannot open", path);
    }
    NewFile fresh(VyString::Concat(path, ".New"));
    if (!fresh.Create()) return Fail(errorText, "Cannot create new", fresh.Path());

    LineRewriter rewriter(settings);
    for (std::string_view line; current.Next(line);) fresh.Append(rewriter.Rewrite(line));
    if (current.Failed()) return Fail(errorText, "Cannot open", path);
    for (std::string_view line; rewriter.NextMissing(line);) fresh.Append(line);
    if (!rewriter.PasswordIsWhole()) {
        // The next start would read a different password and lock the server out.
        errorText = kPasswordNotWhole;
        return false;
    }
    if (!fresh.Finish(like)) return Fail(errorText, "Cannot create new", fresh.Path());

    if (!PutInPlace(fresh.Path().Data(), path, VyString::Concat(path, ".Old").Terminate())) {
        return Fail(errorText, "Cannot overwrite", path);
    }
    fresh.Keep();
    SyncDirectoryOf(path);
    return true;
}

}  // namespace zot
