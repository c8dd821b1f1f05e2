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
    using Command = std::vector<std::string>;
    const std::tuple<Command, Command, std::string> cases[] = {
        {{"-t", "/small:1M"},
         {setup, "/small"},
         "There isn't enough space in /small to perform the installation activities. The "
         "temporary work area should be at least " +
             Fill("%e", tsize + 40) +
             " bytes. Restart the installation procedure using a work area that has enough "
             "space. \nie: 1. Use /new_work_area_path in place of /tmp\n    2. Run `setup "
             "/new_work_area_path`\n"},
        {{"-t", "/opt:1M"},
         {setup, "/var/tmp"},
         "There isn't enough space in /opt to perform the installation activities. The "
         "install area should be at least " +
             Fill("%e", isize + 40) +
             " bytes. Restart the installation procedure using an install area that has "
             "enough space. \nie: 1. Use /new_install_path in place of the default "
             "location\n    2. Run 'setup install /new_install_path'\n"},
        {{"-t", "/small:2M"},
         {setup, "/small", "install", "/small/base"},
         "There isn't enough space to perform the installation activities. As you are using "
         "a working directory, /small/OrvelInstall on the same partition as the install "
         "directory you have selected, /small/base this install requires " +
             Fill("%e", isize + tsize + 80) +
             " bytes free. Please re-run the install specifing a different location for a "
             "working directory or install directory. Please see the readme if you need "
             "help with the syntax."},
        // Either size file missing names isize; the sandbox's copy of the site loses it.
        {{}, {"/bin/sh", "-c", "rm " + site.string() + "/isize; exec " + setup}, missing},
        {{}, {"/bin/sh", "-c", "rm " + site.string() + "/tsize; exec " + setup}, missing}};
    for (const auto &[options, command, message] : cases) {
        Outcome o = Rehearse(options, command);
        EXPECT_EQ(o.out, message);
        EXPECT_EQ(o.status, 0);
        EXPECT_EQ(o.err, "");
        for (const char *untouched : {"/opt/Orvel/pnzz", "/small/OrvelInstall", "/small/base",
                                      "/tmp/OrvelInstall", "/var/tmp/OrvelInstall"})
            EXPECT_FALSE(o.Has(untouched)) << untouched;
    }
}

}  // namespace
}  // namespace e2e
