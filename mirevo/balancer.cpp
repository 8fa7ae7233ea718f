#include "mirevo/balancer.h"

#include <cstdint>
#include <sstream>

#include "contract/blocks.h"
#include "serve/service.h"
#include "util/number.h"

namespace mirevo {
namespace {

constexpr int kUsualPort = 8096;
constexpr int64_t kMaxPort = 65535;

constexpr char kHead[] =
    R"(# HAProxy 2.6, printed by "mirevo cluster haproxy". docs/boxes.md explains it.
# Start each box with: mirevo serve --cluster_key FILE --listen ADDRESS --agent ADDRESS:@AGENT@
#   --proxy ADDRESS-OF-THIS-MACHINE --host NAME-BY-WHICH-PLAYERS-CALL-THIS-MACHINE
#   --cluster_url http://THAT-NAME --cluster_boxes @COUNT@
global
  stats socket @SOCKET@ mode 660 level admin

resolvers names
  parse-resolv-conf

defaults
  mode http
  # A box whose name nobody knows counts as down until somebody does. The agent tells a box's free places as its
  # weight: 0 while the box lets its films run out. A box whose agent does not answer keeps its weight.
  default-server init-addr last,libc,none resolvers names weight 100 agent-check agent-inter 1s agent-port @AGENT@
  timeout connect 1s
  timeout check 3s
  # A request waits at most 60 s for its segment.
  timeout server 75s
  timeout http-request 15s
  timeout http-keep-alive 5s
  timeout queue 10s
  # A player may be paused for most of a day.
  timeout client 65535s
  option forwardfor
  # A viewer who has left ends the request.
  option abortonclose
  option redispatch 1
  retries 3

frontend films
  bind @LISTEN@
  # Players must not name other clients, or another scheme.
  http-request del-header X-Forwarded-For
  http-request set-header X-Forwarded-Proto %[ssl_fc,iif(https,http)]
  # Only addresses with a ticket can be served by every box.
  use_backend boxes if { url_param(ticket) -m found }
  use_backend boxes if { url_param(box) -m found }
  default_backend home

# Logins, lists and openings: one box counts the attempts of passwords and has the queue of conversions. The next one
# takes over when it is down or lets its films run out.
backend home
  option httpchk
  http-check send meth GET uri "@HEALTH@"
  http-check expect rstatus ^(200|503)$
  default-server check inter 1s fastinter 200ms downinter 1s fall 2 rise 1
)";

constexpr char kBoxes[] = R"(
backend boxes
  retry-on conn-failure empty-response junk-response 0rtt-rejected 502 503
  # The number of the segment: of HLS and CMAF as it is, of Smooth Streaming from the time in units of 100 ns.
  http-request set-var(txn.number) url_param(fragment_id),url_dec,regsub([^0-9],,g)
  http-request set-var(txn.number) url_param(segment),regsub([^0-9],,g) if { url_param(segment) -m found }
  http-request set-var(txn.number) url_param(fragment_id),url_dec,regsub(^.*=,,),regsub([^0-9],,g),div(50000000) if { url_param(format) ss }
  http-request set-var(txn.part) var(txn.number),add(0) if { var(txn.number) -m len gt 0 }
  # Its block. The first ones are short.
  http-request set-var(txn.block) var(txn.part),div(@LENGTH@),add(@OFFSET@) if { var(txn.number) -m len gt 0 }
@SHORT@  # Blocks go to boxes by turns; a stream without segments stays on one box.
  http-request set-var(txn.film) url_param(id),url_dec,regsub([^0-9A-Za-z_],,g),crc32
  http-request set-var(txn.film) url_param(stream_id),url_dec,regsub([^0-9A-Za-z_],,g),crc32 if { url_param(stream_id) -m found }
  http-request set-var(txn.key) var(txn.film)
  http-request set-var(txn.key) var(txn.block),add(txn.film) if { var(txn.block) -m found }
  http-request set-var(txn.turn) var(txn.key),mod(@COUNT@)
  # The others take over for a box that is down or has the weight 0.
  balance hash var(txn.key)
  hash-type consistent sdbm avalanche
  # A full box still sends what it has, so a 503 keeps it in.
  option httpchk
  http-check send meth GET uri "@HEALTH@"
  http-check expect rstatus ^(200|503)$
  default-server check inter 1s fastinter 200ms downinter 1s fall 2 rise 1 on-marked-down shutdown-sessions
)";

constexpr char kTail[] = R"(
# To let the films of a box run out before an upgrade, and to take it back, run there:
#   mirevo cluster drain
#   mirevo cluster ready
# Open byte streams run on; new segments come from the other boxes.
)";

constexpr char kHealth[] = "/webapi/entry.cgi?api=ORVO.Mirevo2.Status&version=1&method=health";

std::string Replace(std::string text, const std::string& mark, const std::string& value) {
  for (size_t at = text.find(mark); at != std::string::npos;
       at = text.find(mark, at + value.size())) {
    text.replace(at, mark.size(), value);
  }
  return text;
}

std::string AddressOf(const Box& box) {
  return box.host + ":" + std::to_string(box.port);
}

std::string ShortBlocks() {
  std::ostringstream lines;
  for (size_t i = 0; i < orvo::kShortBlocks.size(); ++i) {
    const auto block = static_cast<int64_t>(i);
    lines << "  http-request set-var(txn.block) int(" << block << ") if { var(txn.part) -m int "
          << orvo::FirstOfBlock(block) << ":" << orvo::LastOfBlock(block) << " }\n";
  }
  return lines.str();
}

std::string HomeServers(const std::vector<Box>& boxes) {
  std::ostringstream lines;
  for (size_t i = 0; i < boxes.size(); ++i) {
    lines << "  server b" << i + 1 << " " << AddressOf(boxes[i]) << (i > 0 ? " backup" : "")
          << "\n";
  }
  return lines.str();
}

std::string TurnServers(const std::vector<Box>& boxes) {
  std::ostringstream lines;
  lines << "  # A box passes the end of a stream on to each of the others, by its number. Nobody "
           "answers for one that is down.\n";
  for (size_t i = 1; i <= boxes.size(); ++i) {
    lines << "  http-request deny deny_status 503 if { url_param(box) " << i
          << " } !{ srv_is_up(boxes/b" << i << ") }\n";
  }
  for (size_t i = 1; i <= boxes.size(); ++i) {
    lines << "  use-server b" << i << " if { url_param(box) " << i << " }\n";
  }
  for (size_t i = 0; i < boxes.size(); ++i) {
    lines << "  use-server b" << i + 1 << " if { var(txn.turn) -m int " << i << " } { srv_weight(b"
          << i + 1 << ") gt 0 }\n";
  }
  for (size_t i = 0; i < boxes.size(); ++i) {
    lines << "  server b" << i + 1 << " " << AddressOf(boxes[i]) << "\n";
  }
  return lines.str();
}

}  // namespace

std::optional<Box> ParseBox(const std::string& text) {
  const size_t colon = text.rfind(':');
  const bool hasPort = colon != std::string::npos && text.find(']', colon) == std::string::npos;
  const std::string host = text.substr(0, hasPort ? colon : std::string::npos);
  const auto port = hasPort ? LibOrvoQMX::ParseNumber(text.substr(colon + 1))
                            : std::optional<int64_t>(kUsualPort);
  const bool isBracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  const bool isName = serve::IsHost(host) && host.find_first_of("[]:") == std::string::npos;
  if (!port || *port < 1 || *port > kMaxPort ||
      (!isName && !(isBracketed && serve::IsHost(host)))) {
    return std::nullopt;
  }
  return Box{host, static_cast<int>(*port)};
}

std::string BalancerConfiguration(const std::vector<Box>& boxes, const std::string& listen,
                                  const std::string& socket, int agentPort) {
  std::string text = kHead + HomeServers(boxes) + kBoxes + TurnServers(boxes) + kTail;
  text = Replace(text, "@COUNT@", std::to_string(boxes.size()));
  text = Replace(text, "@LENGTH@", std::to_string(orvo::kBlockLength));
  text = Replace(text, "@OFFSET@", std::to_string(orvo::kBlockOffset));
  text = Replace(text, "@SHORT@", ShortBlocks());
  text = Replace(text, "@HEALTH@", kHealth);
  text = Replace(text, "@AGENT@", std::to_string(agentPort));
  text = Replace(text, "@LISTEN@", listen);
  return Replace(text, "@SOCKET@", socket);
}

}  // namespace mirevo
