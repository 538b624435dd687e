#include <stdio.h>

#include "cancel.h"
#include "qel/qel.h"

int main(int argc, char** argv) {
    const unsigned bytes = argc > 1 ? (unsigned)cancel_silence(argv[1]) : 0;
    return printf("%s, %u bytes\n", qel_api_aec_get_version(), bytes) < 0;
}
