#include "client/inventory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "client/host_names.h"
#include "tests/support/temp_dir.h"

namespace zot::client {
namespace {

// "NAME@ADDRESS:PORT PASSWORDFILE GROUPS", one a line.
std::string Show(const std::vector<const Host*>& hosts) {
    std::string text;
    for (const Host* host : hosts) {
        text += host->name + "@" + host->address + ":" + std::to_string(host->port) + " " +
                std::filesystem::path(host->passwordFile).filename().string();
        for (const std::string& group : host->groups) text += " " + group;
        text += "\n";
    }
    return text;
}

std::string Show(const std::optional<Inventory>& inventory, const Selection& selection = {}) {
    std::string error = "not read";
    std::vector<const Host*> hosts;
    return inventory && inventory->Select(selection, hosts, error) ? Show(hosts) : error;
}

std::optional<Inventory> FromText(const std::string& text, std::string& error) {
    std::istringstream input(text);
    return Inventory::Load("-", {.port = 1055}, input, error);
}

TEST(HostNames, AreExpandedAndFolded) {
    struct Case {
        const char *folded, *expanded;
    } cases[] = {
        {"web[1-3],db1", "web1 web2 web3 db1 "},
        {"r[1-2]n[08-10]", "r1n08 r1n09 r1n10 r2n08 r2n09 r2n10 "},
        {"a[x,2-3]b", "axb a2b a3b "},
        {"plain", "plain "},
    };
    std::string error;
    for (const Case& c : cases) {
        std::vector<std::string> names;
        EXPECT_TRUE(ExpandNames(c.folded, names, error)) << error;
        std::string all;
        for (const std::string& name : names) all += name + " ";
        EXPECT_EQ(all, c.expanded);
    }
    std::vector<std::string> names;
    for (const char* wrong :
         {"web[1-3", "web]", "web[3-1]", "web[]", "w[0-99999999]", "w[-1]", "w[1-999][1-999]"}) {
        EXPECT_FALSE(ExpandNames(wrong, names, error)) << wrong;
    }
    names = {"web10", "web2", "web1", "db1", "web3", "mail", "n08", "n09", "r1n2"};
    EXPECT_EQ(FoldNames(names), "web[1-3,10],db1,mail,n[08-09],r1n2");
}

TEST(Inventory, ReadsAFolderOfPasswordFiles) {
    test::TempDir dir;
    for (const char* name : {"web10", "web2", "db1:1056", ".hidden", "web2~"}) dir.Write(name, "x");
    std::filesystem::create_directory(dir / "shop");
    dir.Write("shop/till1", "x");
    std::string error;
    std::istringstream none;
    auto inventory = Inventory::Load(dir.Path(), {}, none, error);
    EXPECT_EQ(Show(inventory),
              "db1@db1:1056 db1:1056\nweb2@web2:1055 web2\nweb10@web10:1055 web10\n"
              "till1@till1:1055 till1 shop\n")
        << error;
    EXPECT_EQ(Show(inventory, {.include = "@shop,web*", .exclude = "web10"}),
              "web2@web2:1055 web2\ntill1@till1:1055 till1 shop\n");
    EXPECT_EQ(Show(inventory, {.include = "web9"}), "not in the list of hosts: web9");
    EXPECT_EQ(Show(inventory, {.exclude = "*"}), "no host is left to ask");
    std::vector<const Host*> picked;
    EXPECT_TRUE(inventory->Select({.pick = 2}, picked, error));
    EXPECT_EQ(picked.size(), 2U);
}

TEST(Inventory, ReadsListsOfOtherToolsAndItsOwn) {
    std::string error;
    auto inventory = FromText(
        "# a comment\n\nroot@web1:1056  # pssh\nweb[2-3] db1\n"
        "db2 addr=192.0.2.7 password=/pw/db groups=db,old\nweb1:1056 groups=front\n",
        error);
    EXPECT_EQ(Show(inventory),
              "web1@web1:1056  front\nweb2@web2:1055 \nweb3@web3:1055 \ndb1@db1:1055 \n"
              "db2@192.0.2.7:1055 db db old\n")
        << error;
    const Host* host = inventory->Find("db2");
    ASSERT_TRUE(host);
    std::string again = ListLine(*host);
    EXPECT_EQ(Show(FromText(again, error)), "db2@192.0.2.7:1055 db db old\n") << again;
}

TEST(Inventory, ReadsServiceDiscoveryJson) {
    std::string error;
    auto inventory =
        FromText(R"([{"targets":["web1:1056","web2"],"labels":{"env":"prod","groups":"a,b"}},)"
                 R"({"targets":["db1"],"labels":{"password":"/pw/db1"}}])",
                 error);
    EXPECT_EQ(Show(inventory),
              "web1@web1:1056  env=prod a b\nweb2@web2:1055  env=prod a b\n"
              "db1@db1:1055 db1\n")
        << error;
}

TEST(Inventory, RefusesWhatItDoesNotUnderstand) {
    for (const char* text :
         {"web1:0", "web1:70000", "web1 group=a", "web1 addr=", "addr=1.2.3.4",
          "web[1-2] addr=1.2.3.4", "web1 web2 addr=1.2.3.4", "web1 addr=a\nweb1 addr=b",
          "../../etc/passwd", "we\x1b[2Jb", "..", "[{\"targets\":[1]}]", "[{\"labels\":{}}]",
          "[{\"targets\":[\"a\"],\"labels\":{\"env\":1}}]", "{}", "[1"}) {
        std::string error;
        EXPECT_FALSE(FromText(text, error)) << text;
        EXPECT_TRUE(error.starts_with("the list of hosts: ")) << error;
    }
}

TEST(Inventory, AnEmptyListIsCalledThat) {
    std::string error;
    EXPECT_EQ(Show(FromText("# nobody yet\n", error)), "the list of hosts is empty");
}

TEST(Inventory, PasswordFilesAreReadWithCare) {
    test::TempDir dir;
    std::string password, error;
    bool forOthers = true;
    std::string file = dir.Write("pw", "secret\r\nmore\n");
    std::filesystem::permissions(file, std::filesystem::perms(0644));
    std::filesystem::permissions(dir.Path(), std::filesystem::perms(0755));
    EXPECT_TRUE(ReadPasswordFile(file, password, forOthers, error)) << error;
    EXPECT_EQ(password, "secret");
    EXPECT_TRUE(forOthers);
    std::filesystem::permissions(dir.Path(), std::filesystem::perms(0700));
    EXPECT_TRUE(ReadPasswordFile(file, password, forOthers, error));
    EXPECT_FALSE(forOthers);
    EXPECT_FALSE(ReadPasswordFile(dir.Write("empty", "\nx"), password, forOthers, error));
    EXPECT_FALSE(ReadPasswordFile(dir.Path(), password, forOthers, error));
}

}  // namespace
}  // namespace zot::client
