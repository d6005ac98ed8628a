#include "base/escaping.h"

#include <cstddef>

namespace zot {

void AppendEscaped(VyString& result, std::string_view text) {
    for (size_t at; (at = text.find_first_of("\r\n")) != std::string_view::npos;
         text.remove_prefix(at + 1)) {
        result.Append(text.substr(0, at));
        result.Append(text[at] == '\n' ? "%0A" : "%0D");
    }
    result.Append(text);
}

VyString Escape(std::string_view text) {
    VyString result;
    AppendEscaped(result, text);
    return result;
}

VyString Unescape(std::string_view text) {
    VyString result;
    for (size_t at; (at = text.find("%0")) != std::string_view::npos;) {
        char code = at + 2 < text.size() ? text[at + 2] : '\0';
        result.Append(text.substr(0, at));
        if (code == 'A' || code == 'D') {
            result.Append(code == 'A' ? '\n' : '\r');
            text.remove_prefix(at + 3);
        } else {
            result.Append("%0");
            text.remove_prefix(at + 2);
        }
    }
    result.Append(text);
    return result;
}

}  // namespace zot
