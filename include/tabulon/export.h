#pragma once

// Symbols of libtabulon that hosts may use.
#if defined(_WIN32)
#define TABULON_EXPORT __declspec(dllexport)
#else
#define TABULON_EXPORT __attribute__((visibility("default")))
#endif

// Parts of exported classes that stay inside the library.
#if defined(_WIN32)
#define TABULON_HIDDEN
#else
#define TABULON_HIDDEN __attribute__((visibility("hidden")))
#endif
