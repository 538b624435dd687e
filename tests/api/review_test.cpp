// The review of a configuration: what it finds, where, and that it leaves correct files alone; the
// key table against the files that document it.
#include "qel/api/qel_api_review.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "qel/spu/aec/keys.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/temp_path.hpp"

namespace {

using testing::HasSubstr;

const std::filesystem::path kTree = QEL_SOURCE_DIR;

std::string read(const std::filesystem::path& path) {
    std::ifstream stream(path);
    return {std::istreambuf_iterator<char>(stream), {}};
}

using Files = std::map<std::string, std::string>;

/// All findings, one line each: "code file:line:column key=written".
std::string findings(const std::filesystem::path& path, int32_t frame_len = 0) {
    const LogCapture quiet;
    std::string lines;
    qel_api_aec_review(
        path.c_str(), frame_len,
        [](void* user, const qel_api_finding* f) {
            std::ostringstream line;
            line << f->code << ' ' << std::filesystem::path(f->file).filename().string() << ':'
                 << f->line << ':' << f->column << ' ' << f->key << '=' << f->written << '\n';
            *static_cast<std::string*>(user) += line.str();
        },
        &lines);
    return lines;
}

/// Those of a file `a`, beside others.
std::string findings(const Files& files, int32_t frame_len = 0) {
    const TempFolder folder;
    for (const auto& [file, text] : files) folder.write(file, text);
    return findings(folder.path("a"), frame_len);
}

TEST(Review, FindsWhatAUserWouldLoseAnAfternoonOver) {
    const struct {
        const char* text;
        const char* expected;
    } cases[] = {
        {"aec = { use_vad = yes; use_hdr = F; taps = 4; vad = { amp_thresh = 1e1; } }", ""},
        {"n = 8; aec = { m = ${n}; taps = ${m}; type = Fixed16; mute = { mute_time = 0; } }", ""},
        {"pwd = x; aec = { nlp = { nb_banks = 20; } }", ""},
        {"aec = { use_nlp = no; frame_size = 416; }", ""},
        {"aec = {\n use_vda = on; }", "unknown a:2:2 aec > use_vda=on\n"},
        {"aec = {}\nAEC = { taps = x; }\nother = 1;",
         "unknown a:2:1 AEC={\nunknown a:3:1 other=1\n"},
        {"taps = 6; aec = { mute_time = 2; nlp = { taps = 3; aec = {} } vad = { nlp = { } } }",
         "misplaced a:1:1 taps=6\nmisplaced a:1:19 aec > mute_time=2\n"
         "misplaced a:1:42 aec > nlp > taps=3\nmisplaced a:1:52 aec > nlp > aec={\n"
         "misplaced a:1:71 aec > vad > nlp={\n"},
        {"aec = { use_vad = on; use_nlp = enabled; use_mute = off; use_hdr = \"\"; }",
         "boolean a:1:9 aec > use_vad=on\nboolean a:1:23 aec > use_nlp=enabled\n"
         "boolean a:1:42 aec > use_mute=off\nboolean a:1:58 aec > use_hdr=\"\"\n"},
        {"aec = { frame_size = 512ms; taps = 65537; offset_bins = 99999999999999999999; nb_banks = "
         "many; freqs = 16000; }",
         "trailing a:1:9 aec > frame_size=512ms\nwidth a:1:29 aec > taps=65537\n"
         "width a:1:43 aec > offset_bins=99999999999999999999\nnumber a:1:79 aec > "
         "nb_banks=many\n"},
        {"aec = { mute = { mute_time = 0.5; } vad = { amp_thresh = 5x; spe2sil_num = -1; } }",
         "fraction a:1:18 aec > mute > mute_time=0.5\ntrailing a:1:45 aec > vad > amp_thresh=5x\n"
         "range a:1:62 aec > vad > spe2sil_num=-1\n"},
        {"aec = { freqs = 48000; }", "width a:1:9 aec > freqs=48000\n"},
        {"aec = { freqs = 300; nlp = { freqs = 300; } }",
         "range a:1:9 aec > freqs=300\nrange a:1:30 aec > nlp > freqs=300\n"},
        {"aec = { vad = { amp_thresh = nan; } type = \"a;b\"; }",
         "range a:1:17 aec > vad > amp_thresh=nan\ntype a:1:37 aec > type=\"a;b\"\n"},
        {"x = 1;", "unknown a:1:1 x=1\nno-section a:0:0 aec=\n"},
        {"# nothing", "no-section a:0:0 aec=\n"},
        {"aec = { taps = 6; vad = 5; nlp = [ 1 ] use_vad = { } }",
         "kind a:1:19 aec > vad=5\nkind a:1:28 aec > nlp=[\nkind a:1:40 aec > use_vad={\n"},
        {"aec = { taps = 6;\n taps = 8; } aec = { taps = 8; vad = {} vad = {} }",
         "twice a:2:2 aec > taps=8\ntwice a:2:22 aec > taps=8\n"},
        {"aec = {} a = 1", "unfinished a:1:10 a = 1=\n"},
        {"aec = { taps = 6;\n t = \"6; }\n", "quote a:2:2 t = \"6; }=\nunclosed a:1:1 aec={\n"},
        {"aec = { vad = {", "unclosed a:1:9 aec > vad={\nunclosed a:1:1 aec={\n"},
        {"// speech\naec = { } -- far end\n aec = { }",
         "comment a:1:1 // speech aec={\ncomment a:2:11 -- far end  aec={\n"
         "no-section a:0:0 aec=\n"},
        {"aec = { taps = 4; // frames\n use_vad = yes;\n; taps = 9;\n}",
         "comment a:1:19 aec > // frames  use_vad=yes\ncomment a:3:3 aec > taps=9\n"
         "twice a:3:3 aec > taps=9\n"},
        {"aec = { frame_size = 256; freqs = 8000; nb_banks = 20; nlp = { freqs = 16000; } }",
         "disagree a:1:9 aec > nlp > frame_size=512\ndisagree a:1:64 aec > nlp > freqs=16000\n"
         "disagree a:1:41 aec > nlp > nb_banks=24\n"},
        {";a = 1; \"x\ny\" = 1; aec = {}",
         "comment a:1:2 a=1\nunknown a:1:2 a=1\nunknown a:1:9 x y=1\n"},
        {"aec = { use_residual = 1; use_align = 1; use_comfort = 1; }",
         "needs a:1:9 aec > use_residual=on\n"},
        {"aec = { use_kalman = 1;\n use_comfort = 1; }", "needs a:2:2 aec > use_comfort=on\n"},
        {"aec = { use_nlp = no; use_kalman = 1; use_residual = 1; use_comfort = 1; }",
         "needs a:1:39 aec > use_residual=on\n"},
        {"aec = { frame_size = 544; use_nlp = no; }", "slow a:1:9 aec > frame_size=544\n"},
        {"aec = { taps = 6 }", "syntax a:1:17 =\n"},
        {"a = 1;\n }", "syntax a:2:2 =\n"},
        {"#include missing;", "syntax a:1:10 =\n"},
        {"#include \"${pwd}/b\";", "syntax a:1:10 =\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(findings(Files{{"a", c.text}}), c.expected) << c.text;
    }
    EXPECT_EQ(findings(Files{{"a", ""}}), "syntax :0:0 =\n");
    const std::string k(60, 'k');
    EXPECT_EQ(findings(Files{{"a", "aec = {" + k + "=1;k" + k + "=1; }"}}),
              "unknown a:1:8 aec > " + k + "=1\nunknown a:1:71 aec > " + k + "...=1\n");
    const Files files = {{"a", "aec = { use_nlp = no; frame_size = 160; }"}};
    EXPECT_EQ(findings(files, 320), "");
    EXPECT_EQ(findings(files, 512), "frame-len a:1:23 aec > frame_size=160\n");
}

TEST(Review, FollowsIncludes) {
    const Files included = {{"base", "aec = { taps = 6;\n use_vda = 1; }"},
                            {"outer", "#include ${pwd}/base;"},
                            {"more", "aec = { taps = 8; }"},
                            {"bad", "# x\n\nb = 1 ;"},
                            {"open", "'oops"}};
    const std::pair<std::string, std::string> cases[] = {
        {"#include ${pwd}/outer;\naec = { taps = 8; }", "unknown base:2:2 aec > use_vda=1\n"},
        {"aec = { taps = 8; }\n#include ${pwd}/base;",
         "twice base:1:9 aec > taps=6\nunknown base:2:2 aec > use_vda=1\n"},
        {"#include ${pwd}/outer;\n#include ${pwd}/more;",
         "unknown base:2:2 aec > use_vda=1\ntwice more:1:9 aec > taps=8\n"},
        {"#include ${pwd}/open; aec = { }", "quote open:1:1 'oops=\n"},
        {"\n#include ${pwd}/bad;", "syntax bad:3:6 =\n"}};
    for (const auto& [text, expected] : cases) {
        auto files = included;
        files["a"] = text;
        EXPECT_EQ(findings(files), expected) << text;
    }
}

TEST(Review, StopsAtAHundredFindings) {
    std::string text = "aec = {}\n";
    for (int i = 0; i < 500; ++i) text += "bogus = 1;\n";
    const std::string lines = findings(Files{{"a", text}});
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 101);
    EXPECT_THAT(lines, HasSubstr("more a:0:0"));
}

// Every configuration that is shipped or shown.
TEST(Review, LeavesOurOwnFilesAlone) {
    for (const auto& entry : std::filesystem::directory_iterator(kTree / "conf")) {
        EXPECT_EQ(findings(entry.path(), 512), "") << entry.path();
    }
    int shown = 0;
    for (const auto& entry : std::filesystem::directory_iterator(kTree / "docs")) {
        const std::string page = read(entry.path());
        const std::string begins = "\naec = {";
        for (size_t at = 0; (at = page.find(begins, at + 1)) != std::string::npos; ++shown) {
            const size_t from = page.rfind("```\n", at) + 4, end = page.find("```", at);
            const std::string block = page.substr(from, end - from);
            EXPECT_EQ(findings(Files{{"a", block}, {"common.conf", "# nothing\n"}}), "") << block;
        }
    }
    EXPECT_GE(shown, 2);
}

std::string default_of(const qel::Key& key) {
    if (key.kind == qel::KeyKind::kType) return "float32";
    if (key.kind == qel::KeyKind::kFlag) return key.fallback ? "yes" : "no";
    return testing::PrintToString(key.fallback);
}

std::string range_of(const qel::Key& key) {
    if (key.kind == qel::KeyKind::kType) return "`float32`, `fixed32`, `fixed16`";
    if (key.kind == qel::KeyKind::kFlag) return "boolean";
    if (key.least == qel::kLowest) return "integer";
    return (key.least == qel::kFrameSize ? "`frame_size`" : testing::PrintToString(key.least)) +
           " to " + std::to_string(static_cast<int64_t>(key.most));
}

TEST(Keys, AreDocumentedAsTheyAre) {
    const std::string conf = read(kTree / "conf/aec.conf");
    const std::string page = read(kTree / "docs/configuration.md");
    for (const qel::KeySection& section : qel::kKeySections) {
        for (const auto& part : section.parts) {
            for (const qel::Key& key : part.keys) {
                const std::string name = key.name, value = default_of(key);
                EXPECT_THAT(
                    page, HasSubstr("| `" + name + "` | " + value + " | " + range_of(key) + " |"));
                const bool set = std::string_view(key.effect).substr(0, 9) != "no effect";
                // The one key that is not shown with its default, which does not cancel.
                const std::string shown = name == "use_vad" ? "yes" : value;
                EXPECT_THAT(conf, HasSubstr(set ? name + " = " + shown + ";" : name));
            }
        }
    }
}

}  // namespace
