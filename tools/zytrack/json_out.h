// The run summary as JSON.
#pragma once

#include <string>

#include "runner.h"

// {"input":..., "frames":..., "bodies_per_frame":{...}, "time_ms":{...}, "accuracy":{...}}
std::string SummaryJson(const std::string& input, const RunResult& r);
