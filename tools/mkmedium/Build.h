// Building an installation medium from a package directory.
#pragma once

#include <string>

#include "Medium.h"

struct BuildOptions {
    MediumKind kind = MediumKind::Site;
    bool dosNames = false;
    long capacity = kDefaultCapacity;
    std::string setupProgram;  ///< the installer to copy; default <package>/setup; its
                               ///< directory holds trans.conf and db/, copied too
    std::string helpFile;      ///< its help file; default <package>/setup.hlp
    std::string output;        ///< must not exist yet
    std::string package;       ///< holds pkg/pkg.list
};

/// Builds the medium into `options.output`, created whole at the end; prints one
/// line saying what was made. Ends the tool through `Die` on any failure,
/// leaving no output directory and no staging tree.
void BuildMedium(const BuildOptions &options);
