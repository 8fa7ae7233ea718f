// Limits how often a client may try a password.
//
// Each account and each client address has a bucket of tries that fills up with time. Each bucket
// is a file in "/run/mirevo/attempts" that says when it will be full.
#pragma once

#include <cstdint>
#include <string>

namespace accounts {

struct Limit {
  int tries;          // in a full bucket
  int secondsPerTry;  // for each new try
};
inline constexpr Limit kPerAccount{10, 60};
inline constexpr Limit kPerAddress{20, 20};

class Attempts {
 public:
  // `key`: the name of the bucket, any text. `now`: seconds since the epoch.
  Attempts(const std::string& key, Limit limit, int64_t now);

  // Takes a try. Returns 0, or the seconds until the next try. Concurrent requests never share a
  // try.
  int64_t Take() const;

  // Gives the try back after a right password.
  void GiveBack() const;

  // Removes the buckets that nobody has used for a day; they are full again.
  static void Sweep(int64_t now);

 private:
  std::string path_;
  Limit limit_;
  int64_t now_;
};

// The part of a client's address that identifies the client. For IPv6 these are the first 64 bits,
// because a client usually has all addresses that begin with them.
std::string ClientOf(const std::string& address);

}  // namespace accounts
