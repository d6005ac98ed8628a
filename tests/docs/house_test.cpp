// The tables of docs/architecture.md against the code: who includes whom, and which mutexes exist.
// A new room, a new mutex or an include that runs upwards fails here.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "tests/docs/pages.h"

namespace zot {
namespace {

namespace fs = std::filesystem;

struct Room {
    int floor = 0;                     // 0: beside the house, so only what the page lists
    std::set<std::string> neighbours;  // rooms, and single headers as they are included
};

std::map<std::string, Room> RoomsOfPage(const std::string& page) {
    std::map<std::string, Room> rooms;
    for (const auto& row : test::Matches(page, R"(^\| ([0-9]) \| `([a-z/]+)` \|)")) {
        rooms[row[2]].floor = std::stoi(row[1]);
    }
    for (const auto& row : test::Matches(page, R"(^\| `([a-z]+)` \| (`[^|]+`) \|)")) {
        const test::Names listed = test::Found(row[2], "`([^`]+)`");
        rooms[row[1]].neighbours.insert(listed.begin(), listed.end());
    }
    return rooms;
}

// Each source file's path from the root, and its text.
std::map<std::string, std::string> Sources() {
    std::map<std::string, std::string> sources;
    const fs::path root = ZOT_SOURCE_DIR;
    for (const char* top : {"src", "client", "exporter"}) {
        if (!fs::exists(root / top)) continue;
        for (const auto& file : fs::recursive_directory_iterator(root / top)) {
            if (file.path().extension() != ".h" && file.path().extension() != ".cpp") continue;
            const std::string path = file.path().lexically_relative(root).string();
            sources[path] = test::SourceFile(path);
        }
    }
    return sources;
}

// The room of a file: the innermost folder around it that the page knows.
std::string RoomOf(const std::map<std::string, Room>& rooms, const fs::path& path) {
    fs::path folder = path.parent_path();
    while (!folder.empty() && rooms.count(folder.string()) == 0) folder = folder.parent_path();
    return folder.string();
}

TEST(House, NoIncludeRunsUpwards) {
    const std::map<std::string, Room> rooms = RoomsOfPage(test::SourceFile("docs/architecture.md"));
    std::set<std::string> entered;
    std::set<std::string> unused;
    for (const auto& [name, room] : rooms) {
        for (const std::string& neighbour : room.neighbours) unused.insert(name + " " + neighbour);
    }
    const auto sources = Sources();
    for (const auto& [path, text] : sources) {
        const std::string from = RoomOf(rooms, path);
        ASSERT_NE(from, "") << path << ": its folder has no row in docs/architecture.md";
        entered.insert(from);
        for (const std::string& header : test::Found(text, "^#include \"([^\"]+)\"")) {
            const bool inSrc = sources.count("src/" + header) != 0;
            const std::string to = RoomOf(rooms, inSrc ? "src/" + header : header);
            const Room& room = rooms.at(from);
            unused.erase(from + " " + to);
            unused.erase(from + " " + header);
            EXPECT_TRUE(to == from ||
                        room.neighbours.count(to) + room.neighbours.count(header) != 0 ||
                        (rooms.count(to) != 0 && rooms.at(to).floor < room.floor))
                << path << " includes " << header << ", which its room does not stand on";
        }
    }
    EXPECT_EQ(entered.size(), rooms.size()) << "docs/architecture.md lists a room without files";
    EXPECT_EQ(unused, std::set<std::string>())
        << "listed in docs/architecture.md, but not included";
}

TEST(House, NoTwoFoldersHaveFilesOfOneName) {
    std::map<std::string, std::string> folders;  // by the name of a header and its source
    for (const auto& [path, text] : Sources()) {
        const std::string folder = fs::path(path).parent_path().string();
        EXPECT_EQ(folders.emplace(fs::path(path).stem().string(), folder).first->second, folder)
            << path;
    }
}

TEST(House, PageListsEveryMutex) {
    test::Names listed;
    const std::string page = test::SourceFile("docs/architecture.md");
    for (const auto& row :
         test::Matches(page, R"(^\| `([A-Za-z_]+)` \| `([a-z_/]+\.[a-z]+)` \|)")) {
        listed.insert(row[2] + " " + row[1]);
    }
    test::Names present;
    for (const auto& [path, text] : Sources()) {
        const std::string where = path.substr(path.rfind("src/", 0) == 0 ? 4 : 0);
        for (const std::string& name : test::Found(
                 text,
                 "^[a-z :]*(std::[a-z_]*mutex|pthread_(mutex|rwlock|spinlock)_t) ([A-Za-z_]+)",
                 3)) {
            present.insert(where + " " + name);
        }
    }
    EXPECT_EQ(listed, present);
}

}  // namespace
}  // namespace zot
