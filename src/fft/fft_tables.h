// The transform's three constant twiddle tables.
//
// Lane-pair layout: every group of four floats is cos a, cos b, sin a, sin b for the angles a and
// b of two butterflies computed side by side. The sine is stored with the sign its angle gives
// (+sin); a kernel applies it with the direction's sign s, multiplying by cos + s*i*sin.
//
// Every entry is the single-precision form of cos or sin of a multiple of 15 degrees rounded to
// six decimals: 1, 0.965926 (15), 0.866025 (30), 0.707107 (45), 0.5 (60), 0.258819 (75), 0.
// These six-decimal values are part of the transform's rounding and are kept on purpose, even
// where a correctly rounded float exists (0.866025f is not the kernels' inline sqrt(3)/2).
#pragma once

namespace zy {

namespace twiddle {
constexpr float kC15 = 0.965926f;  // cos 15 = sin 75
constexpr float kC30 = 0.866025f;  // cos 30 = sin 60
constexpr float kC45 = 0.707107f;  // cos 45 = sin 45
constexpr float kC60 = 0.5f;       // cos 60 = sin 30
constexpr float kC75 = 0.258819f;  // cos 75 = sin 15
}  // namespace twiddle

// 24th roots 0..11 for the 24-point column combine: group g holds the angles 15*2g and
// 15*(2g+1) degrees.
inline constexpr float twiddleDit24[24] = {
    1.0f,              twiddle::kC15,     0.0f,            twiddle::kC75,  //   0,  15
    twiddle::kC30,     twiddle::kC45,     twiddle::kC60,   twiddle::kC45,  //  30,  45
    twiddle::kC60,     twiddle::kC75,     twiddle::kC30,   twiddle::kC15,  //  60,  75
    0.0f,              -twiddle::kC75,    1.0f,            twiddle::kC15,  //  90, 105
    -twiddle::kC60,    -twiddle::kC45,    twiddle::kC30,   twiddle::kC45,  // 120, 135
    -twiddle::kC30,    -twiddle::kC15,    twiddle::kC60,   twiddle::kC75,  // 150, 165
};

// 12th roots 0..5 for the 24-point column split-and-reduce stage: group g (0..2) holds 30*2g and
// 30*(2g+1) degrees. The last 12 floats are plain (cos, sin) pairs of 15, 30, 45, 60, 75 and 90
// degrees; they belong to the table's layout but no stage reads them.
inline constexpr float twiddleDif12[24] = {
    1.0f,              twiddle::kC30,     0.0f,            twiddle::kC60,  //   0,  30
    twiddle::kC60,     0.0f,              twiddle::kC30,   1.0f,           //  60,  90
    -twiddle::kC60,    -twiddle::kC30,    twiddle::kC30,   twiddle::kC60,  // 120, 150
    twiddle::kC15,     twiddle::kC75,                                      //  15
    twiddle::kC30,     twiddle::kC60,                                      //  30
    twiddle::kC45,     twiddle::kC45,                                      //  45
    twiddle::kC60,     twiddle::kC30,                                      //  60
    twiddle::kC75,     twiddle::kC15,                                      //  75
    0.0f,              1.0f,                                               //  90
};

// Legs 1..7 of the 24-point row's radix-8 stage. Group 7h + (m - 1), m = 1..7, holds the angles
// 15*r0*m and 15*r1*m degrees with (r0, r1) = (0, 1) for h = 0 and (2, 3) for h = 1: residues 0
// and 1 side by side, then residue 2 beside residue 3. Residue 3 does not occur in a 24-point
// transform; its lane only keeps the groups whole (the kernels here take one residue at a time).
inline constexpr float twiddleRadix8[56] = {
    // h = 0: (0, 15m)
    1.0f,              twiddle::kC15,     0.0f,            twiddle::kC75,   // m = 1:   0,  15
    1.0f,              twiddle::kC30,     0.0f,            twiddle::kC60,   // m = 2:   0,  30
    1.0f,              twiddle::kC45,     0.0f,            twiddle::kC45,   // m = 3:   0,  45
    1.0f,              twiddle::kC60,     0.0f,            twiddle::kC30,   // m = 4:   0,  60
    1.0f,              twiddle::kC75,     0.0f,            twiddle::kC15,   // m = 5:   0,  75
    1.0f,              0.0f,              0.0f,            1.0f,            // m = 6:   0,  90
    1.0f,              -twiddle::kC75,    0.0f,            twiddle::kC15,   // m = 7:   0, 105
    // h = 1: (30m, 45m)
    twiddle::kC30,     twiddle::kC45,     twiddle::kC60,   twiddle::kC45,   // m = 1:  30,  45
    twiddle::kC60,     0.0f,              twiddle::kC30,   1.0f,            // m = 2:  60,  90
    0.0f,              -twiddle::kC45,    1.0f,            twiddle::kC45,   // m = 3:  90, 135
    -twiddle::kC60,    -1.0f,             twiddle::kC30,   0.0f,            // m = 4: 120, 180
    -twiddle::kC30,    -twiddle::kC45,    twiddle::kC60,   -twiddle::kC45,  // m = 5: 150, 225
    -1.0f,             0.0f,              0.0f,            -1.0f,           // m = 6: 180, 270
    -twiddle::kC30,    twiddle::kC45,     -twiddle::kC60,  -twiddle::kC45,  // m = 7: 210, 315
};

}  // namespace zy
