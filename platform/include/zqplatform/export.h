// Symbol visibility of the platform library: only what is marked here leaves it.
#pragma once

#if defined(_WIN32)
#  if defined(ZQPLATFORM_BUILDING)
#    define ZQPLATFORM_API __declspec(dllexport)
#  else
#    define ZQPLATFORM_API __declspec(dllimport)
#  endif
#else
#  define ZQPLATFORM_API __attribute__((visibility("default")))
#endif

// An inline member that the library exports all the same (the audio core's interface lists a
// few of the zqSystem classes): default visibility overrides -fvisibility-inlines-hidden, and
// one file of the library takes the member's address so that it is emitted there. On Windows
// the class's own dllexport/dllimport already covers it.
#if defined(_WIN32)
#  define ZQPLATFORM_EXPORTED_INLINE
#else
#  define ZQPLATFORM_EXPORTED_INLINE __attribute__((visibility("default")))
#endif
