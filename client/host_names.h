// Sets of host names as people write them, "web[1-10],db1", and back.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zot::client {

// Splits at the commas outside brackets and replaces each bracket by its numbers and words:
// "web[08-10,x]" is web08, web09, web10 and webx. False with the error text when a bracket is not
// closed or not understood, or for more than 100,000 names.
bool ExpandNames(std::string_view text, std::vector<std::string>& names, std::string& error);

// The same names in the shortest such form, with names that have one number in a row joined:
// "db1,web[1-8]". Keeps the order in which the names first appear.
std::string FoldNames(std::span<const std::string> names);

}  // namespace zot::client
