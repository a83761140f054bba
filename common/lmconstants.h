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

// Where the reference foods and exercises come from; the About text shows it.
inline constexpr char kReferenceDataCredits[] =
    "Foods: USDA National Nutrient Database for Standard Reference, Release 28 (2016), U.S. Department of "
    "Agriculture, Agricultural Research Service.\n"
    "Exercises: Ainsworth BE, Haskell WL, Herrmann SD, Meckes N, Bassett DR Jr, Tudor-Locke C, Greer JL, "
    "Vezina J, "
    "Whitt-Glover MC, Leon AS. 2011 Compendium of Physical Activities: a second update of codes and MET "
    "values. "
    "Med Sci Sports Exerc 2011;43(8):1575-1581.";

// Brand ids the program asks for by these names.
#define BRAND_STR_UPDATE_RSS_URL QStringLiteral("update_rss_url")
#define BRAND_BOOL_UPDATE_ENABLED QStringLiteral("update_enabled")
#define BRAND_FEATURE_FAMILY QStringLiteral("feature.family")

// Protocol constants.
inline constexpr char kPlatform[] = "windows";
inline constexpr char kDocumentPlatform[] = "WINDOWS";
inline constexpr char kDocumentOs[] = "WIN32";

} // namespace Lm
