#include "runner.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sys/stat.h>

#include <filesystem>

#include "ZyBodyTracking.h"

namespace fs = std::filesystem;

namespace {

// A distinct, stable colour per identity.
cv::Scalar IdColour(int id) {
  cv::Mat hsv(1, 1, CV_8UC3, cv::Scalar((id * 47) % 180, 220, 255)), bgr;
  cv::cvtColor(hsv, bgr, cv::COLOR_HSV2BGR);
  const cv::Vec3b c = bgr.at<cv::Vec3b>(0, 0);
  return cv::Scalar(c[0], c[1], c[2]);
}

// Each box with its track id, in the track's colour.
void Annotate(cv::Mat& bgr, const std::vector<std::pair<int, BodyRoi>>& shown, int frame) {
  for (const auto& [track, r] : shown) {
    const cv::Scalar c = IdColour(track);
    cv::rectangle(bgr, cv::Point(r.left, r.top), cv::Point(r.right, r.bottom), c, 2);
    cv::putText(bgr, std::to_string(track), cv::Point(r.left + 3, std::max(12, r.top - 4)), cv::FONT_HERSHEY_SIMPLEX,
                0.6, c, 2);
  }
  cv::putText(bgr, "frame " + std::to_string(frame), cv::Point(8, 22), cv::FONT_HERSHEY_SIMPLEX, 0.6,
              cv::Scalar(255, 255, 255), 2);
}

// The caller's record for a box already inside the frame: inclusive corners, so the right
// column is left + width - 1. `extra` carries the slot number plus one, so that an output entry
// the library did not write (still zero) is recognised.
BodyInfo ToBody(const Box& b, int classId, uint32_t extra) {
  BodyInfo bi{};
  bi.classId = classId;
  const int l = static_cast<int>(std::lround(b.x)), t = static_cast<int>(std::lround(b.y));
  bi.roi = BodyRoi{l, t, l + static_cast<int>(std::lround(b.w)) - 1, t + static_cast<int>(std::lround(b.h)) - 1};
  bi.extra = extra;
  return bi;
}

Box FromBody(const BodyInfo& b) {
  return Box{static_cast<float>(b.roi.left), static_cast<float>(b.roi.top),
             static_cast<float>(b.roi.right - b.roi.left + 1), static_cast<float>(b.roi.bottom - b.roi.top + 1)};
}

// The part of a box inside the frame (what a detector could report); empty when none is.
Box Visible(const Box& b, int width, int height) {
  const float x0 = std::max(0.f, b.x), y0 = std::max(0.f, b.y);
  const float x1 = std::min(static_cast<float>(width), b.x + b.w);
  const float y1 = std::min(static_cast<float>(height), b.y + b.h);
  return Box{x0, y0, std::max(0.f, x1 - x0), std::max(0.f, y1 - y0)};
}

void DrawProgress(int done, int total) {
  const int width = 40;
  const int filled = total > 0 ? std::min(width, done * width / total) : 0;
  std::fprintf(stderr, "\r[%.*s%*s] %d/%d frames", filled, "########################################",
               width - filled, "", done, total);
}

// Smallest box side handed to the library: thinner boxes hold too little to learn from.
constexpr float kMinSide = 4;

// The one owner of the tracking handle: whichever way a run ends, the handle is destroyed once.
class HandleOwner {
 public:
  HandleOwner() = default;
  HandleOwner(const HandleOwner&) = delete;
  HandleOwner& operator=(const HandleOwner&) = delete;
  ~HandleOwner() {
    if (handle_ != nullptr) DestroyKoTrackingAlgo(&handle_);
  }
  AlgoHandle** Out() { return &handle_; }
  AlgoHandle* Get() const { return handle_; }

 private:
  AlgoHandle* handle_ = nullptr;
};

}  // namespace

volatile std::sig_atomic_t gStopRequested = 0;

std::vector<int> TrackIds::Reinit(const std::vector<int>& libraryIds) {
  std::map<int, int> count;
  for (const int id : libraryIds) ++count[id];
  std::map<int, int> now;
  std::vector<int> tracks;
  for (const int id : libraryIds) {
    const bool usable = id >= 1 && id <= MAX_INPLACE_NUM && count[id] == 1;
    int track = 0;
    if (usable && last_.count(id) != 0) {
      track = last_[id];  // the library carried this body over
    } else if (usable && used_.count(id) == 0) {
      track = id;  // first use of this id: keep the library's number
    } else {
      while (used_.count(next_) != 0) ++next_;
      track = next_++;
    }
    used_.insert(track);
    if (usable) now[id] = track;
    tracks.push_back(track);
  }
  last_ = std::move(now);
  return tracks;
}

Spread SpreadOf(std::vector<double> v) {
  Spread s;
  if (v.empty()) return s;
  std::sort(v.begin(), v.end());
  s.median = v[v.size() / 2];
  s.p90 = v[std::min(v.size() - 1, static_cast<size_t>(std::ceil(0.9 * static_cast<double>(v.size()))) - 1)];
  s.max = v.back();
  return s;
}

std::vector<MotBox> DetectPeople(const cv::Mat& bgr, int frame) {
  static const cv::HOGDescriptor hog = [] {
    cv::HOGDescriptor h;
    h.setSVMDetector(cv::HOGDescriptor::getDefaultPeopleDetector());
    return h;
  }();
  // The detector's window is 64 x 128: people smaller than that are found on an enlarged copy.
  const double up = bgr.rows < 800 ? 2.0 : 1.0;
  cv::Mat scaled = bgr;
  if (up != 1.0) cv::resize(bgr, scaled, cv::Size(), up, up, cv::INTER_LINEAR);
  std::vector<cv::Rect> found;
  std::vector<double> weights;
  hog.detectMultiScale(scaled, found, weights, 0, cv::Size(8, 8), cv::Size(8, 8), 1.05, 2);
  for (cv::Rect& r : found) {
    r = cv::Rect(static_cast<int>(r.x / up), static_cast<int>(r.y / up), static_cast<int>(r.width / up),
                 static_cast<int>(r.height / up));
  }
  std::vector<MotBox> out;
  for (size_t i = 0; i < found.size(); ++i) {
    // The detector's window has a margin around the person; trim it to the body.
    const cv::Rect r = found[i];
    const cv::Rect body(r.x + r.width / 6, r.y + r.height / 12, r.width * 2 / 3, r.height * 5 / 6);
    const cv::Rect clipped = body & cv::Rect(0, 0, bgr.cols, bgr.rows);
    if (clipped.width < 8 || clipped.height < 8) continue;
    MotBox m;
    m.frame = frame;
    m.left = static_cast<float>(clipped.x);
    m.top = static_cast<float>(clipped.y);
    m.width = static_cast<float>(clipped.width);
    m.height = static_cast<float>(clipped.height);
    m.confidence = i < weights.size() ? static_cast<float>(weights[i]) : 1.0f;
    out.push_back(m);
  }
  std::stable_sort(out.begin(), out.end(), [](const MotBox& a, const MotBox& b) { return a.confidence > b.confidence; });
  if (out.size() > MAX_INPLACE_NUM) out.resize(MAX_INPLACE_NUM);
  return out;
}

bool RunTracking(FrameSource& source, const RunConfig& cfg, RunResult* result, std::string* error) {
  if (cfg.workDir.empty()) {
    *error = "no output folder";
    return false;
  }
  HandleOwner handle;
  if (CreateKoTrackingAlgo(handle.Out()) != 0 || StartKoTrackingAlgo(handle.Get()) != 0) {
    *error = "the tracking library could not start";
    return false;
  }
  std::ofstream tracks(cfg.workDir + "/tracks.txt");
  if (!tracks) {
    *error = cfg.workDir + ": cannot write tracks.txt";
    return false;
  }
  cv::VideoWriter video;
  std::string pngDir;
  const int total = cfg.maxFrames > 0 && source.Count() > 0 ? std::min(cfg.maxFrames, source.Count())
                                                             : (cfg.maxFrames > 0 ? cfg.maxFrames : source.Count());
  Nv21Image nv21;
  cv::Mat bgr;
  std::vector<BodyInfo> inBodies;     // the list of the last re-initialisation
  std::vector<int> truthOfSlot;       // ground-truth id of each slot, when known
  std::vector<int> trackOfSlot;       // MOT track id of each slot (0: the library skipped it)
  TrackIds trackIds;
  BodyInfo outBodies[MAX_INPLACE_NUM] = {};
  ParamIn in{};
  ParamOut out{};
  out.bodies = outBodies;
  int f = 0;
  for (; (cfg.maxFrames <= 0 || f < cfg.maxFrames) && source.Next(&nv21, &bgr); ++f) {
    const int frameNo = f + 1;  // MOT frames count from 1
    const bool reinit = f % std::max(1, cfg.reinitEvery) == 0;
    const std::vector<TruthBox>* truth = source.Truth();
    if (reinit) {
      inBodies.clear();
      truthOfSlot.clear();
      std::vector<MotBox> boxes;
      if (cfg.init == InitSource::kDetections) {
        auto it = cfg.detections.find(frameNo);
        if (it != cfg.detections.end()) boxes = it->second;
        std::stable_sort(boxes.begin(), boxes.end(), [](const MotBox& a, const MotBox& b) { return a.confidence > b.confidence; });
      } else if (cfg.init == InitSource::kDetector) {
        boxes = DetectPeople(bgr, frameNo);
      } else if (truth != nullptr) {
        for (const TruthBox& t : *truth) {
          const Box v = Visible(t.box, nv21.width, nv21.height);
          if (v.w < 4 || v.h < 4) continue;
          MotBox m;
          m.id = t.id;
          m.left = v.x, m.top = v.y, m.width = v.w, m.height = v.h;
          boxes.push_back(m);
        }
      }
      for (const MotBox& m : boxes) {
        if (inBodies.size() == MAX_INPLACE_NUM) break;
        // The library skips a box it cannot take yet still counts it in its output: such boxes
        // (outside the frame, or too thin once cut to it) are not handed over.
        const Box v = Visible(Box{m.left, m.top, m.width, m.height}, nv21.width, nv21.height);
        if (v.w < kMinSide || v.h < kMinSide) continue;
        inBodies.push_back(ToBody(v, 1, static_cast<uint32_t>(inBodies.size()) + 1));
        truthOfSlot.push_back(m.id);
      }
    }
    in.width = nv21.width;
    in.height = nv21.height;
    in.stride = nv21.stride;
    in.image = nv21.bytes.data();
    in.bodies = inBodies.empty() ? outBodies : inBodies.data();  // any valid array when empty
    in.bodyNum = static_cast<int32_t>(inBodies.size());
    in.isFirstFrame = reinit ? 1 : 0;
    std::memset(outBodies, 0, sizeof outBodies);
    if (gStopRequested) {
      *error = "interrupted";
      return false;
    }
    const auto t0 = std::chrono::steady_clock::now();
    const int rc = ProcessKoTrackingAlgo(handle.Get(), &in, &out);
    const auto t1 = std::chrono::steady_clock::now();
    if (rc != 0) {
      *error = "frame " + std::to_string(frameNo) + ": the library refused the frame (" + std::to_string(rc) + ")";
      return false;
    }
    const double ms = std::chrono::duration<double, std::milli>(t1 - t0).count();
    result->frameMs.push_back(ms);
    if (!reinit) result->trackingMs.push_back(ms);
    // Entries the library wrote, by slot (its `extra` is the slot plus one; a cleared entry is 0).
    const int n = std::clamp(out.bodyNum, 0, static_cast<int>(MAX_INPLACE_NUM));
    std::vector<std::pair<size_t, BodyInfo>> written;
    for (int i = 0; i < n; ++i)
      if (outBodies[i].extra >= 1 && outBodies[i].extra <= inBodies.size())
        written.emplace_back(outBodies[i].extra - 1, outBodies[i]);
    if (reinit) {
      std::vector<int> libraryIds;
      for (const auto& w : written) libraryIds.push_back(w.second.bodyId);
      const std::vector<int> tracksNow = trackIds.Reinit(libraryIds);
      trackOfSlot.assign(inBodies.size(), 0);
      for (size_t k = 0; k < written.size(); ++k) trackOfSlot[written[k].first] = tracksNow[k];
    }
    std::vector<std::pair<int, BodyRoi>> shown;
    for (const auto& [slot, body] : written) {
      const int track = trackOfSlot[slot];
      if (track == 0) continue;
      const Box b = FromBody(body);
      MotBox m;
      m.frame = frameNo;
      m.id = track;
      m.left = b.x, m.top = b.y, m.width = b.w, m.height = b.h;
      m.confidence = 1;
      tracks << FormatMotLine(m) << '\n';
      result->tracks[frameNo].push_back(m);
      shown.emplace_back(track, body.roi);
      if (truth != nullptr && cfg.init == InitSource::kTruth && slot < truthOfSlot.size()) {
        const int tid = truthOfSlot[slot];
        const Box tb = Visible((*truth)[static_cast<size_t>(tid - 1)].box, nv21.width, nv21.height);
        if (!reinit) result->score.Add(tb, b);  // re-initialisation frames return the input boxes
        result->score.AddIdentity(tid, frameNo, track);
      }
    }
    result->bodiesPerFrame.push_back(static_cast<int>(shown.size()));
    if (truth != nullptr) {
      for (const TruthBox& t : *truth) {
        const Box v = Visible(t.box, nv21.width, nv21.height);
        if (v.w <= 0 || v.h <= 0) continue;
        MotBox m;
        m.frame = frameNo, m.id = t.id, m.left = v.x, m.top = v.y, m.width = v.w, m.height = v.h;
        result->truth[frameNo].push_back(m);
      }
    }
    if (cfg.writeVideo || frameNo == cfg.snapshotFrame) {
      Annotate(bgr, shown, frameNo);
      if (frameNo == cfg.snapshotFrame && !cfg.snapshotPath.empty()) cv::imwrite(cfg.snapshotPath, bgr);
    }
    if (cfg.writeVideo) {
      if (!video.isOpened() && pngDir.empty()) {
        result->videoPath = cfg.workDir + "/annotated.mp4";
        // H.264 where OpenCV's ffmpeg has an encoder for it, MPEG-4 part 2 otherwise; at the
        // source's own frame rate so the video plays at the footage's speed.
        for (const char* fourcc : {"avc1", "mp4v"}) {
          video.open(result->videoPath, cv::VideoWriter::fourcc(fourcc[0], fourcc[1], fourcc[2], fourcc[3]), source.Fps(),
                     bgr.size());
          if (video.isOpened()) break;
        }
        if (!video.isOpened()) {  // no encoder in this OpenCV: PNG frames instead
          pngDir = cfg.workDir + "/frames";
          ::mkdir(pngDir.c_str(), 0755);
          result->videoPath = pngDir;
        }
      }
      if (video.isOpened()) {
        video.write(bgr);
      } else {
        char name[32];
        std::snprintf(name, sizeof name, "/%06d.png", frameNo);
        cv::imwrite(pngDir + name, bgr);
      }
    }
    if (cfg.progress && (f % 5 == 0)) DrawProgress(f + 1, total);
  }
  if (cfg.progress) {
    DrawProgress(f, total > 0 ? total : f);
    std::fputc('\n', stderr);
  }
  result->frames = f;
  result->width = nv21.width;
  result->height = nv21.height;
  result->hasTruth = cfg.init == InitSource::kTruth;
  if (source.Truth() != nullptr) {
    result->mot = ScoreMot(result->truth, result->tracks);
    result->hasMot = true;
  }
  video.release();
  tracks.close();
  if (!tracks) {
    *error = cfg.workDir + ": writing tracks.txt failed";
    return false;
  }
  if (f == 0) {
    *error = source.Describe() + ": no frame could be read";
    return false;
  }
  return true;
}

// The output folder must exist (it is created) and be writable before any work starts.
bool PrepareOutput(const std::string& dir, std::string* work, std::string* error) {
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (ec || !fs::is_directory(dir) || ::access(dir.c_str(), W_OK) != 0) {
    *error = dir + ": the output folder cannot be created or written";
    return false;
  }
  *work = dir + "/.zytrack-partial-" + std::to_string(::getpid());
  fs::remove_all(*work, ec);
  if (!fs::create_directory(*work, ec) || ec) {
    *error = dir + ": the output folder cannot be written";
    return false;
  }
  return true;
}

// Moves the finished outputs from the work folder into place, then removes it.
bool PublishOutput(const std::string& work, const std::string& dir, std::string* error) {
  std::error_code ec;
  std::vector<fs::path> done;
  for (const auto& entry : fs::directory_iterator(work, ec)) done.push_back(entry.path());
  for (const fs::path& p : done) {
    const fs::path target = fs::path(dir) / p.filename();
    fs::remove_all(target, ec);
    fs::rename(p, target, ec);
    if (ec) {
      *error = target.string() + ": cannot be written (" + ec.message() + ")";
      return false;
    }
  }
  fs::remove_all(work, ec);
  return true;
}

