// Identities for the bodies of a re-initialisation frame, carried over from the previous
// frame's bodies by an optimal assignment on 1 - IoU.
#pragma once

#include "ZyBodyTracking.h"

struct AlgoHandle;

// Writes bodyId into each of paramIn->bodies and updates the handle's lastBodyIDFlag and
// freeBodyIds against lastBodyInfo (count: handle->bodyNum, the previous frame's).
void UpdateBodyID4FirstFrame(AlgoHandle* algoHandle, ParamIn* paramIn);
