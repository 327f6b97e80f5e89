// The tracker's internal operations: feature map assembly, training and detection. They work
// only in the record's preallocated buffers; the cosine window's two temporaries at
// initialisation are the only allocation.
#pragma once

#include <cstdint>

#include "common/zy_types.h"
#include "features/kernel_choice.h"
#include "tracker/tracking_inp.h"

// Feature map of the current frame around the current box at scale `scale * scaleAdjust`:
// numChannels complex planes of sizeY x sizeX (value = feature x window, imaginary 0), and
// the sum of squares of the windowed values in *energyOut. With energyOut null the feature
// steps run but nothing is windowed or written.
void getFeatures(TrackingInp& t, Complex* out, float* energyOut, float scaleAdjust);
// Cosine window of rows x cols into t.hann (a count of 0 is taken as 1).
void buildHann(TrackingInp& t, uint32_t cols, uint32_t rows);

// Block normalisation and truncation of the (k+2)^2 bordered cells of 9 (or 27) values into
// k^2 cells of 36 (or 108) values, k = trunc(templateSize * 0.25), copied back to cellFeat.
void normalizeAndTruncate9(int32_t templateSize, float* cellFeat, float* blockNorm, float* normFeat);
void normalizeAndTruncate27(int32_t templateSize, float* cellFeat, float* blockNorm, float* normFeat);
// The plain scalar form of both normalisers (F = 9 or 27 values per input cell): scale, then
// truncate in a second pass. The normalisers above give the same bits with the scaling and
// the truncation fused in four-wide steps.
void normalizeAndTruncateReference(int32_t templateSize, int32_t F, float* cellFeat, float* blockNorm,
                                   float* normFeat);
// The light path after the histograms in one pass: normalizeAndTruncate9, reduceFeatures9 and
// getFeatures' windowing of the k x k map (sizeX = sizeY = k, nine channels) into out and
// *energyOut, with the same bits, and the same values left in cellFeat's first (k + 2)^2 x 9
// floats for the next histograms. Past those, cellFeat keeps what it held. False (nothing
// done) where it is not built, for k not a multiple of 4, or a null buffer.
bool normaliseReduceWindow9(int32_t templateSize, float* cellFeat, float* blockNorm, float* normFeat,
                            const float* hann, Complex* out, float* energyOut);
// In-place reduction of the k^2 normalised cells to 9 (or 31) values per cell.
void reduceFeatures9(int32_t templateSize, float* cellFeat);
void reduceFeatures27(int32_t templateSize, float* cellFeat);
// The plain scalar form of reduceFeatures9, which gives the same bits four values at a time
// where NEON (or SIMDe) is built.
void reduceFeatures9Reference(int32_t templateSize, float* cellFeat);

// Gaussian-kernel correlation of two feature maps (sums of squares e1, e2); result in t.kf.
void gaussianCorrelation(TrackingInp& t, const Complex* x1, const Complex* x2, float e1, float e2);
// Element-wise product a x b (conjB: a x conj(b)); out may be a or b. Four values at a time
// where NEON (or SIMDe) is built; mulSpectrumsReference is the plain form, with the same bits.
void mulSpectrums(const Complex* a, const Complex* b, Complex* out, int32_t rows, uint32_t cols,
                  int32_t conjB);
void mulSpectrumsReference(const Complex* a, const Complex* b, Complex* out, int32_t rows,
                           uint32_t cols, int32_t conjB);
#if ZY_HAVE_AVX2_ROWS
// mulSpectrums' product in 256-bit lanes, for CPUs with AVX2 only: the first (n / 4) x 4 values,
// whose count it returns; the caller finishes the rest.
int64_t mulSpectrumsAvx2(const Complex* a, const Complex* b, Complex* out, int64_t n, int32_t conjB);
#endif
// The fast forms of mulSpectrums built here and usable on this CPU (NEON or its SIMDe
// translation, and the AVX2 form), for tests to hold each to the reference; returns how many.
using SpectrumProduct = void (*)(const Complex*, const Complex*, Complex*, int32_t, uint32_t, int32_t);
int32_t spectrumProductForms(SpectrumProduct forms[2]);
// The filter from label spectrum yf and kernel spectrum kf; stops at the first element whose
// denominator is below 1e-6, leaving the rest of out as it was.
void solveFilter(const Complex* yf, const Complex* kf, Complex* out, int32_t rows, uint32_t cols,
                 float lambda);
// Trains on feature map x: first = replace model and filter, else blend with rate factor.
void train(TrackingInp& t, const Complex* x, bool first, float factor);
// Blends x into the model and the new filter (specC) into alphaf with rate f.
void updateModel(TrackingInp& t, const Complex* x, float f);
// Peak of an sy x sx response with sub-cell refinement: *peakValue and the displacement of the
// peak from the window centre, in cells (x, y).
void locatePeak(const float* response, int32_t sx, int32_t sy, float* peakValue, float res[2]);
// The plain scalar scan that defines locatePeak; locatePeak gives the same bits with a
// four-wide maximum where NEON (or SIMDe) is built.
void locatePeakReference(const float* response, int32_t sx, int32_t sy, float* peakValue, float res[2]);
// Correlates features z with the model x; the response peak into *peakValue and its
// displacement from the window centre, in cells, into res (x, y).
void detect(TrackingInp& t, const Complex* z, const Complex* x, float* peakValue, float res[2]);
