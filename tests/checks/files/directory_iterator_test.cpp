#include "checks/files/directory_iterator.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "tests/support/file_tree.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

using Found = std::map<std::string, int32_t>;

// Names and attributes of all entries returned.
Found List(const std::string& folder, const std::string& mask, int32_t attributeMask,
           FindOptions options = {}) {
    Found found;
    FindRecord record;
    bool more = FindFirst(folder, mask, attributeMask, record, options);
    for (; more; more = FindNext(record)) found[record.name] = record.attributes;
    return found;
}

class DirectoryIterator : public testing::Test {
  protected:
    DirectoryIterator() {
        test::SetMode(dir_.Path(), 0755);
        test::MakeFile(dir_ / "file", 12);
        test::MakeFile(dir_ / ".hidden");
        test::MakeFile(dir_ / "open", 0, 0666);
        test::MakeFile(dir_ / longName_);
        test::MakeFolder(dir_ / "folder", 0777);
        test::MakeFolder(dir_ / ".folder");
        test::MakeFifo(dir_ / "fifo");
        test::MakeSocket(dir_ / "socket");
        test::MakeLink("file", dir_ / "link");
        test::MakeLink("folder", dir_ / "folderlink");
    }

    test::TempDir dir_;
    // As long as a name can be, and not text in any encoding.
    const std::string longName_ = "\xff\xfe\n" + std::string(252, '\x80');
};

TEST_F(DirectoryIterator, AttributesAndMasks) {
    EXPECT_EQ(List(dir_.Path(), "*", 63), (Found{{".", 16},
                                                 {"..", 16},
                                                 {"file", 0},
                                                 {".hidden", 2},
                                                 {"open", 0},
                                                 {longName_, 0},
                                                 {"folder", 16},
                                                 {".folder", 18},
                                                 {"fifo", 4},
                                                 {"socket", 4}}));
    EXPECT_EQ(List(dir_.Path(), "*", 47 - 4 - 2),
              (Found{{"file", 0}, {"open", 0}, {longName_, 0}}));
    EXPECT_EQ(List(dir_.Path(), "*o*", 63),
              (Found{{"open", 0}, {"folder", 16}, {".folder", 18}, {"fifo", 4}, {"socket", 4}}));
    EXPECT_EQ(List(dir_.Path(), "?folder", 63), (Found{{".folder", 18}}));
    // The mask reaches no further than 63, so links stay out whatever is asked for.
    EXPECT_EQ(List(dir_.Path(), "*link", -1), Found());
    EXPECT_EQ(List(dir_.Path(), "", 63), Found());
    EXPECT_EQ(List(dir_ / "none", "*", 63), Found());
    EXPECT_EQ(List(dir_ / "file", "*", 63), Found());
    EXPECT_EQ(List(dir_ / "folderlink", "*", 63), (Found{{".", 16}, {"..", 16}}));
    EXPECT_EQ(List(dir_.Path(), "f*", 63, {FindOptions::Kinds::kDirectories, false}),
              (Found{{"folder", 16}}));
}

TEST_F(DirectoryIterator, ReadOnlyBitIsWhatTheAgentItselfMayDo) {
    auto attributesOf = [this](int32_t mask, FindOptions options) {
        std::string result;
        for (const auto& [name, bits] : List(dir_.Path(), "*o*", mask, options)) {
            result += name + "=" + std::to_string(bits) + " ";
        }
        return result;
    };
    constexpr FindOptions kReport{FindOptions::Kinds::kAll, true};
    EXPECT_EQ(test::AsOrdinaryUser([&] { return attributesOf(63, kReport); }),
              ".folder=19 fifo=5 folder=16 open=0 socket=5 ");
    EXPECT_EQ(test::AsOrdinaryUser([&] { return attributesOf(16, {}); }), "folder=16 open=0 ");
}

}  // namespace
}  // namespace zot
