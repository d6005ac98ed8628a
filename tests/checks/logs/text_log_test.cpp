#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "base/owners.h"
#include "checks/logs/log_checks.h"
#include "tests/support/file_tree.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

using Handler = void(std::string_view, const AgentSettings&, Reply&);
using Texts = std::vector<std::string>;

std::string Answer(Handler& handler, const Texts& lines) {
    std::string params;
    for (const std::string& line : lines) params += line + "\n";
    Reply reply;
    handler(params + "\r", AgentSettings(), reply);
    return std::string(reply.Text().View());
}

Texts Split(const std::string& text) {
    Texts lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

constexpr int64_t kTime = 1600000000;

class TextLog : public testing::Test {
  protected:
    void Write(std::string_view content) {
        path = folder.Write("app.log", content);
        test::SetModificationTime(path, kTime);
    }
    // The parameters of TEST-TextLog2 with one criterion.
    Texts One(const std::string& text, const std::string& kind, const std::string& findAll = "1") {
        return {path, "0", "1", "0", findAll, text, kind, "1", "0", "0"};
    }
    // With two; the flag for macros is on line 20.
    Texts Two(const std::string& first, const std::string& second, const std::string& kind) {
        Texts lines = One(first, kind, "0");
        lines.back() = "1";
        for (const std::string& line : {second, kind, std::string("1"), std::string("0")}) {
            lines.push_back(line);
        }
        lines.resize(20, "0");
        return lines;
    }

    test::TempDir folder;
    std::string path;
};

TEST_F(TextLog, RefusalsInTheirOrder) {
    Write("hit\n");
    for (Handler* handler : {&TestTextLog, &TestTextLog2}) {
        EXPECT_EQ(Answer(*handler, {folder / "*.txt", "x", "x", "x", "x"}),
                  "301\nFile does not exist\n");
        EXPECT_EQ(Answer(*handler, {path, "1", "1", "1x", "1", "1", "1"}),
                  "501\nWrong parameter\n");
        // Numbers too large for an offset are still numbers.
        EXPECT_EQ(
            Answer(*handler, {path, "-9", "-9", "-9", "-99999999999999999999", "0", "0", "0"}),
            "301\nfseek error\n");
    }
    EXPECT_EQ(Answer(TestTextLog2, One("hit", "3")), "501\nWrong parameter\n");
}

TEST_F(TextLog, RepliesLineByLine) {
    Write("one hit\r\nA HIT\n" + std::string(1025, 'x') + "hit\n");
    auto answer = [&](const std::string& position, const char* findAll, const char* caseSensitive) {
        return Answer(TestTextLog, {folder / "*.log", "hit", position, "1", "0", "0", findAll,
                                    caseSensitive, "0"});
    };
    EXPECT_EQ(answer("0", "0", "0"), "200\n     5\none hit\n1\n     8\n     1\n     0\n  1044\n");
    EXPECT_EQ(answer("8", "0", "0"), "200\n    11\nA HIT\n1\n    15\n     1\n     0\n  1044\n");
    EXPECT_EQ(answer("8", "0", "1"), "200\n  1041\n" + std::string(1024, 'x') +
                                         "\n0\n  1044\n  1044\n1600000000\n  1044\n");
    EXPECT_EQ(answer("1044", "0", "0"), "200\n     0\n\n0\n  1044\n  1044\n1600000000\n  1044\n");
    EXPECT_EQ(answer("0", "1", "0"), answer("15", "1", "0"));
    Texts watch = One("hit", "0", "2");
    std::string shared = answer("0", "1", "1");
    shared.insert(shared.find("\n0\n  1044"), "xhit");  // here the line is not cut
    EXPECT_EQ(Answer(TestTextLog2, watch), shared + "1\n" + path + "\n");
}

TEST_F(TextLog, ExpressionsAndTheirMessages) {
    Write("error 7\ntimeout error 900\nwarning\n");
    auto found = [&](Handler& handler, const Texts& lines) {
        Texts reply = Split(Answer(handler, lines));
        return reply.size() > 2 ? reply[1] + " " + reply[2] : reply[1];
    };
    EXPECT_EQ(found(TestTextLog2, One("'error' and not 'timeout'", "1")), "     1 error 7");
    EXPECT_EQ(found(TestTextLog2, One("'%data%' getnumber 1 > 10", "2")),
              "     9 timeout error 900");
    // A line on which the evaluation fails meets no criterion.
    EXPECT_EQ(found(TestTextLog2, One("10 div ('%data%' getnumber 1 - 7) > 0", "2")), "     0 ");
    EXPECT_EQ(found(TestTextLog2, One("x", "1")), "Search expression errorUnknown operator: \"x\"");
    EXPECT_EQ(found(TestTextLog2, One("x", "2")),
              "Search expression error: Unknown operator: \"x\"");
    for (const char* kind : {"1", "2"}) {
        EXPECT_EQ(found(TestTextLog2, Two("'y'", "x", kind)),
                  "Search expression errorUnknown operator: \"x\"");
    }
    auto search = [&](const std::string& text) {
        return found(TestTextLog, {path, text, "0", "1", "0", "1", "1", "1", "0"});
    };
    EXPECT_EQ(search("'warning'"), "    27 warning");
    EXPECT_EQ(search("warning"), "     0 ");  // does not parse: no line matches
    // A text is taken with its blanks, and with its line breaks, which no line has.
    EXPECT_EQ(found(TestTextLog2, One("r 7", "0")), "     5 error 7");
    EXPECT_EQ(found(TestTextLog2, One("r 7 ", "0")), "     0 ");
    EXPECT_EQ(found(TestTextLog2, One("7%0At", "0")), "     0 ");
    EXPECT_EQ(found(TestTextLog2, One("", "0")), "     0 ");
}

TEST_F(TextLog, TheSecondCriterionIsAnAlternative) {
    Write("b\na b\nb\n");
    for (const char* kind : {"0", "1"}) {
        std::string quote = kind[0] == '1' ? "'" : "";
        Texts lines = Two(quote + "a" + quote, quote + "b" + quote, kind);
        for (const char* expected : {"0 b", "1 a b", "0 b"}) {
            Texts reply = Split(Answer(TestTextLog2, lines));
            EXPECT_EQ(reply[8] + " " + reply[2], expected);
            lines[1] = reply[4];
            EXPECT_EQ(reply[3], std::string(lines[1] == "     8" ? "0" : "1"));
        }
    }
}

TEST_F(TextLog, MacrosStandOnTheLineBehindTheCriteria) {
    Write("hit\n");
    std::string macro = folder / "%newestfile%";
    Texts one = One("hit", "0");
    Texts two = Two("hit", "hit", "0");
    one[0] = two[0] = macro;
    one.resize(16, "0");
    EXPECT_EQ(Answer(TestTextLog2, one), "301\nFile does not exist\n");
    EXPECT_EQ(Answer(TestTextLog2, two), "301\nFile does not exist\n");
    one[15] = two[19] = "1";
    EXPECT_EQ(Split(Answer(TestTextLog2, one)).back(), path);
    EXPECT_EQ(Split(Answer(TestTextLog2, two)).back(), path);
    two[9] = "2147483647";  // this many criteria leave no line for the flag
    EXPECT_EQ(Answer(TestTextLog2, two), "301\nFile does not exist\n");
}

void Put(const std::string& path, std::string_view text, int flags) {
    UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0644));
    if (write(file.Get(), text.data(), text.size()) < 0) abort();
}

// The writer never waits for the requests, except before it takes the file away: lines that nobody
// has read by then are lost to everyone.
TEST_F(TextLog, LosesNoLineAndReportsNoneTwiceBesideARestlessWriter) {
    constexpr int kFiles = 12;
    constexpr int kLines = 400;
    constexpr int kLast = kFiles * (kLines + 1) - 1;
    path = folder / "app.log";
    std::atomic<int> reported{-1};
    auto line = [](int number) { return "line " + std::to_string(number) + " hit"; };
    Put(path, line(0) + "\n", 0);
    std::thread writer([&] {
        std::mt19937 random(3);
        for (int number = 1; number <= kLast; ++number) {
            if (number % (kLines + 1) != 0) {
                const char* ends[] = {"\n", "\r\n", "\r", "\n\n\r\n"};
                std::string text = (random() % 3 == 0 ? "noise\r\n" : "") + line(number);
                text += ends[random() % 4];
                while (!text.empty()) {
                    size_t size = 1 + random() % (random() % 2 ? text.size() : 3);
                    Put(path, text.substr(0, size), O_APPEND);
                    text.erase(0, size);
                    if (random() % 4 == 0) std::this_thread::yield();
                }
                continue;
            }
            while (reported < number - 1) std::this_thread::yield();
            // Another file, or this one cut so that it becomes shorter than it ever was. Never to
            // nothing: an empty file would count as one that was not scanned yet.
            std::string first = line(number) + "\n";
            if (number / (kLines + 1) % 2 == 0) {
                std::rename(path.c_str(), (path + ".1").c_str());
                Put(path + ".next", first, O_TRUNC);
                std::rename((path + ".next").c_str(), path.c_str());
            } else {
                Put(path, first, 0);
                if (truncate(path.c_str(), static_cast<off_t>(first.size())) != 0) abort();
            }
            while (reported < number) std::this_thread::yield();
        }
    });
    Texts lines = {path, "hit", "0", "1", "0", "0", "0", "1", "1"};
    for (int expected = 0; expected <= kLast && !HasFailure();) {
        Texts reply = Split(Answer(TestTextLog, lines));
        if (reply[0] == "301") continue;  // between two files
        std::copy(reply.begin() + 4, reply.begin() + 7, lines.begin() + 2);
        if (reply[1] == "     0") continue;
        EXPECT_EQ(reply[2], line(expected));
        reported = expected++;
    }
    reported = kLast;  // after a failure nobody waits
    writer.join();
}

}  // namespace
}  // namespace zot
