#include "util/name_order.h"

#include <algorithm>
#include <array>
#include <climits>
#include <clocale>
#include <cwchar>
#include <cwctype>
#include <string_view>

namespace orvo {
namespace {

// The calling thread's characters are UTF-8 for as long as this lives.
class Utf8Scope {
 public:
  Utf8Scope() : previous_(uselocale(Locale())) {}
  Utf8Scope(const Utf8Scope&) = delete;
  Utf8Scope& operator=(const Utf8Scope&) = delete;
  ~Utf8Scope() { uselocale(previous_); }

 private:
  // It stays as it is where the system has no such locale.
  static locale_t Locale() {
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale;
  }

  locale_t previous_;
};

struct Accents {
  std::wstring_view plain;
  std::wstring_view letters;
};
constexpr std::array<Accents, 51> kAccents = {{
    {L"a", L"àáâãäåāăąǎǟǡǻȁȃȧḁạảấầẩẫậắằẳẵặ"},
    {L"c", L"çćĉċčḉ"},
    {L"e", L"èéêëēĕėęěȅȇȩḕḗḙḛḝẹẻẽếềểễệ"},
    {L"i", L"ìíîïĩīĭįǐȉȋḭḯỉịı"},
    {L"n", L"ñńņňǹṅṇṉṋ"},
    {L"o", L"òóôõöōŏőơǒǫǭȍȏȫȭȯȱṍṏṑṓọỏốồổỗộớờởỡợøǿ"},
    {L"u", L"ùúûüũūŭůűųưǔǖǘǚǜȕȗṳṵṷṹṻụủứừửữự"},
    {L"y", L"ýÿŷȳẏẙỳỵỷỹ"},
    {L"d", L"ďḋḍḏḑḓđ"},
    {L"g", L"ĝğġģǧǵḡ"},
    {L"h", L"ĥȟḣḥḧḩḫẖħ"},
    {L"j", L"ĵǰ"},
    {L"k", L"ķǩḱḳḵ"},
    {L"l", L"ĺļľḷḹḻḽł"},
    {L"r", L"ŕŗřȑȓṙṛṝṟ"},
    {L"s", L"śŝşšșṡṣṥṧṩ"},
    {L"t", L"ţťțṫṭṯṱẗŧ"},
    {L"w", L"ŵẁẃẅẇẉẘ"},
    {L"z", L"źżžẑẓẕ"},
    {L"ι", L"ΐίϊἰἱἲἳἴἵἶἷὶίῐῑῒΐῖῗ"},
    {L"α", L"άἀἁἂἃἄἅἆἇὰάᾀᾁᾂᾃᾄᾅᾆᾇᾰᾱᾲᾳᾴᾶᾷ"},
    {L"ε", L"έἐἑἒἓἔἕὲέ"},
    {L"η", L"ήἠἡἢἣἤἥἦἧὴήᾐᾑᾒᾓᾔᾕᾖᾗῂῃῄῆῇ"},
    {L"υ", L"ΰϋύὐὑὒὓὔὕὖὗὺύῠῡῢΰῦῧ"},
    {L"ο", L"όὀὁὂὃὄὅὸό"},
    {L"ω", L"ώὠὡὢὣὤὥὦὧὼώᾠᾡᾢᾣᾤᾥᾦᾧῲῳῴῶῷ"},
    {L"и", L"йѝӣӥ"},
    {L"е", L"ѐёӗ"},
    {L"г", L"ѓ"},
    {L"і", L"ї"},
    {L"к", L"ќ"},
    {L"у", L"ўӯӱӳ"},
    {L"ж", L"ӂӝ"},
    {L"а", L"ӑӓ"},
    {L"ә", L"ӛ"},
    {L"з", L"ӟ"},
    {L"о", L"ӧ"},
    {L"ө", L"ӫ"},
    {L"э", L"ӭ"},
    {L"ч", L"ӵ"},
    {L"ы", L"ӹ"},
    {L"b", L"ḃḅḇ"},
    {L"f", L"ḟ"},
    {L"m", L"ḿṁṃ"},
    {L"p", L"ṕṗ"},
    {L"v", L"ṽṿ"},
    {L"x", L"ẋẍ"},
    {L"ρ", L"ῤῥ"},
    {L"ss", L"ß"},
    {L"ae", L"æǣǽ"},
    {L"oe", L"œ"},
}};

// Accents that follow their letter, as macOS writes them.
bool IsCombining(wchar_t letter) {
  return letter >= 0x300 && letter <= 0x36f;
}

std::wstring Plain(wchar_t letter) {
  if (IsCombining(letter)) {
    return L"";
  }
  const wchar_t small = static_cast<wchar_t>(std::towlower(letter));
  const auto row = std::find_if(kAccents.begin(), kAccents.end(), [&](const Accents& accents) {
    return accents.letters.find(small) != std::wstring_view::npos;
  });
  return small < 0x80 || row == kAccents.end() ? std::wstring(1, small) : std::wstring(row->plain);
}

void Append(const std::wstring& letters, std::string& text) {
  std::mbstate_t state{};
  for (const wchar_t letter : letters) {
    char bytes[MB_LEN_MAX];
    text.append(bytes, std::wcrtomb(bytes, letter, &state));
  }
}

// The same for a name in ASCII, as most names are. It is a tenth of the work.
std::string SmallLetters(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return name;
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// Takes the digits at `at`, without leading zeros; a longer result is a larger number.
std::string_view TakeNumber(const std::string& text, size_t& at) {
  while (at + 1 < text.size() && text[at] == '0' && IsDigit(text[at + 1])) {
    ++at;
  }
  const size_t from = at;
  while (at < text.size() && IsDigit(text[at])) {
    ++at;
  }
  return std::string_view(text).substr(from, at - from);
}

// Less than, equal to or greater than 0, as strcmp.
int CompareNumbers(const std::string& left, size_t& l, const std::string& right, size_t& r) {
  const std::string_view a = TakeNumber(left, l);
  const std::string_view b = TakeNumber(right, r);
  return a.size() != b.size() ? (a.size() < b.size() ? -1 : 1) : a.compare(b);
}

int CompareFolded(const std::string& left, const std::string& right) {
  size_t l = 0;
  size_t r = 0;
  while (l < left.size() && r < right.size()) {
    int order = static_cast<unsigned char>(left[l]) - static_cast<unsigned char>(right[r]);
    if (IsDigit(left[l]) && IsDigit(right[r])) {
      order = CompareNumbers(left, l, right, r);
    } else {
      ++l;
      ++r;
    }
    if (order != 0) {
      return order;
    }
  }
  return static_cast<int>(l < left.size()) - static_cast<int>(r < right.size());
}

}  // namespace

std::string FoldName(const std::string& name) {
  if (std::all_of(name.begin(), name.end(), [](char c) { return c > 0; })) {
    return SmallLetters(name);
  }
  const Utf8Scope scope;
  std::string folded;
  std::mbstate_t state{};
  for (size_t at = 0; at < name.size();) {
    wchar_t letter = 0;
    const size_t length = std::mbrtowc(&letter, name.data() + at, name.size() - at, &state);
    if (length == 0 || length > name.size() - at) {
      folded += name[at++];
      state = {};
      continue;
    }
    Append(Plain(letter), folded);
    at += length;
  }
  return folded;
}

bool NameComesBefore(const std::string& left, const std::string& right) {
  const int order = CompareFolded(FoldName(left), FoldName(right));
  return order != 0 ? order < 0 : left < right;
}

std::string NameSortKey(const std::string& name, const std::string& folded) {
  std::string key;
  for (size_t at = 0; at < folded.size();) {
    if (!IsDigit(folded[at])) {
      key += folded[at++];
      continue;
    }
    // A longer number is larger. The first byte sorts numbers among the other characters.
    const std::string_view number = TakeNumber(folded, at);
    key += '0';
    key += static_cast<char>(std::min<size_t>(number.size(), UCHAR_MAX));
    key += number;
  }
  return key + '\0' + name;
}

}  // namespace orvo
