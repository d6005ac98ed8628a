// Text for people: sentences, and numbers as they write them, without exponent and whatever the
// locale.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace zot::client {

// The parts one behind the other.
std::string Concat(std::initializer_list<std::string_view> parts);

// Reads an optional sign and digits with at most one point among them, as the whole text.
bool ParseDecimal(std::string_view text, double& value);

// The first number in the text, for which "load 1.5" and "12%" are enough of a number; false when
// there is none.
bool FindDecimal(std::string_view text, double& value);

// Whole numbers without a fraction, others with at most so many digits of it.
std::string FormatDecimal(double value, int decimals = 2);

// How many digits of a fraction the performance data have: those that a range may have been about.
constexpr int kDataDecimals = 6;

// "1 file", "2 files".
std::string Count(double number, std::string_view one, std::string_view many);

// Bytes with the binary unit that suits them: "512 B", "1.5 GiB".
std::string FormatBytes(double bytes);

}  // namespace zot::client
