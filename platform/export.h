#pragma once

// KVCORE_API marks everything that the shared libraries export. Nothing else leaves them: they are built with hidden
// visibility.
//
// KVCORE_STATIC  the libraries are linked statically; set by the installed package for its static targets.
// KVCORE_BUILD   the libraries themselves are being compiled.

#if !defined(_WIN32)
#    define KVCORE_API __attribute__((visibility("default")))
#elif defined(KVCORE_STATIC)
#    define KVCORE_API
#elif defined(KVCORE_BUILD)
#    define KVCORE_API __declspec(dllexport)
#else
#    define KVCORE_API __declspec(dllimport)
#endif
