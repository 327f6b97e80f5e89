// Captures every line the library logs (priority, tag, text) for the lifetime of the object.
// Capturing allocates nothing, so it also serves tests that fail allocations; the accessors
// allocate.
#pragma once

#include <android/log.h>

#include <string>
#include <vector>

struct LogLine {
  int prio;
  std::string tag;
  std::string text;
};

class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogLine> Lines() const;
  // Lines whose text equals `text` exactly (and, when prio >= 0, whose priority matches).
  int Count(const std::string& text, int prio = -1) const;
  bool Has(const std::string& text, int prio = -1) const { return Count(text, prio) > 0; }
  // Lines whose text contains `part`.
  int CountContaining(const std::string& part) const;
  static void Clear();
};
