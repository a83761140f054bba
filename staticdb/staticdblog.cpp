#include "staticdb/staticdblog.h"

Q_LOGGING_CATEGORY(lcStaticDb, "tarnwell.staticdb")
