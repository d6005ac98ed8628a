// Address lists and the connection filter: the first four bytes are the address, the rest is the
// list.
#include <cstdint>
#include <cstring>

#include "config/ip_filter.h"
#include "config/log.h"
#include "fuzz/scratch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zot;
    uint32_t address = 0;
    if (size < sizeof address) return 0;
    std::memcpy(&address, data, sizeof address);
    std::string_view list(reinterpret_cast<const char*>(data) + sizeof address,
                          size - sizeof address);
    VyString errorText;
    bool admitted = IpInList(address, list, errorText);

    // Further items after a list change nothing for an address that it already admits.
    char text[24];
    AddressToText(address, text, sizeof text);
    VyString longer = VyString::Concat(list, ",");
    longer.Append(text);
    if (admitted) fuzz::Require(IpInList(address, longer, errorText));
    // A list that begins with the address admits it, except for the two that no list can name.
    longer = VyString::Concat(text, ",");
    longer.Append(list);
    if (address != 0 && address != UINT32_MAX) {
        fuzz::Require(IpInList(address, longer, errorText));
    }

    AgentSettings settings;
    settings.filterActive = true;
    settings.activeFilter = list;
    bool found = list.find(text) != std::string_view::npos;
    fuzz::Require(ConnectionPermitted(settings, text) == found);
    return 0;
}
