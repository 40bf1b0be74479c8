// The block evaluator compiled for the fuzz build without its CPU-specific clones: clang 14 gives a
// target_clones function's dispatcher another symbol name than its callers in other units expect.
#define target_clones(...) used
#include "math_exp_evaluator.cpp"
#undef target_clones
