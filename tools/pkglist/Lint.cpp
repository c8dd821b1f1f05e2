// pkglist lint: the list read line by line as the installer reads it (the
// same reader, tokenizer and keyword lists), with a warning wherever a line
// does something its author may not expect.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>

#include "PkgList.h"
#include "Pkglist.h"
#include "utils.h"

using namespace pkglist;
namespace fs = std::filesystem;

namespace {

class LineCheck {
  public:
    LineCheck(const ListSource &source, std::set<std::string> &held)
        : source_(source), held_(held) {
        listDir_ = fs::absolute(fs::path(source.path)).parent_path();
    }

    int warnings = 0;

    void Check(const char *text, int line) {
        line_ = line;
        cursor_ = nullptr;
        if (const char *command = Word(text)) Command(command);
    }

    /// "LIST:LINE: warning: " and the message, for the line last checked.
    void Warn(const char *format, ...) PRINTF_LIKE(2, 3) {
        va_list args;
        va_start(args, format);
        std::printf("%s:%d: warning: ", source_.path.c_str(), line_);
        std::vprintf(format, args);
        std::putchar('\n');
        va_end(args);
        ++warnings;
    }

  private:
    const ListSource &source_;
    std::set<std::string> &held_;  // names in the package directory so far
    fs::path listDir_;
    int line_ = 0;
    const char *cursor_ = nullptr;
    char word_[LINEBUF_SIZE];

    const char *Word(const char *start = nullptr, const char *separators = WORD_SEPARATORS) {
        return GetTokenD(start, separators, &cursor_, word_);
    }

    // A file a copy takes from the package, which must be beside the list.
    void CheckSource(const std::string &name) {
        std::error_code error;
        if (!fs::exists(listDir_ / name, error))
            Warn("%s is not in the package (%s): the copy fails", name.c_str(),
                 (listDir_ / name).c_str());
    }

    void Command(const char *word) {
        std::string command = word;
        int kind = FindToken(command.c_str(), COMMANDS);
        if (kind == PL_COMMENT) return;
        const char *next = Word();
        if (!next) {
            Warn("'%s' without a name does nothing", command.c_str());
            return;
        }
        std::string name = next;
        if (kind == PL_UNKNOWN)
            Warn("unknown command '%s' is carried out as c: copies %s", command.c_str(),
                 name.c_str());
        switch (kind) {
            case PL_UNKNOWN:
            case PL_COPY:
            case PL_DIR:
                CheckSource(name);
                held_.insert(fs::path(name).filename().string());
                break;
            case PL_DIRTO: {
                const char *to = Word();
                if (!to) return Warn("dirto %s without a destination does nothing", name.c_str());
                CheckSource(name);
                std::string destination = to;  // the next word reuses the buffer
                if (Word())
                    Warn(
                        "attributes after dirto act on the package directory's %s, not on the "
                        "copy in %s",
                        name.c_str(), destination.c_str());
                return;
            }
            case PL_TOUCH:
            case PL_NEWDIR:
                held_.insert(name);
                break;
            case PL_MUST_EXIST:
            case PL_SAME_AS_M:
                if (!held_.count(name))
                    Warn(
                        "%s %s: no earlier line puts %s in the package directory; where it "
                        "is missing the rest of the line is skipped",
                        command.c_str(), name.c_str(), name.c_str());
                break;
            case PL_RELEASE:
                return Condition(name);
            default:
                break;
        }
        Attributes(name);
    }

    void Condition(const std::string &op) {
        const char *word = Word();
        std::string release = word ? word : "";
        switch (FindToken(op.c_str(), OPERATORS)) {
            case OP_LESS:
            case OP_LESS_EQUAL:
                Warn(
                    "v %s %s holds when the running release sorts %s \"%s\" as text, not as a "
                    "number (6.10 sorts before 6.5)",
                    op.c_str(), release.c_str(), op == "<" ? "before" : "before or equal to",
                    release.c_str());
                break;
            case OP_GREATER_EQUAL:
                Warn("v >= %s always holds, whatever the release", release.c_str());
                break;
            case OP_EQUAL:
            case OP_GREATER:
                Warn("v %s %s never holds, whatever the release: the rest of the line never runs",
                     op.c_str(), release.c_str());
                return;
            default:
                Warn("v with operator '%s' never holds: the rest of the line never runs",
                     op.c_str());
                return;
        }
        if (const char *command = Word()) Command(std::string(command).c_str());
    }

    void Attributes(const std::string &name) {
        bool first = true, renamed = false;
        std::string newName;
        for (const char *word; (word = Word()); first = false) {
            std::string attribute = word;
            int kind = FindToken(attribute.c_str(), ATTRIBUTES);
            bool rest = first && kind == AT_SED;
            const char *value = Word(nullptr, rest ? REST_OF_LINE : WORD_SEPARATORS);
            if (!value) {
                Warn("'%s' without a value is ignored", attribute.c_str());
                return;
            }
            std::string text = value;
            if (rest && text.find(' ') != std::string::npos)
                Warn(
                    "sed as the first attribute takes the rest of the line as its script: "
                    "'%s'",
                    text.c_str());
            if (kind == AT_UNKNOWN) {
                Warn("unknown attribute '%s' is passed over", attribute.c_str());
                continue;
            }
            if (renamed)
                Warn("%s after name acts on the old name %s, not on %s", attribute.c_str(),
                     name.c_str(), newName.c_str());
            if (kind == AT_NAME) {
                renamed = true;
                newName = text;
                held_.erase(name);
                held_.insert(text);
            }
        }
    }
};

}  // namespace

int Lint(const ListSource &source) {
    // What the installer puts there before the list, as it would on this machine.
    std::set<std::string> held = Prepare(source, "/opt", "/tmp/OrvelInstall");
    LineCheck check(source, held);
    OpenInputFile(source.path.c_str(), 2);
    while (GetFileLine()) {
        size_t length = std::strlen(LineBuf);
        int line = source.ReaderLine();
        bool cut = length > 0 && LineBuf[length - 1] != '\n' && pIn && !std::feof(pIn);
        if (cut) {  // a line of exactly the piece's length leaves only its newline behind
            int after = std::fgetc(pIn);
            cut = after != EOF && after != '\n';
            std::ungetc(after, pIn);
        }
        std::string text(LineBuf, length);
        check.Check(text.c_str(), line);
        if (cut)
            check.Warn("line longer than %d characters: the rest is read as a line of its own",
                       READ_PIECE - 1);
    }
    CloseInputFile();
    return check.warnings ? 1 : 0;
}
