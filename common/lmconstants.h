#pragma once

// Fixed values of the product and of its wire protocols. The vendor's server expects the protocol
// constants exactly as they are on every platform, so they live here and nowhere else.

namespace Lm {

// Program version as the protocols and the command-line tool report it.
inline constexpr char kVersion[] = "4.1.0";

// Product keyword of this build: the brand's product filter and "${PRODUCT}" in URLs.
inline constexpr char kProductKeyword[] = "tarnwell";

// Product and vendor names used for folders and settings.
inline constexpr char kProductName[] = "Tarnwell";
inline constexpr char kVendorDomain[] = "tarnwell.org";
inline constexpr char kVendorFolder[] = "Ambervale";

// Protocol constants.
inline constexpr char kPlatform[] = "windows";
inline constexpr char kDocumentPlatform[] = "WINDOWS";
inline constexpr char kDocumentOs[] = "WIN32";

} // namespace Lm
