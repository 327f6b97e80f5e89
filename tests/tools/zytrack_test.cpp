#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <tuple>
#include <utility>

#include "frames.h"
#include "metrics.h"
#include "mot_io.h"
#include "runner.h"
#include "scene.h"

namespace {

std::string TempPath(const std::string& name) {
  return (std::filesystem::temp_directory_path() / ("zytrack_test_" + std::to_string(::getpid()) + "_" + name)).string();
}

TEST(MotIo, ParsesBoxesAndNamesTheMalformedLine) {
  MotBox b;
  std::string why;
  ASSERT_TRUE(ParseMotLine("3,-1,10.5,20,30,60,0.87,-1,-1,-1", &b, &why));
  EXPECT_EQ(b.frame, 3);
  EXPECT_EQ(b.left, 10.5f);
  EXPECT_EQ(b.height, 60.f);
  EXPECT_FLOAT_EQ(b.confidence, 0.87f);
  EXPECT_FALSE(ParseMotLine("   ", &b, &why));
  EXPECT_TRUE(why.empty()) << "a blank line is not an error";
  for (auto [line, part] : {std::pair{"1,2,3", "at least 6"}, {"1,2,x,4,5,6", "field 3"}, {"0,2,3,4,5,6", ""},
                            {"1,2,3,4,0,6", ""}, {"1.5,2,3,4,5,6", ""}}) {  // frames from 1, empty box, fraction
    EXPECT_FALSE(ParseMotLine(line, &b, &why)) << line;
    EXPECT_NE(why.find(part), std::string::npos) << why;
  }

  const std::string path = TempPath("det.txt");
  std::ofstream(path) << "1,-1,1,2,3,4,0.9\n# comment\n\n2,-1,5,6,7,8,0.5\n2,-1,5,6,seven,8\n";
  std::map<int, std::vector<MotBox>> byFrame;
  EXPECT_FALSE(ReadMotFile(path, &byFrame, &why));
  EXPECT_EQ(why, path + ":5: field 5 is not a number: 'seven'");
  std::remove(path.c_str());
  EXPECT_FALSE(ReadMotFile(path, &byFrame, &why));
  EXPECT_NE(why.find("cannot be read"), std::string::npos);

  MotBox out;
  out.frame = 7, out.id = 3, out.left = 10, out.top = 20, out.width = 30, out.height = 40;
  EXPECT_EQ(FormatMotLine(out), "7,3,10,20,30,40,1.000,-1,-1,-1");
}

TEST(Metrics, OverlapSuccessPrecisionAndSwitches) {
  EXPECT_DOUBLE_EQ(Iou(Box{0, 0, 10, 10}, Box{0, 0, 10, 10}), 1.0);
  EXPECT_DOUBLE_EQ(Iou(Box{0, 0, 10, 10}, Box{5, 0, 10, 10}), 50.0 / 150.0);
  EXPECT_DOUBLE_EQ(Iou(Box{0, 0, 10, 10}, Box{10, 0, 10, 10}), 0.0);
  EXPECT_DOUBLE_EQ(Iou(Box{0, 0, 0, 10}, Box{0, 0, 10, 10}), 0.0);

  TrackingScore s;
  s.Add(Box{0, 0, 10, 10}, Box{0, 0, 10, 10});   // IoU 1: above every threshold but 1
  s.Add(Box{0, 0, 10, 10}, Box{5, 0, 10, 10});   // IoU 1/3: above 0 .. 0.30 (7 thresholds)
  s.AddMiss();                                   // IoU 0, never close
  // Success: IoU 1 counts for 20 thresholds, 1/3 for 7 of 21.
  EXPECT_NEAR(s.SuccessAuc(), (20.0 + 7.0) / (3 * 21.0), 1e-12);
  EXPECT_NEAR(s.PrecisionAt(20), 2.0 / 3.0, 1e-12);
  EXPECT_NEAR(s.PrecisionAt(4), 1.0 / 3.0, 1e-12);

  // Truth 1 is tracked as 5, 5, then 6 (a switch), then 5 again after a gap (a switch back).
  for (auto [truth, frame, id] : {std::tuple{1, 1, 5}, {1, 2, 5}, {1, 3, 6}, {1, 5, 5}, {2, 1, 7}, {2, 2, 7}}) {
    s.AddIdentity(truth, frame, id);
  }
  EXPECT_EQ(s.IdentitySwitches(), 2);
}

TEST(Scene, ReproducibleFromItsSeed) {
  SceneConfig cfg;
  cfg.width = 320, cfg.height = 180, cfg.bodies = 5, cfg.frames = 10, cfg.seed = 42;
  SyntheticScene a(cfg), b(cfg);
  cv::Mat fa, fb;
  std::vector<TruthBox> ta, tb;
  a.Render(7, &fa, &ta);
  b.Render(7, &fb, &tb);
  ASSERT_EQ(ta.size(), 5u);
  EXPECT_EQ(cv::norm(fa, fb, cv::NORM_INF), 0.0);
  EXPECT_EQ(ta[4].box.x, tb[4].box.x);
  cfg.seed = 43;
  SyntheticScene c(cfg);
  cv::Mat fc;
  std::vector<TruthBox> tc;
  c.Render(7, &fc, &tc);
  EXPECT_GT(cv::norm(fa, fc, cv::NORM_L1), 0.0);
  // Bodies move between frames.
  a.Render(8, &fb, &tb);
  EXPECT_NE(ta[0].box.x, tb[0].box.x);
}

TEST(Frames, ImpossibleInputsAreReported) {
  std::string why;
  EXPECT_EQ(OpenVideo("/nonexistent/video.avi", &why), nullptr);
  EXPECT_NE(why.find("cannot be read"), std::string::npos);
  EXPECT_EQ(OpenNv21("/dev/null", 641, 360, 0, &why), nullptr);
  EXPECT_NE(why.find("impossible NV21 geometry"), std::string::npos);
  EXPECT_EQ(OpenNv21("/dev/null", 640, 360, 320, &why), nullptr);
  const std::string path = TempPath("short.nv21");
  std::ofstream(path) << std::string(100, 'x');
  EXPECT_EQ(OpenNv21(path, 64, 32, 64, &why), nullptr);
  EXPECT_NE(why.find("not a whole number"), std::string::npos);
  std::remove(path.c_str());

  // BGR -> NV21 -> BGR keeps a flat colour.
  cv::Mat bgr(16, 16, CV_8UC3, cv::Scalar(40, 120, 200)), back;
  Nv21Image nv;
  BgrToNv21(bgr, &nv);
  EXPECT_EQ(nv.bytes.size(), 16u * 16u * 3u / 2u);
  Nv21ToBgr(nv, &back);
  EXPECT_LE(cv::norm(bgr, back, cv::NORM_INF), 4.0);
}

TEST(Output, UnwritableFoldersAreRefusedAndOutputsAppearWhole) {
  std::string work, why;
  EXPECT_FALSE(PrepareOutput("/proc/zytrack-out", &work, &why));
  EXPECT_NE(why.find("cannot be created or written"), std::string::npos);

  const std::string dir = TempPath("out");
  ASSERT_TRUE(PrepareOutput(dir, &work, &why)) << why;
  std::ofstream(work + "/tracks.txt") << "1,1,0,0,1,1,1,-1,-1,-1\n";
  std::ofstream(dir + "/tracks.txt") << "old\n";
  // Until published, the folder holds only the older output and the hidden work folder.
  EXPECT_EQ(std::filesystem::file_size(dir + "/tracks.txt"), 4u);
  ASSERT_TRUE(PublishOutput(work, dir, &why)) << why;
  EXPECT_FALSE(std::filesystem::exists(work));
  EXPECT_EQ(std::filesystem::file_size(dir + "/tracks.txt"), 23u);
  std::filesystem::remove_all(dir);
}

TEST(TrackIds, ReusedMissingAndDoubledLibraryIdsStartNewTracks) {
  TrackIds ids;
  // Each row: the library ids of one re-initialisation frame, then the track ids expected.
  const std::vector<std::pair<std::vector<int>, std::vector<int>>> steps = {
      {{1, 2, 3}, {1, 2, 3}},    // first use keeps the library's numbers
      {{3, 1, 4}, {3, 1, 4}},    // carried over in any order; 2 was lost
      {{2, 3}, {31, 3}},         // 2 handed out again after a gap: another body
      {{0, 0, 3}, {32, 33, 3}},  // no id given (30 bodies): a track each
      {{3, 3}, {34, 35}},        // one id twice: neither can be trusted
      {{2}, {36}},               // 2 was absent from the previous frame
  };
  for (const auto& [library, tracks] : steps) EXPECT_EQ(ids.Reinit(library), tracks);
}

// What the library cannot take is not handed to it, and what it returns keeps the box a
// detection gave: the box outside the frame would otherwise come back as an id-0, empty line.
TEST(EndToEnd, BoxesOutsideTheFrameAreNotPassedOn) {
  SceneConfig cfg;
  cfg.width = 320, cfg.height = 180, cfg.bodies = 2, cfg.frames = 6, cfg.seed = 3;
  auto source = OpenScene(cfg);
  RunConfig run;
  run.init = InitSource::kDetections;
  run.reinitEvery = 3;
  run.writeVideo = false;
  MotBox inside, outside, sliver;
  inside.frame = outside.frame = sliver.frame = 1;
  inside.left = 100, inside.top = 50, inside.width = 40, inside.height = 100, inside.confidence = 0.9f;
  outside.left = 2000, outside.top = 2000, outside.width = 50, outside.height = 100, outside.confidence = 0.8f;
  sliver.left = 318, sliver.top = 10, sliver.width = 30, sliver.height = 60, sliver.confidence = 0.7f;  // 2 px inside
  run.detections[1] = {inside, outside, sliver};
  run.workDir = TempPath("outside");
  std::filesystem::create_directories(run.workDir);
  RunResult r;
  std::string why;
  ASSERT_TRUE(RunTracking(*source, run, &r, &why)) << why;
  EXPECT_EQ(r.bodiesPerFrame, (std::vector<int>{1, 1, 1, 0, 0, 0}));
  std::ifstream tracks(run.workDir + "/tracks.txt");
  std::string line;
  ASSERT_TRUE(std::getline(tracks, line));
  EXPECT_EQ(line, "1,1,100,50,40,100,1.000,-1,-1,-1");
  std::filesystem::remove_all(run.workDir);
}

// The annotated video plays at the footage's own rate.
TEST(EndToEnd, AnnotatedVideoKeepsTheFrameRate) {
  const std::string clip = TempPath("clip.avi");
  {
    cv::VideoWriter w(clip, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 10.0, cv::Size(128, 96));
    if (!w.isOpened()) GTEST_SKIP() << "no video encoder in this OpenCV";
    for (int i = 0; i < 4; ++i) w.write(cv::Mat(96, 128, CV_8UC3, cv::Scalar(30 * i, 80, 160)));
  }
  std::string why;
  auto source = OpenVideo(clip, &why);
  ASSERT_NE(source, nullptr) << why;
  RunConfig run;
  run.init = InitSource::kDetections;
  run.workDir = TempPath("fps");
  std::filesystem::create_directories(run.workDir);
  RunResult r;
  ASSERT_TRUE(RunTracking(*source, run, &r, &why)) << why;
  ASSERT_EQ(r.videoPath, run.workDir + "/annotated.mp4");
  cv::VideoCapture back(r.videoPath);
  EXPECT_NEAR(back.get(cv::CAP_PROP_FPS), 10.0, 0.01);
  std::filesystem::remove_all(run.workDir);
  std::remove(clip.c_str());
}

// A short synthetic scene re-initialised from its ground truth every 10 frames: the library
// must follow the bodies between re-initialisations. Measured: AUC about 0.9 on such scenes.
TEST(EndToEnd, ShortSyntheticSceneMeetsTheMinimumAuc) {
  SceneConfig cfg;
  cfg.width = 640, cfg.height = 360, cfg.bodies = 4, cfg.frames = 40, cfg.seed = 7;
  auto source = OpenScene(cfg);
  RunConfig run;
  run.init = InitSource::kTruth;
  run.reinitEvery = 10;
  run.writeVideo = false;
  run.workDir = TempPath("e2e");
  std::filesystem::create_directories(run.workDir);
  RunResult r;
  std::string why;
  ASSERT_TRUE(RunTracking(*source, run, &r, &why)) << why;
  EXPECT_EQ(r.frames, 40);
  EXPECT_EQ(r.trackingMs.size(), 36u);
  EXPECT_GE(r.score.SuccessAuc(), 0.80);
  EXPECT_GE(r.score.PrecisionAt(20), 0.90);
  EXPECT_LE(r.score.IdentitySwitches(), 1);
  std::ifstream tracks(run.workDir + "/tracks.txt");
  std::string line;
  int lines = 0;
  while (std::getline(tracks, line)) ++lines;
  EXPECT_EQ(lines, 40 * 4);
  std::filesystem::remove_all(run.workDir);
  std::printf("end-to-end: AUC %.3f, precision@20 %.3f, switches %d\n", r.score.SuccessAuc(), r.score.PrecisionAt(20),
              r.score.IdentitySwitches());
}

}  // namespace
