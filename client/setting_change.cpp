#include "client/setting_change.h"

#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <iostream>

#include "base/escaping.h"
#include "base/numbers.h"
#include "base/vystring.h"
#include "client/inventory.h"
#include "client/name_lookup.h"
#include "client/settings_reply.h"
#include "commands/remote_settings.h"
#include "config/ip_filter.h"

namespace zot::client {
namespace {

constexpr std::string_view kPassword = "Password";
constexpr std::string_view kAccessNames[] = {"IPFiltering",  "IPFilterAddr", "IPFilterMarks",
                                             "AllowRManage", "ManageAddr",   "UpdateAddr"};

// Whether `text` is a whole number from `min` to `max`.
bool IsNumber(std::string_view text, int64_t min, int64_t max) {
    int64_t value = 0;
    return ParseInt64(text, value) && value >= min && value <= max;
}

// What is wrong with a value that the agent would misread silently; empty when nothing is.
std::string_view ValueFault(const WireSetting& setting, std::string_view value) {
    constexpr int64_t kMaxPort = 65535;
    switch (setting.kind) {
        case WireKind::kFlag:
            return value == "0" || value == "1" ? "" : "must be 0 or 1";
        case WireKind::kNumber:
            if (setting.name == "Port") {
                return IsNumber(value, 1, kMaxPort) ? "" : "must be 1 to 65535";
            }
            // Timeout: below 0 it means without end.
            return IsNumber(value, INT32_MIN, INT32_MAX) ? "" : "must be a whole number";
        case WireKind::kText:
            if (value.find_first_of("\r\n") != std::string_view::npos) return "takes no line break";
            return setting.name == kPassword && value.empty() ? "must not be empty" : "";
        case WireKind::kEscapedText:
            break;
    }
    return "";
}

// Separates the entries of a list by both characters, whichever were given.
std::string WithFullLineBreaks(std::string_view value) {
    std::string result;
    for (char c : value) {
        if (c == '\n' && !result.ends_with('\r')) result += '\r';
        result += c;
    }
    return result;
}

// Hides what is typed next, if somebody types.
class HiddenInput {
  public:
    explicit HiddenInput(const Console& console)
        : typed_(&console.in == &std::cin && isatty(STDIN_FILENO) == 1 &&
                 tcgetattr(STDIN_FILENO, &before_) == 0) {
        if (!typed_) return;
        console.err << "new password: " << std::flush;
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &silent);
    }
    ~HiddenInput() {
        if (!typed_) return;
        tcsetattr(STDIN_FILENO, TCSANOW, &before_);
        std::cerr << std::endl;
    }

  private:
    termios before_ = {};
    bool typed_;
};

bool TakeNewPassword(const Console& console, std::string& value, std::string& error) {
    if (value == "-") {
        HiddenInput hidden(console);
        value.clear();
        std::getline(console.in, value);
        return true;
    }
    if (value.starts_with('@')) {
        bool ignored = false;
        return ReadPasswordFile(value.substr(1), value, ignored, error);
    }
    error =
        "others can see a command line: write Password=- and give it on standard input, or "
        "Password=@FILE";
    return false;
}

// The settings as they will be.
class Future {
  public:
    Future(const Answer& settings, const std::vector<SettingChange>& changes)
        : settings_(settings), changes_(changes) {}

    bool Changes(std::string_view name) const {
        return std::any_of(changes_.begin(), changes_.end(),
                           [name](const SettingChange& change) { return change.name == name; });
    }
    std::string Now(std::string_view name) const {
        for (const std::string& line : settings_.lines) {
            if (line.starts_with(name) && line.substr(name.size(), 1) == "=") {
                return line.substr(name.size() + 1);
            }
        }
        return {};
    }
    std::string Then(std::string_view name) const {
        std::string value = Now(name);
        for (const SettingChange& change : changes_) {
            if (change.name == name) value = change.value;
        }
        return value;
    }

  private:
    const Answer& settings_;
    const std::vector<SettingChange>& changes_;
};

bool IsFullAddress(const std::string& text) {
    in_addr address = {};
    return ParseAddress(text, address) && AddressText(address) == text;
}

std::string FilterFault(const Future& future, const std::string& ownAddress) {
    std::vector<std::string> entries = EntriesOf(future.Then("IPFilterAddr"));
    if (future.Changes("IPFilterAddr")) {
        for (const std::string& entry : entries) {
            if (!IsFullAddress(entry)) return "IPFilterAddr takes addresses only, not " + entry;
        }
    }
    if (future.Then("IPFiltering") != "1") return {};
    std::string marks = future.Then("IPFilterMarks");
    for (size_t i = 0; i < entries.size() && i < marks.size(); ++i) {
        // The agent compares text.
        if (marks[i] == '1' && entries[i].find(ownAddress) != std::string::npos) return {};
    }
    return "the filter would let in nobody from " + ownAddress + ", where you ask from";
}

bool IsInList(const std::string& ownAddress, const std::string& list) {
    in_addr own = {};
    VyString ignored;
    return ParseAddress(ownAddress, own) && IpInList(own.s_addr, list, ignored);
}

std::string ListFault(const Future& future, const char* name, const std::string& ownAddress) {
    VyString fault;
    std::string then = future.Then(name);
    if (future.Changes(name)) IpInList(INADDR_NONE, then, fault);
    if (then.find('/') != std::string::npos && !fault.Empty()) {
        return std::string(name) + " takes ranges such as 192.0.2.0-192.0.2.255, not " + then;
    }
    if (!fault.Empty()) return std::string(name) + ": " + std::string(fault.View());
    if (!IsInList(ownAddress, future.Now(name)) || IsInList(ownAddress, then)) {
        return {};
    }
    return std::string(name) + " would no longer name " + ownAddress + ", where you ask from";
}

}  // namespace

bool ReadChange(const Console& console, const std::string& word, SettingChange& change,
                std::string& error) {
    size_t equals = word.find('=');
    if (equals == std::string::npos) {
        error = "not NAME=VALUE: " + word;
        return false;
    }
    change.name = TrimView(std::string_view(word).substr(0, equals));
    change.value = TrimView(std::string_view(word).substr(equals + 1));
    const WireSetting* setting = FindWireSetting(change.name);
    if (!setting) {
        error = "no setting with the name " + change.name + "; there are:";
        const char* separator = " ";
        for (const WireSetting& known : WireSettings()) {
            error.append(separator).append(known.name);
            separator = ", ";
        }
        return false;
    }
    bool fromElsewhere = change.name == kPassword && !change.value.empty();
    if (fromElsewhere && !TakeNewPassword(console, change.value, error)) return false;
    std::string_view fault = ValueFault(*setting, change.value);
    if (!fault.empty()) {
        error = change.name + " " + std::string(fault);
        return false;
    }
    if (setting->kind == WireKind::kEscapedText) {
        change.value = Escape(WithFullLineBreaks(change.value)).View();
    }
    return true;
}

bool IsAboutAccess(std::string_view name) {
    return std::find(std::begin(kAccessNames), std::end(kAccessNames), name) !=
           std::end(kAccessNames);
}

std::string LockOut(const Answer& settings, const std::vector<SettingChange>& changes,
                    const std::string& ownAddress) {
    Future future(settings, changes);
    bool filter = future.Changes("IPFiltering") || future.Changes("IPFilterAddr") ||
                  future.Changes("IPFilterMarks");
    std::string fault = filter ? FilterFault(future, ownAddress) : "";
    for (const char* list : {"ManageAddr", "UpdateAddr"}) {
        if (fault.empty()) fault = ListFault(future, list, ownAddress);
    }
    if (fault.empty() && future.Changes("AllowRManage") && future.Then("AllowRManage") != "1") {
        fault = "AllowRManage=0 ends remote management, yours too";
    }
    return fault;
}

}  // namespace zot::client
