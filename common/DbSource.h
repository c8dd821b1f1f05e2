// The text form of a record database, as package makers write it and as
// `vdb dump` prints it. One record a line:
//
//   KEY "TEXT"        the text with its escapes resolved, stored with a NUL
//   KEY raw "BYTES"   exactly these bytes, no NUL added
//
// KEY is a run of characters other than blank, tab and '"', not starting with
// '#', or a quoted string written like TEXT (a key holding a blank, a quote or
// a control character is written quoted). Inside quotes: \\ \" \n \t \r and
// \xHH (exactly two hexadecimal digits) stand for one byte; every other byte,
// UTF-8 included, stands for itself. Empty lines and lines whose first
// character is '#' are skipped. Blanks and tabs may surround the words; nothing
// may follow the closing quote.
#pragma once

#include <cstdio>

constexpr int DBSOURCE_ERROR_SIZE = 256;  ///< enough for every parse message

/// Receives one record of a source; returns 0 to stop the parse (an error
/// "cannot store the record" at that line).
using DbSourceSink = int (*)(void *context, const char *key, const unsigned char *data,
                             int length);

/// Parses `length` bytes of source text, handing each record to `sink` in
/// order. Returns 0 when the whole text was read, else the 1-based number of
/// the first bad line, with what was expected there in `error` (NUL-ended,
/// at most DBSOURCE_ERROR_SIZE bytes). Records before a bad line have been
/// handed over already.
int ParseDbSource(const char *text, long length, DbSourceSink sink, void *context, char *error);

/// Writes one record in the form above, ending in a newline: text form when
/// the data's last byte is a NUL (inner NULs written \x00), raw form otherwise. Parsing the line gives
/// back the same key and bytes.
void WriteDbSourceRecord(FILE *out, const char *key, const unsigned char *data, int length);
