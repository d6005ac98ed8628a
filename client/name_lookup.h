// Names to IPv4 addresses without waiting: many at once, in the caller's own loop. Names come from
// the hosts file and from DNS; other sources of the system's resolver are not asked.
#pragma once

#include <netinet/in.h>
#include <poll.h>

#include <chrono>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/deadline.h"

namespace zot::client {

class Resolver {
  public:
    // Called once: with addresses, or with none and the reason.
    using Handler = std::function<void(std::vector<in_addr> addresses, std::string_view reason)>;

    Resolver();
    ~Resolver();  // handlers that were not called are forgotten
    Resolver(const Resolver&) = delete;
    Resolver& operator=(const Resolver&) = delete;

    // Looks a name up. The handler may be called before this returns.
    void Lookup(const std::string& name, Handler handler);
    // Whether a lookup is under way.
    bool Busy() const;
    // Appends what to poll for.
    void AppendDescriptors(std::vector<pollfd>& descriptors) const;
    // The longest wait that poll may make: at most `limit` milliseconds (negative: no limit).
    int WaitLimit(int limit) const;
    // Goes on after a poll with these descriptors, also after one that none was ready in.
    void Process(std::span<const pollfd> descriptors);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

// Reads a dotted address as the system does ("127.1" too).
bool ParseAddress(const std::string& text, in_addr& address);
std::string AddressText(in_addr address);

// Waits for the addresses of a host, which may be a dotted address. Empty with the reason when
// there are none by the deadline.
std::vector<in_addr> ResolveByDeadline(const std::string& host, const Deadline& deadline,
                                       std::string& reason);

}  // namespace zot::client
