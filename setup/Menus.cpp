// The setup menus: what `setup menu` shows, and what an installation without
// a known directory ends in.
#include "setup.h"

namespace {

int InstallItem(MENU *, MENUITEM *) {
    return Install();
}

int SiteItem(MENU *, MENUITEM *) {
    return GenInstallSite();
}

int FromSiteItem(MENU *, MENUITEM *) {
    return InstallFromSite();
}

// Item texts are English only: the message catalogue has none for them.
MENUITEM MainMenuItems[] = {
    {.text = "Install Driver and Utilities", .type = MENU_ACTION, .handler = InstallItem},
    {.text = "Create an installation site.", .type = MENU_ACTION, .handler = SiteItem},
    {.text = "~e Exit", .type = MENU_EXIT},
    {.text = "", .type = MENU_TEXT},
    {},
};

MENUITEM InstallMenuItems[] = {
    {.text = "Install from installation site.", .type = MENU_EXIT, .handler = FromSiteItem},
    {.text = "~e Exit", .type = MENU_EXIT},
    {.text = "", .type = MENU_TEXT},
    {},
};

}  // namespace

MENU MainMenu = {.title = "Install Print Driver and Utilities",
                 .titleStyle = 1,
                 .items = MainMenuItems,
                 .flags = MENUFLAG_NOEXIT};

MENU InstallMenu = {.title = "Install From Menu",
                    .titleStyle = 1,
                    .items = InstallMenuItems,
                    .flags = MENUFLAG_NOEXIT};
