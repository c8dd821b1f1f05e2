// The menu engine's own strings (group 25 of the core string database), with
// English built into the program for a medium that lacks its databases.
#pragma once

#include "Dbm.h"

/// The source text of the English core strings, compiled in from the same
/// file the shipped database is built from.
extern const char CoreStringEnglish[];
extern const long CoreStringEnglishSize;

/// pDrvCoreDB, opened on first need: the chosen language's CoreString, else
/// the English one, else the English strings built into the program.
DbT *OpenCoreStrings();
/// String 25_<id> of the core strings in a new block (the caller releases
/// it). A translation that would read other arguments than the English text
/// does is replaced by the English text, so that a damaged database cannot
/// make a format read arguments it was not given.
char *TextMenuString(int id);
