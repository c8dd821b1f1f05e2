#include "setup.h"

int main(int argc, char **argv) {
    return SetupMain(argc, argv);
}
