// The version registry and the banner.
#include "qel/core/qel_version.hpp"

#include <gmock/gmock.h>

#include "qel/core/qel_string.h"

namespace {

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
