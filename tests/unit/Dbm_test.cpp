// Keyed record files and typed databases, checked against byte images written
// here by hand, and against damaged images that must never crash a reader.
#include <gtest/gtest.h>
#include <unistd.h>
#include <utime.h>

#include <set>
#include <sstream>

#include "Dbm.h"
#include "SysCmd.h"
#include "TestFiles.h"

namespace {

using testfiles::Slurp;
using testfiles::Write;
namespace fs = std::filesystem;
using namespace std::string_literals;

// key "a", data "b": body 00 02 'a' 00 'b' chained by XOR, behind L = 5.
const std::string kKeyedAB = "\x00\x05\x02\x63\x61\x62\x62"s;
// The same record in a headed file: L and K plain, key and data scrambled apart.
const std::string kHeadedAB = "\x00\x05\x00\x02\x61\x00\x62"s;
const std::string kHeader = "TVDBAA7\0abcdefgh"s;

std::string Scrambled(std::string run) {
    for (size_t i = 0; i + 1 < run.size(); ++i) run[i] = static_cast<char>(run[i] ^ run[i + 1]);
    return run;
}

std::string Be16(size_t n) {
    return {static_cast<char>(n >> 8), static_cast<char>(n & 0xff)};
}

/// A keyed record as an outside writer would put it in a file.
std::string Keyed(const std::string &key, const std::string &data) {
    std::string body = Be16(key.size() + 1) + key + '\0' + data;
    return Be16(body.size()) + Scrambled(body);
}

std::string Headed(const std::string &key, const std::string &data) {
    return Be16(key.size() + 1 + data.size() + 2) + Be16(key.size() + 1) + Scrambled(key + '\0') +
           Scrambled(data);
}

class DbmTest : public ::testing::Test {
  protected:
    testfiles::TempDir dir;
    std::string tool = dir.path().string();
    fs::path db = dir / "db";
    fs::path cwd = fs::current_path();

    void SetUp() override {
        pToolPath = tool.data();
        my_name = const_cast<char *>("dbm_test");
        fs::create_directories(db);
        fs::current_path(dir.path());  // ./db is the tool's db as well
        DbmResetNextRecord();
    }
    void TearDown() override { fs::current_path(cwd); }

    std::string Get(const char *name, const char *key) {
        char buffer[DBM_RECORD_SIZE] = {};
        int n = DbmGetRecord(name, key, buffer);
        return std::string(buffer, n > 0 ? n : 0);
    }
    std::string List(const char *name) {
        MemPtr<char> list(DbmGetRecordList(name, ",", ","));
        return list ? list.get() : "(null)";
    }
};

TEST_F(DbmTest, PutWritesTheRecordBigEndianAndScrambled) {
    ASSERT_EQ(DbmPutRecord("t", "a", "b", 1), 1);
    EXPECT_EQ(Slurp(db / "t.vdb"), kKeyedAB);
    EXPECT_FALSE(fs::exists(db / "t.vdb_new"));
    EXPECT_EQ(Get("t", "a"), "b");
    EXPECT_EQ(DbmGetRecordSize("t", "a"), 1);
}

TEST_F(DbmTest, ExactKeysPrefixesDuplicatesAndMoveToEnd) {
    Write(db / "t.vdb", Keyed("ab", "1") + Keyed("abc", "2") + Keyed("ab", "3") + Keyed("x", ""));
    EXPECT_EQ(Get("t", "ab"), "1");  // the first in file order
    EXPECT_EQ(Get("t", "abc"), "2");
    EXPECT_EQ(Get("t", "a"), "");
    EXPECT_EQ(DbmGetRecord("t", "x", nullptr), 0);  // empty data reads as 0
    EXPECT_EQ(List("t"), ",ab,abc,ab,x,");

    ASSERT_EQ(DbmPutRecord("t", "ab", "9", 1), 1);  // both old copies go
    EXPECT_EQ(List("t"), ",abc,x,ab,");
    EXPECT_EQ(Get("t", "ab"), "9");
    ASSERT_EQ(DbmCopyRecord("t", "abc", "y"), 1);
    EXPECT_EQ(List("t"), ",abc,x,ab,y,");

    EXPECT_EQ(DbmDeleteRecord("t", "nothere"), 1);
    EXPECT_EQ(DbmDeleteRecord("t", "ab"), 1);
    EXPECT_EQ(List("t"), ",abc,x,y,");
    Write(db / "t.vdb", Keyed("ab", "1") + Keyed("abc", "2") + Keyed("b", "3"));
    EXPECT_EQ(DbmDeleteRecords("t", "ab"), 1);
    EXPECT_EQ(List("t"), ",b,");
    EXPECT_EQ(DbmDeleteRecords("t", ""), 0);
}

TEST_F(DbmTest, RefusalsAndMissingDatabases) {
    EXPECT_EQ(DbmPutRecord("t", "k", "", 0), 0);
    EXPECT_EQ(DbmPutRecord("t", nullptr, "x", 1), 0);
    EXPECT_EQ(DbmDeleteRecord("missing", "k"), 0);
    EXPECT_EQ(Get("missing", "k"), "");
    EXPECT_EQ(List("missing"), "(null)");
    Write(db / "empty.vdb", "");
    EXPECT_EQ(List("empty"), "(null)");  // not the terminator alone
    EXPECT_EQ(DbmGetDbLinkList("missing", ""), nullptr);
}

TEST_F(DbmTest, PutMakesDbInTheCurrentDirectory) {
    testfiles::TempDir elsewhere;
    fs::current_path(elsewhere.path());
    ASSERT_EQ(DbmPutRecord("t", "k", "v", 1), 1);
    EXPECT_TRUE(fs::is_directory(elsewhere / "db"));
    EXPECT_TRUE(fs::exists(db / "t.vdb"));  // the file itself lives under the tool
    EXPECT_FALSE(fs::exists(elsewhere / "db" / "t.vdb"));
}

TEST_F(DbmTest, NextRecordCursorIsSharedAndStopsAtTheEnd) {
    Write(db / "one.vdb", Keyed("a", "1") + Keyed("b", "2"));
    Write(db / "two.vdb", Keyed("c", "3") + Keyed("d", "4") + Keyed("e", "5"));
    auto next = [](const char *name) {
        char buffer[8] = {};
        int n = DbmGetNextRecord(name, buffer);
        return n == 1 ? buffer[0] : static_cast<char>('0' + n);
    };
    // "two" starts at its second record: the cursor moved on.
    EXPECT_EQ((std::string{next("one"), next("two"), next("one"), next("two")}), "1405");
}

TEST_F(DbmTest, LinkListAndDatabaseList) {
    Write(db / "t.vdb", Keyed("color.red", "R") + Keyed("size", "S") + Keyed("color.blue", "B"));
    DbmLinkNode *list = DbmGetDbLinkList("t", "color");
    std::string seen;
    for (DbmLinkNode *n = list; n; n = n->next)
        seen += std::string(reinterpret_cast<char *>(n->body)) + "=" +
                std::string(reinterpret_cast<char *>(n->data), n->size) + ";";
    DbmFreeDbLinkList(list);
    EXPECT_EQ(seen, "color.red=R;color.blue=B;");

    for (const char *f : {"u.vdb", "x.txt", "v.w.vdb"}) Write(db / f, "");
    MemPtr<char> commas(DbmGetDbList(0));
    std::set<std::string> names;
    std::stringstream split(commas.get());
    for (std::string n; std::getline(split, n, ',');) names.insert(n);
    EXPECT_EQ(names, (std::set<std::string>{"t", "u"}));
    MemPtr<char> blanks(DbmGetDbList(1));
    EXPECT_EQ(blanks.get()[0], ' ');
    EXPECT_EQ(std::string(blanks.get()).size(), 4u);  // " t u" in directory order
}

TEST_F(DbmTest, DumpShowsLengthsAndPrintableBytes) {
    Write(dir / "d.db", kKeyedAB);
    testing::internal::CaptureStdout();
    DumpDbm("d");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "5 2 ==>{a.b}\n");
}

// ---- Typed databases

class DbTTest : public DbmTest {
  protected:
    DbT *handle = nullptr;
    void TearDown() override {
        DbTClose(handle);
        DbmTest::TearDown();
    }
    DbT *Open(const std::string &image, uint32_t mode = 0) {
        Write(db / "t.vdb", image);
        DbTClose(handle);
        return handle = DbTOpen("t", mode);
    }
    std::string TGet(const char *key, DbT *from = nullptr) {
        char buffer[DBM_RECORD_SIZE] = {};
        int n = DbmTGetRecord(from ? from : handle, key, buffer);
        return std::string(buffer, n);
    }
    /// Gives the file a time of its own, so a reload is not hidden by the
    /// second-grained modification time.
    void Touch(int seconds) {
        utimbuf times{seconds, seconds};
        utime((db / "t.vdb").c_str(), &times);
    }
};

TEST_F(DbTTest, ReadsPlainAndHeadedImages) {
    const std::pair<std::string, int> cases[] = {
        {kKeyedAB + Keyed("ab", "first") + Keyed("ab", "second"), DBT_PLAIN},
        {kHeader + kHeadedAB + Headed("ab", "first") + Headed("ab", "second"), DBT_HEADED},
        {"TVDBAx" + kHeader.substr(6) + kHeadedAB + Headed("ab", "first") + Headed("ab", "second"),
         DBT_HEADED},  // five characters make the header
    };
    for (const auto &[image, type] : cases) {
        SCOPED_TRACE(type);
        Open(image);
        EXPECT_EQ(handle->type, type);
        EXPECT_EQ(TGet("a"), "b");
        EXPECT_EQ(handle->walk, (type == DBT_PLAIN ? 0 : 16) + 7);  // as a walk leaves it
        EXPECT_EQ(TGet("ab"), "first");
        EXPECT_EQ(DbmTGetRecordSize(handle, "ab"), 5);
        EXPECT_EQ(TGet(""), "");
        EXPECT_EQ(DbmTGetRecord(handle, nullptr, nullptr), 0);
        char small[2] = {};
        void *buffer = small;
        ASSERT_EQ(DbmTGetRecordV(handle, "ab", &buffer, 2), 5);
        ASSERT_NE(buffer, small);  // longer than the limit: a block of its own
        EXPECT_EQ(std::string(static_cast<char *>(buffer), 5), "first");
        PutMem(buffer);
    }
    EXPECT_EQ(DbmTGetRecord(nullptr, "a", nullptr), 0);
}

TEST_F(DbTTest, HeaderNumberAndNewDatabases) {
    Open(kHeader + kHeadedAB);
    EXPECT_EQ(handle->number, 7);
    Open("");
    EXPECT_EQ(handle->type, DBT_NEW);
    EXPECT_EQ(handle->size, DBM_HEADER_SIZE);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(handle->content), 7), "TVDBAA0");
    DbTClose(handle);
    handle = DbTOpen("missing", 0);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->content, nullptr);
    EXPECT_EQ(TGet("a"), "");
}

TEST_F(DbTTest, FileNamesResolve) {
    for (auto [name, file] : {std::pair{"en_US/CoreString", "/db/en_US/CoreString.vdb"},
                              {"/x/strings", "/x/strings.vdb"},
                              {"/x/strings.old", "/x/strings.old"},
                              {"./here", "./here"}}) {
        MemPtr<char> resolved(DbTFileName(name));
        EXPECT_EQ(resolved.get(), name[0] == '/' || name[0] == '.' ? file : tool + file);
    }
}

TEST_F(DbTTest, ReloadsAReplacedFileUnlessToldNotTo) {
    for (uint32_t mode : {0u, DBT_NOUPDATE}) {
        SCOPED_TRACE(mode);
        Open(kKeyedAB, mode);
        Touch(1000);
        DbTClose(handle);
        handle = DbTOpen("t", mode);
        EXPECT_EQ(TGet("a"), "b");
        Write(db / "t.vdb", Keyed("a", "new"));
        Touch(2000);
        EXPECT_EQ(TGet("a"), mode ? "b" : "new");
    }
}

TEST_F(DbTTest, RecordsAddedInMemoryStayUntilTheFileChanges) {
    // The empty file came from the fuzz harness: it was reloaded on every
    // lookup, which dropped what had been added since.
    for (const std::string &image : {kKeyedAB, std::string()}) {
        SCOPED_TRACE(image.size());
        Open(image);
        ASSERT_EQ(DbmTPutData(handle, "k", "v", 1), 1);
        EXPECT_EQ(TGet("k"), "v");
    }
}

TEST_F(DbTTest, RecordRunningPastTheEndCutsTheView) {
    std::string cut = Headed("later", "x");
    cut[1] = static_cast<char>(0x7f);  // L beyond what remains, below the whole size
    Open(kHeader + kHeadedAB + cut + std::string(100, 'z'));
    EXPECT_EQ(TGet("a"), "b");
    EXPECT_EQ(TGet("later"), "");
    EXPECT_EQ(handle->size, static_cast<int>(kHeader.size() + kHeadedAB.size()));
}

TEST_F(DbTTest, WritesHeadedFilesTheLookupsRead) {
    Open(kKeyedAB + Keyed("ab", "1"));  // a plain file becomes headed at its first change
    ASSERT_EQ(DbmTPutRecord(handle, "c", "d", 1), 1);
    std::string file = Slurp(db / "t.vdb");
    EXPECT_EQ(file.substr(0, 8), "TVDBAA0\0"s);
    EXPECT_EQ(file.substr(16), kHeadedAB + Headed("ab", "1") + Headed("c", "d"));
    EXPECT_FALSE(fs::exists(db / "t.vdb_new"));

    EXPECT_EQ(TGet("a"), "b");
    ASSERT_EQ(DbmTPutRecord(handle, "a", "x", 1), 1);  // replaced and moved to the end
    EXPECT_EQ(TGet("a"), "x");
    MemPtr<char> list(DbmTGetRecordList(handle, ",", ","));
    EXPECT_STREQ(list.get(), ",ab,c,a,");
    MemPtr<char> sorted(DbmTGetRecordListS(handle, "[", "]"));
    EXPECT_STREQ(sorted.get(), "[a[ab[c]");
    ASSERT_EQ(DbmTCopyRecord(handle, "c", "cc"), 1);
    ASSERT_EQ(DbmTDeleteRecords(handle, "c"), 1);
    ASSERT_EQ(DbmTDeleteRecord(handle, "ab"), 1);

    DbT *reader = DbTOpen("t", 0);  // what another process sees
    EXPECT_EQ(TGet("a", reader) + "," + TGet("cc", reader) + "," + TGet("ab", reader), "x,,");
    DbTClose(reader);
    // The keyed layer reads none of it, but must not choke on it either.
    EXPECT_EQ(Get("t", "a"), "");
}

TEST_F(DbTTest, WriteSideRefusesWhatCannotBeReadBack) {
    Open("");
    for (auto [key, ok] : {std::pair<std::string, int>{"", 0},
                           {"tab\there", 0},
                           {std::string(DBM_KEY_SIZE, 'k'), 0},
                           {"25_510", 1}})
        EXPECT_EQ(TestKeyName(key.c_str()), ok) << key;
    std::string huge(70000, 'x');
    EXPECT_EQ(DbmTPutData(handle, "k", huge.data(), static_cast<int>(huge.size())), 0);
    EXPECT_EQ(DbmTPutRecord(handle, "k", "", 0), 0);
    EXPECT_EQ(DbmTDeleteRecords(handle, ""), 0);
    // A database whose directory is gone cannot be saved, and leaves nothing.
    DbT *lost = DbTOpen("/nonexistent/dir/x", 0);
    EXPECT_EQ(DbmTPutRecord(lost, "k", "v", 1), 0);
    DbTClose(lost);
}

}  // namespace
