// The agent under test with a library loaded into it that moves its clock or breaks its calls.
#pragma once

#include <string>
#include <vector>

#include "tests/preload/faults.h"
#include "tests/support/temp_dir.h"

namespace zot::test {

class FaultInjection {
  public:
    FaultInjection();
    ~FaultInjection();
    FaultInjection(const FaultInjection&) = delete;
    FaultInjection& operator=(const FaultInjection&) = delete;

    FaultControl* operator->() { return control_; }
    // What the agent's environment needs.
    std::vector<std::string> Environment() const;

  private:
    TempDir dir_;
    std::string path_;
    FaultControl* control_;
};

}  // namespace zot::test
