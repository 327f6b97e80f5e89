// Every stored fuzz input, the seed corpus and the inputs that once found a fault, runs through
// the fuzz driver on every build, so a fault found once stays found.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz_driver.h"

namespace {

std::vector<std::string> FilesIn(const std::string& dir) {
  std::vector<std::string> files;
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator(dir, ec)) {
    if (e.is_regular_file()) files.push_back(e.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

void ReplayAll(const std::string& dir, size_t atLeast) {
  const std::vector<std::string> files = FilesIn(dir);
  EXPECT_GE(files.size(), atLeast) << dir;
  ZyFuzzQuietLog(true);
  for (const std::string& f : files) {
    SCOPED_TRACE(f);
    std::ifstream in(f, std::ios::binary);
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ZyFuzzOneInput(bytes.data(), bytes.size());  // a violation aborts with the file named on stderr
  }
  ZyFuzzQuietLog(false);
}

TEST(FuzzInputs, RegressionsReplayClean) { ReplayAll(ZY_FUZZ_DIR "/regressions", 1); }
TEST(FuzzInputs, SeedCorpusReplaysClean) { ReplayAll(ZY_FUZZ_DIR "/corpus", 20); }

}  // namespace
