// An agent that answers what a test tells it, and runs of zotq against it.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "client/agent_client.h"
#include "client/program.h"
#include "tests/support/decrypt.h"
#include "tests/support/loopback.h"

namespace zot::client {

inline constexpr const char* kTestPassword = "secret";

inline std::string LengthBytes(size_t value) {
    std::string bytes;
    for (int i = 0; i < 4; ++i) bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    return bytes;
}

inline void SendAll(int fd, const std::string& bytes) {
    EXPECT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), ssize_t(bytes.size()));
}

inline void SendReply(int fd, const std::string& key, const std::string& text) {
    SendAll(fd, LengthBytes(text.size()) + Encrypt(key, text));
}

// Accepts one connection after another, reads a request from each, lets the handler answer it and
// closes it.
class FakeAgent {
  public:
    using Handler = std::function<void(int fd, const std::string& key, const std::string& text)>;

    explicit FakeAgent(Handler handler)
        : handler_(std::move(handler)), thread_([this] { Serve(); }) {}
    // Sends these replies in order, and the last one again and again.
    explicit FakeAgent(std::vector<std::string> replies)
        : FakeAgent([replies, next = size_t{0}](int fd, const std::string& key,
                                                const std::string&) mutable {
              SendReply(fd, key, replies[next]);
              if (next + 1 < replies.size()) ++next;
          }) {}
    ~FakeAgent() {
        stop_ = true;
        AgentConnection wake;
        std::string error;
        EXPECT_TRUE(wake.Open("127.0.0.1", Port(), Deadline(std::chrono::seconds(10)), error))
            << error;
        thread_.join();
    }
    uint16_t Port() const { return static_cast<uint16_t>(socket_.Port()); }
    std::string PortOption() const { return "-p" + std::to_string(Port()); }
    // The texts of the requests so far.
    std::vector<std::string> Requests() const {
        std::lock_guard lock(mutex_);
        return requests_;
    }

  private:
    void Serve() {
        for (;;) {
            UniqueFd peer = socket_.Accept();
            if (stop_) return;
            std::string key, text;
            if (!ReadRequest(peer.Get(), key, text)) continue;
            {
                std::lock_guard lock(mutex_);
                requests_.push_back(text);
            }
            handler_(peer.Get(), key, text);
        }
    }
    static bool ReadRequest(int fd, std::string& key, std::string& text) {
        std::string packet(65536, '\0');
        if (recv(fd, packet.data(), 4, MSG_WAITALL) != 4) return false;
        size_t length = static_cast<uint8_t>(packet[0]) + 256U * static_cast<uint8_t>(packet[1]);
        if (recv(fd, packet.data() + 4, length, MSG_WAITALL) != ssize_t(length)) return false;
        size_t keyLength = static_cast<uint8_t>(packet[24]);
        key = test::Decrypt(kTestPassword, packet.substr(26, keyLength));
        text = test::Decrypt(key, packet.substr(30 + keyLength, length - 26 - keyLength));
        return true;
    }

    test::Loopback socket_{SOCK_STREAM, 8};
    Handler handler_;
    std::atomic<bool> stop_{false};
    mutable std::mutex mutex_;
    std::vector<std::string> requests_;
    std::thread thread_;
};

// The words of a command line, separated by "|".
inline std::vector<std::string> Words(const std::string& line) {
    std::vector<std::string> words;
    for (size_t at = 0, end = 0; !line.empty() && end < line.size(); at = end + 1) {
        end = std::min(line.find('|', at), line.size());
        words.push_back(line.substr(at, end - at));
    }
    return words;
}

struct ProgramRun {
    explicit ProgramRun(std::vector<std::string> words, Environment environment = {kTestPassword},
                        const std::string& input = "", bool progress = false,
                        bool terminal = false) {
        std::vector<const char*> arguments;
        for (const std::string& word : words) arguments.push_back(word.c_str());
        std::istringstream in(input);
        std::ostringstream outStream, errStream;
        status = RunProgram(arguments, environment, {in, outStream, errStream, progress, terminal});
        out = outStream.str();
        err = errStream.str();
    }
    int status;
    std::string out, err;
};

}  // namespace zot::client
