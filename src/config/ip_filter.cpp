#include "config/ip_filter.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstddef>

namespace zot {
namespace {

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kMeaningful = "0123456789,-.";

void Report(VyString& errorText, std::string_view what, std::string_view text) {
    errorText = what;
    errorText.Append(text);
    errorText.Append(") specified");
}

// Gives the address in host byte order; false with `errorText` set if the text is not one.
bool ParseAddress(std::string_view text, uint32_t& address, VyString& errorText) {
    VyString copy(text);
    in_addr_t parsed = inet_addr(copy.Terminate());
    if (parsed == INADDR_NONE) {
        Report(errorText, "Invalid IP address (", text);
        return false;
    }
    address = ntohl(parsed);
    return true;
}

}  // namespace

bool ConnectionPermitted(const AgentSettings& settings, std::string_view addressText) {
    // This searches text, not entries: "10.0.0.15" also admits 10.0.0.1, and existing lists rely on
    // that.
    return !settings.filterActive || settings.activeFilter.Pos(addressText) != 0;
}

bool IpInList(uint32_t address, std::string_view list, VyString& errorText) {
    errorText.Clear();
    uint32_t wanted = ntohl(address);
    VyString kept;
    kept.Reserve(list.size());
    for (char c : list) {
        if (kMeaningful.find(c) != std::string_view::npos) kept.Append(c);
    }
    bool found = false;
    for (std::string_view rest = kept; !found;) {
        uint32_t first = 0;
        uint32_t last = 0;
        ParseIpItem(rest, first, last, errorText);
        if (first == 0) break;  // also for 0.0.0.0: the items after it are never reached
        if (last == 0) last = first;
        found = std::min(first, last) <= wanted && wanted <= std::max(first, last);
    }
    if (errorText.Empty()) {
        size_t at = list.find_first_not_of(kMeaningful);
        if (at != std::string_view::npos) {
            Report(errorText, "Illegal character (", list.substr(at, 1));
        }
    }
    return found;
}

void ParseIpItem(std::string_view& text, uint32_t& first, uint32_t& last, VyString& errorText) {
    first = 0;
    last = 0;
    size_t start = text.find_first_of(kDigits);
    if (start == std::string_view::npos) return;
    size_t end = std::min(text.find_first_of(",-", start), text.size());
    if (!ParseAddress(text.substr(start, end - start), first, errorText)) return;
    if (end + 1 < text.size() && text[end] == '-') {
        start = end + 1;
        end = std::min(text.find_first_of(",-", start), text.size());
        ParseAddress(text.substr(start, end - start), last, errorText);
    }
    text.remove_prefix(std::min(end + 1, text.size()));
}

}  // namespace zot
