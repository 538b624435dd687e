// The pages that commands write: files in pages/, with their style and data put in.
#pragma once

#include "findings.hpp"

namespace app {

extern const char* const kReportPage;
extern const char* const kSweepPage;

/// The page that shows `data`.
std::string page_with(const char* page, const Json& data);

/// Bytes as text that a page can hold.
std::string base64(const std::string& bytes);

}  // namespace app
