#include "support/stand_in.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/sysroot.h"
#include "util/qmxutils.h"

namespace test {

StandIn::StandIn(const std::string& root) : root_(root) {
  const std::string fifo = root + "/started";
  EXPECT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  started_.Reset(open(fifo.c_str(), O_RDWR | O_CLOEXEC));
}

pid_t StandIn::NextStarted() const {
  std::string line;
  for (char character = 0; read(started_.Get(), &character, 1) == 1 && character != '\n';) {
    line += character;
  }
  return static_cast<pid_t>(std::stol(line));
}

bool StandIn::HasStarted() const {
  pollfd look{started_.Get(), POLLIN, 0};
  return poll(&look, 1, 0) > 0;
}

std::vector<std::string> StandIn::Arguments(pid_t pid) const {
  return LibOrvoQMX::StringExplode(ReadWhole(root_ + "/argv." + std::to_string(pid)), "\n");
}

}  // namespace test
