#include "linear/shapes.h"

#include "contract/fragments.h"
#include "metadata/probe_message.h"
#include "transcoder/option_values.h"
#include "transcoder/shell_line.h"
#include "util/name_order.h"
#include "webapi/http/byte_range.h"
#include "webapi/http/request.h"
#include "webapi/subtitles/subtitle_formats.h"

namespace linear {
namespace {

constexpr char kEventHead[] =
    "[Events]\nFormat: Start, End, Text\nDialogue: 0:00:01.00,0:00:02.00,";
constexpr char kInstantHead[] = "<SYNC Start=1><P>";
constexpr char kCueHead[] = "1\n00:00:01,000 --> 00:00:02,000\n";

size_t Subtitles(const char* ending, const std::string& text) {
  return webapi::WriteWebVtt(webapi::ParserFor(ending)(text)).size();
}

size_t Srt(const std::string& text) {
  return Subtitles("srt", text);
}

size_t Script(const std::string& text) {
  return Subtitles("ass", text);
}

size_t Sami(const std::string& text) {
  return Subtitles("smi", text);
}

size_t WebVtt(const std::string& text) {
  return webapi::WriteWebVtt(webapi::Slice(webapi::ParseWebVtt(text), 0, 1'000'000)).size();
}

size_t Query(const std::string& text) {
  webapi::Request request;
  return request.AddParameters(text) ? request.Text("a").size() : 0;
}

size_t Range(const std::string& text) {
  bool outside = false;
  return webapi::ParseByteRange(text, 1'000'000, outside).has_value() ? 1 : 0;
}

size_t Tags(const std::string& text) {
  return webapi::NamesTag(text, "\"none\"") ? 1 : 0;
}

size_t Fragment(const std::string& text) {
  return orvo::FragmentId::Parse(text).has_value() ? 1 : 0;
}

size_t Folded(const std::string& text) {
  return orvo::FoldName(text).size();
}

size_t Compared(const std::string& text) {
  return orvo::NameComesBefore(text + "1", text + "2") ? 1 : 0;
}

size_t Probe(const std::string& text) {
  const auto value = LibOrvoQMX::DecodeProbeMessage(text);
  return value ? value->size() : 0;
}

size_t Option(const std::string& text) {
  using orvo::transcoder::ValueKind;
  size_t read = orvo::transcoder::ParseSize(text) ? 1 : 0;
  for (const ValueKind kind : {ValueKind::kTime, ValueKind::kBitRate, ValueKind::kAspect}) {
    read += orvo::transcoder::ParseValue(kind, text) ? 1 : 0;
  }
  return read;
}

}  // namespace

const std::vector<Parser>& Parsers() {
  static const std::vector<Parser> parsers = {
      {"srt",
       Srt,
       kCueHead,
       {"x",
        "\n",
        "<",
        "<b",
        "<b>",
        "<b><i>x</b></i>",
        "<!--",
        "<!-- -->",
        "&",
        "&#",
        "&#9",
        "{",
        "{\\",
        "{\\b1}x{\\b0}",
        "{\\t(",
        "{\\an9",
        "0:0-->0:9\n<",
        "1",
        "1:",
        "1:1",
        "00:00:01,000 --> ",
        "1\n00:00:01,000 --> 00:00:02,000\nsame\n\n",
        "1\n00:00:01,000 --> 99:00:02,000\nover\n",
        "9\n0:0-->0:1\nx\n",
        "\xc3\xa9",
        "\\N",
        "\r"}},
      {"ass",
       Script,
       kEventHead,
       {"x",
        "{",
        "}",
        "{\\",
        "\\",
        "\\N",
        "\\h",
        "&",
        "{\\b1}x{\\b0}",
        "{\\r}x{\\i1}y",
        "{\\t(",
        "{\\t(\\(\\)",
        "{\\pos(1,",
        "{\\pos(1,1)}",
        "{\\b1",
        "{\\b" + std::string(3000, '1') + "}",
        "\nDialogue: 0:0:1,0:0:2,same",
        "\nDialogue: 0:0:1,0:0:9,{\\b1",
        "\nDialogue: ,,",
        "\n[",
        "\nDialogue: 0:0:1,0:0:9" + std::string(50, ','),
        "\n[Events]\nFormat: Start, End, Text",
        "\n:",
        "\nDialogue: 0:0:1",
        ",",
        "\n[V4+ Styles]\nStyle: a,b,c,d"}},
      // As many columns as rows.
      {"ass, columns",
       Script,
       "[Events]\nFormat: Start, End, Text",
       {", a", ",", ", Text", "\nDialogue: ", "\nDialogue: 0:0:1,0:0:2,x,y"}},
      {"ass, styles", Script, "[V4+ Styles]\nFormat: Name", {", a", ",", "\nStyle: a,"}},
      {"smi",
       Sami,
       kInstantHead,
       {"x",
        "<",
        "<b>",
        "<b",
        "</",
        "<!--",
        "<!-- >",
        "&",
        "&nbsp",
        "<sync",
        "<sync start",
        "<p",
        "<p class=x",
        "<p class=",
        "<sync start=1",
        "<sync start=1>x",
        "<sync start=1><p>x<p>x",
        "<sync start=1><p class=a>x<p class=b>",
        "<sync start='",
        "<sync start=9",
        "1",
        "\n",
        "<s",
        "<sy",
        "<syn"}},
      {"vtt",
       WebVtt,
       "WEBVTT\n\n",
       {"x", "\n", "0:1-->0:2\nx\n\n", "0:1-->0:2 x\n", "0:1-->0:2\nx\n", "0:1 ", "\r", "-->"}},
      {"query",
       Query,
       "a=%22",
       {"x", "%41", "%22", "%", "&", "&a", "&a=", "&amp;", "&b=%41", "=", "+", "&amp;amp;", "%5C",
        "%5Cu0041", "%5B"}},
      {"range", Range, "bytes=", {"1", "-", ",", "1-2,", " ", "0"}},
      {"tags", Tags, "W/\"a\"", {",", " ", "W/", ",W/\"a\"", "\"", ", \"b\""}},
      {"fragment", Fragment, "QualityLevels(", {"1", "0", ")", "(", ")/Fragments(", "video="}},
      {"folded name", Folded, "", {"x", "\xc3\x89", "E\xcc\x81", "\xff", "1", "\xce\x86"}},
      {"compared names", Compared, "", {"x", "0", "1", "x1", "00x", "\xc3\x89", "\xff"}},
      {"probe", Probe, "", {std::string(1, '\0'), "\x01", "[", "\x7f", "\xff"}},
      {"option", Option, "", {"1", ":", "x", "1:", "1x", ".", "-", "0", "k", "1.1"}},
  };
  return parsers;
}

std::string Repeated(const std::string& head, const std::string& piece, size_t size) {
  std::string text = head;
  text.reserve(size + piece.size());
  while (text.size() < size) {
    text += piece;
  }
  return text;
}

std::string Halves(const std::string& head, const std::string& piece, size_t size) {
  std::string text = Repeated("", head, size / 2);
  text += "\n";
  return Repeated(text, piece, size);
}

}  // namespace linear
