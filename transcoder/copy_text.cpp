#include "transcoder/copy_text.h"

#include <charconv>
#include <string_view>
#include <system_error>
#include <utility>

namespace orvo::transcoder {
namespace {

// Each value ends with a zero byte, which no file name and no option contains.
class Writer {
 public:
  void Put(const std::string& value) { text_.append(value).push_back('\0'); }
  void Put(double value) {
    char number[64];
    Put(std::string(number, std::to_chars(number, number + sizeof number, value).ptr));
  }
  void Put(long value) { Put(std::to_string(value)); }
  void Put(int value) { Put(std::to_string(value)); }
  void Put(bool value) { Put(value ? 1 : 0); }

  std::string Take() { return std::move(text_); }

 private:
  std::string text_;
};

// Takes the same values back, in the same order.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  void Take(std::string& value) { value = Next(); }
  template <typename Number>
  void Take(Number& value) {
    const std::string_view text = Next();
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    isGood_ = isGood_ && error == std::errc() && end == text.data() + text.size();
  }
  void Take(bool& value) {
    int number = 0;
    Take(number);
    isGood_ = isGood_ && (number == 0 || number == 1);
    value = number == 1;
  }

  // What is read is no work otherwise.
  void Demand(bool isGood) { isGood_ = isGood_ && isGood; }

  bool IsDone() const { return isGood_ && rest_.empty(); }

 private:
  std::string_view Next() {
    const size_t end = rest_.find('\0');
    isGood_ = isGood_ && end != std::string_view::npos;
    const std::string_view value = rest_.substr(0, end);
    rest_.remove_prefix(isGood_ ? end + 1 : rest_.size());
    return value;
  }

  std::string_view rest_;
  bool isGood_ = true;
};

// One list of the values, for both directions.
template <typename Visitor, typename Choice>
void VisitTrack(Visitor&& visit, Choice& track) {
  visit(track.isWanted);
  visit(track.number);
  visit(track.isOptional);
}

template <typename Visitor, typename Recipe>
void VisitRecipe(Visitor&& visit, Recipe& recipe, bool& counts, long& first) {
  visit(recipe.encoder);
  visit(recipe.coder);
  visit(recipe.bitRate);
  visit(recipe.rate);
  visit(recipe.filters);
  visit(counts);
  visit(first);
}

template <typename Visitor, typename Copy>
void Visit(Visitor&& visit, Copy& copy, bool& encodes) {
  visit(copy.film);
  visit(copy.seek);
  visit(copy.pictureFilters);
  visit(copy.format.name);
  visit(copy.format.options);
  VisitTrack(visit, copy.pictures);
  VisitTrack(visit, copy.sound);
  visit(encodes);
}

void Put(Writer& writer, const FilmCopy& copy) {
  const auto put = [&](const auto& value) { writer.Put(value); };
  bool encodes = copy.recipe.has_value();
  Visit(put, copy, encodes);
  if (encodes) {
    bool counts = copy.recipe->first.has_value();
    long first = copy.recipe->first.value_or(0);
    VisitRecipe(put, *copy.recipe, counts, first);
  }
}

FilmCopy TakeFilmCopy(Reader& reader) {
  const auto take = [&](auto& value) { reader.Take(value); };
  FilmCopy copy;
  bool encodes = false;
  Visit(take, copy, encodes);
  reader.Demand(copy.format.name == kTransportStream || copy.format.name == kMp4);
  if (encodes) {
    bool counts = false;
    long first = 0;
    VisitRecipe(take, copy.recipe.emplace(), counts, first);
    copy.recipe->first = counts ? std::optional(first) : std::nullopt;
  }
  return copy;
}

void Put(Writer& writer, const CmafRequest& packets) {
  writer.Put(packets.track);
  writer.Put(packets.from);
}

CmafRequest TakePackets(Reader& reader) {
  CmafRequest packets;
  packets.treatment = Treatment::kPackets;
  reader.Take(packets.track);
  reader.Take(packets.from);
  return packets;
}

}  // namespace

std::string TextOf(const CopyWork& work) {
  Writer writer;
  writer.Put(static_cast<int>(work.index()));
  std::visit([&](const auto& kind) { Put(writer, kind); }, work);
  return writer.Take();
}

std::optional<CopyWork> ParseCopyWork(const std::string& text) {
  Reader reader(text);
  int kind = 0;
  reader.Take(kind);
  CopyWork work;
  if (kind == 0) {
    work = TakeFilmCopy(reader);
  } else {
    work = TakePackets(reader);
  }
  return kind >= 0 && kind <= 1 && reader.IsDone() ? std::optional(std::move(work)) : std::nullopt;
}

}  // namespace orvo::transcoder
