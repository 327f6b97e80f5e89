#include "mot_io.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

bool ParseMotLine(const std::string& line, MotBox* box, std::string* error) {
  error->clear();
  size_t first = line.find_first_not_of(" \t\r");
  if (first == std::string::npos || line[first] == '#') return false;
  std::vector<double> v;
  std::stringstream ss(line);
  std::string field;
  while (std::getline(ss, field, ',')) {
    const char* s = field.c_str();
    char* end = nullptr;
    const double d = std::strtod(s, &end);
    while (end && (*end == ' ' || *end == '\t' || *end == '\r')) ++end;
    if (end == s || (end && *end != '\0') || !std::isfinite(d)) {
      *error = "field " + std::to_string(v.size() + 1) + " is not a number: '" + field + "'";
      return false;
    }
    v.push_back(d);
  }
  if (v.size() < 6) {
    *error = "expected at least 6 comma-separated numbers (frame,id,left,top,width,height), got " +
             std::to_string(v.size());
    return false;
  }
  if (v[0] < 1 || v[0] != std::floor(v[0])) {
    *error = "frame must be a whole number from 1";
    return false;
  }
  if (v[4] <= 0 || v[5] <= 0) {
    *error = "width and height must be positive";
    return false;
  }
  box->frame = static_cast<int>(v[0]);
  box->id = static_cast<int>(v[1]);
  box->left = static_cast<float>(v[2]);
  box->top = static_cast<float>(v[3]);
  box->width = static_cast<float>(v[4]);
  box->height = static_cast<float>(v[5]);
  box->confidence = v.size() > 6 ? static_cast<float>(v[6]) : 1.0f;
  return true;
}

bool ReadMotFile(const std::string& path, std::map<int, std::vector<MotBox>>* byFrame, std::string* error) {
  std::ifstream in(path);
  if (!in) {
    *error = path + ": cannot be read";
    return false;
  }
  std::string line, why;
  int number = 0;
  while (std::getline(in, line)) {
    ++number;
    MotBox b;
    if (ParseMotLine(line, &b, &why)) {
      (*byFrame)[b.frame].push_back(b);
    } else if (!why.empty()) {
      *error = path + ":" + std::to_string(number) + ": " + why;
      return false;
    }
  }
  return true;
}

std::string FormatMotLine(const MotBox& b) {
  char buf[160];
  std::snprintf(buf, sizeof buf, "%d,%d,%.0f,%.0f,%.0f,%.0f,%.3f,-1,-1,-1", b.frame, b.id, b.left, b.top,
                b.width, b.height, b.confidence);
  return buf;
}
