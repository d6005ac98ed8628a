// What one program of the agent hands to the next across an exec: the claim to the port, and word
// to the guard of an upgrade. It travels as one variable of the environment that names descriptors.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "base/owners.h"

namespace zot {

// What this program was handed, if anything.
class HandOver {
  public:
    // Takes the variable out of `envp`, which execve has filled: nobody else is to see it.
    explicit HandOver(char** envp);

    // Whether the port may be reserved for this program, so that it must be opened beside the
    // reserve.
    bool Expected() const { return expected_; }

    // What was handed over and must stay open until then; -1 for what was not.
    std::array<int, 2> Descriptors() const { return {reserve_.Get(), guard_.Get()}; }

    // The agent listens: gives up the reserve, and tells the guard and waits until it is gone, so
    // that whoever is served finds the upgrade done.
    void Complete() noexcept;

  private:
    bool expected_ = false;
    UniqueFd reserve_;
    UniqueFd guard_;
};

// The environment for the next program: `envp` and the variable that names the descriptors, -1 for
// none. They must be open beyond exec when it comes to it.
class HandOverEnvironment {
  public:
    HandOverEnvironment(char** envp, int reserve, int guard);

    char** Variables() { return variables_.data(); }
    // "NAME=VALUE", not the same for any two hand-overs.
    const char* Entry() const { return entry_.c_str(); }

  private:
    std::string entry_;
    std::vector<char*> variables_;
};

// Lets the next program have the descriptor. Async-signal-safe.
void LeaveOpen(int descriptor) noexcept;

// Whether the program in the file takes what is handed to it. One that does not must find its port
// free.
bool TakesHandOver(const char* path);

}  // namespace zot
