// Pieces of the typed database layer shared by its read and write sides.
#pragma once

#include "Dbm.h"

namespace dbt {

/// Brings the handle up to date (unless DBT_NOUPDATE) and finds `key`: the
/// data length, or -1 when absent. The record and cursor stand at it.
int FindData(DbT *db, const char *key, DbTRecord *record);
/// Copies the data of the record FindData or the walk stands at.
void CopyData(const DbT *db, const DbTRecord &record, void *to);

/// Forgets the key index; every change of the content must call it.
void DropIndex(DbT *db);

}  // namespace dbt
