// For tests of what the menu engine prints: its strings from the English
// built into the program, with no string database in reach.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "MemMgr.h"
#include "NlsUtils.h"
#include "TextMenuString.h"

/// Points the tool directory at `toolPath` (which holds no databases) and
/// opens the built-in strings; the missing English database is reported on
/// standard error once, which is swallowed here.
inline void UseBuiltInStrings(std::string &toolPath) {
    unsetenv("LANG");
    pToolPath = toolPath.data();
    pNLSLang = pTransTable = nullptr;
    pDrvCoreDB = nullptr;
    testing::internal::CaptureStderr();
    PutMem(TextMenuString(1016));
    testing::internal::GetCapturedStderr();
}
