// Boxes in the MOT Challenge text format: one object per line,
// "frame,id,left,top,width,height,confidence,x,y,z" (frames from 1).
#pragma once

#include <map>
#include <string>
#include <vector>

struct MotBox {
  int frame = 0;
  int id = -1;
  float left = 0, top = 0, width = 0, height = 0;
  float confidence = 1;
};

// Parses one line; on failure returns false with a reason in *error. Blank lines and lines
// starting with '#' are not boxes (returns false, empty error).
bool ParseMotLine(const std::string& line, MotBox* box, std::string* error);
// Reads a whole file grouped by frame. On a malformed line returns false with
// "<path>:<line>: <reason>" in *error.
bool ReadMotFile(const std::string& path, std::map<int, std::vector<MotBox>>* byFrame, std::string* error);
// One output line: frame,id,left,top,width,height,confidence,-1,-1,-1
std::string FormatMotLine(const MotBox& box);
