#include "db/dblog.h"

Q_LOGGING_CATEGORY(lcDb, "tarnwell.db")
