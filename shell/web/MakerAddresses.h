#pragma once

// The maker's addresses that the program shows or opens: its page, help,
// support mail and store entry, and the regional domain that takes the place
// of the main one for readers of Chinese in Han characters.
namespace oxelo::maker {

inline constexpr const char* domain = "www.oxelo.app";
inline constexpr const char* regionalDomain = "www.oxelo.cn";
inline constexpr const char* homepageUrl = "https://www.oxelo.app/oxelo";
inline constexpr const char* helpUrl = "https://www.oxelo.app/api/oxelo?a=help";
inline constexpr const char* supportMail = "support@oxelo.app";
inline constexpr const char* storeUrl = "https://flathub.org/apps/app.oxelo.Oxelo";

}  // namespace oxelo::maker
