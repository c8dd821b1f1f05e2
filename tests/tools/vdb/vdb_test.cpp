// vdb run as package makers run it, on databases in a temporary directory and
// on the string databases the build ships.
#include <gtest/gtest.h>

#include <set>

#include "TestFiles.h"

namespace {

using namespace testfiles;
using namespace std::string_literals;

// Every awkward kind of record, in the form `vdb dump` prints: quoted keys,
// escapes, UTF-8, raw bytes, empty data and a key stored twice.
const std::string kSource =
    "MSG_HELLO \"Hello, world\\n\"\n"
    "\"key with blanks\" \"x\"\n"
    "T_TAB \"a\\tb \\\\ \\\"q\\\" \xc3\xa9\"\n"
    "BIN raw \"\\x00\\x01\xff\"\n"
    "EMPTY \"\"\n"
    "NONE raw \"\"\n"
    "MSG_HELLO \"again\"\n";

class VdbTest : public ::testing::Test {
  protected:
    TempDir top, aside;  // aside: what vdb prints, apart from what it makes
    std::string out, err;

    // Runs vdb with `args` (shell words) in the top directory; returns its exit status.
    int Vdb(const std::string &args) {
        return testfiles::Run("cd " + top.path().string() + " && " VDB_BINARY " " + args,
                              aside.path(), out, err);
    }
    std::set<std::string> Listing() const { return testfiles::Listing(top.path()); }
    void Build(const std::string &source) {
        Write(top / "s.txt", source);
        ASSERT_EQ(Vdb("build s.txt s.vdb"), 0) << err;
    }
};

TEST_F(VdbTest, BuildThenDumpGivesBackTheSource) {
    Build("old \"gone\"\n");
    Build(kSource);
    EXPECT_EQ(Vdb("dump s.vdb"), 0) << err;
    EXPECT_EQ(out, kSource);
    EXPECT_EQ(Listing(), (std::set<std::string>{"s.txt", "s.vdb"}));
}

TEST_F(VdbTest, ShippedDatabasesDumpAsTheirSources) {
    int languages = 0;
    for (const auto &entry : fs::directory_iterator(SOURCE_DIR "/strings")) {
        fs::path source = entry.path() / "CoreString.txt";
        if (!fs::exists(source)) continue;
        ++languages;
        fs::path database = fs::path(BUILD_DIR) / "db" / entry.path().filename() / "CoreString.vdb";
        EXPECT_EQ(Vdb("dump " + database.string()), 0) << err;
        EXPECT_EQ(out, Slurp(source)) << database;
    }
    EXPECT_GT(languages, 0);
    EXPECT_EQ(Slurp(BUILD_DIR "/trans.conf"), Slurp(SOURCE_DIR "/strings/trans.conf"));
}

TEST_F(VdbTest, MalformedSourceIsReportedByLineAndChangesNothing) {
    Build(kSource);
    Write(top / "bad.txt", "# one record\n\nok \"1\"\nnext \"2\" 3\n");
    std::set<std::string> before = Listing();
    for (const char *database : {"s.vdb", "new.vdb"}) {
        EXPECT_EQ(Vdb("build bad.txt "s + database), 2);
        EXPECT_EQ(err, "bad.txt:4: text after the closing quote\n");
        EXPECT_EQ(Listing(), before) << "no new database, no scratch file";
    }
    Vdb("dump s.vdb");
    EXPECT_EQ(out, kSource);
}

TEST_F(VdbTest, GetPutDeleteAndKeysWorkOnOneRecordAtATime) {
    Build(kSource);
    const std::tuple<const char *, int, std::string> steps[] = {
        {"get s.vdb MSG_HELLO", 0, "Hello, world\n\n"},  // the first of the key's records
        {"get s.vdb BIN", 0, "\0\x01\xff"s},
        {"get s.vdb NONE", 0, ""},  // an empty record is there
        {"get s.vdb ABSENT", 1, ""},
        {"put s.vdb 'key with blanks' 'new text'", 0, ""},
        {"delete s.vdb MSG_HELLO", 0, ""},
        {"delete s.vdb MSG_HELLO", 1, ""},
        {"keys s.vdb", 0, "T_TAB\nBIN\nEMPTY\nNONE\nkey with blanks\n"},
        {"get s.vdb 'key with blanks'", 0, "new text\n"},
        {"put fresh k v", 0, ""},
        {"get fresh.vdb k", 0, "v\n"},  // a name without a dot gets .vdb, as setup reads it
        {"get fresh k", 0, "v\n"}};
    for (const auto &[args, status, shown] : steps) {
        EXPECT_EQ(Vdb(args), status) << args << "\n" << err;
        EXPECT_EQ(out, shown) << args;
    }
}

TEST_F(VdbTest, MissingDatabaseIsAnErrorAndStaysMissing) {
    for (const char *args : {"dump m.vdb", "keys m.vdb", "get m.vdb k", "delete m.vdb k"}) {
        EXPECT_EQ(Vdb(args), 1) << args;
        EXPECT_NE(err.find("m.vdb: no such database"), std::string::npos) << err;
    }
    EXPECT_TRUE(Listing().empty());
}

// A keyed record file written record by record: big-endian lengths, and a body
// in which each byte is XORed with the plain byte after it.
std::string PlainRecord(const std::string &key, const std::string &data) {
    size_t k = key.size() + 1;
    std::string body = std::string{char(k >> 8), char(k)} + key + '\0' + data;
    for (size_t i = 0; i + 1 < body.size(); ++i) body[i] ^= body[i + 1];
    return std::string{char(body.size() >> 8), char(body.size())} + body;
}

TEST_F(VdbTest, DumpsPlainKeyedRecordFiles) {
    Write(top / "plain.vdb", PlainRecord("A", "one\0"s) + PlainRecord("B", std::string(300, 'b')));
    EXPECT_EQ(Vdb("dump plain.vdb"), 0) << err;
    EXPECT_EQ(out, "A \"one\"\nB raw \"" + std::string(300, 'b') + "\"\n");
}

TEST_F(VdbTest, UsageGoesToStdoutOnRequestAndStderrOnMisuse) {
    EXPECT_EQ(Vdb("--help"), 0);
    EXPECT_TRUE(out.starts_with("usage: vdb build SOURCE DATABASE\n")) << out;
    for (const char *args : {"", "frob s.vdb", "get s.vdb", "keys a b", "build s.txt"}) {
        EXPECT_EQ(Vdb(args), 2) << args;
        EXPECT_EQ(out, "");
        EXPECT_TRUE(err.starts_with("usage: vdb")) << args;
    }
}

}  // namespace
