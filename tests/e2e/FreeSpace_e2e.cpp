// The free-space check made before anything is copied, against small tmpfs
// mounts of the sandbox: each its own file system, apart from the root's.
#include "E2e.h"

namespace e2e {
namespace {

class FreeSpaceTest : public E2eTest {};

TEST_F(FreeSpaceTest, EachShortageStopsWithItsMessageBeforeAnythingIsCopied) {
    fs::path site =
        Medium(Package("pkg-src", "c blob mode 644\n", {{"blob", Incompressible(1200 * 1024)}}),
               {"--site"});
    std::string setup = (site / "setup").string();
    double isize = std::strtod(Slurp(site / "isize").c_str(), nullptr);
    double tsize = std::strtod(Slurp(site / "tsize").c_str(), nullptr);
    ASSERT_TRUE(isize > 1024 && tsize > 1024) << "the package must outgrow a 1 MiB mount";
    const std::string missing =
        "Could not determine how much space needed for install, missing isize.\n";
    using Words = std::vector<std::string>;  // the wording itself is the string table's
    const std::tuple<Words, Words, Words> cases[] = {
        {{"-t", "/small:1M"},
         {setup, "/small"},
         {"space in /small ", "temporary work area should be at least " + Fill("%e", tsize + 40)}},
        {{"-t", "/opt:1M"},
         {setup, "/var/tmp"},
         {"space in /opt ", "install area should be at least " + Fill("%e", isize + 40)}},
        {{"-t", "/small:2M"},
         {setup, "/small", "install", "/small/base"},
         {"directory, /small/OrvelInstall on the same partition as the install directory you have "
          "selected, /small/base this install requires " +
          Fill("%e", isize + tsize + 80) + " bytes"}},
        // Either size file missing names isize; the sandbox's copy of the site loses it.
        {{}, {"/bin/sh", "-c", "rm " + site.string() + "/isize; exec " + setup}, {missing}},
        {{}, {"/bin/sh", "-c", "rm " + site.string() + "/tsize; exec " + setup}, {missing}}};
    for (const auto &[options, command, message] : cases) {
        Outcome o = Rehearse(options, command);
        for (const std::string &part : message)
            EXPECT_NE(o.out.find(part), std::string::npos) << part << "\n" << o.out;
        EXPECT_EQ(o.status, 0);
        EXPECT_EQ(o.err, "");
        for (const char *untouched : {"/opt/Orvel/pnzz", "/small/OrvelInstall", "/small/base",
                                      "/tmp/OrvelInstall", "/var/tmp/OrvelInstall"})
            EXPECT_FALSE(o.Has(untouched)) << untouched;
    }
}

}  // namespace
}  // namespace e2e
