// Checks that take more than one question to be right: the folder of which nothing is left, and the
// process that is not the question about it. Each says what to ask next until it knows.
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
    // What to ask now; nothing when it is known, or when the agent's answer settles it.
    virtual std::optional<Question> Next() = 0;
    // Any reply to it, also one that is not 200.
    virtual void Take(const Answer& reply) = 0;
    // Tells whether the agent runs on the host that asks.
    virtual void SetSameHost(bool) {}

    // The reply that has the value, or the one that tells why there is none.
    Answer answer;
};

// The size of what is in a folder. To the agent a folder that is gone is a mask in the folder
// above: it would walk through all of that and find 0 bytes. So this asks first whether there is
// anything at all; if not, the answer is 301. Where the agent may not tell (the check of files is
// switched off), it asks for a list of the folder when the sum is 0.
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
// whose program is called NAME. Runs of zotq and what the agent starts to answer are not counted.
// Where the agent has no list of processes its own count stands in, which knows no "=NAME".
class ProcessProbe : public Probe {
  public:
    // `ownCommandLine` is that of the process that asks.
    ProcessProbe(std::string name, std::string ownCommandLine)
        : name_(std::move(name)), ownCommandLine_(std::move(ownCommandLine)) {}
    std::optional<Question> Next() override;
    void Take(const Answer& reply) override;
    // The agent's own count there has the one who asks in it.
    void SetSameHost(bool sameHost) override { sameHost_ = sameHost; }

  private:
    enum class Step { kList, kCount, kDone };

    std::string name_;
    std::string ownCommandLine_;
    bool sameHost_ = false;
    Step step_ = Step::kList;
};

// The text as one word of a shell's command line, whatever is in it.
std::string QuotedForShell(std::string_view text);

}  // namespace zot::client
