// The system's own COM declarations, without the macros that would rename our members.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
// objbase.h needs windows.h first.
#include <objbase.h>
#include <oleauto.h>
#include <unknwn.h>

#include <cstddef>
#include <cstdint>

// Names of ours that the system's headers make macros of.
#undef ReportEvent
