#pragma once

#include <string_view>

// The fixed parts of an HTML report, embedded at build time.

extern const std::string_view kReportStyle;
/// Shows the report. At the end of the page.
extern const std::string_view kReportScript;
/// Hides the notice about blocked scripts. At the beginning of the page.
extern const std::string_view kReportFirstScript;
/// The content security policy, which allows these three and nothing else.
extern const std::string_view kReportPolicy;
