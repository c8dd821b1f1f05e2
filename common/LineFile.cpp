// Line files: opening with error modes, existence tests, names, the line
// readers and the whole-file queries. The editing operations are in LineEdit.cpp.
#include "LineFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "MemMgr.h"
#include "Msg.h"
#include "SysCmd.h"
#include "Token.h"

FILE *pIn = nullptr;
FILE *pOut = nullptr;
char Fn[FN_SIZE];
char FnOut[FN_SIZE];
char *pLine = Line;
int LineCnt = 0;
long InPos = 0;
char flInputFilterState = 0;
char InputFileName[FN_SIZE];
int FileStatus = 1;
char LineBuf[LINEBUF_SIZE];
int LineLen = 0;
long SavedFileSize = 0;

namespace {

const char *OrEmpty(const char *s) {
    return s ? s : "";
}
bool IsSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

// snprintf that tells whether the whole text fit: a cut path would name
// another file, so callers treat it as one that cannot be opened.
bool Format(char *buffer, size_t size, const char *format, ...) PRINTF_LIKE(3, 4);
bool Format(char *buffer, size_t size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(buffer, size, format, args);
    va_end(args);
    return n >= 0 && static_cast<size_t>(n) < size;
}

bool FormatV(char *buffer, size_t size, const char *format, va_list args) {
    int n = std::vsnprintf(buffer, size, format, args);
    return n >= 0 && static_cast<size_t>(n) < size;
}

void CloseStream(FILE *&file) {
    if (file) std::fclose(file);
    file = nullptr;
}

void ReportOpenFailure(const char *path, int errorMode) {
    if (errorMode == 2) SysError("can't open file, %s", path);
    if (errorMode == 1) std::fprintf(stderr, "ERROR: can't open file, %s\n", path);
}

// "<directory>/<name>", the directory alone without a name, the name alone
// without a directory; false when there is neither or it does not fit.
bool JoinPath(char *buffer, size_t size, const char *directory, const char *name) {
    if (!directory && !name) return false;
    if (!name) return Format(buffer, size, "%s", directory);
    if (!directory) return Format(buffer, size, "%s", name);
    return Format(buffer, size, "%s/%s", directory, name);
}

}  // namespace

// ---- Opening

FILE *OpenFile(FILE *previous, const char *path, const char *mode, int errorMode) {
    if (previous) std::fclose(previous);
    FILE *file = path && mode ? std::fopen(path, mode) : nullptr;
    if (!file) ReportOpenFailure(OrEmpty(path), errorMode);
    return file;
}

FILE *OpenFileF(FILE *previous, const char *mode, int errorMode, const char *format, ...) {
    char path[FN_SIZE];
    va_list args;
    va_start(args, format);
    bool fits = format && FormatV(path, sizeof path, format, args);
    va_end(args);
    if (fits) return OpenFile(previous, path, mode, errorMode);
    if (previous) std::fclose(previous);
    ReportOpenFailure(format ? path : "", errorMode);
    return nullptr;
}

int OpenRawFile(const char *path, int flags, int permissions) {
    int fd = path ? open(path, flags, static_cast<mode_t>(permissions)) : -1;
    if (fd < 0) std::printf("ERROR: can't open file, %s", OrEmpty(path));
    return fd;
}

FILE *OpenIOFiles(const char *file, const char *ext) {
    bool fits = ext && *ext ? Format(Fn, sizeof Fn, "%s.%s", OrEmpty(file), ext)
                            : Format(Fn, sizeof Fn, "%s", OrEmpty(file));
    // Not the "%s.%sout" of the editing routines: settings files written
    // through this pair have always been staged as "<name>out".
    if (!fits || !Format(FnOut, sizeof FnOut, "%sout", Fn)) SysError("can't open file, %s", Fn);
    pIn = OpenFile(pIn, Fn, "rt", 2);
    pOut = OpenFile(pOut, FnOut, "wt", 2);
    return pOut;
}

int ReplaceFileByCopy(const char *file, const char *copy) {
    char command[2 * FN_SIZE + 16];
    Format(command, sizeof command, "rm -f %s", OrEmpty(file));
    RunShellLine(command);
    Format(command, sizeof command, "mv %s %s", OrEmpty(copy), OrEmpty(file));
    return RunShellLine(command);
}

int ReplaceInputFile() {
    CloseStream(pIn);
    // A copy that did not reach the disk whole must not take the file's
    // place: the file stays as it was.
    bool whole = FlushToDisk(pOut);
    CloseStream(pOut);
    if (!whole) {
        std::remove(FnOut);
        return -1;
    }
    int result = ReplaceFileByCopy(Fn, FnOut);
    FlushDirectoryOf(Fn);
    return result;
}

// ---- Existence

namespace {

// A directory and an entry name, each in a buffer of its own: the path
// splitters return static buffers that callers also pass in as arguments.
struct DirEntry {
    char dir[FN_SIZE] = {};
    char name[FN_SIZE] = {};
};

void CopyBounded(char *buffer, size_t size, const char *text) {
    Format(buffer, size, "%s", OrEmpty(text));
}

void SplitWithStrip(const char *path, DirEntry &out) {
    char copy[FN_SIZE];
    CopyBounded(copy, sizeof copy, path);
    CopyBounded(out.dir, sizeof out.dir, StripFn(copy));
    CopyBounded(out.name, sizeof out.name, StripPath(copy));
}

// Splits at the last "/"; trailing slashes go first, so that "bin/" under
// "/usr" asks for bin in /usr rather than for an empty name.
void SplitAtLastSlash(char *path, DirEntry &out) {
    size_t n = std::strlen(path);
    while (n > 1 && path[n - 1] == '/') path[--n] = '\0';
    char *slash = std::strrchr(path, '/');
    if (!slash) {  // the name was nothing but slashes: "a//" asks for a in .
        CopyBounded(out.dir, sizeof out.dir, ".");
        CopyBounded(out.name, sizeof out.name, path);
        return;
    }
    CopyBounded(out.name, sizeof out.name, slash + 1);
    if (slash == path)
        slash[1] = '\0';
    else
        *slash = '\0';
    CopyBounded(out.dir, sizeof out.dir, path);
}

// True when the name is an entry of a directory that can be listed, asked of
// the entry itself: the answer the listing would give, without reading all
// of /tmp before every log message. Only a miss needs the listing, whose
// blank-separated words can also match a piece of a name holding blanks.
bool ListedByName(const DirEntry &entry, const char *path) {
    if (!*entry.dir || !*entry.name || std::strchr(entry.name, ' ')) return false;
    struct stat st;
    return lstat(path, &st) == 0 && access(entry.dir, R_OK) == 0;
}

int InDirectoryList(const DirEntry &entry) {
    char path[2 * FN_SIZE + 2];
    bool joined = Format(path, sizeof path, "%s/%s", entry.dir, entry.name);
    if (Seam.exists) return joined && Seam.exists(path);
    if (joined && ListedByName(entry, path)) return 1;
    MemPtr<char> list(GetDirFileList(entry.dir));
    if (!list) return 0;
    return FindToken(entry.name, list.get()) ? 1 : 0;
}

}  // namespace

int FindFile(const char *directory, const char *name) {
    bool noDirectory = !directory || !*directory;
    bool noName = !name || !*name;
    if (noDirectory && noName) return 0;
    DirEntry entry;
    if (noDirectory) {
        SplitWithStrip(name, entry);
    } else if (noName) {
        SplitWithStrip(directory, entry);
    } else if (std::strchr(name, '/')) {
        char joined[2 * FN_SIZE];
        if (!Format(joined, sizeof joined, "%s/%s", directory, name)) return 0;
        SplitAtLastSlash(joined, entry);
    } else {
        CopyBounded(entry.dir, sizeof entry.dir, directory);
        CopyBounded(entry.name, sizeof entry.name, name);
    }
    return InDirectoryList(entry);
}

int FindPath(const char *path) {
    // The parts are kept apart: FindFile splits again into the same buffers.
    char directory[STRIP_BUF_SIZE];
    char name[STRIP_BUF_SIZE];
    CopyBounded(directory, sizeof directory, StripFn(path));
    CopyBounded(name, sizeof name, StripPath(path));
    return FindFile(directory, name);
}

int FindFile_(const char *directory, const char *name) {
    char path[2 * FN_SIZE];
    struct stat st;
    return JoinPath(path, sizeof path, directory, name) && stat(path, &st) == 0 ? 1 : 0;
}

// ---- Names

char *GenName(const char *text) {
    static char name[GENNAME_SIZE];
    std::string_view s = OrEmpty(text);
    auto isAlpha = [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; };
    auto isAlnum = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; };
    size_t n = 0;
    bool wordStart = true;
    for (size_t i = std::find_if(s.begin(), s.end(), isAlpha) - s.begin(); i < s.size(); ++i) {
        auto c = static_cast<unsigned char>(s[i]);
        if (!isAlnum(s[i])) {
            wordStart = true;
            continue;
        }
        if (n + 1 < sizeof name)
            name[n++] = static_cast<char>(wordStart ? std::toupper(c) : std::tolower(c));
        wordStart = false;
    }
    name[n] = '\0';
    return name;
}

// ---- GetLine and its variants

namespace {

// Reads the next physical piece at pLine. The text in Line never passes
// GETLINE_SIZE - 1 characters and pLine only ever moves to a "/*" found
// in it, so at least three bytes of room remain.
bool ReadPiece() {
    int room = GETLINE_SIZE - static_cast<int>(pLine - Line);
    return std::fgets(pLine, std::min(READ_PIECE, room), pIn) != nullptr;
}

void EraseTo(char *from, const char *to) {
    std::memmove(from, to, std::strlen(to) + 1);
}

// Applies the comment filter to the piece at pLine. True when the logical
// line is complete; false when a block comment is open past this piece, in
// which case the next piece is to be read at pLine.
bool FilterPiece(bool &inComment) {
    if (inComment) {
        char *close = std::strstr(pLine, "*/");
        if (!close) {
            // Inside the comment: nothing of this piece belongs to the line.
            *pLine = '\0';
            return false;
        }
        EraseTo(pLine, close + 2);
        inComment = false;
    }
    if (char *slashes = std::strstr(pLine, "//")) *slashes = '\0';
    char *text = pLine;
    while (IsSpace(*text)) ++text;
    EraseTo(pLine, text);
    if (!*pLine) return true;
    char *open = std::strstr(pLine, "/*");
    if (!open) return true;
    if (char *close = std::strstr(open + 2, "*/")) {
        EraseTo(open, close + 2);
        return true;
    }
    *open = '\0';
    pLine = open;
    inComment = true;
    InPos = std::ftell(pIn);
    return false;
}

void CutAtLineEnd(char *s) {
    s[std::strcspn(s, "\n\r")] = '\0';
}

}  // namespace

int GetLine() {
    LineCnt = 0;
    pLine = Line;
    if (!pIn) return 0;
    InPos = std::ftell(pIn);
    if (!ReadPiece()) return 0;
    bool inComment = false;
    for (;;) {
        ++LineCnt;
        if (!flInputFilterState) break;
        if (FilterPiece(inComment)) {
            CutAtLineEnd(Line);
            break;
        }
        if (!ReadPiece()) return 0;
    }
    size_t used = std::strlen(Line);
    std::memset(Line + used, 0, GETLINE_SIZE - used);
    return LineCnt;
}

int GetLinePos(long position) {
    if (!pIn || std::fseek(pIn, position, SEEK_SET) != 0) return 0;
    return GetLine();
}

int GetLineN(int n) {
    if (!pIn || n < 1 || std::fseek(pIn, 0, SEEK_SET) != 0) return 0;
    int consumed = 0;
    for (int i = 0; i < n; ++i)
        if (!(consumed = GetLine())) return 0;
    return consumed;
}

char *fgetsp(char *buffer, int size, FILE *file, long *position) {
    if (position) *position = file ? std::ftell(file) : -1;
    if (!buffer || !file || size < 1) return nullptr;
    return std::fgets(buffer, size, file);
}

// ---- The input-file reader

namespace {

int InputOpenFailed(const char *name, int errorKind) {
    ErrorMsg(errorKind, 1, "can't open file, %s", name);
    FileStatus = 2;
    std::memset(LineBuf, 0, sizeof LineBuf);
    LineLen = 0;
    return 0;
}

}  // namespace

int OpenInputFile(const char *name, int errorKind) {
    CopyBounded(InputFileName, sizeof InputFileName, name);
    CloseStream(pIn);
    pIn = name ? std::fopen(name, "rt") : nullptr;
    if (!pIn) return InputOpenFailed(OrEmpty(name), errorKind);
    FileStatus = 0;
    return 1;
}

int OpenInputFileF(int errorKind, const char *format, ...) {
    char name[FN_SIZE];
    va_list args;
    va_start(args, format);
    bool fits = format && FormatV(name, sizeof name, format, args);
    va_end(args);
    if (fits) return OpenInputFile(name, errorKind);
    CopyBounded(InputFileName, sizeof InputFileName, format ? name : "");
    CloseStream(pIn);
    return InputOpenFailed(InputFileName, errorKind);
}

int GetFileLine() {
    if (!pIn) return 0;
    LineLen = 0;
    if (!std::fgets(LineBuf, READ_PIECE, pIn)) {
        CloseInputFile();
        return 0;
    }
    // A piece can only hold the backslash-newline at its end, so looking in
    // the last piece is enough; the text already joined is not searched again.
    while (std::strstr(LineBuf + LineLen, "\\\n")) {
        int used = static_cast<int>(std::strlen(LineBuf));
        int room = LINEBUF_SIZE - used;
        if (room < 2 || !std::fgets(LineBuf + used, std::min(READ_PIECE, room), pIn)) break;
        LineLen = used;
    }
    return 1;
}

int GetFileTextLine() {
    if (!GetFileLine()) return 0;
    size_t n = std::strlen(LineBuf);
    while (n > 0 && (LineBuf[n - 1] == '\n' || LineBuf[n - 1] == '\r')) LineBuf[--n] = '\0';
    return 1;
}

void CloseInputFile() {
    CloseStream(pIn);
    FileStatus = 1;
}

// ---- Whole files and queries

namespace {

// read(2) until `size` bytes or the end of the file; the count read.
long ReadAll(int fd, char *buffer, long size) {
    long total = 0;
    while (total < size) {
        ssize_t n = read(fd, buffer + total, static_cast<size_t>(size - total));
        if (n <= 0) break;
        total += n;
    }
    return total;
}

int OpenForContent(const char *directory, const char *name) {
    char path[2 * FN_SIZE];
    if (!JoinPath(path, sizeof path, directory, name)) return -1;
    return open(path, O_RDONLY);
}

}  // namespace

int GetFileContent(const char *directory, const char *name) {
    int fd = OpenForContent(directory, name);
    if (fd < 0) return 0;
    // One byte short of the buffer, so that the terminating NUL fits.
    long n = ReadAll(fd, LineBuf, LINEBUF_SIZE - 1);
    LineBuf[n] = '\0';
    close(fd);
    return 1;
}

int GetFileContentR(const char *directory, const char *name, char *buffer, int size) {
    int fd = OpenForContent(directory, name);
    if (fd < 0) return 0;
    long n = buffer && size > 0 ? ReadAll(fd, buffer, size) : 0;
    // The NUL goes to LineBuf, not to `buffer`: callers written against this
    // end their buffer themselves. Past LineBuf's end it is dropped.
    if (n < LINEBUF_SIZE) LineBuf[n] = '\0';
    close(fd);
    return 1;
}

char *GetSavedFileContent(const char *directory, const char *name) {
    char path[2 * FN_SIZE];
    SavedFileSize = 0;
    if (!Format(path, sizeof path, "%s%s%s", OrEmpty(directory), name ? "/" : "", OrEmpty(name)))
        return nullptr;
    SavedFileSize = GetFileSize(path);
    if (SavedFileSize <= 0) return nullptr;
    MemPtr<char> block(static_cast<char *>(GetMem(SavedFileSize + 1)));
    if (!block) {
        ErrorMsg(1, 0, "%s", OutOfMem);
        return nullptr;
    }
    // A one-byte file holds at most a lone newline: it is handed back empty.
    if (SavedFileSize >= 2) {
        FilePtr file(std::fopen(path, "rb"));
        if (!file) return nullptr;
        std::fread(block.get(), 1, static_cast<size_t>(SavedFileSize), file.get());
    }
    return block.release();
}

long GetFileSize(const char *path) {
    struct stat st;
    return path && stat(path, &st) == 0 ? static_cast<long>(st.st_size) : 0;
}

int GetFileType(const char *path) {
    struct stat st;
    if (!path || lstat(path, &st) != 0) return 0;
    if (S_ISDIR(st.st_mode)) return 1;
    if (S_ISLNK(st.st_mode)) return 2;
    return 3;
}

time_t GetFileTime(const char *path) {
    struct stat st;
    return path && stat(path, &st) == 0 ? st.st_mtime : 0;
}

char *FileSearch(const char *path, const char *text, int errorMode) {
    static char found[READ_PIECE];
    FilePtr file(OpenFile(nullptr, path, "rt", errorMode));
    if (!file) return nullptr;
    while (std::fgets(found, READ_PIECE, file.get()))
        if (!text || std::strstr(found, text)) return found;
    return nullptr;
}
