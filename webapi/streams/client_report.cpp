#include "webapi/streams/client_report.h"

#include <algorithm>
#include <ctime>
#include <sstream>
#include <string>
#include <vector>

#include "util/qmxutils.h"
#include "webapi/http/number.h"

namespace webapi {
namespace {

using Keys = std::vector<std::string>;

constexpr char kStarved[] = "bs";

// Players send the keys in a parameter or, so that addresses stay the same, in headers.
Keys KeysOf(const Request& request) {
  return LibOrvoQMX::StringExplode(request.Text("CMCD") + "," + request.Header("CMCD_STATUS") +
                                       "," + request.Header("CMCD_REQUEST"),
                                   ", ");
}

bool Has(const Keys& keys, const std::string& key) {
  return std::find(keys.begin(), keys.end(), key) != keys.end();
}

// The number behind "key="; -1 if there is none.
int64_t NumberOf(const Keys& keys, const std::string& key) {
  const auto found = std::find_if(keys.begin(), keys.end(), [&](const std::string& pair) {
    return pair.rfind(key + "=", 0) == 0;
  });
  return found == keys.end() ? -1 : ParseNumber(found->substr(key.size() + 1)).value_or(-1);
}

}  // namespace

void KeepClientReport(const Request& request, const Ticket& ticket) {
  const Keys keys = KeysOf(request);
  if (Has(keys, kStarved)) {
    ticket.Directory().ClientReport().Replace(std::to_string(time(nullptr)) + " " +
                                              std::to_string(NumberOf(keys, "bl")) + " " +
                                              std::to_string(NumberOf(keys, "mtp")));
  }
}

Json::Value ClientReportOf(const Ticket& ticket) {
  std::istringstream text(ticket.Directory().ClientReport().Read());
  Json::Int64 starved = 0;
  Json::Int64 buffer = -1;
  Json::Int64 throughput = -1;
  if (!(text >> starved >> buffer >> throughput)) {
    return Json::Value();
  }
  Json::Value report(Json::objectValue);
  report["starved_at"] = starved;
  report["buffer"] = buffer;
  report["throughput"] = throughput;
  return report;
}

}  // namespace webapi
