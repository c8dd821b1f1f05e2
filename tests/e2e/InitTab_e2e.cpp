// The init table entry for the daemon watcher. /etc/inittab is the machine's:
// "Inside" does the work within a rehearsal, the outer test reads what it left.
#include "E2e.h"
#include "setup.h"

namespace e2e {
namespace {

constexpr const char *kInsideVariable = "SETUP_INITTAB_INSIDE";
constexpr const char *kTable = "id:3:initdefault:\nsi::sysinit:/etc/rcS\n";
constexpr const char *kEntry = "OvPn:3:respawn:/opt/Orvel/pnzz/OvPn\n";

TEST(Inside, AddDaemonToInitTabTwice) {
    if (!std::getenv(kInsideVariable)) GTEST_SKIP() << "runs only inside a rehearsal";
    Write("/etc/inittab", kTable);
    static char name[] = "setup";
    my_name = name;
    flUseLog = 1;
    InitSysCmdList();
    pInitTabSave = SaveStr("/etc/inittab.%sSave", "Orvel");
    std::snprintf(AppDir, sizeof AppDir, "%s", "/opt/Orvel/pnzz");
    AddDaemonToInitTab();
    AddDaemonToInitTab();  // the entry is there: nothing to do
    // Someone removed the entry by hand: it comes back, the backup stays.
    Write("/etc/inittab", std::string(kTable) + "# edited by hand\n");
    AddDaemonToInitTab();
}

class InitTabTest : public E2eTest {};

TEST_F(InitTabTest, EntryIsAddedOnceAndTheFirstBackupIsKept) {
    Outcome o = Rehearse({"-q", "-e", std::string(kInsideVariable) + "=1"},
                         {fs::read_symlink("/proc/self/exe"), "--gtest_filter=Inside.*"});
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_EQ(o.Text("/etc/inittab"), std::string(kTable) + "# edited by hand\n" + kEntry);
    EXPECT_EQ(o.Text("/etc/inittab.OrvelSave"), kTable);
    EXPECT_NE(o.Text("/tmp/setup.log").find("/cp -p /etc/inittab /etc/inittab.OrvelSave"),
              std::string::npos);
}

}  // namespace
}  // namespace e2e
