// Verifying an installation medium the way the installer will use it.
#pragma once

#include <string>
#include <vector>

/// Checks a medium: `dirs` is a site directory, the diskette directories in
/// order, or one directory holding disk1, disk2, ... Every file the disks file
/// names must be where the installer looks for it, every directory must hold
/// trans.conf and db/ (read from the drive whichever diskette is in it), and the
/// pieces must join, uncompress and unpack to a pkg/ tree with pkg.list. Prints
/// one line saying what was checked; ends the tool through `Die` at the first fault.
void CheckMedium(std::vector<std::string> dirs);
