// Script templates written by GenSimpleScript.
#pragma once

extern const char *const ScriptShShell;    ///< "#!/bin/sh"
extern const char *const ScriptCopyRight;  ///< banner; one %d: the current year
extern const char *const ScriptTail;       ///< closing lines of a script
extern const char *const SimpleScript;
extern const char *const OrvelPrintpnzzScript;
extern const char *const OrvelKVTScript;
extern const char *const DemonScript;
extern const char *const SimpleHPOrvelDemonScript;
extern const char *const SimpleOvPnScript;
