// Line-mode dialogue shared by the menus and the installer.
#pragma once

#include "Str.h"

extern char flExitTextMenu;  ///< set by a handler: every running menu loop ends

/// Asks "<question>? [y/n] " (the question's own conversions take the further
/// arguments) until a line starting with "y" (1) or "n" (0) is typed. At end
/// of input it keeps asking: unattended runs must not reach it.
int PromptYN(const char *question, ...);
