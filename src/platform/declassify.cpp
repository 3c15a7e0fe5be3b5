// The declassification hook of the constant-time test (see platform.h).
#include "platform/platform.h"

#if defined(__has_include)
#if __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#define WAPIWPS_HAVE_MEMCHECK 1
#endif
#endif

namespace platform {

void declassify(const void* p, size_t n) {
#if defined(WAPIWPS_HAVE_MEMCHECK)
    (void)VALGRIND_MAKE_MEM_DEFINED(p, n);
#else
    (void)p;
    (void)n;
#endif
}

}  // namespace platform
