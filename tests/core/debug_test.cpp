// The log: filtering, line header, date lines, destinations; the last reasons; the banner.
#include <gmock/gmock.h>
#include <unistd.h>

#include <ctime>

#include "qel/core/qel_debug.hpp"
#include "qel/core/qel_string.h"
#include "qel/core/qel_version.hpp"
#include "qel/core/reason.hpp"
#include "tests/support/log_capture.hpp"

namespace {

void log_line(uint32_t level) { qel_debug_log(level, "a/b/c.x", "fn", 7, "text"); }

TEST(Debug, EachLocalDayStartsWithADateLine) {
    LogCapture log;
    std::string expected;
    for (const char* zone : {"WEST12", "EAST-12"}) {  // a day apart at every moment
        setenv("TZ", zone, 1);
        tzset();
        const time_t now = time(nullptr);
        const char* format =
            "=+ %Y-%m-%d =+\n%H:[^\n]*text\n[^\n]*\\.[0-9]{6} \\[I\\] c\\.x:fn:7: text\n";
        char lines[99];
        strftime(lines, sizeof(lines), format, localtime(&now));
        expected += lines;
        log_line(QEL_LOG_INFO);
        log_line(QEL_LOG_INFO);
    }
    EXPECT_THAT(log.text(), testing::MatchesRegex(expected));
}

TEST(Debug, LevelsFilterAndShowTheirLetter) {
    EXPECT_EQ(qel_debug_disable_level(0x10), 0x0Fu) << "the mask at start, no bit of it set";
    EXPECT_EQ(qel_debug_disable_level(0x09), 0x06u);
    EXPECT_EQ(qel_debug_enable_level(0x10009), 0x0Fu) << "16 bits are kept";
    EXPECT_EQ(qel_debug_disable_level(0x11), 0x1Eu) << "a clear bit is switched on";
    qel_debug_set_level(0xDE);
    std::string letters;  // those of filtered lines are 0, that of the bare line is its first
    for (const uint32_t level : {0, 1, 2, 4, 8, 0x10, 0x20, 0x40, 0x80, 3, 0xFF0, 0x10004}) {
        LogCapture log;
        log_line(level);
        letters += log.text()[log.text().find('[') + 1];
    }
    EXPECT_EQ(letters, std::string("t\0WNID\0DDEDN", 12));
    qel_debug_set_level(0x0F);
}

TEST(Debug, WritesToTheStreamLastSet) {
    const int fd = dup(fileno(tmpfile()));
    qel_debug_set_log_fn(("/dev/fd/" + std::to_string(fd)).c_str());
    qel_debug_set_log_fn("/no/such/directory/log");
    log_line(QEL_LOG_ALWAYS);
    EXPECT_EQ(lseek(fd, 0, SEEK_END), 5);
    qel_debug_set_log_fp(fdopen(fd, "w"));
    _g_debug_close_default_logfp();
    EXPECT_EQ(close(fd), -1) << "closed at unload";
    testing::internal::CaptureStdout();
    log_line(QEL_LOG_ALWAYS);
    _g_debug_close_default_logfp();
    qel_debug_console_color(1, "%d", 42);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "text\n\033[1;1;31m42\033[0m\n");
}

TEST(Debug, ExplanationsNeverReachStandardOutput) {
    const auto explain = [] { qel::explain("a/b.x", "fn", 7, "because %d", 1); };
    testing::internal::CaptureStdout();
    for (FILE* stream : {static_cast<FILE*>(nullptr), stdout}) {
        qel_debug_set_log_fp(stream);
        testing::internal::CaptureStderr();
        explain();
        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    testing::MatchesRegex("[^=]* \\[W\\] b\\.x:fn:7: because 1\n"));
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    LogCapture log;
    explain();
    qel_debug_set_level(0x0D);
    explain();
    qel_debug_set_level(0x0F);
    EXPECT_THAT(log.text(), testing::MatchesRegex("(=[^\n]*\n)?[^\n]*because 1\n"));
}

TEST(Debug, KeepsTheLastReasons) {
    const char* first = qel::last_reason();
    qel::set_reason("%s", std::string(600, 'x').c_str());
    const char* cut = qel::last_reason();
    qel::set_reason("another");
    EXPECT_EQ(std::string(first), "");
    EXPECT_EQ(std::string(cut), std::string(511, 'x'));
    EXPECT_EQ(std::string(qel::last_reason()), "another");
}

TEST(Version, RegistryAndBanner) {
    _g_version_init();
    _g_module_core();
    _g_version_init();
    ASSERT_EQ(_g_modules->count, 1u) << "made once";
    EXPECT_STREQ(static_cast<qel_string*>(qel_array_peek(_g_modules, 0))->data, "core v0.5.3");
    testing::internal::CaptureStderr();
    _g_version_print();
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::MatchesRegex("-{70}\nQEL \\([^)]+\\)\\.v0\\.5\\.3\n\n"
                                      "please contact: [^\n]+\n[^\n]+\n-{70}\n"));
    _g_version_release();
}

}  // namespace
