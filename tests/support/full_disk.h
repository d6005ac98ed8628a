// For a test's own process: while one of these is alive, no file can be written.
#pragma once

#include <signal.h>
#include <sys/resource.h>

namespace zot::test {

class FullDisk {
  public:
    FullDisk() {
        signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &usual_);
        rlimit none = usual_;
        none.rlim_cur = 0;
        setrlimit(RLIMIT_FSIZE, &none);
    }
    ~FullDisk() { setrlimit(RLIMIT_FSIZE, &usual_); }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

  private:
    rlimit usual_{};
};

}  // namespace zot::test
