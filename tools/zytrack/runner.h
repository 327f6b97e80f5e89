// Drives the library over a frame source as a camera service would: re-initialise every K
// frames from detections, a detector or ground truth, track on its own in between.
#pragma once

#include <csignal>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "frames.h"
#include "metrics.h"
#include "mot_io.h"

enum class InitSource { kDetections, kDetector, kTruth };

struct RunConfig {
  InitSource init = InitSource::kDetector;
  int reinitEvery = 10;                           // frames between re-initialisations
  std::map<int, std::vector<MotBox>> detections;  // by frame (from 1), for kDetections
  int maxFrames = 0;                              // 0: the whole source
  std::string workDir;                            // tracks.txt and the video go here
  bool writeVideo = true;
  bool progress = false;                          // progress bar on standard error
  int snapshotFrame = -1;                         // also save this annotated frame
  std::string snapshotPath;
};

struct RunResult {
  int frames = 0;
  std::vector<int> bodiesPerFrame;
  std::vector<double> frameMs;     // each ProcessKoTrackingAlgo call
  std::vector<double> trackingMs;  // tracking frames only
  bool hasTruth = false;
  TrackingScore score;
  MotFrames tracks;                // what tracks.txt holds
  MotFrames truth;                 // a synthetic scene's ground truth (the part inside the frame)
  bool hasMot = false;             // mot holds the run's CLEAR MOT and identity metrics
  MotMetrics mot;
  int logLines = -1, logErrors = 0;  // the library's log lines during the run (-1: not counted)
  std::string videoPath;           // annotated.mp4, or the PNG folder
  int width = 0, height = 0;
};

// MOT track ids from the library's body ids. The library hands a lost body's id out again later,
// and with 30 bodies it can give none (0) or one id twice; a track id stands for one body over the
// whole run, so such ids start new tracks (numbered from 31). Ids the library carries over from
// the previous re-initialisation keep their track; a first use of an id keeps its number.
class TrackIds {
 public:
  // The library ids of one re-initialisation frame's bodies; returns their track ids.
  std::vector<int> Reinit(const std::vector<int>& libraryIds);

 private:
  std::map<int, int> last_;  // library id -> track id at the previous re-initialisation
  std::set<int> used_;
  int next_ = 31;
};

// Set (from a signal handler) to end a run early: RunTracking then fails with "interrupted".
extern volatile std::sig_atomic_t gStopRequested;

// Runs the whole source. False with a reason in *error when the library or an output fails.
bool RunTracking(FrameSource& source, const RunConfig& cfg, RunResult* result, std::string* error);

// HOG people detections of one frame, best first, at most 30, as MOT boxes.
std::vector<MotBox> DetectPeople(const cv::Mat& bgr, int frame);

// Median, 90th percentile and maximum of a list (0 when empty).
struct Spread {
  double median = 0, p90 = 0, max = 0;
};
Spread SpreadOf(std::vector<double> v);

// Creates the output folder when missing and a hidden work folder inside it, after checking
// that it can be written; *work names the work folder.
bool PrepareOutput(const std::string& dir, std::string* work, std::string* error);
// Moves everything in the work folder into dir (replacing older outputs), then removes it.
bool PublishOutput(const std::string& work, const std::string& dir, std::string* error);
