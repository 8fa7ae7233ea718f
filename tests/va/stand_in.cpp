// Loaded into FFmpeg: lets it encode H.264 with libx264 where it is told to use an encoder of a
// video engine that this machine lacks, if that encoder would take the command line.
//
// ORVO_TEST_ENCODER: the encoder's name, then its options, each with the words that it takes
// ("preset=fast,slow"), or without any if it takes others; "!crf" is an option of other encoders
// alone. ORVO_TEST_CARD: "open" and "configure" fail at once, "picture=N" behind N pictures, and
// "hang=N" does not come back from the Nth picture.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Words = std::vector<std::string>;
using Main = int (*)(int, char**, char**);
using Hook = void (*)();
using Start = int (*)(Main, int, char**, Hook, Hook, Hook, void*);

constexpr char kProgram[] = "/usr/bin/ffmpeg";
constexpr std::string_view kForcing = "force_key_frames";

bool isStandIn = false;  // is libx264 at work for another encoder?

struct Encoder {
  std::string name{};
  std::map<std::string, std::string, std::less<>> options{};  // with ",WORD,WORD,"
};

std::string Environment(const char* name) {
  const char* const value = getenv(name);
  return value == nullptr ? "" : value;
}

Encoder Told() {
  Encoder encoder;
  std::istringstream text(Environment("ORVO_TEST_ENCODER"));
  text >> encoder.name;
  for (std::string option; text >> option;) {
    const size_t equals = option.find('=');
    const bool hasWords = equals != std::string::npos;
    encoder.options[option.substr(0, equals)] =
        hasWords ? std::string(",").append(option.substr(equals + 1)).append(",") : "";
  }
  return encoder;
}

[[noreturn]] void Refuse(const Encoder& encoder, const std::string& what) {
  fprintf(stderr, "%s takes no %s\n", encoder.name.c_str(), what.c_str());
  _exit(1);
}

// "-b:v" is the option "b".
std::string OptionOf(const std::string& word) {
  return word.starts_with("-") ? word.substr(1, word.find(':') - 1) : "";
}

// Is it an option of this encoder, with a word that the encoder takes?
bool IsOwn(const Encoder& encoder, const std::string& option, const std::string& value) {
  if (encoder.options.contains(std::string("!").append(option))) {
    Refuse(encoder, "option -" + option);
  }
  const auto own = encoder.options.find(option);
  if (own == encoder.options.end()) {
    return false;
  }
  const std::string word = std::string(",").append(value).append(",");
  if (!own->second.empty() && own->second.find(word) == std::string::npos) {
    Refuse(encoder, "-" + option + " " + value);
  }
  return true;
}

bool Uses(const Words& words, const Encoder& encoder) {
  for (size_t i = 1; i < words.size() && !encoder.name.empty(); ++i) {
    if (words[i] == encoder.name) {
      return true;
    }
  }
  return false;
}

// Does a forced key frame become one where decoders can start?
bool ForcesKeyFrames(const Words& words, const Encoder& encoder) {
  bool isForced = true;
  for (const char* name : {"forced-idr", "forced_idr"}) {
    const bool has = encoder.options.contains(name);
    for (size_t i = 0; has && i + 1 < words.size(); ++i) {
      if (OptionOf(words[i]) == name && words[i + 1] == "1") {
        return true;
      }
    }
    isForced = isForced && !has;
  }
  return isForced;
}

// What FFmpeg would exit with had its encoder failed.
void Fail() {
  _exit(1);
}

// The picture that the encoder does not come back from; 0 for none.
long HangingPicture() {
  constexpr std::string_view kHang = "hang=";
  const std::string wish = Environment("ORVO_TEST_CARD");
  return wish.starts_with(kHang) ? strtol(wish.c_str() + kHang.size(), nullptr, 10) : 0;
}

Words Failure() {
  constexpr std::string_view kPicture = "picture=";
  const std::string wish = Environment("ORVO_TEST_CARD");
  if (wish == "open" || wish == "configure") {
    _exit(1);
  }
  if (!wish.starts_with(kPicture)) {
    return {};
  }
  atexit(Fail);
  return {"-frames:v", wish.substr(kPicture.size()), "-shortest"};
}

// The command line with libx264. The last word is the output.
Words WithSoftware(const Words& words, const Encoder& encoder) {
  const bool forces = ForcesKeyFrames(words, encoder);
  Words out;
  for (size_t i = 0; i + 1 < words.size(); ++i) {
    const std::string option = OptionOf(words[i]);
    if (words[i] == encoder.name) {
      out.emplace_back("libx264");
    } else if (IsOwn(encoder, option, words[i + 1]) || (option == kForcing && !forces)) {
      ++i;
    } else {
      out.push_back(words[i]);
    }
  }
  for (const Words& more : {Words{"-preset", "ultrafast"}, Failure(), Words{words.back()}}) {
    out.insert(out.end(), more.begin(), more.end());
  }
  return out;
}

}  // namespace

// libx264's own: stands in front of it, because the engine hangs in the middle of a picture. Only
// where it stands in for another encoder: software goes on in a process with the same wish.
extern "C" int x264_encoder_encode(void* encoder, void* units, int* count, void* picture,
                                   void* out) {
  using Encode = int (*)(void*, void*, int*, void*, void*);
  static const auto next = reinterpret_cast<Encode>(dlsym(RTLD_NEXT, "x264_encoder_encode"));
  static long pictures = 0;
  if (isStandIn && picture != nullptr && ++pictures == HangingPicture()) {
    for (;;) {
      pause();
    }
  }
  return next(encoder, units, count, picture, out);
}

// Runs before the program's main.
extern "C" int __libc_start_main(Main main, int count, char** arguments, Hook init, Hook fini,
                                 Hook end, void* stack) {
  const auto next = reinterpret_cast<Start>(dlsym(RTLD_NEXT, "__libc_start_main"));
  static Words words(arguments, arguments + count);
  const Encoder encoder = Told();
  if (strcmp(arguments[0], kProgram) != 0 || !Uses(words, encoder)) {
    return next(main, count, arguments, init, fini, end, stack);
  }
  isStandIn = true;
  words = WithSoftware(words, encoder);
  static std::vector<char*> pointers;
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  return next(main, static_cast<int>(words.size()), pointers.data(), init, fini, end, stack);
}
