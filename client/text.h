// Text for people: sentences, and numbers without exponent in any locale.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace zot::client {

// The parts joined.
std::string Concat(std::initializer_list<std::string_view> parts);

// Reads an optional sign and digits with at most one point among them, as the whole text.
bool ParseDecimal(std::string_view text, double& value);

// The first number in the text, so that "load 1.5" and "12%" count as numbers; false when there is
// none.
bool FindDecimal(std::string_view text, double& value);

// Whole numbers without a fraction, others with at most `decimals` digits of it.
std::string FormatDecimal(double value, int decimals = 2);

// How many decimals the performance data have: as many as a range can distinguish.
constexpr int kDataDecimals = 6;

// "1 file", "2 files".
std::string Count(double number, std::string_view one, std::string_view many);

// "3 ms", "2.5 s", "12 min", "3.5 h", "20 d".
std::string FormatSeconds(double seconds);

// The text in a form that a terminal may show: control characters as "\\x1B", bytes that are not
// UTF-8 as U+FFFD. Line ends stay if `keepLines`.
std::string Visible(std::string_view text, bool keepLines = false);
// Valid UTF-8: each byte that is not part of a well-formed character becomes U+FFFD.
std::string ValidUtf8(std::string_view text);
// The length of the character at the front of a text that is not empty, 0 when it is not
// well-formed (RFC 3629).
size_t CharacterSize(std::string_view text);
// JSON with the controls escaped that its writers leave: DEL, and those from U+0080 to U+009F.
std::string WithoutControls(std::string_view json);
// How many columns the text takes on a terminal, one for each character.
size_t Width(std::string_view text);

// Two columns for a help text, the second filled up to the margin.
std::string HelpTable(std::span<const std::pair<std::string, std::string_view>> rows);

// Bytes as small hexadecimal digits.
std::string HexText(std::span<const uint8_t> bytes);

// Bytes with the binary unit that suits them: "512 B", "1.5 GiB".
std::string FormatBytes(double bytes);

}  // namespace zot::client
