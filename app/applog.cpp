#include "app/applog.h"

Q_LOGGING_CATEGORY(lcApp, "tarnwell.app")
