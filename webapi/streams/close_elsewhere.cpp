#include "webapi/streams/close_elsewhere.h"

#include <vector>

#include "webapi/access/identity.h"
#include "webapi/access/ticket.h"
#include "webapi/cluster/balancer_client.h"

namespace webapi {
namespace {

// The parameter that names a box by its number in the balancer's list, from 1.
constexpr char kBox[] = "box";

std::string Parameter(const std::string& name, const std::string& value) {
  return value.empty() ? "" : "&" + name + "=" + EncodeQueryValue(value);
}

// The session that came with the request. The other boxes check it as this one has.
std::string SessionOf(const Request& request) {
  const std::string id = request.Text("_sid");
  return id.empty() ? SessionCookie(request) : id;
}

}  // namespace

void CloseElsewhere(const Request& request, const std::string& streamId,
                    const std::string& sealed) {
  const int boxes = CountBoxes();
  if (boxes < 2 || !request.Text(kBox).empty()) {
    return;
  }
  const std::string address =
      "/webapi/entry.cgi?api=ORVO.Mirevo2.Streaming&version=1&method=close" +
      Parameter("format", request.Text("format")) + Parameter("stream_id", streamId) +
      Parameter(kSealedParameter, sealed) + Parameter("_sid", SessionOf(request));
  std::vector<std::string> addresses;
  for (int box = 1; box <= boxes; ++box) {
    addresses.push_back(address + Parameter(kBox, std::to_string(box)));
  }
  AskBalancer(addresses);
}

}  // namespace webapi
