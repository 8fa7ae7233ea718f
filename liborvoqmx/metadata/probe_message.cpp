// Each value is a letter for its kind and its content. Numbers are as this machine has them in
// memory, texts and lists have their length first.
#include "metadata/probe_message.h"

#include <cstdint>
#include <cstring>

namespace LibOrvoQMX {
namespace {

constexpr int kDeepest = 8;

template <typename Number>
void AppendNumber(std::string& bytes, Number number) {
  bytes.append(reinterpret_cast<const char*>(&number), sizeof(number));
}

void AppendLength(std::string& bytes, size_t length) {
  AppendNumber(bytes, static_cast<uint32_t>(length));
}

void AppendText(std::string& bytes, const std::string& text) {
  AppendLength(bytes, text.size());
  bytes += text;
}

void Append(std::string& bytes, const Json::Value& value);

void AppendMembers(std::string& bytes, const Json::Value& object) {
  AppendLength(bytes, object.size());
  for (const std::string& name : object.getMemberNames()) {
    AppendText(bytes, name);
    Append(bytes, object[name]);
  }
}

void AppendElements(std::string& bytes, const Json::Value& list) {
  AppendLength(bytes, list.size());
  for (const Json::Value& element : list) {
    Append(bytes, element);
  }
}

void Append(std::string& bytes, const Json::Value& value) {
  switch (value.type()) {
    case Json::intValue:
      AppendNumber(bytes += 'i', value.asInt64());
      break;
    case Json::uintValue:
      AppendNumber(bytes += 'u', value.asUInt64());
      break;
    case Json::realValue:
      AppendNumber(bytes += 'r', value.asDouble());
      break;
    case Json::booleanValue:
      bytes += value.asBool() ? 't' : 'f';
      break;
    case Json::stringValue:
      AppendText(bytes += 's', value.asString());
      break;
    case Json::arrayValue:
      AppendElements(bytes += 'a', value);
      break;
    case Json::objectValue:
      AppendMembers(bytes += 'o', value);
      break;
    case Json::nullValue:
      bytes += 'n';
      break;
  }
}

class MessageReader {
 public:
  explicit MessageReader(std::string_view bytes) : left_(bytes) {}

  bool IsAtEnd() const { return left_.empty(); }

  bool Read(Json::Value& value, int depth) {
    if (left_.empty() || depth > kDeepest) {
      return false;
    }
    const char kind = left_.front();
    left_.remove_prefix(1);
    switch (kind) {
      case 'i':
        return ReadNumber<Json::Int64>(value);
      case 'u':
        return ReadNumber<Json::UInt64>(value);
      case 'r':
        return ReadNumber<double>(value);
      case 's':
        return ReadString(value);
      case 'a':
        return ReadElements(value, depth);
      case 'o':
        return ReadMembers(value, depth);
      default:
        return ReadWord(kind, value);
    }
  }

 private:
  template <typename Number>
  bool Take(Number& number) {
    if (left_.size() < sizeof(number)) {
      return false;
    }
    std::memcpy(&number, left_.data(), sizeof(number));
    left_.remove_prefix(sizeof(number));
    return true;
  }

  template <typename Number>
  bool ReadNumber(Json::Value& value) {
    Number number{};
    const bool isRead = Take(number);
    value = number;
    return isRead;
  }

  static bool ReadWord(char kind, Json::Value& value) {
    value = kind == 'n' ? Json::Value() : Json::Value(kind == 't');
    return kind == 'n' || kind == 't' || kind == 'f';
  }

  bool TakeText(std::string& text) {
    uint32_t length = 0;
    if (!Take(length) || length > left_.size()) {
      return false;
    }
    text = left_.substr(0, length);
    left_.remove_prefix(length);
    return true;
  }

  bool ReadString(Json::Value& value) {
    std::string text;
    const bool isRead = TakeText(text);
    value = text;
    return isRead;
  }

  bool ReadElements(Json::Value& value, int depth) {
    value = Json::Value(Json::arrayValue);
    uint32_t count = 0;
    bool isRead = Take(count);
    for (uint32_t n = 0; isRead && n < count; ++n) {
      isRead = Read(value.append(Json::Value()), depth + 1);
    }
    return isRead;
  }

  bool ReadMembers(Json::Value& value, int depth) {
    value = Json::Value(Json::objectValue);
    uint32_t count = 0;
    bool isRead = Take(count);
    for (uint32_t n = 0; isRead && n < count; ++n) {
      std::string name;
      isRead = TakeText(name) && Read(value[name], depth + 1);
    }
    return isRead;
  }

  std::string_view left_;
};

}  // namespace

std::string EncodeProbeMessage(const Json::Value& value) {
  std::string bytes;
  Append(bytes, value);
  return bytes;
}

std::optional<Json::Value> DecodeProbeMessage(std::string_view bytes) {
  MessageReader reader(bytes);
  Json::Value value;
  const bool isWhole = reader.Read(value, 0) && reader.IsAtEnd();
  return isWhole ? std::optional(std::move(value)) : std::nullopt;
}

}  // namespace LibOrvoQMX
