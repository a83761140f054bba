#include "net/netlog.h"

Q_LOGGING_CATEGORY(lcNet, "tarnwell.net")
