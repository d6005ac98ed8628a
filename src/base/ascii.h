// ASCII classes and folding. The C library's own follow the locale and take int; these do neither.
#pragma once

namespace zot {

constexpr char LowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }

constexpr bool IsAlnum(char c) {
    return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

}  // namespace zot
