// Checks that need more than one question to be right: a folder that may be gone, and processes
// that must not count the question itself. Each says what to ask next until it knows.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/request_packet.h"

namespace zot::client {

struct Question {
    std::string command;
    std::vector<std::string> params;
};

class Probe {
  public:
    virtual ~Probe() = default;
    // What to ask now; nothing when the probe knows, or when the agent's answer settles it.
    virtual std::optional<Question> Next() = 0;
    // Takes any reply to it, even one that is not 200.
    virtual void Take(const Answer& reply) = 0;
    // Says whether the agent runs on this host.
    virtual void SetSameHost(bool) {}

    // The reply with the value, or the one that says why there is none.
    Answer answer;
};

// The size of what is in a folder. If the folder is gone the agent takes the path for a mask in the
// folder above: it would walk through all of that and find 0 bytes. So this first asks whether
// anything is there; if not, the answer is 301. Where the agent may not say (the check of files is
// switched off), it asks for a list of the folder if the sum is 0.
class SizeProbe : public Probe {
  public:
    explicit SizeProbe(std::string path);
    std::optional<Question> Next() override;
    void Take(const Answer& reply) override;

  private:
    enum class Step { kExists, kListFirst, kSize, kListAfter, kDone };

    std::string path_;
    bool isMask_;
    bool sure_ = false;  // that there is something
    Step step_ = Step::kExists;
};

// How many processes there are: those with `name` in their command line or, for "=NAME", those
// whose program is called NAME. Does not count runs of zotq and what the agent starts to answer.
// Where the agent has no list of processes its own count serves, which does not know "=NAME".
class ProcessProbe : public Probe {
  public:
    // `ownCommandLine` is that of the process that asks.
    ProcessProbe(std::string name, std::string ownCommandLine)
        : name_(std::move(name)), ownCommandLine_(std::move(ownCommandLine)) {}
    std::optional<Question> Next() override;
    void Take(const Answer& reply) override;
    // On this host the agent's own count includes the process that asks.
    void SetSameHost(bool sameHost) override { sameHost_ = sameHost; }

  private:
    enum class Step { kList, kCount, kDone };

    std::string name_;
    std::string ownCommandLine_;
    bool sameHost_ = false;
    Step step_ = Step::kList;
};

// The text as one word of a shell's command line, whatever it contains.
std::string QuotedForShell(std::string_view text);

}  // namespace zot::client
