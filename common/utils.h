// The utilities of the shared library: tokenizer and keyword lists, paths and
// strings, messages and the log, line files and in-place editing.
#pragma once

#include "MemMgr.h"
#include "Token.h"
#include "Str.h"
#include "Msg.h"
#include "LineFile.h"
#include "Seam.h"
