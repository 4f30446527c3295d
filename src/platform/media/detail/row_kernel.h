#pragma once

// Row loops written for the compiler's vectoriser; on x86-64 with GCC they are also built for
// AVX2 and chosen at load time.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ORVELLE_ROW_KERNEL __attribute__((target_clones("avx2", "default")))
#else
#define ORVELLE_ROW_KERNEL
#endif
