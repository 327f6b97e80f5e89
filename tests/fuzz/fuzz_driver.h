// Drives the five exports from one byte string: the bytes choose the calls and their order,
// the frame geometry, the debug switches, the bodies and their boxes. The frame is sized from
// the geometry exactly (small frames on the heap, where AddressSanitizer watches both ends;
// large ones in a mapping that ends at an inaccessible page), and so are the caller's body
// arrays. Besides what the sanitizers catch, the driver checks what must hold for any call
// sequence and aborts when it does not:
//   - result codes are those the interface allows, 1 exactly for a null handle or record;
//   - a refused frame changes neither the caller's output nor its bodies;
//   - an accepted re-initialisation frame copies each valid body and leaves skipped entries;
//   - a tracking frame returns every box inside the frame (stride x height) and carries class,
//     identity and extra word over;
//   - the reserved bytes of the caller's records are never written.
// The same driver replays stored inputs in the unit tests (tests/reliability).
#pragma once

#include <cstddef>
#include <cstdint>

// Runs one input; always returns 0 (violations abort).
int ZyFuzzOneInput(const uint8_t* data, size_t size);

// Routes every log line, debug lines included, to a sink that drops it once formatted (on),
// or back to standard error with the default threshold (off).
void ZyFuzzQuietLog(bool on);
