#include "support/log_capture.h"

#include <android/log.h>

namespace {
std::mutex gMutex;
std::vector<LogLine> gLines;

// Debian's liblog exposes the pre-release logger hook: (logger data, message).
void Capture(const __android_logger_data* d, const char* msg) {
  std::lock_guard<std::mutex> lk(gMutex);
  gLines.push_back({d->priority, d->tag ? d->tag : "", msg ? msg : ""});
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
  return gLines;
}

int LogCapture::Count(const std::string& text, int prio) const {
  std::lock_guard<std::mutex> lk(gMutex);
  int n = 0;
  for (const auto& l : gLines) n += (l.text == text && (prio < 0 || l.prio == prio)) ? 1 : 0;
  return n;
}

int LogCapture::CountContaining(const std::string& part) const {
  std::lock_guard<std::mutex> lk(gMutex);
  int n = 0;
  for (const auto& l : gLines) n += l.text.find(part) != std::string::npos ? 1 : 0;
  return n;
}

void LogCapture::Clear() {
  std::lock_guard<std::mutex> lk(gMutex);
  gLines.clear();
}
