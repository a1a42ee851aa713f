#pragma once

#include <string_view>

// The page's own files, as the build took them in.
namespace report {

std::string_view PageHtml();
std::string_view PageStyle();
std::string_view PageScript();

// "sha256-..." of the two, as a Content-Security-Policy names what it lets in.
std::string_view PageStyleHash();
std::string_view PageScriptHash();

}  // namespace report
