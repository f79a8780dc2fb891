#pragma once
// Short vectors of doubles for computing independent values side by side. Every lane is
// an ordinary IEEE double: a lane's sum or product is exactly the scalar one, so values
// computed in lanes are bit-identical to those computed one at a time in the same order
// (products are rounded before they are added: the build never contracts them into
// fused multiply-adds). On baseline x86-64 the compiler maps them to SSE2 registers.
namespace veltrane {

using lanes2 = double __attribute__((vector_size(16)));
// Four lanes: two SSE2 registers on the baseline, one AVX register where available. Kept
// out of function signatures (their passing convention differs between the two).
using lanes4 = double __attribute__((vector_size(32)));

inline lanes2 broadcast2(double v) { return lanes2{v, v}; }

// Lane-wise |v| and max(a, b) (NaN-free inputs).
inline lanes2 lanes_abs(lanes2 v) { return v < 0.0 ? -v : v; }
inline lanes2 lanes_max(lanes2 a, lanes2 b) { return a > b ? a : b; }

}  // namespace veltrane
