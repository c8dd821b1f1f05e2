// The translation table: the input's first line is LANG, the rest is
// trans.conf beside the program; ParseTransFile normalises it and
// GetDesiredNLSLang chooses the language directory from it. The choice is
// kept for the run, so every input starts from nothing chosen.
#include <cstdlib>
#include <cstring>

#include "FuzzSupport.h"
#include "NlsUtils.h"
#include "utils.h"

namespace {

void Forget() {
    pNLSLang = static_cast<char *>(PutMem(pNLSLang));
    pTransTable = static_cast<char *>(PutMem(pTransTable));
    DbTClose(pDrvCoreDB);
    pDrvCoreDB = nullptr;
}

}  // namespace

void fuzz::SetUp() {
    fuzz::Begin("tool");
}

void fuzz::OneInput(std::string_view rest) {
    std::string lang(fuzz::Cut(rest, '\n'));
    // The environment holds C strings: a NUL ends the value there.
    lang.resize(std::strlen(lang.c_str()));
    if (lang == "-")
        unsetenv("LANG");
    else
        setenv("LANG", lang.c_str(), 1);
    fuzz::WriteFile("tool/trans.conf", rest);

    PutMem(ParseTransFile("trans.conf"));
    Forget();
    const char *chosen = GetDesiredNLSLang();
    if (!chosen || !*chosen) std::abort();  // a language directory is always named
    Forget();
}
