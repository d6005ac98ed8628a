#include "base/resolver.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>

#include "base/sockets.h"
#include "base/thread.h"

namespace zot {
namespace {

using Deadline = std::chrono::steady_clock::time_point;

bool IsDotted(const char* text, uint32_t& address) {
    in_addr dotted{};
    if (inet_aton(text, &dotted) == 0) return false;
    address = dotted.s_addr;
    return true;
}

// The first IPv4 address of a name.
bool Lookup(const char* name, uint32_t& address) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(name, nullptr, &hints, &found) != 0) return false;
    std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> list(found, freeaddrinfo);
    while (found != nullptr && found->ai_family != AF_INET) found = found->ai_next;
    if (found == nullptr) return false;
    address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr.s_addr;
    return true;
}

int32_t Resolved(bool found, VyString& errorText) {
    if (found) return kNetOk;
    errorText = "Cannot resolve server name to IP address";
    return kNetResolveFailed;
}

int32_t TimedOut(VyString& errorText) {
    errorText = "Timeout";
    return kNetTimeout;
}

// The look-ups that are running. Never destroyed: they outlive the end of main.
struct Running {
    std::mutex countMutex;
    std::condition_variable changed;
    int count = 0;

    bool Enter(Deadline deadline) {
        std::unique_lock lock(countMutex);
        if (!changed.wait_until(lock, deadline, [this] { return count < kMaxLookups; })) {
            return false;
        }
        ++count;
        return true;
    }
    void Leave() {
        std::lock_guard lock(countMutex);
        --count;
        changed.notify_one();
    }
};
Running& running = *new Running;

// One look-up on a thread of its own, shared with the one that waits for it.
class Query {
  public:
    explicit Query(VyString name) : name_(std::move(name)) { name_.Terminate(); }

    // Starts the look-up; false when there is no thread for it. REQUIRES a place from
    // Running::Enter.
    static bool Start(const std::shared_ptr<Query>& query);
    // Waits for the end of the look-up; false when the deadline passes first.
    bool Wait(Deadline deadline) {
        std::unique_lock lock(mutex_);
        return changed_.wait_until(lock, deadline, [this] { return done_; });
    }
    // REQUIRES that Wait returned true.
    bool Found(uint32_t& address) const {
        if (found_) address = address_;
        return found_;
    }

  private:
    void Run() {
        uint32_t address = 0;
        bool found = Lookup(name_.Data(), address);
        std::lock_guard lock(mutex_);
        address_ = address;
        found_ = found;
        done_ = true;
        changed_.notify_one();
    }

    VyString name_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool done_ = false;
    bool found_ = false;
    uint32_t address_ = 0;
};

bool Query::Start(const std::shared_ptr<Query>& query) {
    auto own = std::make_unique<std::shared_ptr<Query>>(query);
    auto run = [](void* argument) -> void* {
        {
            std::unique_ptr<std::shared_ptr<Query>> self(
                static_cast<std::shared_ptr<Query>*>(argument));
            (*self)->Run();
        }
        running.Leave();
        return nullptr;
    };
    bool started = StartDetachedThread(run, own.get()) == 0;
    if (started) static_cast<void>(own.release());  // the thread owns it now
    return started;
}

}  // namespace

int32_t ResolveHost(std::string_view name, uint32_t& address, VyString& errorText) {
    errorText.Clear();
    VyString text(name);
    bool found = IsDotted(text.Terminate(), address) || Lookup(text.Data(), address);
    return Resolved(found, errorText);
}

int32_t ResolveHostWithin(std::string_view name, int64_t limitMs, uint32_t& address,
                          VyString& errorText) {
    errorText.Clear();
    VyString text(name);
    if (IsDotted(text.Terminate(), address)) return kNetOk;
    const Deadline deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    auto query = std::make_shared<Query>(std::move(text));
    if (!running.Enter(deadline)) return TimedOut(errorText);
    if (!Query::Start(query)) {
        running.Leave();
        return Resolved(false, errorText);
    }
    if (!query->Wait(deadline)) return TimedOut(errorText);
    return Resolved(query->Found(address), errorText);
}

}  // namespace zot
