// The installer's message catalogue: six tables of 73 messages, one per
// language, chosen once from LANG.
#pragma once

constexpr int NLS_MESSAGES = 73;

using NlsTable = const char *const[NLS_MESSAGES];

extern NlsTable NLS_ENGLISH;
extern NlsTable NLS_SPANISH;
extern NlsTable NLS_ITALIAN;
extern NlsTable NLS_FRENCH;
extern NlsTable NLS_GERMAN;
extern NlsTable NLS_PORTUGUESE;

extern const char *const *pCurLang;  ///< chosen table, null until the first lookup

/// Message `id` (0..70) in the language chosen from LANG on the first call.
const char *NlsSetupStrCvt(int id);
