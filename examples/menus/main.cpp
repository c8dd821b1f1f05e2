// menus: the settings of one print queue in line-mode menus; the example of
// how a program declares its menus as tables and hands them to the engine.
constexpr const char *kUsage = R"(usage: menus
       menus --apply FILE
       menus --help

Shows the settings of one print queue as a numbered menu. Type an item's
number to change it, or the number and the new value on one line; a letter
selects the item shown with it; "s" stores the settings in a file of the
current directory; "h" shows help; Return leaves.

  --apply FILE  loads the settings stored in FILE and prints the resulting
                configuration, without asking anything
  --help        prints this text

A settings file keeps every value but the options: choices of which several
may be on are not stored.

Exit status: 0 done; 1 FILE cannot be read; 2 a usage error.
)";

#include <cstdio>
#include <cstring>
#include <string>

#include "SysCmd.h"
#include "TextMenu.h"
#include "utils.h"

namespace {

// What "h" shows at the queue menu: the engine hands it to the help viewer.
constexpr const char *kHelp = R"(<html><head><title>Printer Queue Settings Help</title></head>
<body>
<h1>Printer Queue Settings</h1>
<p>This menu sets up one print queue. Type the number of an item to change
it, or the number and the new value on one line, such as <code>3 2</code>
for two copies.</p>
<ul>
<li><a href="#items">The items</a></li>
<li><a href="#keys">Letters</a></li>
<li><a href="#files">Settings files</a></li>
</ul>

<h2 id="items">The items</h2>
<ul>
<li><b>Queue name</b> and <b>Description</b>: words without blanks.</li>
<li><b>Copies</b> (1 to 99) and <b>Margin</b> (0 to 2 inches).</li>
<li><b>Orientation</b> switches between its two choices; <b>Paper size</b>
asks for one of its four.</li>
<li><b>Options</b>: type a choice's number to switch it on or off.</li>
<li><b>Attached by</b> decides whether the next item opens the
<i>Network Connection</i> or the <i>Local Port</i> menu.</li>
<li><b>Show settings</b> prints the whole configuration.</li>
</ul>

<h2 id="keys">Letters</h2>
<ul>
<li><b>a</b> applies the settings and leaves.</li>
<li><b>l</b> loads settings stored earlier.</li>
<li><b>s</b> stores the settings in a file of the current directory.</li>
<li><b>h</b> shows this help, which <b>e</b> leaves again.</li>
<li><b>e</b> and Return leave the menu.</li>
</ul>

<h2 id="files">Settings files</h2>
<p>A settings file keeps every value but the options. Replay one without
questions with <code>menus --apply FILE</code>.</p>
</body></html>
)";

// Set by --apply: the load item then answers for a file that RunMenu could
// not open, instead of asking the user for one.
bool replaying = false;

// The sub-menus start from their defaults each time they run; these buffers
// are the defaults of their text items, so that what was typed is kept.
char hostKept[MENU_TEXT_SIZE] = "";
char deviceKept[MENU_TEXT_SIZE] = "/dev/usb/lp0";

char protocols[] = "Raw,LPD,IPP";
char orientations[] = "Portrait,Landscape";
char paperSizes[] = "Letter,Legal,A4,A5";
char options[] = "Duplex,Staple,Banner page";
char connections[] = "Network,Local port";

int KeepValues(MENU *menu);
int KeepItem(MENU *menu, MENUITEM *item);
int ShowItem(MENU *menu, MENUITEM *item);
int ApplyItem(MENU *menu, MENUITEM *item);
int LoadItem(MENU *menu, MENUITEM *item);
int ApplyQueue(MENU *menu);
int RefreshQueue(MENU *menu, const char *settingsFile, int interactive);

extern MENU queueMenu;

// Settings files keep a text up to its first blank, so no text format admits
// blanks.
MENUITEM networkItems[] = {
    {.text = "Host",
     .type = MENU_NAME,
     .prompt = "Host name",
     .defaultValue = {.text = hostKept},
     .format = "/A(1,63)+-+.+/"},
    {.text = "Port",
     .type = MENU_INT,
     .prompt = "TCP port",
     .defaultValue = {9100},
     .format = "/I(1,65535)/"},
    {.text = "Protocol", .type = MENU_PICKONE, .choices = protocols},
    // Also run when a settings file's block of this menu ends.
    {.text = "~d Done", .type = MENU_APPLY, .handler = KeepItem},
    {},
};
MENU networkMenu = {.title = "Network Connection",
                    .titleStyle = 1,
                    .applyHandler = KeepValues,
                    .parentMenu = &queueMenu,
                    .items = networkItems,
                    .flags = MENUFLAG_COMPACT};

MENUITEM localItems[] = {
    {.text = "Device",
     .type = MENU_STRING,
     .prompt = "Device file",
     .defaultValue = {.text = deviceKept},
     .format = "/P(1,64)/"},
    {.text = "~d Done", .type = MENU_APPLY, .handler = KeepItem},
    {},
};
MENU localMenu = {.title = "Local Port",
                  .titleStyle = 1,
                  .applyHandler = KeepValues,
                  .parentMenu = &queueMenu,
                  .items = localItems,
                  .flags = MENUFLAG_COMPACT};

// One entry for each condition of the sub-menu item, in the same order.
MENU *connectionMenus[] = {&networkMenu, &localMenu};

// Conditions name items by the number shown: "8.1" is "item 8 has choice 1",
// so they change with the numbering.
MENUITEM queueItems[] = {
    {.text = "Queue name", .type = MENU_NAME, .prompt = "Queue name", .format = "/A(1,14)+-+_+/"},
    {.text = "Description",
     .type = MENU_STRING,
     .prompt = "Description (no blanks)",
     .format = "/A(1,40)+-+_+.+/"},
    {.text = "Copies",
     .type = MENU_INT,
     .prompt = "Copies",
     .defaultValue = {1},
     .format = "/I(1,99)/"},
    // State 1: with state 0 the blank line would get the selector " 0)".
    {.text = "", .type = MENU_BLANK, .state = 1},
    {.text = "Paper:", .type = MENU_TEXT},
    {.text = "Margin (inches)",
     .type = MENU_FLOAT,
     .prompt = "Margin in inches",
     .defaultValue = {.real = 0.25f},
     .format = "/F(0,2)/"},
    {.text = "Orientation", .type = MENU_PICKONE, .choices = orientations},
    {.text = "Paper size", .type = MENU_PICKONE, .choices = paperSizes},
    {.text = "Options", .type = MENU_PICKMANY, .choices = options},
    {.text = "", .type = MENU_BLANK, .state = 1},
    {.text = "Connection:", .type = MENU_TEXT},
    {.text = "Attached by", .type = MENU_PICKONE, .choices = connections},
    // Listed under the title of the sub-menu that its conditions choose.
    {.text = "Port",
     .type = MENU_SUBMENU,
     .value = {.menus = connectionMenus},
     .format = "8.1 8.2"},
    {.text = "Show settings", .type = MENU_ACTION, .handler = ShowItem},
    // A bar of no text items is a spacing line; the bar text lays the hot
    // keys out in three columns.
    {.text = "", .type = MENU_BAR},
    {.text = "", .type = MENU_BAR_TEXT, .value = {3}},
    {.text = "~a Apply", .type = MENU_APPLY, .handler = ApplyItem},
    {.text = "~l Load settings", .type = MENU_LOAD, .handler = LoadItem},
    {.text = "~e Exit", .type = MENU_EXIT},
    {},
};

MENU queueMenu = {.title = "Printer Queue Settings",
                  .titleStyle = 1,
                  .exitPrompt = "\nApply the changed settings",
                  .applyHandler = ApplyQueue,
                  .refreshHandler = RefreshQueue,
                  .items = queueItems,
                  .flags = MENUFLAG_STOREASK | MENUFLAG_HELP | MENUFLAG_COMPACT};

/// The text of choice `n` (0-based), without the mark of a choice that
/// conditions hid or brought back.
std::string ChoiceText(const MENUITEM &item, long n) {
    const char *token =
        item.choices ? GetTokenN(item.choices, ",", static_cast<int>(n) + 1) : nullptr;
    if (!token) return "";
    return token + (token[0] == '_' || token[0] == ' ');
}

std::string ValueText(const MENUITEM &item) {
    char number[32];
    switch (item.type) {
        case MENU_NAME:
        case MENU_STRING:
            return item.value.text ? item.value.text : "";
        case MENU_INT:
            std::snprintf(number, sizeof number, "%ld", item.value.number);
            return number;
        case MENU_FLOAT:
            std::snprintf(number, sizeof number, "%.3f", static_cast<double>(item.value.real));
            return number;
        case MENU_PICKONE:
            return ChoiceText(item, item.value.number);
        default: {  // MENU_PICKMANY: bit k is choice k; bit 0 alone is the empty set
            std::string chosen;
            for (int k = 1; k <= item.choiceCount; ++k)
                if (item.value.number & (1L << k))
                    chosen += (chosen.empty() ? "" : ", ") + ChoiceText(item, k - 1);
            return chosen.empty() ? "none" : chosen;
        }
    }
}

void PrintValues(MENU *menu) {
    for (MENUITEM *item = menu->items; item->text; ++item) {
        if (item->type < MENU_PICKONE || item->state == 2) continue;
        std::string value = ValueText(*item);
        if (value.empty())
            std::printf("%s\n", item->text);
        else
            std::printf("%-16s %s\n", item->text, value.c_str());
    }
}

/// The queue's values and those of the connection now chosen.
void PrintConfiguration() {
    PrintValues(&queueMenu);
    for (int i = 0; queueItems[i].text; ++i)
        if (queueItems[i].type == MENU_SUBMENU)
            if (MENU *sub = ValidateMenu(&queueMenu, i)) PrintValues(sub);
    std::fflush(stdout);
}

int ApplyQueue(MENU *) {
    PrintConfiguration();
    return 0;
}

int ApplyItem(MENU *menu, MENUITEM *) {
    return ApplyQueue(menu);
}

int ShowItem(MENU *, MENUITEM *) {
    std::printf("\n");
    PrintConfiguration();
    PostMsg(nullptr);
    // Non-zero: looking changes nothing, so leaving does not offer to apply.
    return 1;
}

/// The sub-menus' apply handler: their values become the defaults that
/// their next run starts from.
int KeepValues(MENU *menu) {
    for (MENUITEM *item = menu->items; item->text; ++item) {
        switch (item->type) {
            case MENU_NAME:
            case MENU_STRING:
                if (item->value.text && item->defaultValue.text)
                    std::snprintf(item->defaultValue.text, MENU_TEXT_SIZE, "%s", item->value.text);
                break;
            case MENU_PICKONE:
            case MENU_INT:
            case MENU_FLOAT:
                item->defaultValue = item->value;
                break;
            default:
                break;  // a set of choices keeps its value across runs by itself
        }
    }
    return 0;
}

int KeepItem(MENU *menu, MENUITEM *) {
    return KeepValues(menu);
}

int LoadItem(MENU *menu, MENUITEM *) {
    if (replaying) return 1;  // RunMenu has already warned which file it could not open
    char name[LINEBUF_SIZE];
    PromptUser("Load settings from file: ", name);
    if (!name[0]) return 1;
    if (!OpenInputFile(name, 0)) {
        PostMsg("\nCannot read %s.", name);
        return 1;
    }
    LoadMenu(menu);
    CloseInputFile();
    // Non-zero keeps the menu open, so that the loaded values are seen before
    // anything is applied.
    return 1;
}

/// Called before the queue menu starts and whenever a sub-menu returns. The
/// sub-menus are set up from their kept values, so that storing, loading and
/// printing find values in them even when they have not run.
int RefreshQueue(MENU *, const char *, int) {
    for (MENU *sub : connectionMenus) InitMenu(sub);
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    const char *invokedAs = argc > 0 && argv[0] ? argv[0] : "menus";
    my_name = SaveStr_(StripPath(invokedAs));
    pToolPath = GetToolPath(invokedAs);  // the engine's strings lie beside the program
    InitSysCmdList();                    // every screen starts with `clear`
    pTtyHtmlData = kHelp;

    int status = 0;
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(kUsage, stdout);
    } else if (argc == 3 && std::strcmp(argv[1], "--apply") == 0) {
        replaying = true;
        status = RunMenu(&queueMenu, argv[2], 0);
    } else if (argc == 1) {
        RunMenu(&queueMenu, nullptr, 1);
    } else {
        std::fputs(kUsage, stderr);
        return 2;
    }
    FreeMenu(&queueMenu);
    for (MENU *sub : connectionMenus) FreeMenu(sub);
    return status;
}
