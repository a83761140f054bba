#include "server/serverlog.h"

Q_LOGGING_CATEGORY(lcServer, "tarnwell.server")
