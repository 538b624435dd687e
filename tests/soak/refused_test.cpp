// Memory refused, one allocation after the other, over all that allocates: the documented error, no
// crash, what was there stays usable, and what is lost the leak checker finds.
#include <cjson/cJSON.h>
#include <gmock/gmock.h>

extern "C" {
#include <lauxlib.h>
#include <lualib.h>

void* __real_realloc(void* block, size_t bytes);
}

#include "qel/api/echo_lua.h"
#include "qel/api/qel_api_aec.h"
#include "qel/core/array/qel_array_string.h"
#include "qel/core/source/qel_source_file.h"
#include "tests/support/failing_alloc.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/temp_path.hpp"

namespace {

std::string path, json;        // of a configuration file, and what asks Lua for it
bool comes_back, works_again;  // memory after it was refused once; and what it was refused to
const char pcm[32] = {};

/// Whether there is an object and each step succeeds with it at once; if one does not, it must when
/// memory is back. Releases the object.
template <class Object, class... Steps>
bool made(Object* object, auto release, Steps... steps) {
    if (!object) return false;
    bool all = true;
    const auto attempt = [&](auto step) {
        if (step(object)) return;
        all = false;
        works_again &= !comes_back || step(object);
    };
    (void)attempt;  // there may be no steps
    (attempt(steps), ...);
    release(object);
    return all;
}

bool containers() {
    const qel_string abc = {const_cast<char*>("abc"), 3, 0, 4};
    return made(
               qel_string_new("abcd", 4), qel_string_delete,
               [](auto* s) { return qel_string_append(s, "efgh", 4) == 0; },
               [](auto* s) { return qel_string_resize(s, 99) == 0; },
               [](auto* s) { return qel_string_append_fmt(s, "%0*d", 200, 0) == 0; },
               [](auto* s) { return made(qel_string_duplicate(s), qel_string_delete); }) &&
           made(qel_array_new(1, 4), qel_array_delete,
                [](auto* a) { return qel_array_resize(a, 2) == 0; }) &&
           made(
               qel_array_string_new(1), qel_array_delete,
               [&](auto* a) { return qel_array_string_append(a, &abc) == 0; },
               [](auto* a) { return qel_array_string_split(a, "a,bcde,f", ",") == 0; }) &&
           made(qel_queue_new(), qel_queue_delete);
}

bool trees() {
    const auto fill = [](qel_config_items* items) {
        for (char name[] = "a"; name[0] <= 'z'; ++name[0]) {
            if (!qel_config_items_find(items, name, 1))
                qel_config_items_add_string(items, name, "");
            if (!qel_config_items_find(items, name, 1)) return false;
        }
        return true;
    };
    const auto nest = [](qel_config_items* items) {
        auto* const sub = qel_config_items_new(items);
        auto* const list = qel_array_string_new(1);
        if (sub) qel_config_items_add_subitems(items, "sub", sub);
        if (list) qel_config_items_add_array(items, "list", list);
        return qel_config_items_find(items, "sub", 3) && qel_config_items_find(items, "list", 4);
    };
    return made(qel_config_items_new(nullptr), qel_config_items_delete, fill, nest);
}

bool readers() {
    qel_source source;
    return qel_source_file_init(&source, path.c_str()) == 0 &&
           made(&source, qel_source_file_clean) &&
           made(qel_config_ryl_new_fn(path.c_str()), qel_config_ryl_delete,
                [](auto* p) { return qel_config_ryl_add_var(p, nullptr, "x", 1, "1", 1) == 0; });
}

bool numbers() {
    return made(qel_fft_alloc_c2c_float32(60), qel_fft_destroy_c2c_float32) &&
           made(qel_fft_alloc_c2c_int32(64), qel_fft_destroy_c2c_int32) &&
           made(qel_fft_alloc_c2c_int16(7), qel_fft_destroy_c2c_int16) &&
           made(qel_fft_alloc_r2c_float32(60), qel_fft_destroy_r2c_float32) &&
           made(qel_fft_alloc_r2c_int32(64), qel_fft_destroy_r2c_int32) &&
           made(qel_fft_alloc_r2c_int16(14), qel_fft_destroy_r2c_int16) &&
           made(qel_vector_float32_new(9), qel_vector_float32_delete) &&
           made(qel_vector_int32_new(9), qel_vector_int32_delete) &&
           made(qel_vector_union_new(QEL_VECTOR_INT16, 9), qel_vector_union_delete, [](auto* u) {
               if (u->vec) return true;
               qel_vector_union_init(u, u->type, 9);
               return false;
           });
}

bool instances() {
    qel_aec_cfg cfg{};
    qel_aec_cfg_init(&cfg);
    qel_aec_cfg_update(&cfg, nullptr);
    cfg.vad[0].frame_len = 8;
    cfg.vad[0].framing.frame_len = 8;
    const auto cut = [](auto reset, auto feed) {
        return [=](auto* cutter) {
            reset(cutter);
            feed(cutter, pcm, 32, 0);
            return cutter->ready.count == 2;
        };
    };
    return made(qel_sigp_frame_separator_new(8), qel_sigp_frame_separator_delete,
                cut(qel_sigp_frame_separator_reset, qel_sigp_frame_separator_feed)) &&
           made(qel_framing_new(&cfg.vad[0].framing), qel_framing_delete,
                cut(qel_framing_reset, qel_framing_feed)) &&
           made(qel_svad_new(&cfg.vad[0]), qel_svad_delete,
                [](auto* d) { return qel_svad_feed_data(d, pcm, 16, 0) == 0; }) &&
           made(qel_aec_mute_new(&cfg.mute), qel_aec_mute_delete) &&
           made(qel_aec_nlp_new(&cfg.nlp), qel_aec_nlp_delete) &&
           made(qel_api_aec_new(path.c_str(), 0), qel_api_aec_delete, [](auto* api) {
               uint32_t bytes = 0;
               qel_api_aec_reset(api);
               qel_api_aec_feed_data(api, pcm, 32, pcm, 32, 0, &bytes);
               return bytes == 32;
           });
}

void* lua_memory(void*, void* block, size_t old_bytes, size_t bytes) {
    if (bytes > old_bytes) return realloc(block, bytes);
    if (bytes > 0) return __real_realloc(block, bytes);  // Lua relies on blocks that shrink
    free(block);
    return nullptr;
}

bool lua_objects() {
    const auto life = [](lua_State* L) {
        luaopen_base(L);
        luaopen_echo(L);
        if (luaL_loadstring(L,
                            "local o, s = assert(echo.new(...)), 'abcdefghijklmnop'\n"
                            "for i = 1, 3 do assert(#o:feed(s, s) == 16) end\n"
                            "assert(echo.separate_channel(s))") != 0) {
            return lua_error(L);
        }
        lua_pushstring(L, json.c_str());
        lua_call(L, 1, 0);
        return 0;
    };
    return made(lua_newstate(lua_memory, nullptr), lua_close,
                [=](lua_State* L) { return lua_cpcall(L, life, nullptr) == 0; });
}

TEST(Refused, EveryAllocationInTurn) {
    const TempFolder folder;
    folder.write("common", "rate = 8000; list = [ 1, ${rate}, \"two\" ]");
    path = folder.write("aec.conf",
                        "common = { #include ${pwd}/common;\n }\n"
                        "aec = { use_vad = 1; frame_size = 8; nlp = { frame_size = 8; }"
                        " use_kalman = 1; use_residual = 1; use_align = 1; use_comfort = 1; }");
    json = "{\"qelCfgFile\":\"" + path + "\",\"frameLen\":8}";
    const struct {
        bool (*work)();
        const char* says;  // with each failure, in the log
        int spare;         // allocations that can be done without; -1: scratch and reviews
        const char* prints = "";
    } cases[] = {
        {containers, "\\[E\\] .*(out of memory|failed)", 1},  // the token of a split
        {trees, "^$|out of memory", 0},
        {readers, "\\[[EW]\\] .*(out of memory|failed|cannot read)", 0},
        {numbers, "^$", 0},
        {instances, "\\[[EW]\\] .*(out of memory|failed|cannot read)", -1, "ptmpbuf alloc fail.\n"},
        {lua_objects, "", -1,
         "ptmpbuf alloc fail.\n|(.* not exist)?echo new failed|"
         "separate channel calloc failed.\n|echo out error.\n"},
    };
    cJSON_Hooks hooks = {[](size_t n) { return malloc(n); }, [](void* block) { free(block); }};
    cJSON_InitHooks(&hooks);
    for (const auto& c : cases) {
        for (const bool once : {true, false}) {
            comes_back = once;
            bool was_short = true;
            bool has_printed = false;
            int spared = -1;  // not the last round, in which nothing is refused
            for (int64_t allowed = 0; was_short; ++allowed) {
                SCOPED_TRACE(testing::Message() << "case " << &c - cases << ", " << allowed);
                const LogCapture log;
                testing::internal::CaptureStdout();
                works_again = true;
                auto failing = std::make_unique<FailingAlloc>(allowed, once ? 1 : 1 << 30);
                const bool ok = c.work();
                was_short = FailingAlloc::count() > allowed;
                failing.reset();
                const std::string printed = testing::internal::GetCapturedStdout();
                EXPECT_THAT(printed, testing::MatchesRegex(std::string("(") + c.prints + ")*"));
                has_printed |= !printed.empty();
                EXPECT_TRUE(ok || was_short);
                EXPECT_TRUE(works_again);
                EXPECT_THAT(log.text(), testing::ContainsRegex(ok ? "" : c.says));
                spared += ok;
            }
            EXPECT_EQ(has_printed, *c.prints != '\0');
            EXPECT_TRUE(!once || c.spare < 0 || spared == c.spare)
                << "case " << &c - cases << ": " << spared;
        }
    }
    cJSON_InitHooks(nullptr);
}

}  // namespace
