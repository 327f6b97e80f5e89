#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <mutex>

namespace {

struct Stored {
  int prio;
  char tag[32];
  char text[1024];
};
constexpr int kMaxLines = 1024;
std::mutex gMutex;
Stored gLines[kMaxLines];
int gCount = 0;  // lines logged since the last Clear, kept or not

// Debian's liblog exposes the pre-release logger hook: (logger data, message).
void Capture(const __android_logger_data* d, const char* msg) {
  std::lock_guard<std::mutex> lk(gMutex);
  if (gCount < kMaxLines) {
    Stored& s = gLines[gCount];
    s.prio = d->priority;
    std::snprintf(s.tag, sizeof s.tag, "%s", d->tag ? d->tag : "");
    std::snprintf(s.text, sizeof s.text, "%s", msg ? msg : "");
  }
  ++gCount;
}

}  // namespace

LogCapture::LogCapture() {
  Clear();
  __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
  __android_log_set_logger(Capture);
}

LogCapture::~LogCapture() {
  __android_log_set_logger(__android_log_stderr_logger);
  __android_log_set_minimum_priority(ANDROID_LOG_INFO);
}

std::vector<LogLine> LogCapture::Lines() const {
  std::lock_guard<std::mutex> lk(gMutex);
  EXPECT_LE(gCount, kMaxLines) << "more lines than the capture keeps";
  std::vector<LogLine> lines;
  for (int i = 0; i < gCount && i < kMaxLines; ++i) lines.push_back({gLines[i].prio, gLines[i].tag, gLines[i].text});
  return lines;
}

int LogCapture::Count(const std::string& text, int prio) const {
  int n = 0;
  for (const auto& l : Lines()) n += (l.text == text && (prio < 0 || l.prio == prio)) ? 1 : 0;
  return n;
}

int LogCapture::CountContaining(const std::string& part) const {
  int n = 0;
  for (const auto& l : Lines()) n += l.text.find(part) != std::string::npos ? 1 : 0;
  return n;
}

void LogCapture::Clear() {
  std::lock_guard<std::mutex> lk(gMutex);
  gCount = 0;
}
