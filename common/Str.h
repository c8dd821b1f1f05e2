// Paths, strings and environment.
//
// Allocated results come from GetMem and are the caller's to PutMem. The path
// splitters return static buffers of their own, valid until their next call.
#pragma once

#define PRINTF_LIKE(fmt, args) __attribute__((format(printf, fmt, args)))

constexpr int STRIP_BUF_SIZE = 4096;  ///< capacity of each path splitter's buffer

extern char *pToolPath;  ///< directory of the running program (the medium)

/// New allocation with the formatted text; ends the program when memory runs out.
char *SaveStr(const char *format, ...) PRINTF_LIKE(1, 2);
/// Plain copy of `string` (not null); ends the program when memory runs out.
char *SaveStr_(const char *string);
/// Formats through a 64 KiB buffer; null format gives null.
char *SaveStr__(const char *format, ...) PRINTF_LIKE(1, 2);

char *StripFn(const char *path);        ///< directory part; "." when none
char *StripPath(const char *path);      ///< last non-empty component
char *StripExt(const char *name);       ///< text before the first "." (strtok rule)
char *StripPathExt(const char *path);   ///< last component before its first "."
char *StripPathName(const char *path);  ///< last component's name without extension
char *SkipSpace(const char *string);    ///< first non-blank character; null stays null
char *StripAllBackslashes(char *string);

int StrLen(const char *string);
char *StrChr(const char *string, int c);          ///< first unescaped c, or null
char *StrNChr(const char *string, int c, int n);  ///< n-th c (1-based), or null
char *StrStr(const char *haystack, const char *needle);
char *StrCaseStr(const char *haystack, const char *needle);
char *StrNStr(const char *haystack, const char *needle, int n);
/// Deepest existing ancestor of `path` (allocated); *exactFlag = 1 when it is `path`.
char *FindExistingPath(const char *path, int *exactFlag);

/// Whether the system takes `path` with `room` more characters after it: 0
/// yes, 1 the whole would pass PATH_MAX - 1 characters, 2 a name in it passes
/// NAME_MAX.
int PathFits(const char *path, int room);

char *GetEnv(const char *name);  ///< allocated value, or null when unset
char *GetHostname();
char *GetUserName();                  ///< through `whoami`; null when it cannot run
char *GetToolPath(const char *path);  ///< absolute directory of a program path
void SetVarContent(void *destination, const void *source, int count, int reverse);

int SniffCUPS();   ///< 1 when `cupsd` is on the command path
int SniffLprng();  ///< 1 when `lpd -V` says LPRng

double MaxD(double a, double b);
/// The number at the start of `text` as atoi reads it, but defined for every
/// text: a value past the range of int gives INT_MIN or INT_MAX.
int ClampedInt(const char *text);
/// Length conversion between 0 inches, 1 centimetres, 2 points.
double CvtFloatFormat(double value, int fromUnit, int toUnit);
