// Start-up as the administrator sees it: the version line, the name the
// program was invoked by, and a work area that does not exist.
#include "E2e.h"

namespace e2e {
namespace {

class StartupTest : public E2eTest {};

TEST_F(StartupTest, VersionLineNamesTheProgramAndMissingWorkAreaExitsTwo) {
    // The words after -v are never looked at: the missing directory passes.
    Outcome o = Rehearse({"-q"}, {SETUP_BIN, "-v", "/no/such/dir", "install"});
    EXPECT_EQ(o.status, 0);
    EXPECT_EQ(o.err, "setup 3.00.92\n");
    EXPECT_EQ(o.out, "");
    fs::create_symlink(SETUP_BIN, scratch / "inst");
    o = Rehearse({"-q"}, {(scratch / "inst").string(), "-v"});
    EXPECT_EQ(o.status, 0);
    EXPECT_EQ(o.err, "inst 3.00.92\n");
    o = Rehearse({"-q"}, {SETUP_BIN, "/no/such/dir"});
    EXPECT_EQ(o.status, 2);
    EXPECT_EQ(o.out, "");  // message 57 is empty in every language
    EXPECT_FALSE(o.Has("/opt/Orvel"));
}

}  // namespace
}  // namespace e2e
