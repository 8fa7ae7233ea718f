#include "serve/request_places.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "contract/request_queues.h"

namespace serve {
namespace {

// A kind of work has the places from `first` on.
struct Kind {
  int first;
  int count;
};
constexpr Kind kFilms{0, orvo::kFilmQueue.Most()};
constexpr Kind kTiles{kFilms.first + kFilms.count, orvo::kTileQueue.Most()};
constexpr Kind kSubtitles{kTiles.first + kTiles.count, orvo::kSubtitleQueue.Most()};
constexpr Kind kLogins{kSubtitles.first + kSubtitles.count, orvo::kLoginQueue.Most()};
constexpr size_t kAll = kLogins.first + kLogins.count;

struct Call {
  std::string_view api;
  std::string_view method;
  Kind kind;
};
constexpr std::array kCalls = {
    Call{"ORVO.Mirevo2.Streaming", "open", kFilms},
    Call{"ORVO.Mirevo2.Library", "info", kFilms},
    Call{"ORVO.Mirevo2.Library", "font", kFilms},
    Call{"ORVO.Mirevo2.Library", "card", kTiles},
    Call{"ORVO.Mirevo2.Library", "poster", kTiles},
    Call{"ORVO.Mirevo2.Library", "thumbnail", kTiles},
    Call{"ORVO.Mirevo2.Subtitle", "get", kSubtitles},
    Call{"ORVO.Mirevo2.Auth", "login", kLogins},
};

// So many requests of a kind at a time are a crowd. What comes then leaves the processor to the web
// server, which has to answer everybody, and to those that came before.
constexpr ptrdiff_t kCrowd = 8;
constexpr int kCrowdNiceness = 10;

constexpr std::string_view kRefusal =
    "Status: 503 Service Unavailable\r\n"
    "Content-Type: application/json; charset=utf-8\r\n"
    "Cache-Control: no-store\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "Retry-After: 5\r\n"
    "\r\n"
    R"({"error":{"code":503,"message":"The server has too many requests of this kind at the moment. )"
    R"(Try again in a few seconds.","reason":"Busy","retry_after":5},"success":false})"
    "\n";

// The rest of `text` without the quotes that a JSON text has in an address.
std::string_view Unquoted(std::string_view text) {
  for (const std::string_view quote : {std::string_view("%22"), std::string_view("\"")}) {
    const bool isQuoted =
        text.size() >= 2 * quote.size() && text.starts_with(quote) && text.ends_with(quote);
    if (isQuoted) {
      return text.substr(quote.size(), text.size() - 2 * quote.size());
    }
  }
  return text;
}

// The value of a parameter. Unusual ways to write it are left to the request program.
std::string_view Parameter(std::string_view query, std::string_view name) {
  while (!query.empty()) {
    const std::string_view part = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(part.size() + 1, query.size()));
    if (part.size() > name.size() && part.starts_with(name) && part[name.size()] == '=') {
      return Unquoted(part.substr(name.size() + 1));
    }
  }
  return {};
}

std::string_view QueryIn(char* const* environment) {
  constexpr std::string_view kName = "QUERY_STRING=";
  for (char* const* variable = environment; *variable != nullptr; ++variable) {
    const std::string_view text(*variable);
    if (text.starts_with(kName)) {
      return text.substr(kName.size());
    }
  }
  return {};
}

// No places, which is no limit, for all other calls.
Kind KindOf(std::string_view query) {
  const std::string_view api = Parameter(query, "api");
  const std::string_view method = Parameter(query, "method");
  const auto* const found = std::find_if(kCalls.begin(), kCalls.end(), [&](const Call& call) {
    return call.api == api && call.method == method;
  });
  return found == kCalls.end() ? Kind{0, 0} : found->kind;
}

}  // namespace

RequestPlaces::RequestPlaces() {
  void* const memory = mmap(nullptr, kAll * sizeof(*places_), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  places_ = memory == MAP_FAILED ? nullptr : static_cast<std::atomic<pid_t>*>(memory);
}

bool RequestPlaces::Take(char* const* environment) {
  const Kind kind = KindOf(QueryIn(environment));
  if (places_ == nullptr || kind.count == 0) {
    return true;
  }
  std::atomic<pid_t>* const first = places_ + kind.first;
  std::atomic<pid_t>* const end = first + kind.count;
  std::atomic<pid_t>* const place = std::find_if(first, end, [](std::atomic<pid_t>& other) {
    pid_t free = 0;
    return other.compare_exchange_strong(free, getpid());
  });
  if (place - first >= kCrowd) {
    setpriority(PRIO_PROCESS, 0, kCrowdNiceness);
  }
  return place != end;
}

void RequestPlaces::Leave(pid_t process) {
  if (places_ != nullptr && process > 0) {
    std::for_each(places_, places_ + kAll, [process](std::atomic<pid_t>& place) {
      pid_t own = process;
      place.compare_exchange_strong(own, 0);
    });
  }
}

void RefuseRequest(int output) {
  (void)!write(output, kRefusal.data(), kRefusal.size());
}

}  // namespace serve
