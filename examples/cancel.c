// Removes the echo from a recording, from C: cancel CONFIG MIC REF OUT. The three files hold raw
// little-endian signed 16-bit mono samples at the configuration's rate ("sox mic.wav mic.raw").
// OUT starts one frame later than MIC and is as long as the shorter input, padded to whole frames.
#define _XOPEN_SOURCE 700     // realpath(), lstat()
#define _FILE_OFFSET_BITS 64  // long recordings on 32-bit processors

#include <errno.h>
#include <inttypes.h>
#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "qel/api/qel_api_aec.h"
#include "qel/spu/aec/qel_aec_stats.h"

typedef struct echo_job {
    qel_api_aec_t* api;
    FILE *mic, *ref, *out;
    int16_t *mic_frame, *ref_frame, *before;  // `before`: the microphone one frame ago
    qel_aec_stats stats;
    double heard, left;  // sums of squared samples before and after, of all processed frames
} echo_job;

static int complain(const char* name, const char* why) {
    fprintf(stderr, "%s: %s\n", name, why);
    return -1;
}

// 0 if `path` may be written: absent, or a regular file that is none of the two inputs.
static int check_target(const char* path, char** inputs) {
    struct stat target, input;
    if (lstat(path, &target) != 0) return errno == ENOENT ? 0 : complain(path, strerror(errno));
    if (!S_ISREG(target.st_mode)) return complain(path, "it is no regular file");
    for (int i = 0; i < 2; ++i) {
        if (stat(inputs[i], &input) == 0 && input.st_dev == target.st_dev &&
            input.st_ino == target.st_ino) {
            fprintf(stderr, "%s: it is the input %s\n", path, inputs[i]);
            return -1;
        }
    }
    return 0;
}

// Finds the file that `out` stands for, links followed, and the one to write first, beside it.
static int find_target(char* out, char** inputs, char target[PATH_MAX], char part[PATH_MAX + 5]) {
    if (realpath(out, target) == NULL) {
        if (errno != ENOENT) return complain(out, strerror(errno));
        snprintf(target, PATH_MAX, "%s", out);
    }
    sprintf(part, "%s.part", target);
    return check_target(target, inputs) == 0 ? check_target(part, inputs) : -1;
}

static FILE* open_file(const char* path, const char* mode) {
    FILE* const file = fopen(path, mode);
    if (file == NULL) perror(path);
    return file;
}

static int prepare(echo_job* job, char** names, const char* part) {
    job->api = qel_api_aec_new(names[0], 0);
    if (job->api == NULL) return complain(names[0], qel_api_aec_last_error());
    if (job->api->cfg->use_hdr) return complain(names[0], "use_hdr: samples would have 32 bits");
    const size_t len = (size_t)job->api->cfg->frame_size;
    job->mic_frame = calloc(3 * len, sizeof *job->mic_frame);
    if (job->mic_frame == NULL) return complain("a frame", strerror(errno));
    job->ref_frame = job->mic_frame + len;
    job->before = job->ref_frame + len;
    if ((job->mic = open_file(names[1], "rb")) == NULL) return -1;
    if ((job->ref = open_file(names[2], "rb")) == NULL) return -1;
    return (job->out = open_file(part, "wb")) == NULL ? -1 : 0;
}

static double power(const int16_t* samples, uint32_t len) {
    double sum = 0;
    for (uint32_t i = 0; i < len; ++i) sum += (double)samples[i] * samples[i];
    return sum;
}

// Counts a frame that was just fed and what came out, which belongs to the frame before.
static void count_frame(echo_job* job, const int16_t* out, uint32_t len) {
    const uint64_t processed = job->stats.processed;
    qel_aec_get_stats(job->api->aec, &job->stats);
    if (job->stats.processed != processed) {
        job->heard += power(job->before, len);
        job->left += power(out, len);
    }
    memcpy(job->before, job->mic_frame, len * sizeof *out);
}

// Feeds both files frame by frame and writes what comes back.
static int cancel(echo_job* job, char** names) {
    const uint32_t len = (uint32_t)job->api->cfg->frame_size, whole = len * sizeof(int16_t);
    uint32_t bytes = whole;
    while (bytes == whole) {
        const uint32_t mic_bytes = (uint32_t)fread(job->mic_frame, 1, whole, job->mic);
        const uint32_t ref_bytes = (uint32_t)fread(job->ref_frame, 1, whole, job->ref);
        if (ferror(job->mic) || ferror(job->ref)) {
            return complain(names[ferror(job->mic) ? 1 : 2], strerror(errno));
        }
        bytes = mic_bytes < ref_bytes ? mic_bytes : ref_bytes;
        if (bytes % sizeof(int16_t) != 0) {
            return complain(names[mic_bytes > ref_bytes ? 2 : 1], "it ends within a sample");
        }
        uint32_t out_bytes = 0;
        const char* const out = qel_api_aec_feed_data(
            job->api, job->mic_frame, bytes, job->ref_frame, bytes, bytes < whole, &out_bytes);
        if (bytes > 0 && out_bytes != whole) return complain(names[3], "no frame came back");
        if (fwrite(out, 1, out_bytes, job->out) != out_bytes) {
            return complain(names[3], strerror(errno));
        }
        if (out_bytes > 0) count_frame(job, (const int16_t*)out, len);
    }
    return 0;
}

int main(int argc, char** argv) {
    if (argc != 5) {
        fprintf(stderr, "usage: %s CONFIG MIC.raw REF.raw OUT.raw\n", argv[0]);
        return 2;
    }
    char** const names = argv + 1;
    char target[PATH_MAX], part[PATH_MAX + 5];
    if (find_target(names[3], names + 1, target, part) != 0) return 1;
    echo_job job = {0};
    int failed = prepare(&job, names, part) != 0 || cancel(&job, names) != 0;
    // OUT is replaced when all went well, the last write included, and else stays what it was.
    if (job.out != NULL) {
        const int closed = fclose(job.out) == 0;
        if (!failed && (!closed || rename(part, target) != 0)) {
            perror(names[3]);
            failed = 1;
        }
        if (failed) remove(part);
    }
    if (job.ref != NULL) fclose(job.ref);
    if (job.mic != NULL) fclose(job.mic);
    free(job.mic_frame);
    qel_api_aec_delete(job.api);
    if (failed) return 1;
    fprintf(stderr,
            "echo reduction %.1f dB; frames: %" PRIu64 " bypassed, %" PRIu64 " muted, %" PRIu64
            " processed\n",
            10 * log10(fmax(job.heard, 1) / fmax(job.left, 1)), job.stats.bypassed, job.stats.muted,
            job.stats.processed);
    return 0;
}
