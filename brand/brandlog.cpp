#include "brand/brandlog.h"

Q_LOGGING_CATEGORY(lcBrand, "tarnwell.brand")
