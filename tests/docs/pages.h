// Reads the project's own pages and sources.
#pragma once

#include <gtest/gtest.h>
#include <regex.h>

#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

namespace zot::test {

using Names = std::multiset<std::string>;

inline std::string SourceFile(const std::string& path) {
    std::string text = ReadFile(std::string(ZOT_SOURCE_DIR) + "/" + path);
    EXPECT_FALSE(text.empty()) << path;
    return text;
}

// All matches of a POSIX extended expression, each as the whole and its groups. "^" and "$" match
// at the borders of lines.
inline std::vector<std::vector<std::string>> Matches(const std::string& text,
                                                     const std::string& pattern) {
    regex_t expression;
    EXPECT_EQ(regcomp(&expression, pattern.c_str(), REG_EXTENDED | REG_NEWLINE), 0) << pattern;
    std::vector<std::vector<std::string>> matches;
    regmatch_t groups[4];
    const char* rest = text.c_str();
    while (regexec(&expression, rest, std::size(groups), groups,
                   rest == text.c_str() ? 0 : REG_NOTBOL) == 0) {
        matches.emplace_back();
        for (const regmatch_t& group : groups) {
            std::string& value = matches.back().emplace_back();
            if (group.rm_so >= 0) value.assign(rest + group.rm_so, rest + group.rm_eo);
        }
        rest += groups[0].rm_eo;
        if (groups[0].rm_eo > groups[0].rm_so) continue;
        // An empty match would be found again and again.
        if (*rest == '\0') break;
        ++rest;
    }
    regfree(&expression);
    return matches;
}

// The given group of all matches.
inline Names Found(const std::string& text, const std::string& pattern, size_t group = 1) {
    Names names;
    for (const auto& match : Matches(text, pattern)) names.insert(match[group]);
    return names;
}

// The text between two texts, without them.
inline std::string Section(const std::string& text, const std::string& from,
                           const std::string& to) {
    size_t begin = text.find(from);
    EXPECT_NE(begin, std::string::npos) << from;
    begin += from.size();
    return text.substr(begin, text.find(to, begin) - begin);
}

}  // namespace zot::test
