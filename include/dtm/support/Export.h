#pragma once

/// @file
/// Symbol visibility of the library. Everything is hidden by default; the classes and functions
/// a host may call are marked DTM_API.

#if defined(_WIN32)
#if defined(DTM_BUILDING_LIBRARY)
#define DTM_API __declspec(dllexport)
#else
#define DTM_API __declspec(dllimport)
#endif
#else
#define DTM_API __attribute__((visibility("default")))
#endif
