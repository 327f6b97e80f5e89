// One body's correlation-filter tracker: parameters, boxes, the frame it works on and every
// buffer it needs, all allocated by createTracker (Start) and again by resetTracker (Reset).
// A tracking frame (updateTracker) allocates nothing. A re-initialisation frame's initTracker
// allocates only the two temporary arrays the cosine window is built from (one row and one
// column long), and releases them before it returns.
#pragma once

#include <cstdint>

#include "common/zy_types.h"

// A box in frame pixels: top-left corner and size.
struct TrackerRoi {
  float x;
  float y;
  float width;
  float height;
};

struct TrackingInp {
  TrackingInp(float padding, bool scaleSearch, bool fixedWindowArg, bool lightFeaturesArg);

  TrackerRoi roi;            // current box
  uint32_t frameHeight;      // the frame being processed
  uint32_t frameWidth;       // its row length (the input's stride)
  const uint8_t* frameData;  // NV21 pixels
  uint32_t frameChannels;    // channels of the resampled patch (3: planar RGB)
  uint32_t frameReserved;    // last word of the frame view, never read
  float peakValue;           // peak of the last detection response
  TrackerRoi initRoi;        // box given at initialisation (kept for inspection)
  uint8_t inited;            // 1 once initialised
  Complex* alphaf;           // model filter, S x S
  Complex* probf;            // transform of the Gaussian label, S x S
  float* hann;               // cosine window, S x S
  Complex* kf;               // kernel correlation spectrum, S x S
  Complex* modelFeat;        // model template features, M planes of S x S
  Complex* featBuf;          // features of the current patch, M planes of S x S
  uint8_t* patchRgb;         // resampled patch, P x P x 3 bytes
  float* cellFeat;           // per-cell feature vectors, H x S x S
  float* normFeat;           // normalised feature vectors, H x S x S
  int16_t* gradBufA;         // horizontal gradients, P x P x 3
  int16_t* gradBufB;         // vertical gradients, P x P x 3
  float* gradMag;            // per-pixel magnitudes, P x P
  uint32_t* gradBins;        // per-pixel bins, 2 x P x P
  float* blockNorm;          // per-cell energies with a one-cell border, (S + 2)^2
  Complex* specA;            // spectrum scratch, S x S
  Complex* specB;            // spectrum scratch, S x S
  Complex* specC;            // spectrum scratch: new filter, kernel values, S x S
  float* corrSum;            // channel sum of the correlation, S x S
  float* response;           // detection response, S x S
  float modelEnergy;         // sum of squares of the model's features
  float patchEnergy;         // sum of squares of the last detection features
  int32_t sizeX;             // feature map width in cells
  int32_t sizeY;             // feature map height in cells
  int32_t numChannels;       // feature channels M
  int32_t fftSize;           // transform side (equals sizeX)
  float sizeSmooth;          // weight of the previous box size when smoothing
  uint8_t lightFeatures;     // 1: 9-channel features; 0: 31-channel features
  float interpFactor;        // model learning rate
  float sigma;               // Gaussian kernel bandwidth
  float lambda;              // regularisation
  int32_t cellSize;          // pixels per feature cell
  float padding;             // search window side / box side
  float outputSigmaFactor;   // bandwidth factor of the Gaussian label
  int32_t templateSize;      // template side in pixels before rounding
  float scaleStep;           // scale search step (1.0: no scale search)
  float scaleWeight;         // factor on the peaks of the other scales
  float scale;               // frame pixels per template pixel
  TrackerRoi lastRoi;        // last accepted box
  int32_t tmplWidth;         // template width after rounding
  int32_t tmplHeight;        // template height after rounding
  uint8_t fixedWindow;       // stored, never read
  // The model's per-channel spectra, M planes of S x S: the three detections of one update
  // correlate with the same model, so its planes are transformed once per update and reused
  // (the same transform of the same values: identical results). It is the second half of
  // modelFeat's allocation, so it is never released on its own.
  Complex* modelSpec;
  uint8_t modelSpecState;    // ModelSpecState
};

// Whether gaussianCorrelation may use modelSpec for a correlation with modelFeat.
enum ModelSpecState : uint8_t {
  kModelSpecOff = 0,    // not in use: transform the model every time
  kModelSpecFill = 1,   // transform the model into modelSpec on the next correlation
  kModelSpecReady = 2,  // modelSpec holds the transforms of the current modelFeat
};

// Buffer sizes derived from a record's parameters.
struct TrackerSizes {
  int32_t S;  // feature map side in cells: templateSize / cellSize (0 when cellSize is 0)
  int32_t M;  // feature channels: 9 light, 31 full
  int32_t H;  // floats per cell before the final reduction: 36 light, 108 full
  int32_t P;  // patch side in pixels: templateSize + 2 cellSize, at least 0
  int64_t binWords;  // gradBins words: trunc(2 x (float)(P x P))
};
TrackerSizes ComputeTrackerSizes(const TrackingInp& t);

// Allocates and zero-fills the buffers: 0, or 9 when an allocation fails.
uint32_t createTracker(TrackingInp& t);
// Releases every buffer, then allocates them again: 0, or -1 (logged) on failure.
uint32_t resetTracker(TrackingInp& t);
// Releases every non-null buffer and nulls its pointer.
void freeTracker(TrackingInp& t);
// The stop hook the handle calls before freeing a tracker; it has nothing to stop.
int stopTracker(TrackingInp& t);

// Initialises the tracker on its first box (x, y, width, height). Always 0.
uint32_t initTracker(TrackingInp& t, const float box[4], FrameView frame);
// Moves the box to a new frame; writes x, y, width, height into resultRoi. 0 or 9.
uint32_t updateTracker(TrackingInp& t, FrameView frame, float* resultRoi);
