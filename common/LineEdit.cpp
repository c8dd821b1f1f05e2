// In-place editing of text files. Every operation reads "<file>.<ext>" in
// pieces, writes the edited form to "<file>.<ext>out" beside it and moves
// that copy over the original with "rm -f" and "mv".
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "LineFile.h"
#include "MemMgr.h"
#include "Msg.h"

namespace {

const char *OrEmpty(const char *s) {
    return s ? s : "";
}

// The first occurrence of `search` in `piece`; none for a null search.
char *Find(char *piece, const char *search) {
    return search ? std::strstr(piece, search) : nullptr;
}

// Reads a number the way "%i" does (sign, 0x hexadecimal, 0 octal); false
// when the text does not start with one.
bool ParseCode(const char *text, long *value) {
    if (!text) return false;
    char *end = nullptr;
    *value = std::strtol(text, &end, 0);
    return end != text;
}

// One edit in progress: the two files open, the piece being looked at.
class Edit {
  public:
    Edit(const char *file, const char *ext) {
        bool named =
            ext && *ext ? Fit(name_, "%s.%s", OrEmpty(file), ext) : Fit(name_, "%s", OrEmpty(file));
        // "<file>.<ext>out", and so "<file>.out" without an extension.
        if (!named || !Fit(temp_, "%s.%sout", OrEmpty(file), OrEmpty(ext)))
            SysError("can't open file, %s", name_);
        in_.reset(OpenFile(nullptr, name_, "rt", 2));
        out_.reset(OpenFile(nullptr, temp_, "wt", 2));
    }

    /// Reads the next piece of at most READ_PIECE - 1 characters.
    bool Next() { return std::fgets(piece_, READ_PIECE, in_.get()) != nullptr; }
    char *Piece() { return piece_; }

    void Write(std::string_view text) { std::fwrite(text.data(), 1, text.size(), out_.get()); }
    void WritePiece() { Write(piece_); }
    void WriteUpTo(const char *at) { Write({piece_, static_cast<size_t>(at - piece_)}); }
    void WriteByte(char c) { std::fputc(static_cast<unsigned char>(c), out_.get()); }
    FILE *Out() { return out_.get(); }

    /// Closes both files and moves the copy over the original; a copy that
    /// did not reach the disk whole is removed instead and the file stays.
    int Replace() {
        in_.reset();
        bool whole = FlushToDisk(out_.get());
        out_.reset();
        if (!whole) {
            std::remove(temp_);
            return -1;
        }
        int result = ReplaceFileByCopy(name_, temp_);
        FlushDirectoryOf(name_);
        return result;
    }

  private:
    template <size_t N>
    static bool Fit(char (&buffer)[N], const char *format, const char *a, const char *b = "") {
        int n = std::snprintf(buffer, N, format, a, b);
        return n >= 0 && static_cast<size_t>(n) < N;
    }

    char name_[FN_SIZE] = {};
    char temp_[FN_SIZE] = {};
    char piece_[READ_PIECE] = {};
    FilePtr in_;
    FilePtr out_;
};

// The piece with its first `text` taken out.
void WriteWithout(Edit &edit, char *hit, const char *text) {
    edit.WriteUpTo(hit);
    edit.Write(hit + std::strlen(text));
}

// Every byte of `piece` except those equal to `code`, which are passed to
// `replace` instead.
template <typename Replace>
void ForEachByte(Edit &edit, long code, Replace replace) {
    for (const char *p = edit.Piece(); *p; ++p) {
        if (static_cast<unsigned char>(*p) == code)
            replace();
        else
            edit.WriteByte(*p);
    }
}

// The insertion template: "%s<n>" taken out and n the first counter value;
// "%#<n>" the place of the counter, counted from n.
class Template {
  public:
    explicit Template(const char *tmpl) {
        std::string_view source = OrEmpty(tmpl);
        text_.reset(static_cast<char *>(GetMem(static_cast<long>(source.size()) + 1)));
        if (!text_) return;
        source.copy(text_.get(), source.size());
        char *start = text_.get();
        if (char *s = std::strstr(start, "%s"); s && IsDigit(s[2])) {
            const char *end = ReadNumber(s + 2, &counter_);
            std::memmove(s, end, std::strlen(end) + 1);
        }
        if (char *h = std::strstr(start, "%#"); h && IsDigit(h[2])) {
            rest_ = ReadNumber(h + 2, &from_);
            hash_ = h;
        }
    }

    /// Writes the template for the current line and counts the line.
    void WriteBefore(Edit &edit) {
        if (text_ && !hash_) {
            edit.Write(text_.get());
        } else if (text_ && counter_ >= from_) {
            edit.Write({text_.get(), static_cast<size_t>(hash_ - text_.get())});
            std::fprintf(edit.Out(), "%05ld", counter_ - from_);
            edit.Write(rest_);
        }
        ++counter_;
    }

  private:
    static bool IsDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

    // Decimal digits at `p` into *value (held below a billion, so the counter
    // cannot overflow); returns the first character after them.
    static const char *ReadNumber(const char *p, long *value) {
        long v = 0;
        for (; IsDigit(*p); ++p)
            if (v < 100000000) v = v * 10 + (*p - '0');
        *value = v;
        return p;
    }

    MemPtr<char> text_;
    const char *hash_ = nullptr;  ///< at "%#" in text_; null when there is none
    const char *rest_ = nullptr;  ///< after the digits of "%#"
    long counter_ = 0;
    long from_ = 0;
};

enum class DelMode { Remove, CutAfter, CutBefore, RemoveChar, DeleteLine, Unknown };

DelMode ModeOf(const char *mode) {
    switch (mode ? mode[0] : '\0') {
        case '\0':
            return DelMode::Remove;
        case 'a':
            return DelMode::CutAfter;
        case 'b':
            return DelMode::CutBefore;
        case 'c':
            return DelMode::RemoveChar;
        case 'l':
            return DelMode::DeleteLine;
        default:
            return DelMode::Unknown;
    }
}

void DelFormatPiece(Edit &edit, DelMode mode, const char *text, long code) {
    if (mode == DelMode::RemoveChar) {
        ForEachByte(edit, code, [] {});
        return;
    }
    char *hit = Find(edit.Piece(), text);
    if (!hit) {
        edit.WritePiece();
        return;
    }
    switch (mode) {
        case DelMode::Remove:
            WriteWithout(edit, hit, text);
            break;
        case DelMode::CutAfter:
            edit.WriteUpTo(hit + std::strlen(text));
            edit.Write("\n");
            break;
        case DelMode::CutBefore:
            edit.Write(hit);
            break;
        default:
            break;  // DeleteLine
    }
}

}  // namespace

int FileChange(const char *file, const char *ext, const char *search, const char *replace) {
    Edit edit(file, ext);
    while (edit.Next()) {
        char *hit = Find(edit.Piece(), search);
        if (!hit) {
            edit.WritePiece();
            continue;
        }
        edit.WriteUpTo(hit);
        edit.Write(OrEmpty(replace));
        edit.Write(hit + std::strlen(search));
    }
    return edit.Replace();
}

int FileChangeChar(const char *file, const char *ext, const char *fromCode, const char *toCodes) {
    long code = -1;
    if (!ParseCode(fromCode, &code)) code = -1;
    // Each listed code becomes one byte (its low eight bits); the list cannot
    // hold more bytes than its text has characters.
    char bytes[FN_SIZE];
    size_t count = 0;
    for (const char *p = OrEmpty(toCodes); *p && count < sizeof bytes;) {
        long value = 0;
        if (ParseCode(p, &value)) bytes[count++] = static_cast<char>(value & 0xFF);
        const char *comma = std::strchr(p, ',');
        if (!comma) break;
        p = comma + 1;
    }
    std::string_view replacement(bytes, count);
    Edit edit(file, ext);
    while (edit.Next()) ForEachByte(edit, code, [&] { edit.Write(replacement); });
    return edit.Replace();
}

int FileDel(const char *file, const char *ext, int skip, const char *search) {
    Edit edit(file, ext);
    long seen = 0;
    while (edit.Next()) {
        char *hit = Find(edit.Piece(), search);
        if (hit && seen++ >= skip)
            WriteWithout(edit, hit, search);
        else
            edit.WritePiece();
    }
    return edit.Replace();
}

int FileDelLine(const char *file, const char *ext, int keep, const char *search) {
    Edit edit(file, ext);
    long seen = 0;
    while (edit.Next()) {
        bool hit = Find(edit.Piece(), search) != nullptr;
        if (!hit || seen++ < keep) edit.WritePiece();
    }
    return edit.Replace();
}

int FileDelLinePair(const char *file, const char *ext, int keep, const char *startText,
                    const char *endText) {
    Edit edit(file, ext);
    // A byte, as it always was: 256 deleted starts in a row wrap it to zero.
    uint8_t pending = 0;
    while (edit.Next()) {
        if (Find(edit.Piece(), startText)) {
            if (keep > 0) {
                --keep;
                edit.WritePiece();
            } else {
                ++pending;
            }
        } else if (pending > 0 && Find(edit.Piece(), endText)) {
            --pending;
        } else {
            edit.WritePiece();
        }
    }
    return edit.Replace();
}

int FileDelFormat(const char *file, const char *ext, const char *mode, const char *text) {
    Edit edit(file, ext);
    DelMode how = ModeOf(mode);
    // The files are opened before the mode is looked at, so an unknown mode
    // still ends the program for a missing file and leaves an empty copy.
    if (how == DelMode::Unknown) return 1;
    long code = -1;
    if (how == DelMode::RemoveChar && !ParseCode(text, &code)) code = -1;
    while (edit.Next()) DelFormatPiece(edit, how, text, code);
    edit.Replace();
    return 0;
}

int FileInsert(const char *file, const char *ext, const char *tmpl) {
    Template prefix(tmpl);
    Edit edit(file, ext);
    while (edit.Next()) {
        prefix.WriteBefore(edit);
        edit.WritePiece();
    }
    return edit.Replace();
}

int FileSearchInsert(const char *file, const char *ext, const char *tmpl, const char *search) {
    Template prefix(tmpl);
    Edit edit(file, ext);
    while (edit.Next()) {
        if (Find(edit.Piece(), search)) prefix.WriteBefore(edit);
        edit.WritePiece();
    }
    return edit.Replace();
}
