// zytrack: the library over footage or synthetic scenes.
//
//   zytrack [run] [--input VIDEO | --nv21 FILE --width W --height H [--stride S] |
//                  --synthetic SEED [--size 720p|1080p] [--bodies N] [--frames N]]
//                 [--detector | --detections MOT.txt | --truth] [--reinit K]
//                 [--max-frames N] [--out DIR] [--no-video] [--snapshot FRAME:PNG] [--gt MOT.txt]
//   zytrack eval [--seeds N] [--frames N] [--reinit K] [--out DIR]
//   zytrack eval --gt MOT.txt --tracks MOT.txt
// Either command takes --verbose: the library's log lines also go to the terminal. Otherwise
// they are counted in the summary and kept in library.log in the output folder.
//
// With no input it runs on the sample pedestrian footage when installed, else on a synthetic
// scene. Outputs (tracks.txt in MOT format, annotated.mp4 or frames/, summary.json) are
// written into a hidden folder inside DIR and moved into place only when the run succeeds.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "json_out.h"
#include "library_log.h"
#include "runner.h"

namespace fs = std::filesystem;

namespace {

const char* const kSampleVideo = "/usr/share/doc/opencv-doc/examples/data/vtest.avi";

// Prints the reason; the exit status is 130 after Ctrl-C or a termination request, else 1.
int Fail(const std::string& message) {
  std::fprintf(stderr, "zytrack: %s\n", message.c_str());
  return gStopRequested ? 130 : 1;
}

extern "C" void OnStopSignal(int) { gStopRequested = 1; }

void Usage() {
  std::fprintf(stderr,
               "usage: zytrack [run] [--input VIDEO | --nv21 FILE --width W --height H [--stride S] |\n"
               "                      --synthetic SEED [--size 720p|1080p] [--bodies N] [--frames N]]\n"
               "                     [--detector | --detections MOT.txt | --truth] [--reinit K]\n"
               "                     [--max-frames N] [--out DIR] [--no-video] [--snapshot FRAME:PNG] [--gt MOT.txt]\n"
               "       zytrack eval [--seeds N] [--frames N] [--reinit K] [--out DIR]\n"
               "       zytrack eval --gt MOT.txt --tracks MOT.txt\n"
               "       --verbose (either command): the library's log lines on the terminal too\n");
}

bool ParseInt(const std::string& s, int* v) {
  char* end = nullptr;
  const long x = std::strtol(s.c_str(), &end, 10);
  if (end == s.c_str() || *end != '\0' || x < -1000000000L || x > 1000000000L) return false;
  *v = static_cast<int>(x);
  return true;
}

struct Options {
  std::string input, nv21, detections, out = "zytrack_out", snapshot, gt, tracks;
  int width = 0, height = 0, stride = 0, seed = -1, bodies = 8, frames = 150, reinit = 10, maxFrames = 0,
      seeds = 3;
  bool detector = false, truth = false, video = true, is1080 = false, verbose = false;
};

bool ParseOptions(int argc, char** argv, int first, Options* o, std::string* error) {
  for (int i = first; i < argc; ++i) {
    const std::string a = argv[i];
    auto value = [&](std::string* s) {
      if (i + 1 >= argc) {
        *error = a + " needs a value";
        return false;
      }
      *s = argv[++i];
      return true;
    };
    auto number = [&](int* v) {
      std::string s;
      if (!value(&s)) return false;
      if (!ParseInt(s, v)) {
        *error = a + ": '" + s + "' is not a whole number";
        return false;
      }
      return true;
    };
    bool ok = true;
    std::string size;
    if (a == "--input") ok = value(&o->input);
    else if (a == "--nv21") ok = value(&o->nv21);
    else if (a == "--width") ok = number(&o->width);
    else if (a == "--height") ok = number(&o->height);
    else if (a == "--stride") ok = number(&o->stride);
    else if (a == "--synthetic") ok = number(&o->seed);
    else if (a == "--bodies") ok = number(&o->bodies);
    else if (a == "--frames") ok = number(&o->frames);
    else if (a == "--size") {
      ok = value(&size);
      if (ok && size != "720p" && size != "1080p") {
        *error = "--size takes 720p or 1080p";
        ok = false;
      }
      o->is1080 = size == "1080p";
    } else if (a == "--detections") ok = value(&o->detections);
    else if (a == "--detector") o->detector = true;
    else if (a == "--truth") o->truth = true;
    else if (a == "--reinit") ok = number(&o->reinit);
    else if (a == "--max-frames") ok = number(&o->maxFrames);
    else if (a == "--seeds") ok = number(&o->seeds);
    else if (a == "--out") ok = value(&o->out);
    else if (a == "--no-video") o->video = false;
    else if (a == "--snapshot") ok = value(&o->snapshot);
    else if (a == "--verbose") o->verbose = true;
    else if (a == "--gt") ok = value(&o->gt);
    else if (a == "--tracks") ok = value(&o->tracks);
    else {
      *error = "unknown option '" + a + "'";
      ok = false;
    }
    if (!ok) return false;
  }
  if (o->reinit < 1) {
    *error = "--reinit must be at least 1";
    return false;
  }
  if (o->bodies < 1 || o->bodies > 30) {
    *error = "--bodies must be 1 to 30";
    return false;
  }
  if (o->frames < 1) {
    *error = "--frames must be at least 1";
    return false;
  }
  return true;
}

SceneConfig SceneFor(int seed, bool is1080, int bodies, int frames) {
  SceneConfig c;
  c.seed = static_cast<uint32_t>(seed);
  c.width = is1080 ? 1920 : 1280;
  c.height = is1080 ? 1080 : 720;
  c.bodies = bodies;
  c.frames = frames;
  return c;
}

// Ground truth in MOT format; entries whose seventh field is 0 are marked not to be scored
// (the MOT Challenge's convention) and are left out.
bool ReadTruth(const std::string& path, MotFrames* truth, std::string* error) {
  if (!ReadMotFile(path, truth, error)) return false;
  for (auto& [frame, boxes] : *truth) {
    (void)frame;
    boxes.erase(std::remove_if(boxes.begin(), boxes.end(), [](const MotBox& b) { return b.confidence == 0; }),
                boxes.end());
  }
  return true;
}

std::string MotText(const MotMetrics& m) {
  char buf[256];
  std::snprintf(buf, sizeof buf,
                "MOTA %.3f, MOTP %.3f (mean IoU), IDF1 %.3f (IDP %.3f, IDR %.3f), %d false positives, %d misses, "
                "%d identity switches, %d fragmentations (%d truth boxes, %d objects; %d tracks)",
                m.Mota(), m.Motp(), m.Idf1(), m.Idp(), m.Idr(), m.falsePositives, m.misses, m.idSwitches,
                m.fragmentations, m.truthBoxes, m.truthObjects, m.tracks);
  return buf;
}

// The library's log lines since the last call go to library.log in the work folder; the counts
// go into the result for the summary.
bool KeepLibraryLog(const std::string& work, RunResult* r, std::string* error) {
  r->logLines = static_cast<int>(library_log::Lines().size());
  r->logErrors = library_log::ErrorCount();
  if (library_log::WriteTo(work + "/library.log")) return true;
  *error = work + ": cannot write library.log";
  return false;
}

void PrintLogNote(const std::string& out, int lines, int errors, bool verbose) {
  std::printf("zytrack: the library logged %d lines (%d at error priority%s)%s%s/library.log\n", lines, errors,
              errors > 0 ? ": bodies it lost, re-initialisations it refused" : "",
              verbose ? ", shown above; in " : ", kept in ", out.c_str());
}

int Run(const Options& o) {
  std::string error;
  std::unique_ptr<FrameSource> source;
  RunConfig cfg;
  cfg.reinitEvery = o.reinit;
  cfg.maxFrames = o.maxFrames;
  cfg.writeVideo = o.video;
  cfg.progress = ::isatty(2) != 0;
  if (!o.snapshot.empty()) {
    const size_t colon = o.snapshot.find(':');
    if (colon == std::string::npos || !ParseInt(o.snapshot.substr(0, colon), &cfg.snapshotFrame))
      return Fail("--snapshot takes FRAME:PATH.png");
    cfg.snapshotPath = o.snapshot.substr(colon + 1);
  }
  std::string input = o.input;
  int seed = o.seed;
  if (input.empty() && o.nv21.empty() && seed < 0) {
    if (std::ifstream(kSampleVideo)) {
      input = kSampleVideo;
    } else {
      seed = 1;
    }
  }
  if (!o.nv21.empty()) {
    source = OpenNv21(o.nv21, o.width, o.height, o.stride, &error);
  } else if (!input.empty()) {
    source = OpenVideo(input, &error);
  } else {
    source = OpenScene(SceneFor(seed, o.is1080, o.bodies, o.frames));
  }
  if (!source) return Fail(error);

  const bool synthetic = input.empty() && o.nv21.empty();
  MotFrames gt;
  if (!o.gt.empty() && !ReadTruth(o.gt, &gt, &error)) return Fail(error);
  if (!o.detections.empty()) {
    cfg.init = InitSource::kDetections;
    if (!ReadMotFile(o.detections, &cfg.detections, &error)) return Fail(error);
  } else if (o.truth || (synthetic && !o.detector)) {
    if (!synthetic) return Fail("--truth needs a synthetic scene");
    cfg.init = InitSource::kTruth;
  } else {
    cfg.init = InitSource::kDetector;
  }

  std::string work;
  if (!PrepareOutput(o.out, &work, &error)) return Fail(error);
  cfg.workDir = work;
  RunResult result;
  bool ok = RunTracking(*source, cfg, &result, &error);
  if (ok && !o.gt.empty()) {  // frames past the run's last are not the run's misses
    for (auto it = gt.begin(); it != gt.end();) it = it->first > result.frames ? gt.erase(it) : std::next(it);
    result.mot = ScoreMot(gt, result.tracks);
    result.hasMot = true;
  }
  if (ok && !result.truth.empty()) {  // a synthetic scene's ground truth, for scoring with --gt later
    std::ofstream truth(work + "/gt.txt");
    for (const auto& [frame, boxes] : result.truth)
      for (const MotBox& m : boxes) {  // exact (the float boxes read back unchanged)
        char line[160];
        std::snprintf(line, sizeof line, "%d,%d,%.9g,%.9g,%.9g,%.9g,1,-1,-1,-1\n", frame, m.id, m.left, m.top,
                      m.width, m.height);
        truth << line;
      }
    truth.close();
    if (!truth) ok = false, error = o.out + ": cannot write gt.txt";
  }
  ok = ok && KeepLibraryLog(work, &result, &error);
  if (ok) {
    std::ofstream json(work + "/summary.json");
    json << SummaryJson(source->Describe(), result);
    json.close();
    if (!json) error = o.out + ": cannot write summary.json";
  }
  if (!ok || !error.empty() || !PublishOutput(work, o.out, &error)) {
    std::error_code ec;
    fs::remove_all(work, ec);  // nothing half-written stays behind
    return Fail(error);
  }
  const Spread t = SpreadOf(result.trackingMs);
  double bodies = 0;
  for (int n : result.bodiesPerFrame) bodies += n;
  std::printf("zytrack: %d frames of %s, %.1f bodies per frame, tracking %.2f ms per frame (median; p90 %.2f, max %.2f)",
              result.frames, source->Describe().c_str(), result.frames ? bodies / result.frames : 0.0, t.median,
              t.p90, t.max);
  if (result.hasTruth) {
    std::printf(", success AUC %.3f, precision@20px %.3f, %d identity switches", result.score.SuccessAuc(),
                result.score.PrecisionAt(20), result.score.IdentitySwitches());
  }
  std::printf("\n");
  if (result.hasMot) std::printf("zytrack: against %s: %s\n", o.gt.empty() ? "the scene's ground truth" : o.gt.c_str(),
                                 MotText(result.mot).c_str());
  PrintLogNote(o.out, result.logLines, result.logErrors, o.verbose);
  std::printf("zytrack: outputs in %s: tracks.txt, %s, summary.json, library.log%s\n", o.out.c_str(),
              result.videoPath.empty() ? "(no video)"
                                       : fs::path(result.videoPath).filename().c_str(),
              result.truth.empty() ? "" : ", gt.txt");
  return 0;
}

// Scores a finished run's tracks against the user's ground truth, both in MOT format.
int EvalFiles(const Options& o) {
  if (o.tracks.empty()) return Fail("eval --gt needs --tracks MOT.txt (the run to score)");
  if (o.gt.empty()) return Fail("eval --tracks needs --gt MOT.txt (the annotations to score against)");
  MotFrames gt, tracks;
  std::string error;
  if (!ReadTruth(o.gt, &gt, &error) || !ReadMotFile(o.tracks, &tracks, &error)) return Fail(error);
  std::printf("zytrack: %s against %s: %s\n", o.tracks.c_str(), o.gt.c_str(), MotText(ScoreMot(gt, tracks)).c_str());
  return 0;
}

// Ground-truth evaluation over synthetic scenes of both sizes and growing body counts.
int Eval(const Options& o) {
  if (!o.gt.empty() || !o.tracks.empty()) return EvalFiles(o);
  std::string work, error;
  if (!PrepareOutput(o.out, &work, &error)) return Fail(error);
  std::ostringstream json;
  json << "{\n  \"scenes\": [\n";
  std::printf("%-5s %-6s %-6s %-6s %-6s %-9s %-6s %-6s %-6s %-5s %-5s %-5s %-5s %s\n", "seed", "size", "bodies",
              "frames", "AUC", "prec@20px", "MOTA", "MOTP", "IDF1", "FP", "miss", "IDSW", "frag",
              "tracking ms/frame (median, p90)");
  for (int s = 1; s <= o.seeds; ++s) {
    const bool is1080 = s % 2 == 0;
    const int bodies = std::min(30, 4 + 6 * (s - 1));
    auto source = OpenScene(SceneFor(s, is1080, bodies, o.frames));
    RunConfig cfg;
    cfg.init = InitSource::kTruth;
    cfg.reinitEvery = o.reinit;
    cfg.writeVideo = false;
    cfg.workDir = work;
    RunResult r;
    if (!RunTracking(*source, cfg, &r, &error)) {
      std::error_code ec;
      fs::remove_all(work, ec);
      return Fail(error);
    }
    const Spread t = SpreadOf(r.trackingMs);
    const MotMetrics& m = r.mot;
    std::printf("%-5d %-6s %-6d %-6d %-6.3f %-9.3f %-6.3f %-6.3f %-6.3f %-5d %-5d %-5d %-5d %.2f, %.2f\n", s,
                is1080 ? "1080p" : "720p", bodies, r.frames, r.score.SuccessAuc(), r.score.PrecisionAt(20), m.Mota(),
                m.Motp(), m.Idf1(), m.falsePositives, m.misses, m.idSwitches, m.fragmentations, t.median, t.p90);
    json << (s > 1 ? ",\n" : "") << "    " << SummaryJson(source->Describe(), r);
  }
  json << "  ]\n}\n";
  std::ofstream(work + "/eval.json") << json.str();
  RunResult logs;
  if (!KeepLibraryLog(work, &logs, &error)) return Fail(error);
  std::error_code ec;
  fs::remove(work + "/tracks.txt", ec);
  if (!PublishOutput(work, o.out, &error)) return Fail(error);
  PrintLogNote(o.out, logs.logLines, logs.logErrors, o.verbose);
  std::printf("zytrack: evaluation written to %s/eval.json\n", o.out.c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  int first = 1;
  std::string command = "run";
  if (argc > 1 && (std::string(argv[1]) == "run" || std::string(argv[1]) == "eval")) {
    command = argv[1];
    first = 2;
  }
  if (argc > 1 && (std::string(argv[1]) == "-h" || std::string(argv[1]) == "--help")) {
    Usage();
    return 0;
  }
  // Ctrl-C ends the run between frames, so that the work folder is removed as on any failure.
  std::signal(SIGINT, OnStopSignal);
  std::signal(SIGTERM, OnStopSignal);
  Options o;
  std::string error;
  if (!ParseOptions(argc, argv, first, &o, &error)) {
    Usage();
    return Fail(error);
  }
  library_log::Install(o.verbose);
  return command == "eval" ? Eval(o) : Run(o);
}
