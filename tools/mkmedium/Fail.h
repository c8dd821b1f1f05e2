// Ending the tool with one line of error, leaving nothing half-written behind.
#pragma once

#include "Str.h"

/// Prints "mkmedium: <text>" as one line on standard error and ends with status 1,
/// after removing the directory registered with `RemoveOnFailure`.
[[noreturn]] void Die(const char *format, ...) PRINTF_LIKE(1, 2);
/// Registers `path` (a whole tree) to be removed when the tool ends by `Die` or a
/// signal; an empty path clears the registration.
void RemoveOnFailure(const char *path);
