// Symbols of libkorvex are hidden unless marked with KORVEX_API.
#pragma once

#if defined(_WIN32)
#if defined(KORVEX_BUILDING)
#define KORVEX_API __declspec(dllexport)
#else
#define KORVEX_API __declspec(dllimport)
#endif
#else
#define KORVEX_API __attribute__((visibility("default")))
#endif
