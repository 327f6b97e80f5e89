#include "library_log.h"

#include <android/log.h>

#include <cstdio>
#include <fstream>
#include <mutex>

namespace library_log {
namespace {

std::mutex gMutex;  // the library logs from its worker threads too
std::vector<std::string> gLines;
int gErrors = 0;
bool gEcho = false;

void Capture(const __android_logger_data* data, const char* message) {
  static const char kLetters[] = "??VDIWEFS";
  const int p = data->priority;
  const char letter = p >= 0 && p < static_cast<int>(sizeof kLetters) - 1 ? kLetters[p] : '?';
  std::string line = std::string(data->tag ? data->tag : "") + ' ' + letter + ' ' + (message ? message : "");
  std::lock_guard<std::mutex> lock(gMutex);
  if (p >= ANDROID_LOG_ERROR) ++gErrors;
  if (gEcho) std::fprintf(stderr, "%s\n", line.c_str());
  gLines.push_back(std::move(line));
}

}  // namespace

void Install(bool echo) {
  {
    std::lock_guard<std::mutex> lock(gMutex);
    gEcho = echo;
  }
  __android_log_set_logger(Capture);
}

std::vector<std::string> Lines() {
  std::lock_guard<std::mutex> lock(gMutex);
  return gLines;
}

int ErrorCount() {
  std::lock_guard<std::mutex> lock(gMutex);
  return gErrors;
}

bool WriteTo(const std::string& path) {
  std::ofstream out(path);
  for (const std::string& l : Lines()) out << l << '\n';
  out.close();
  return static_cast<bool>(out);
}

}  // namespace library_log
