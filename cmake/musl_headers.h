// Included before every source of the build with musl: the C++ library's headers were set up for glibc.
#pragma once

#define __GLIBC_PREREQ(major, minor) 0
#define __locale_t locale_t
#include <bits/c++config.h>
#undef _GLIBCXX_USE_PTHREAD_COND_CLOCKWAIT
#undef _GLIBCXX_USE_PTHREAD_MUTEX_CLOCKLOCK
#undef _GLIBCXX_USE_PTHREAD_RWLOCK_CLOCKLOCK
