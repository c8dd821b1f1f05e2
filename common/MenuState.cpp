// Item states: conditions over the menu's values, choices that come and go
// with them, and the line-mode chooser of choice items.
//
// A condition tests items by the number the user sees (their `key`):
//
//   N.V    item N has value V: the V-th choice (9), exactly the set {V} (10;
//          N.0 is the empty set), the integer V (13), the text V (11, 12),
//          the number V (14)
//   +N.V   choice V is chosen (10), is the current one (9); elsewhere N.V
//   -N.V   the opposite of +N.V
//   *      always true
//
// joined by "!", "&", "|" (binding in that order) and parentheses. Blanks
// between the parts are skipped; a text value ends at a blank, "&", "|" or
// ")". A condition that cannot be read, or names an item that holds no
// value, is false as a whole, also under "!".
//
// Choices are the comma tokens of `choices` as GetToken splits them: a run
// of commas is one separator and "\," does not split, so that the numbers
// here agree with `choiceCount` and with the engine's two-way toggle.
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "TextMenu.h"
#include "TextMenuString.h"
#include "TtyScreen.h"
#include "utils.h"

namespace {

// Ids of the chooser's prompt lines (group 25).
constexpr int kPickOnePrompt = 620;
constexpr int kPickManyPrompt = 621;

// Nesting of "(" and "!" a condition may use; a menu's conditions need a few,
// the bound keeps hostile input from exhausting the stack.
constexpr int kMaxDepth = 32;
// The highest choice of a type-10 item: the set stays within 32 bits, the
// width the item records were laid out for.
constexpr int kMaxManyChoice = 31;
constexpr long kNothingChosen = 1;

bool IsChoiceItem(const MENUITEM *item) {
    return item && (item->type == MENU_PICKONE || item->type == MENU_PICKMANY);
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/// Records before the array's end.
int ItemCount(const MENU *menu) {
    int n = 0;
    if (menu && menu->items)
        while (menu->items[n].text) ++n;
    return n;
}

MENUITEM *ItemAt(MENU *menu, int index) {
    return index >= 0 && index < ItemCount(menu) ? &menu->items[index] : nullptr;
}

/// The item the user selects by number `key`; hot-key items answer to
/// letters, never to numbers.
MENUITEM *ItemByKey(MENU *menu, long key) {
    for (int i = 0, n = ItemCount(menu); i < n; ++i) {
        MENUITEM *item = &menu->items[i];
        if (item->type >= MENU_APPLY && item->key == key && item->text[0] != '~') return item;
    }
    return nullptr;
}

// ---- Choices

/// One comma token in place: from `begin` up to `end` (escapes unresolved).
struct Choice {
    char *begin = nullptr;
    char *end = nullptr;
};

char ResolveEscape(char c) {
    return c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : c;
}

/// Choice `n` (1-based) of `choices`; false when there is none.
bool FindChoice(char *choices, int n, Choice &out) {
    if (!choices || n < 1) return false;
    char *p = choices;
    for (int k = 0;;) {
        while (*p == ',') ++p;
        if (!*p) return false;
        char *begin = p;
        int length = 0;
        while (*p && *p != ',') {
            // A backslash at the very end escapes nothing and, as for
            // GetToken, counts for nothing.
            bool escape = *p == '\\';
            if (!escape || p[1]) ++length;
            p += escape && p[1] ? 2 : 1;
        }
        if (length && ++k == n) {
            out = {begin, p};
            return true;
        }
    }
}

/// The choice's first character as GetToken gives it.
char FirstChar(const Choice &c) {
    return c.begin[0] == '\\' ? ResolveEscape(c.begin[1]) : c.begin[0];
}

bool Available(MENUITEM *item, int n) {
    Choice c;
    return FindChoice(item->choices, n, c) && FirstChar(c) != ' ';
}

/// Overwrites the marker character; an escaped first character is left
/// alone, since overwriting the backslash would change where tokens split.
void MarkChoice(MENUITEM *item, int n, char marker) {
    Choice c;
    if (item && FindChoice(item->choices, n, c) && c.begin[0] != '\\') c.begin[0] = marker;
}

/// The choice's text with escapes resolved, into `out` of `size` bytes.
void ChoiceText(const Choice &c, char *out, size_t size) {
    size_t n = 0;
    for (const char *p = c.begin; p < c.end && n + 1 < size;) {
        bool escape = *p == '\\';
        if (escape && p + 1 == c.end) break;
        out[n++] = escape ? ResolveEscape(p[1]) : *p;
        p += escape ? 2 : 1;
    }
    out[n] = '\0';
}

/// Where the engine keeps the current choice's text, as the two-way toggle
/// does: GetTokenBuf.
void SetChoiceText(MENUITEM *item, int n) {
    Choice c;
    if (!FindChoice(item->choices, n, c)) return;
    ChoiceText(c, GetTokenBuf, sizeof GetTokenBuf);
    item->choiceText = GetTokenBuf;
}

bool Chosen(long set, int n) {
    return n >= 1 && n <= kMaxManyChoice && (static_cast<unsigned long>(set) >> n & 1);
}

long Toggle(long set, int n) {
    return static_cast<long>(static_cast<unsigned long>(set) ^ (1UL << n));
}

/// Bit 0 alone is the empty set, so an emptied set becomes 1.
long Normalized(long set) {
    return (static_cast<unsigned long>(set) & ~1UL) == 0 ? kNothingChosen : set;
}

// ---- Conditions

/// Recursive descent over one condition: Or := And {"|" And}; And := Not
/// {"&" Not}; Not := "!" Not | "(" Or ")" | "*" | Test. Every operand is
/// read even when the result is known, so that a fault anywhere is seen.
class Condition {
  public:
    Condition(MENU *menu, std::string_view text) : menu_(menu), rest_(text) {}

    bool Holds() {
        bool value = Or(0);
        SkipBlanks();
        return value && !bad_ && rest_.empty();
    }

  private:
    MENU *menu_;
    std::string_view rest_;
    bool bad_ = false;

    void SkipBlanks() {
        while (!rest_.empty() && (rest_.front() == ' ' || rest_.front() == '\t'))
            rest_.remove_prefix(1);
    }

    bool Eat(char c) {
        SkipBlanks();
        if (rest_.empty() || rest_.front() != c) return false;
        rest_.remove_prefix(1);
        return true;
    }

    bool Fail() {
        bad_ = true;
        return false;
    }

    bool Or(int depth) {
        bool value = And(depth);
        while (!bad_ && Eat('|')) value = And(depth) || value;
        return value;
    }

    bool And(int depth) {
        bool value = Not(depth);
        while (!bad_ && Eat('&')) value = Not(depth) && value;
        return value;
    }

    bool Not(int depth) {
        if (depth >= kMaxDepth) return Fail();
        if (Eat('!')) return !Not(depth + 1);
        if (Eat('(')) {
            bool value = Or(depth + 1);
            return Eat(')') ? value : Fail();
        }
        if (Eat('*')) return true;
        return Test();
    }

    /// An optional "-" and one to nine digits, nothing else.
    static bool Number(std::string_view word, long &out) {
        bool negative = !word.empty() && word.front() == '-';
        std::string_view digits = word.substr(negative);
        // Nine digits stay far from the range of a long.
        if (digits.empty() || digits.size() > 9) return false;
        long n = 0;
        for (char c : digits) {
            if (!IsDigit(c)) return false;
            n = n * 10 + (c - '0');
        }
        out = negative ? -n : n;
        return true;
    }

    /// "[+-]N.V"
    bool Test() {
        SkipBlanks();
        char sign =
            !rest_.empty() && (rest_.front() == '+' || rest_.front() == '-') ? rest_.front() : 0;
        if (sign) rest_.remove_prefix(1);
        size_t digits = 0;
        while (digits < rest_.size() && IsDigit(rest_[digits])) ++digits;
        long key = 0;
        if (!Number(rest_.substr(0, digits), key) || digits >= rest_.size() || rest_[digits] != '.')
            return Fail();
        rest_.remove_prefix(digits + 1);
        size_t n = 0;
        while (n < rest_.size() && !std::strchr("&|) \t", rest_[n])) ++n;
        std::string_view value = rest_.substr(0, n);
        rest_.remove_prefix(n);
        MENUITEM *item = ItemByKey(menu_, key);
        return item ? Compare(item, sign, value) : Fail();
    }

    bool Compare(MENUITEM *item, char sign, std::string_view text) {
        long v = 0;
        switch (item->type) {
            case MENU_PICKONE:
                if (!Number(text, v)) return Fail();
                return (item->value.number == v - 1) != (sign == '-');
            case MENU_PICKMANY:
                if (!Number(text, v) || v < 0 || v > kMaxManyChoice || (sign && v == 0))
                    return Fail();
                if (sign) return Chosen(item->value.number, static_cast<int>(v)) != (sign == '-');
                return (static_cast<unsigned long>(item->value.number) & ~1UL) ==
                       (v ? 1UL << v : 0);
            case MENU_INT:
                if (!Number(text, v)) return Fail();
                return (item->value.number == v) != (sign == '-');
            case MENU_NAME:
            case MENU_STRING:
                return (text == (item->value.text ? item->value.text : "")) != (sign == '-');
            case MENU_FLOAT:
                return CompareFloat(item->value.real, text) != (sign == '-');
            default:
                return Fail();
        }
    }

    bool CompareFloat(float value, std::string_view text) {
        float v = 0;
        auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), v);
        if (text.empty() || error != std::errc() || end != text.data() + text.size() ||
            !std::isfinite(v))
            return Fail();
        return value == v;
    }
};

// ---- Visibility

/// Shows the choices whose conditions hold and hides the others; whether any
/// choice changed.
bool FollowConditions(MENU *menu, MENUITEM *item) {
    bool changed = false;
    std::string_view conditions = item->format;
    Choice c;
    for (int k = 1; FindChoice(item->choices, k, c); ++k) {
        size_t start = conditions.find_first_not_of(" \t");
        if (start == std::string_view::npos) break;
        conditions.remove_prefix(start);
        std::string_view word = conditions.substr(0, conditions.find_first_of(" \t"));
        conditions.remove_prefix(word.size());
        // Only a choice whose state differs is rewritten: a choice that is
        // always available needs no placeholder to survive.
        bool wanted = Condition(menu, word).Holds();
        char before = c.begin[0];
        if (wanted && FirstChar(c) == ' ') ShowStateSelection(item, k);
        if (!wanted && FirstChar(c) != ' ') HideStateSelection(item, k);
        changed = changed || c.begin[0] != before;
    }
    return changed;
}

/// A current choice that became unavailable gives way to the first
/// available one; with none left the value stays.
void FollowPickOne(MENUITEM *item) {
    long value = item->value.number;
    if (value >= 0 && value < INT_MAX && Available(item, static_cast<int>(value) + 1)) return;
    Choice c;
    for (int n = 1; FindChoice(item->choices, n, c); ++n) {
        if (FirstChar(c) == ' ') continue;
        item->value.number = n - 1;
        SetChoiceText(item, n);
        return;
    }
}

void FollowPickMany(MENUITEM *item) {
    long set = item->value.number;
    for (int n = 1; n <= kMaxManyChoice; ++n) {
        Choice c;
        if (Chosen(set, n) && FindChoice(item->choices, n, c) && FirstChar(c) == ' ')
            set = Toggle(set, n);
    }
    item->value.number = Normalized(set);
}

/// Brings one item's choices and value up to its conditions; whether
/// anything changed.
bool Update(MENU *menu, MENUITEM *item) {
    if (!IsChoiceItem(item) || !item->format || !*item->format || !item->choices) return false;
    long before = item->value.number;
    bool changed = FollowConditions(menu, item);
    if (item->type == MENU_PICKONE)
        FollowPickOne(item);
    else
        FollowPickMany(item);
    return changed || item->value.number != before;
}

// ---- The chooser

const char *Label(const MENUITEM *item) {
    const char *text = item->text;
    return text[0] == '~' && text[1] && text[2] ? text + 3 : text;
}

bool IsCurrent(const MENUITEM *item, int n) {
    return item->type == MENU_PICKONE ? item->value.number == n - 1 : Chosen(item->value.number, n);
}

/// The label, then one line a choice: "* 2) text" with the mark on chosen
/// ones; an unavailable choice indented under the texts, without a number.
void ShowChoices(MENUITEM *item) {
    std::printf("\n%s:\n", Label(item));
    Choice c;
    for (int n = 1; FindChoice(item->choices, n, c); ++n) {
        char text[MENU_TEXT_SIZE];
        ChoiceText(c, text, sizeof text);
        const char *shown = text[0] == ' ' || text[0] == '_' ? text + 1 : text;
        if (text[0] == ' ')
            std::printf("     %s\n", shown);
        else
            std::printf("%c%2d) %s\n", IsCurrent(item, n) ? '*' : ' ', n, shown);
    }
    MemPtr<char> prompt(
        TextMenuString(item->type == MENU_PICKONE ? kPickOnePrompt : kPickManyPrompt));
    std::printf("%s", prompt ? prompt.get() : "");
    std::fflush(stdout);
}

/// The value that an answer's words give: numbers pick (9) or toggle (10)
/// available choices; "s" keeps, "c" goes back to the saved value, "d" to
/// the default. Anything else is ignored.
long Answer(MENUITEM *item, std::string_view answer) {
    long value = item->value.number;
    while (!answer.empty()) {
        size_t start = answer.find_first_not_of(" \t,");
        if (start == std::string_view::npos) break;
        answer.remove_prefix(start);
        std::string_view word = answer.substr(0, answer.find_first_of(" \t,"));
        answer.remove_prefix(word.size());
        // Four digits cover every choice a line can list.
        int n = 0;
        bool number = word.size() <= 4;
        for (char c : word) {
            if (!(number = number && IsDigit(c))) break;
            n = n * 10 + (c - '0');
        }
        if (number && Available(item, n)) {
            if (item->type == MENU_PICKONE) value = n - 1;
            if (item->type == MENU_PICKMANY && n <= kMaxManyChoice)
                value = Normalized(Toggle(value, n));
        } else if (word.size() == 1 && (word[0] | 0x20) == MENUVAL_CANCEL) {
            value = item->savedValue.number;
        } else if (word.size() == 1 && (word[0] | 0x20) == MENUVAL_DEFAULT) {
            value = item->defaultValue.number;
        }
        if (item->type == MENU_PICKMANY) value = Normalized(value);
    }
    return value;
}

bool IsBlank(const char *text) {
    return !text || std::string_view(text).find_first_not_of(" \t\r\n") == std::string_view::npos;
}

/// The pick screen's answers follow the chooser's own rules.
long AnswerLine(MENUITEM *item, const char *line) {
    return Answer(item, line);
}

/// The line-mode chooser: the line typed, "c" at end of input.
std::string_view AskByLine(MENUITEM *item) {
    ShowChoices(item);
    GetsLine(LineBuf, LINEBUF_SIZE);
    static constexpr char kCancel[] = {MENUVAL_CANCEL, '\0'};
    return std::feof(stdin) ? kCancel : LineBuf;
}

}  // namespace

int TestStateCondition(MENU *menu, const char *condition, int index) {
    // Conditions name items by number, so the asker's place does not matter.
    (void)index;
    if (!menu || !menu->items || !condition) return 0;
    return Condition(menu, condition).Holds() ? 1 : 0;
}

void HideStateSelection(MENUITEM *item, int choice) {
    MarkChoice(item, choice, ' ');
}

void ShowStateSelection(MENUITEM *item, int choice) {
    MarkChoice(item, choice, '_');
}

void UpdateStateSelection(MENU *menu, int index) {
    Update(menu, ItemAt(menu, index));
}

void ProcessStateFormat(MENU *menu, int index) {
    (void)index;
    int count = ItemCount(menu);
    // An item may depend on one after it, so passes repeat until nothing
    // moves; conditions that contradict each other could flip forever, hence
    // the bound.
    for (int pass = 0; pass <= count; ++pass) {
        bool changed = false;
        for (int i = 0; i < count; ++i) changed = Update(menu, &menu->items[i]) || changed;
        if (!changed) break;
    }
}

int ProcessStateValue(MENU *menu, int index, char *option) {
    MENUITEM *item = ItemAt(menu, index);
    if (!IsChoiceItem(item) || !item->choices) return 0;
    long before = item->value.number;
    long after = before;
    if (!IsBlank(option))
        after = Answer(item, option);
    else if (!PrintPickOneManyScreen(menu, index, Label(item), AnswerLine, &after))
        after = Answer(item, AskByLine(item));
    if (after == before) return 0;
    item->savedValue.number = before;
    item->value.number = after;
    ProcessStateFormat(menu, index);
    // Set last: dependent items moving off a choice reuse GetTokenBuf, and
    // the item's handler, called next, reads this item's text.
    if (item->type == MENU_PICKONE) SetChoiceText(item, static_cast<int>(item->value.number) + 1);
    return 0;
}
