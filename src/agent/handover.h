// What one program of the agent hands to the next across an exec: the claim to the port, and a line
// to the guard of an upgrade. One variable of the environment names the descriptors.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "base/owners.h"

namespace zot {

// What this program was handed, if anything.
class HandOver {
  public:
    // `envp` is what execve filled. The variable stays in it until then: by it the guard knows this
    // process.
    explicit HandOver(char** envp);

    // Whether the port may be reserved for this program, which must then open it beside the
    // reserve.
    bool Expected() const { return expected_; }

    // The descriptors that must stay open until then; -1 for those that were not handed over.
    std::array<int, 2> Descriptors() const { return {reserve_.Get(), guard_.Get()}; }

    // The agent listens: gives up the reserve, removes the variable, which nobody else is meant to
    // see, tells the guard and waits until it is gone, so that the upgrade is done before anybody
    // is served.
    void Complete() noexcept;

  private:
    char** variable_ = nullptr;
    bool expected_ = false;
    UniqueFd reserve_;
    UniqueFd guard_;
};

// The environment for the next program: `envp` and the variable that names the descriptors, -1 for
// none. They must be open beyond the exec.
class HandOverEnvironment {
  public:
    HandOverEnvironment(char** envp, int reserve, int guard);

    char** Variables() { return variables_.data(); }
    // "NAME=VALUE", different for every hand-over.
    const char* Entry() const { return entry_.c_str(); }

  private:
    std::string entry_;
    std::vector<char*> variables_;
};

// Lets the next program have the descriptor. Async-signal-safe.
void LeaveOpen(int descriptor) noexcept;

// Whether the program in the file takes a hand-over. One that does not must find its port free.
bool TakesHandOver(const char* path);

}  // namespace zot
