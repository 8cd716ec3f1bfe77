// One loop body compiled once per instruction set.
//
// A kernel whose per-sample step the compiler can vectorise is written as an always-inline body;
// thin wrappers instantiate it as the scalar rule (LF_SCALAR_RULE: vectorisation off, so the rule
// stays a plain loop to compare against) and as one form per Simd level (the body compiled with
// that level's target attribute; a form may use a rearranged body that gives the same bytes).
// The forms then go into a Simd::Variant table as usual.
#pragma once

#include "core/Simd.h"

#define LF_LOOP_BODY inline __attribute__((always_inline))

#if defined(__clang__)
#define LF_SCALAR_RULE
#else
#define LF_SCALAR_RULE __attribute__((optimize("no-tree-vectorize")))
#endif
