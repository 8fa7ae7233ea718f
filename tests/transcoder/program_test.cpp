// The transcoder as a program, over real films.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "platform/process_launch.h"
#include "support.h"
#include "transcoder/launch.h"

namespace orvo::transcoder {
namespace {

using test::Child;
using test::MediaPath;
using test::Pipe;
using test::PipeName;
using test::Result;
using test::RunTranscoder;
using test::StartOptions;
using Strings = std::vector<std::string>;

// A test's own appliance, so that the encoder cache lies in it.
class Sysroot {
 public:
  Sysroot() { setenv("ORVO_SYSROOT", dir_.Path("").c_str(), 1); }
  ~Sysroot() { unsetenv("ORVO_SYSROOT"); }
  std::string Path(const std::string& name) const { return dir_.Path(name); }

 private:
  test::TempDir dir_;
};

// A transcoder that has begun to write and waits for its reader.
class Running {
 public:
  explicit Running(StartOptions options = {}) {
    const Strings command = {
        TRANSCODER_PROGRAM,        "-i", MediaPath("h264_aac.mp4"), "-c", "copy", "-f", "mpegts",
        PipeName(output_.writeEnd)};
    options.pass = {output_.writeEnd.Get()};
    child_ = std::make_unique<Child>(command, options);
    output_.writeEnd.Reset();
    char byte = 0;
    EXPECT_EQ(read(output_.readEnd.Get(), &byte, 1), 1);
  }

  pid_t Pid() const { return child_->Pid(); }
  void StopReading() { output_.readEnd.Reset(); }
  int Finish() {
    test::Drain(output_.readEnd.Get());
    return child_->Wait();
  }
  std::string Proc(const std::string& name) const {
    return "/proc/" + std::to_string(Pid()) + "/" + name;
  }

 private:
  Pipe output_;
  std::unique_ptr<Child> child_;
};

// The signals of one line of /proc/PID/status, as a bit set.
uint64_t SignalSet(const Running& running, const std::string& line) {
  const std::string status = test::ReadText(running.Proc("status"));
  return std::stoull(status.substr(status.find(line + ":") + line.size() + 1), nullptr, 16);
}

uint64_t Bit(int signalNumber) {
  return UINT64_C(1) << (signalNumber - 1);
}

std::string ProgressPath(const Running& running) {
  for (const auto& entry : std::filesystem::directory_iterator(running.Proc("fd"))) {
    if (std::filesystem::read_symlink(entry) == "/memfd:orvo-progress (deleted)") {
      return entry.path();
    }
  }
  return "";
}

TEST(FilmTranscoder, BecomesFFmpegInItsOwnProcess) {
  const Running running;
  EXPECT_EQ(std::filesystem::read_symlink(running.Proc("exe")), "/usr/bin/ffmpeg");
}

TEST(FilmTranscoder, EndsOnSignalsThatItsStarterIgnored) {
  StartOptions options;
  options.signalsIgnored = true;
  Running running(options);
  EXPECT_EQ(SignalSet(running, "SigBlk") & (Bit(SIGPIPE) | Bit(SIGINT) | Bit(SIGTERM)), 0u);
  EXPECT_EQ(SignalSet(running, "SigIgn") & (Bit(SIGINT) | Bit(SIGTERM)), 0u);
  kill(running.Pid(), SIGTERM);
  EXPECT_NE(running.Finish(), 0);
}

TEST(FilmTranscoder, EndsWhenItsReaderLeaves) {
  Running running;
  running.StopReading();
  running.Finish();
}

TEST(FilmTranscoder, GivesWayToThePrograms) {
  const Running running;
  EXPECT_EQ(getpriority(PRIO_PROCESS, static_cast<id_t>(running.Pid())),
            std::max(10, getpriority(PRIO_PROCESS, 0)));
}

TEST(FilmTranscoder, TellsItsProgressThroughAFileWithoutAName) {
  Running running;
  const std::string path = ProgressPath(running);
  ASSERT_NE(path, "");
  const UniqueFd progress(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(running.Finish(), 0);
  const std::string text = test::Drain(progress.Get());
  EXPECT_NE(text.find("out_time=00:01:00"), std::string::npos) << text;
  EXPECT_NE(text.find("speed="), std::string::npos);
  EXPECT_NE(text.find("progress=end"), std::string::npos);
}

TEST(FilmTranscoder, KeepsTheStandardDescriptorsForThemselves) {
  StartOptions options;
  options.withoutDescriptors = true;
  const Running running(options);
  for (const char* fd : {"fd/0", "fd/1", "fd/2"}) {
    EXPECT_EQ(std::filesystem::read_symlink(running.Proc(fd)), "/dev/null");
  }
}

TEST(FilmTranscoder, LeavesStandardInputUnread) {
  Pipe input;
  ASSERT_EQ(write(input.writeEnd.Get(), "q", 1), 1);
  StartOptions options;
  options.standardInput = input.readEnd.Get();
  Running running(options);
  EXPECT_EQ(running.Finish(), 0);
  int unread = 0;
  ioctl(input.readEnd.Get(), FIONREAD, &unread);
  EXPECT_EQ(unread, 1);
}

TEST(FilmTranscoder, PrintsNothing) {
  const Result result =
      RunTranscoder({"-i", MediaPath("h264_aac.mp4"), "-c", "copy", "-f", "mpegts", "OUTPUT"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.text, "");
  EXPECT_EQ(result.error, "");
  EXPECT_FALSE(result.output.empty());
}

TEST(FilmTranscoder, OverwritesAnOutputWithoutAsking) {
  const test::TempDir dir;
  test::WriteText(dir.Path("out.ts"), "old");
  const Result result = RunTranscoder(
      {"-ss", "58", "-i", MediaPath("h264_aac.mp4"), "-c", "copy", dir.Path("out.ts")});
  EXPECT_EQ(result.status, 0);
  EXPECT_GT(std::filesystem::file_size(dir.Path("out.ts")), 1000u);
}

TEST(FilmTranscoder, ReadsAFilmFromAPipe) {
  Pipe input;
  Pipe output;
  StartOptions options;
  options.pass = {input.readEnd.Get(), output.writeEnd.Get()};
  Child child({TRANSCODER_PROGRAM, "-i", PipeName(input.readEnd), "-c", "copy", "-f", "mpegts",
               PipeName(output.writeEnd)},
              options);
  input.readEnd.Reset();
  output.writeEnd.Reset();
  StartOptions copying;
  copying.standardOutput = input.writeEnd.Get();
  Child copy({"/bin/cat", MediaPath("mpeg2_mp2.ts")}, copying);
  input.writeEnd.Reset();
  EXPECT_GT(test::Drain(output.readEnd.Get()).size(), 100000u);
  EXPECT_EQ(child.Wait(), 0);
}

TEST(FilmTranscoder, EncodesWithWhatTheMachineHas) {
  const Sysroot sysroot;
  const Result result =
      RunTranscoder({"-ss", "59", "-i", MediaPath("h264_ac3.mkv"), "-vaapi_device",
                     "/dev/nonexistent", "-vf", "format=nv12,hwupload", "-vcodec", "h264_smd",
                     "-acodec", "libfdk_aac", "-afterburner", "1", "-f", "mpegts", "OUTPUT"});
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_GT(result.output.size(), 10000u);
  EXPECT_TRUE(std::filesystem::exists(sysroot.Path("tmp/Mirevo/transcoder_encoders")));
}

TEST(TranscoderUsage, RefusesAnIncompleteCommandLine) {
  for (const Strings& arguments : {Strings{}, Strings{"OUTPUT"}, Strings{"-ss", "1", "OUTPUT"},
                                   Strings{"-i", "film"}, Strings{"--explain"}}) {
    const Result result = RunTranscoder(arguments);
    EXPECT_EQ(result.status, 64);
    EXPECT_NE(result.error.find("Usage:"), std::string::npos);
    EXPECT_EQ(result.text, "");
  }
}

TEST(TranscoderUsage, ExplainsWhatItWouldRunOnOneLine) {
  const Result result = RunTranscoder({"--explain", "-ss", "1.000", "-i", "it's", "pipe:9"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.text.rfind("/usr/bin/ffmpeg -nostdin ", 0), 0u) << result.text;
  EXPECT_NE(result.text.find(" -i 'file:it'\\''s' pipe:9\n"), std::string::npos) << result.text;
  EXPECT_EQ(result.text.find('\n'), result.text.size() - 1);
}

TEST(TranscoderUsage, SaysWhenFFmpegIsMissing) {
  // In a process of its own: the confinement stays.
  EXPECT_EQ(Fork([] { return Become({"/nonexistent/ffmpeg", "-version"}); }).Wait(), 127);
}

// --- Films that want more than to be played ---

// A server on the loopback interface that notices whether anyone came.
class Listener {
 public:
  Listener() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    EXPECT_EQ(bind(socket_.Get(), reinterpret_cast<sockaddr*>(&address), length), 0);
    EXPECT_EQ(listen(socket_.Get(), 8), 0);
    getsockname(socket_.Get(), reinterpret_cast<sockaddr*>(&address), &length);
    port_ = std::to_string(ntohs(address.sin_port));
  }

  std::string Url(const std::string& protocol) const {
    return protocol + "://127.0.0.1:" + port_ + "/film.ts";
  }
  bool WasVisited() const {
    pollfd waiting{socket_.Get(), POLLIN, 0};
    return poll(&waiting, 1, 0) > 0;
  }

 private:
  UniqueFd socket_;
  std::string port_;
};

Result Play(const std::string& film) {
  return RunTranscoder({"-i", film, "-c", "copy", "-f", "matroska", "OUTPUT"});
}

void ExpectRefusal(const std::string& film) {
  const Result result = Play(film);
  EXPECT_NE(result.status, 0) << film;
  EXPECT_EQ(result.output, "") << film;
}

TEST(FilmAttack, FetchesNothingThatANameAsksFor) {
  const Listener listener;
  const std::string good = MediaPath("h264_aac.mp4");
  for (const std::string& name :
       {listener.Url("http"), listener.Url("https"), listener.Url("tcp"), listener.Url("rtmp"),
        listener.Url("ftp"), listener.Url("rtsp"), "concat:" + good, "concatf:" + good,
        "subfile,,start,0,end,0,,:" + good, "cache:" + good, "async:" + good, "file:" + good,
        "crypto:" + good, std::string("data:video/mp4;base64,AAAA")}) {
    ExpectRefusal(name);
  }
  EXPECT_FALSE(listener.WasVisited());
}

TEST(FilmAttack, FollowsNoPlaylistOrScript) {
  const Listener listener;
  const test::TempDir dir;
  const std::string url = listener.Url("http");
  const std::string good = MediaPath("h264_aac.mp4");
  const std::vector<std::pair<std::string, std::string>> disguises = {
      {"hls.mkv", "#EXTM3U\n#EXT-X-TARGETDURATION:9\n#EXTINF:9,\n" + url + "\n#EXT-X-ENDLIST\n"},
      {"local.m3u8",
       "#EXTM3U\n#EXT-X-TARGETDURATION:9\n#EXTINF:9,\n" + good + "\n#EXT-X-ENDLIST\n"},
      {"master.mp4", "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1\n" + url + "\n"},
      {"script.mp4", "ffconcat version 1.0\nfile '" + url + "'\n"},
      {"local.ffconcat", "ffconcat version 1.0\nfile '" + good + "'\n"},
      {"session.sdp",
       "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=x\nc=IN IP4 127.0.0.1\nt=0 0\n"
       "m=video 5004 RTP/AVP 96\na=rtpmap:96 H264/90000\n"},
      {"dash.mpd",
       "<?xml version=\"1.0\"?><MPD xmlns=\"urn:mpeg:dash:schema:mpd:2011\" "
       "type=\"static\"><Period><AdaptationSet><Representation id=\"0\"><BaseURL>" +
           url + "</BaseURL></Representation></AdaptationSet></Period></MPD>"},
      {"picture%03d.png", "x"},
  };
  for (const auto& [name, content] : disguises) {
    test::WriteText(dir.Path(name), content);
    ExpectRefusal(dir.Path(name));
  }
  ExpectRefusal(MediaPath("playlist.mkv"));
  ExpectRefusal(MediaPath("script.mkv"));
  EXPECT_FALSE(listener.WasVisited());
}

TEST(FilmAttack, FollowsNothingThatSubtitlesTagsOrAttachmentsName) {
  const Listener listener;
  const test::TempDir dir;
  const std::string url = listener.Url("http");
  test::WriteText(dir.Path("list.m3u8"), "#EXTM3U\n#EXTINF:9,\n" + url + "\n#EXT-X-ENDLIST\n");
  test::WriteText(dir.Path("text.srt"),
                  "1\n00:00:00,000 --> 00:00:09,000\n<img src=\"" + url + "\">" + url + "\n");
  Child make({"/usr/bin/ffmpeg",
              "-nostdin",
              "-v",
              "error",
              "-t",
              "1",
              "-i",
              MediaPath("h264_aac.mp4"),
              "-i",
              dir.Path("text.srt"),
              "-c",
              "copy",
              "-c:s",
              "ass",
              "-attach",
              dir.Path("list.m3u8"),
              "-metadata:s:t",
              "mimetype=application/x-mpegurl",
              "-metadata",
              "title=" + url,
              "-metadata",
              "IMAGE=" + url,
              dir.Path("film.mkv")},
             {});
  ASSERT_EQ(make.Wait(), 0);
  const Result result = Play(dir.Path("film.mkv"));
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_FALSE(result.output.empty());
  EXPECT_FALSE(listener.WasVisited());
}

TEST(FilmAttack, OpensNothingForAFilmThatIsNone) {
  for (const char* name : {"empty.mkv", "text.mkv", "zeros.mkv", "truncated.mp4"}) {
    ExpectRefusal(MediaPath(name));
  }
}

}  // namespace
}  // namespace orvo::transcoder
