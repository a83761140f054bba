#pragma once

// Where the household's own server answers the program. The server routes these paths; the
// program, when it is told of such a server, sends its requests there instead of to the brand's
// addresses. The queries carry the same variables the brand's templates do.

namespace WebPaths {

inline constexpr char kPublish[] = "/diary/publish";
inline constexpr char kMealPlan[] = "/mealplan";
inline constexpr char kMetrics[] = "/metrics";
// The update feed and the database sit under the product keyword: "/staticdb/<product>/...".
inline constexpr char kStaticDbFolder[] = "/staticdb/";
inline constexpr char kUpdateFeedName[] = "update.rss";
inline constexpr char kDatabaseName[] = "static.db.gz";

inline constexpr char kPublishQuery[] =
    "username=${USERNAME}&pwhash=${PWHASH}&product=${PRODUCT}&version=${VERSION}&platform=${PLATFORM}";
// The download appends "begindate=...&enddate=..." itself, so the query ends with "&".
inline constexpr char kMealPlanQuery[] = "username=${USERNAME}&pwhash=${PWHASH}&product=${PRODUCT}&";
inline constexpr char kMetricsQuery[] =
    "product=${PRODUCT}&version=${VERSION}&platform=${PLATFORM}&username=${USERNAME_OPTIONAL}&";

} // namespace WebPaths
