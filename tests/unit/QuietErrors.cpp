// Fatal assertions are expected by many tests: keep them out of the output.
#include "services/Logger.h"

static const bool ourQuietErrors = (Logger::ourQuietErrorMode = true);
