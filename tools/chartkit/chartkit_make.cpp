/*
** chartkit_make.cpp -- mareplot-chartkit make: inputs into one chart pack.
*/
#include "tools/chartkit/chartkit.h"

int ck_make_main(int argc, char **argv) {
    ck_fail("make", "not available yet");
    return 1;
}
