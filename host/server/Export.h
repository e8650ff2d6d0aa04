// How the classes of TavrinDAServer reach the programs that use them.
#pragma once

#include "platform/export.h"

#if defined(TAVRINDASERVER_BUILD)
#define TAVRINDASERVER_API OSTREL_EXPORT
#elif defined(TAVRINDASERVER_STATIC)
#define TAVRINDASERVER_API
#else
#define TAVRINDASERVER_API OSTREL_IMPORT
#endif
