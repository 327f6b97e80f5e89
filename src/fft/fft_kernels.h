// The transform's radix kernels and whole-plane passes, written once over an element flavour L
// (fft_ops.h, or the 256-bit one of fft2d_avx2.cpp) and the direction's sign S. The order of
// every floating-point operation is fixed here, not by the flavour, which is why every flavour
// gives the same bits.
//
// Every transform is a row pass (rows of A into rows of B) followed by a column pass (columns of
// B in place). Each 1-D kernel works on values already loaded and the pass stores them only
// after the kernel, so the column pass is safe in place.
//
// Everything here has internal linkage: each source that includes it gets its own copies,
// compiled for that source's instruction set.
#pragma once

#include <cstdint>

#include "fft/fft_tables.h"

#define ZY_FFT_KERNEL inline __attribute__((always_inline))

namespace zy {
namespace fft {
namespace {

// Declared so that the kernels' calls MulI<S>(v) and Rotate<S>(v, c, sn) name templates; each
// flavour's overloads are found by argument-dependent lookup where a kernel is instantiated.
template <int S>
void MulI();
template <int S>
void Rotate();

constexpr float kHalf = 0.5f;
constexpr float kSqrt3Half = 0.8660254f;   // sqrt(3)/2; the tables carry 0.866025 instead
constexpr float kSqrt2Half = 0.70710677f;  // sqrt(2)/2
constexpr float kCosPi8 = 0.9238795f;      // cos(pi/8)
constexpr float kSinPi8 = 0.38268343f;     // sin(pi/8)

// Cosine and sine of a lane-pair table's entry k, where group k/2 holds entries 2g and 2g+1.
constexpr float PairCos(const float* table, int k) { return table[4 * (k / 2) + k % 2]; }
constexpr float PairSin(const float* table, int k) { return table[4 * (k / 2) + 2 + k % 2]; }

// v * w(1/8 turn) = (sqrt(2)/2) * (v + S*i*v).
template <int S, class V>
ZY_FFT_KERNEL V Rot45(V v) {
  return Scale(Add(v, MulI<S>(v)), kSqrt2Half);
}

// v * w(3/8 turn) = (sqrt(2)/2) * (S*i*v - v).
template <int S, class V>
ZY_FFT_KERNEL V Rot135(V v) {
  return Scale(Sub(MulI<S>(v), v), kSqrt2Half);
}

// 4-point DFT in place: sums and differences of 0/2 and 1/3, then the second radix-2 step with
// the difference of 1/3 turned by S*i.
template <int S, class V>
ZY_FFT_KERNEL void Dft4(V& x0, V& x1, V& x2, V& x3) {
  const V a0 = Add(x0, x2);
  const V a1 = Sub(x0, x2);
  const V a2 = Add(x1, x3);
  const V a3 = MulI<S>(Sub(x1, x3));
  x0 = Add(a0, a2);
  x1 = Add(a1, a3);
  x2 = Sub(a0, a2);
  x3 = Sub(a1, a3);
}

// The 16-point DFT as 4 x 4 (index n = 4*n1 + n2, output k = k1 + 4*k2): 4-point DFTs over n1
// for each n2, the twiddles W16^(n2*k1), then 4-point DFTs over n2 for each k1. The twiddles
// with exponent 2, 4 and 6 are the 1/8-turn forms and S*i; 1, 3 and 9 are full products with
// cos/sin(pi/8).
//
// First half, for one n2: afterwards x[n2 + 4*k1] holds the twiddled n1-transform k1 of the
// samples n2, n2+4, n2+8, n2+12.
template <int S, class V>
ZY_FFT_KERNEL void Dft16First(V* x, int n2) {
  Dft4<S>(x[n2], x[n2 + 4], x[n2 + 8], x[n2 + 12]);
  if (n2 == 1) {
    x[5] = Rotate<S>(x[5], kCosPi8, kSinPi8);    // W^1
    x[9] = Rot45<S>(x[9]);                       // W^2
    x[13] = Rotate<S>(x[13], kSinPi8, kCosPi8);  // W^3
  } else if (n2 == 2) {
    x[6] = Rot45<S>(x[6]);      // W^2
    x[10] = MulI<S>(x[10]);     // W^4
    x[14] = Rot135<S>(x[14]);   // W^6
  } else if (n2 == 3) {
    x[7] = Rotate<S>(x[7], kSinPi8, kCosPi8);      // W^3
    x[11] = Rot135<S>(x[11]);                      // W^6
    x[15] = Rotate<S>(x[15], -kCosPi8, -kSinPi8);  // W^9 = -W^1
  }
}

// One 16-point pass of L::kWidth transforms from `in` to `out` (the same place for the column
// pass). Element k of a transform is at k * kElem floats. Rows are loaded and stored kBlock
// elements at a time (the flavour's transposing block), columns one element at a time; the
// work is ordered so that each block is used as soon as it is loaded and each output block is
// stored as soon as it is complete, which keeps few values live at once.
template <class L, int S, int kElem, int kRow, int kBlock, bool kRows, bool kRealOnly>
ZY_FFT_KERNEL void Pass16(const float* in, float* out) {
  using V = typename L::V;
  V x[16];
#pragma GCC unroll 4
  for (int n2 = 0; n2 < 4; n2 += kBlock) {
#pragma GCC unroll 4
    for (int n1 = 0; n1 < 4; ++n1) {
      const int k = 4 * n1 + n2;
      if constexpr (kRows) {
        L::template LoadRows<kBlock, kRow>(in + k * kElem, x + k);
      } else {
        L::template LoadCols<kBlock, kRow>(in + k * kElem, x + k);
      }
    }
#pragma GCC unroll 4
    for (int j = n2; j < n2 + kBlock; ++j) Dft16First<S>(x, j);
  }
  // Second half: x[4*k1 + k2] becomes output k1 + 4*k2.
#pragma GCC unroll 4
  for (int k1 = 0; k1 < 4; k1 += kBlock) {
#pragma GCC unroll 4
    for (int j = k1; j < k1 + kBlock; ++j) Dft4<S>(x[4 * j], x[4 * j + 1], x[4 * j + 2], x[4 * j + 3]);
#pragma GCC unroll 4
    for (int k2 = 0; k2 < 4; ++k2) {
      V block[4];
#pragma GCC unroll 4
      for (int b = 0; b < kBlock; ++b) block[b] = x[4 * (k1 + b) + k2];
      if constexpr (kRows) {
        L::template StoreRows<kBlock, kRow>(out + (k1 + 4 * k2) * kElem, block);
      } else {
        L::template StoreCols<kBlock, kRow, kRealOnly>(out + (k1 + 4 * k2) * kElem, block);
      }
    }
  }
}

// 8-point DFT of the legs z[0..7], radix 2: sums and differences of legs 0/4, 2/6, 1/5 and 7/3;
// the even half (legs 0, 2, 4, 6) and the odd half (1, 3, 5, 7) as 4-point DFTs; then the odd
// half's outputs 1, 2, 3 turned by W8, W8^2 = S*i and W8^3 (the cross terms scaled by
// sqrt(2)/2) and combined with the even half. Output k is left in z[k].
template <int S, class V>
ZY_FFT_KERNEL void Dft8(V* z) {
  const V a0 = Add(z[0], z[4]);
  const V a1 = Sub(z[0], z[4]);
  const V a2 = Add(z[2], z[6]);
  const V a3 = Sub(z[2], z[6]);
  const V a4 = Add(z[1], z[5]);
  const V a5 = Sub(z[1], z[5]);
  const V a6 = Add(z[7], z[3]);
  const V a7 = Sub(z[7], z[3]);

  const V e0 = Add(a0, a2);
  const V e2 = Sub(a0, a2);
  const V ie = MulI<S>(a3);
  const V e1 = Add(a1, ie);
  const V e3 = Sub(a1, ie);

  const V o0 = Add(a4, a6);
  const V o2 = Sub(a4, a6);
  const V io = MulI<S>(a7);  // S*i*(z7 - z3)
  const V o1 = Sub(a5, io);
  const V o3 = Add(a5, io);

  const V q1 = Rot45<S>(o1);
  const V q2 = MulI<S>(o2);
  const V q3 = Rot135<S>(o3);

  z[0] = Add(e0, o0);
  z[4] = Sub(e0, o0);
  z[1] = Add(e1, q1);
  z[5] = Sub(e1, q1);
  z[2] = Add(e2, q2);
  z[6] = Sub(e2, q2);
  z[3] = Add(e3, q3);
  z[7] = Sub(e3, q3);
}

// 6-point DFT in place, as a 3-point DFT of the pair sums (x0+x3, x1+x4, x2+x5) for outputs
// 0, 2, 4 and of the pair differences for outputs 3, 1, 5:
//   X0 = p0 + (p1 + p2)            X2, X4 = p0 - 0.5*(p1 + p2) +- S*i*(sqrt3/2)*(p1 - p2)
//   X3 = m0 - (m1 - m2)            X1, X5 = m0 + 0.5*(m1 - m2) +- S*i*(sqrt3/2)*(m1 + m2)
template <int S, class V>
ZY_FFT_KERNEL void Dft6(V& x0, V& x1, V& x2, V& x3, V& x4, V& x5) {
  const V p0 = Add(x0, x3);
  const V m0 = Sub(x0, x3);
  const V p1 = Add(x1, x4);
  const V m1 = Sub(x1, x4);
  const V p2 = Add(x2, x5);
  const V m2 = Sub(x2, x5);

  const V sp = Add(p1, p2);
  const V tp = Sub(p0, Scale(sp, kHalf));
  const V up = MulI<S>(Scale(Sub(p1, p2), kSqrt3Half));
  const V sm = Sub(m1, m2);
  const V tm = Add(m0, Scale(sm, kHalf));
  const V um = MulI<S>(Scale(Add(m1, m2), kSqrt3Half));

  x0 = Add(p0, sp);
  x3 = Sub(m0, sm);
  x2 = Add(tp, up);
  x4 = Sub(tp, up);
  x1 = Add(tm, um);
  x5 = Sub(tm, um);
}

// Radix-8 stage of the 24-point row for residue R: legs y[3m + R] turned by w(15 deg * R * m)
// from twiddleRadix8 (residues 0 and 1 in the lanes of groups 0..6, residue 2 in the first lane
// of groups 7..13), their 8-point DFT, output k into out[3k + R].
template <int S, int R, class V>
ZY_FFT_KERNEL void Radix8Residue(const V* y, V* out) {
  constexpr int kGroup0 = R == 2 ? 7 : 0;
  constexpr int kLaneInGroup = R == 1 ? 1 : 0;
  V z[8];
  z[0] = y[R];
#pragma GCC unroll 7
  for (int m = 1; m < 8; ++m) {
    const int entry = 4 * (kGroup0 + m - 1) + kLaneInGroup;
    z[m] = Rotate<S>(y[3 * m + R], twiddleRadix8[entry], twiddleRadix8[entry + 2]);
  }
  Dft8<S>(z);
#pragma GCC unroll 8
  for (int k = 0; k < 8; ++k) out[3 * k + R] = z[k];
}

// 24-point row transform of x into out: radix 3 over samples j, j+8, j+16, then radix 8 per
// residue, giving natural order.
template <int S, class V>
ZY_FFT_KERNEL void Row24(const V* x, V* out) {
  V y[24];
#pragma GCC unroll 8
  for (int j = 0; j < 8; ++j) {
    const V a = x[j];
    const V b = x[j + 8];
    const V c = x[j + 16];
    const V sum = Add(b, c);
    const V t = Sub(a, Scale(sum, kHalf));
    const V u = MulI<S>(Scale(Sub(b, c), kSqrt3Half));
    y[3 * j] = Add(a, sum);
    y[3 * j + 1] = Add(t, u);
    y[3 * j + 2] = Sub(t, u);
  }
  Radix8Residue<S, 0>(y, out);
  Radix8Residue<S, 1>(y, out);
  Radix8Residue<S, 2>(y, out);
}

// 24-point column transform of x into out: radix-2 split of the even and odd samples into the
// sums and twiddled differences of their 12-point DFTs (twiddleDif12), four 6-point DFTs giving
// E (outputs 0..11, DFT of the even samples) and O (12..23, of the odd samples), and the radix-2
// combine with twiddleDit24: X[p] = E[p] + w(p)*O[p], X[p+12] = E[p] - w(p)*O[p].
template <int S, class V>
ZY_FFT_KERNEL void Col24(const V* x, V* out) {
  V y[24];
#pragma GCC unroll 6
  for (int m = 0; m < 6; ++m) {
#pragma GCC unroll 2
    for (int h = 0; h < 2; ++h) {
      const V a = x[2 * m + h];
      const V b = x[2 * m + h + 12];
      y[2 * m + 12 * h] = Add(a, b);
      y[2 * m + 1 + 12 * h] =
          Rotate<S>(Sub(a, b), PairCos(twiddleDif12, m), PairSin(twiddleDif12, m));
    }
  }

  // Rows 2k + q + 12h, k = 0..5, for q in {0, 1} and h in {0, 1}.
  Dft6<S>(y[0], y[2], y[4], y[6], y[8], y[10]);
  Dft6<S>(y[1], y[3], y[5], y[7], y[9], y[11]);
  Dft6<S>(y[12], y[14], y[16], y[18], y[20], y[22]);
  Dft6<S>(y[13], y[15], y[17], y[19], y[21], y[23]);

#pragma GCC unroll 12
  for (int p = 0; p < 12; ++p) {
    const V t = Rotate<S>(y[p + 12], PairCos(twiddleDit24, p), PairSin(twiddleDit24, p));
    out[p] = Add(y[p], t);
    out[p + 12] = Sub(y[p], t);
  }
}

// Whole transforms of plane a into plane b: L::RowLanes::kWidth rows, then L::kWidth columns
// per kernel call. With
// kRealOnly the column pass stores only the real parts (imaginary parts +0).
template <class L, int S, bool kRealOnly>
void Transform16(const float* a, float* b) {
  constexpr int kRow = 32;
  using R = typename L::RowLanes;
  for (int r = 0; r < 16; r += R::kWidth) {
    Pass16<R, S, 2, kRow, R::kRowBlock, true, false>(a + r * kRow, b + r * kRow);
  }
  for (int c = 0; c < 16; c += L::kWidth) {
    Pass16<L, S, kRow, kRow, 1, false, kRealOnly>(b + 2 * c, b + 2 * c);
  }
}

template <class L, int S, bool kRealOnly>
void Transform24(const float* a, float* b) {
  using R = typename L::RowLanes;
  constexpr int kRow = 48;
  for (int r = 0; r < 24; r += R::kWidth) {
    typename R::V x[24], y[24];
    R::template LoadRows<24, kRow>(a + r * kRow, x);
    Row24<S>(x, y);
    R::template StoreRows<24, kRow>(b + r * kRow, y);
  }
  using V = typename L::V;
  V x[24], y[24];
  for (int c = 0; c < 24; c += L::kWidth) {
    L::template LoadCols<24, kRow>(b + 2 * c, x);
    Col24<S>(x, y);
    L::template StoreCols<24, kRow, kRealOnly>(b + 2 * c, y);
  }
}

// The transform of interleaved plane a into b with flavour L, arguments already checked.
template <class L, bool kRealOnly>
void TransformPlane(const float* a, float* b, int32_t n, int32_t sign) {
  if (n == 16) {
    if (sign < 0) {
      Transform16<L, -1, kRealOnly>(a, b);
    } else {
      Transform16<L, 1, kRealOnly>(a, b);
    }
  } else {
    if (sign < 0) {
      Transform24<L, -1, kRealOnly>(a, b);
    } else {
      Transform24<L, 1, kRealOnly>(a, b);
    }
  }
}

}  // namespace
}  // namespace fft
}  // namespace zy
