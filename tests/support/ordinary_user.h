// Runs a piece of a test without the rights of root, for whom no permission bit counts.
#pragma once

#include <functional>
#include <string>

namespace zot::test {

// Runs `work` in a child process as an ordinary user and returns what it returned. When the tests
// themselves run as one, the child simply keeps that user.
std::string AsOrdinaryUser(const std::function<std::string()>& work);

}  // namespace zot::test
