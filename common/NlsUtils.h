// Language support: the language directory chosen from LANG through the
// translation table "trans.conf", the string databases of that language, and
// the menu texts and templates filled from them.
//
// trans.conf, beside the program, holds one line per language directory,
// "<directory> = <LANG value> <LANG value> ...", and a line "Default
// <directory>". A value is matched with a blank on each side, so the last
// value of a line never matches: end every line with a value nobody uses.
#pragma once

#include <cstdio>

#include "Dbm.h"
#include "Str.h"

struct MENUITEM;

constexpr int TRANS_TABLE_SIZE = 8192;  ///< the normalised table, NUL included
constexpr int REDIRECT_NAME_SIZE = 64;  ///< CheckForRedirect's buffer, NUL included
constexpr int NLS_BUF_SIZE = 0x10000;   ///< one fetched string
constexpr int NLS_MENU_STRING = 128;    ///< one menu string, NUL included
constexpr int NLS_TEMPLATE_STRING = 1024;
constexpr int NLS_RECORD_LIMIT = 2048;  ///< what a mode-3 fetch offers
constexpr int NLS_MENU_GROUP = 25;      ///< the menu engine's strings

extern char *pNLSLang;     ///< chosen language directory, null until first asked
extern char *pTransTable;  ///< normalised trans.conf, null until loaded
extern DbT *pDrvCoreDB;    ///< core strings of the chosen language
extern DbT *pPrtHelpDB;    ///< help texts
extern DbT *pPrtCoreDB;    ///< the package's own strings

/// The normalised text of "<tool directory>/<name>" in a new block; null when
/// it cannot be read or its normalised form would not fit TRANS_TABLE_SIZE.
char *ParseTransFile(const char *name);
/// The language directory, chosen on the first call and kept for the run.
char *GetDesiredNLSLang();
/// The string database "<tool directory>/db/<language>/<name>.vdb"; null (after
/// "ERROR:  Could not open English database:  <path>") only when the language
/// is English and the file cannot be opened. Other languages hand back the
/// handle either way: callers test its content.
DbT *NlsOpenDB(const char *name, unsigned mode);
/// The target of "...$$<target>.redirect..." (case ignored), cut in place at
/// its "."; null when `text` names none.
char *FindRedirect(char *text);
/// The redirect target (at most REDIRECT_NAME_SIZE - 1 characters) in a static
/// buffer, after its help text from pPrtHelpDB has been copied into `text`
/// (which must hold it: NLS_BUF_SIZE bytes); null when `text` names none.
char *CheckForRedirect(char *text);

/// A string of `database` by key: mode 0 and 3 take (int group, int number),
/// mode 1 and 2 take (const char *key). Found: copied into `buffer` (which
/// must hold it) or, with a null buffer, a new block. Missing: the key
/// ("<group>_<number>") likewise. A key that cannot be formed gives "Error".
/// With a null buffer every result is a block the caller releases.
char *NlsFetchString(DbT *database, char *buffer, int mode, ...);
/// Stores string 25_<number> (a new block) into *field and returns it.
char *NlsTtyMenuCvt(const char **field, int number);
/// Item i of `count` gets string 25_<first + i> as its label.
void NlsTtyMenuItemCvt(MENUITEM *items, int first, int count);
/// The same into each item's choices.
void NlsTtyMenuItemStateCvt(MENUITEM *items, int first, int count);
/// The same into each item's prompt.
void NlsTtyMenuItemPromptCvt(MENUITEM *items, int first, int count);
/// `output` (cleared, `size` bytes) gets `tmpl` with each "%s" replaced by the
/// next string of `group`, numbered from 1; the result is cut to fit.
char *NlsGuiStrCvt(const char *tmpl, int group, char *output, int size);
/// "%08X%08X" of the position-squared-weighted byte sum and the plain sum,
/// in a static buffer.
char *NlsCalcStrVal(const char *text);
/// fprintf with the format fetched as string <group>_<number> of `database`.
int Nlsfprintf(FILE *stream, DbT *database, int group, int number, ...);
/// sprintf into `buffer` (`size` bytes, cut to fit) with the format fetched
/// as string <group>_<number> of `database`.
int Nlssprintf(char *buffer, int size, DbT *database, int group, int number, ...);
