// Identities for the bodies of a re-initialisation frame, carried over from the previous
// frame's bodies by an optimal assignment on 1 - IoU.
#pragma once

#include "ZyBodyTracking.h"

struct AlgoHandle;

// Writes bodyId into each of paramIn->bodies and updates the handle's lastBodyIDFlag and
// freeBodyIds against lastBodyInfo (count: handle->bodyNum, the previous frame's). A matched
// body inherits its predecessor's ID, an unmatched one takes the front of freeBodyIds (or
// keeps its own ID when the queue is empty), and the IDs of previous bodies left without a
// successor go to the back of the queue in order.
//
// Refused with an error line, writing nothing: a null handle, paramIn or body array, a
// count outside 0..30 (current or previous), or a null lastBodyInfo with previous bodies.
void UpdateBodyID4FirstFrame(AlgoHandle* algoHandle, ParamIn* paramIn);
