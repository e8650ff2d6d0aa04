// How a symbol leaves a module.
#pragma once

#if defined(_WIN32)
#define OSTREL_EXPORT __declspec(dllexport)
#define OSTREL_IMPORT __declspec(dllimport)
#else
#define OSTREL_EXPORT __attribute__((visibility("default")))
#define OSTREL_IMPORT __attribute__((visibility("default")))
#endif
