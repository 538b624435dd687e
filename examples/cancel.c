// Removes the echo from a recording, from C: cancel CONFIG MIC REF OUT. The three files hold raw
// little-endian signed 16-bit mono samples at the configuration's rate ("sox mic.wav mic.raw").
// OUT starts one frame later than MIC and is as long as the shorter input, padded to whole frames.
#include <stdio.h>
#include <stdlib.h>

#include "qel/api/qel_api_aec.h"

enum { BLOCK_BYTES = 4096 };

static FILE* open_file(const char* path, const char* mode) {
    FILE* const file = fopen(path, mode);
    if (file == NULL) perror(path);
    return file;
}

// Feeds both files block by block; blocks need not be frames. 0, or -1 if writing failed.
static int cancel(qel_api_aec_t* api, FILE* mic, FILE* ref, FILE* out) {
    char mic_block[BLOCK_BYTES], ref_block[BLOCK_BYTES];
    uint32_t bytes = BLOCK_BYTES;
    while (bytes == BLOCK_BYTES) {
        const uint32_t mic_bytes = (uint32_t)fread(mic_block, 1, BLOCK_BYTES, mic);
        const uint32_t ref_bytes = (uint32_t)fread(ref_block, 1, BLOCK_BYTES, ref);
        bytes = mic_bytes < ref_bytes ? mic_bytes : ref_bytes;
        uint32_t out_bytes = 0;
        const char* const clean = qel_api_aec_feed_data(api, mic_block, bytes, ref_block, bytes,
                                                        bytes < BLOCK_BYTES, &out_bytes);
        if (fwrite(clean, 1, out_bytes, out) != out_bytes) return -1;
    }
    return 0;
}

int main(int argc, char** argv) {
    if (argc != 5) {
        fprintf(stderr, "usage: %s CONFIG MIC.raw REF.raw OUT.raw\n", argv[0]);
        return 2;
    }
    qel_api_aec_t* const api = qel_api_aec_new(argv[1], 0);
    if (api == NULL) {
        fprintf(stderr, "%s: not a usable configuration\n", argv[1]);
        return 1;
    }
    FILE* const mic = open_file(argv[2], "rb");
    FILE* const ref = mic != NULL ? open_file(argv[3], "rb") : NULL;
    FILE* const out = ref != NULL ? open_file(argv[4], "wb") : NULL;
    int failed = out == NULL || cancel(api, mic, ref, out) != 0;
    if (out != NULL && (fclose(out) != 0 || failed)) {
        perror(argv[4]);
        remove(argv[4]);
        failed = 1;
    }
    if (ref != NULL) fclose(ref);
    if (mic != NULL) fclose(mic);
    qel_api_aec_delete(api);
    return failed ? 1 : 0;
}
