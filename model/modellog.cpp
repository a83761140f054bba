#include "model/modellog.h"

Q_LOGGING_CATEGORY(lcModel, "tarnwell.model")
