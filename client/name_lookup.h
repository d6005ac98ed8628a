// Turns names into IPv4 addresses without waiting: many at once, in the caller's own loop. Asks the
// hosts file and DNS, but no other sources of the system's resolver.
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
    ~Resolver();  // forgets the handlers not yet called
    Resolver(const Resolver&) = delete;
    Resolver& operator=(const Resolver&) = delete;

    // Looks up a name. The handler may be called before this returns.
    void Lookup(const std::string& name, Handler handler);
    // Whether a look-up is running.
    bool Busy() const;
    // Appends what to poll for.
    void AppendDescriptors(std::vector<pollfd>& descriptors) const;
    // The longest wait that poll may make: at most `limit` milliseconds (negative: no limit).
    int WaitLimit(int limit) const;
    // Goes on after a poll with these descriptors, even if none was ready.
    void Process(std::span<const pollfd> descriptors);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

// Reads a dotted address as the system does (including "127.1").
bool ParseAddress(const std::string& text, in_addr& address);
std::string AddressText(in_addr address);

// Waits for the addresses of a host, which may be a dotted address. Empty with the reason when
// there are none by the deadline.
std::vector<in_addr> ResolveByDeadline(const std::string& host, const Deadline& deadline,
                                       std::string& reason);

}  // namespace zot::client
