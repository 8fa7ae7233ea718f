// How often somebody may try a password.
//
// Each account and each client address has a bucket of tries that fills up again with time, a file
// in
// "/run/mirevo/attempts" that says when it will be full.
#pragma once

#include <cstdint>
#include <string>

namespace accounts {

struct Limit {
  int tries;          // of a full bucket
  int secondsPerTry;  // until another one is there
};
inline constexpr Limit kPerAccount{10, 60};
inline constexpr Limit kPerAddress{20, 20};

class Attempts {
 public:
  // `key`: whose bucket; any text. `now`: seconds of the calendar.
  Attempts(const std::string& key, Limit limit, int64_t now);

  // Takes a try: 0, or the seconds to wait for one. Concurrent requests never share one.
  int64_t Take() const;

  // Gives it back, since the password was right.
  void GiveBack() const;

  // Removes the buckets that are full again.
  static void Sweep(int64_t now);

 private:
  std::string path_;
  Limit limit_;
  int64_t now_;
};

// The part of a client's address that stands for the client: who has one address of IPv6 has all
// that begin with the same 64 bits.
std::string ClientOf(const std::string& address);

}  // namespace accounts
