#include "mirevo/status_command.h"

#include <cstdio>
#include <iostream>
#include <memory>

#include "mirevo/exit_codes.h"
#include "mirevo/output.h"
#include "mirevo/service_client.h"
#include "platform/plat.h"
#include "serve/service.h"
#include "util/json_utils.h"

namespace mirevo {
namespace {

using Rows = std::vector<std::vector<std::string>>;

std::string Speed(const Json::Value& transcoder) {
  char text[32];
  snprintf(text, sizeof(text), "%.1fx", transcoder["speed"].asDouble());
  return transcoder.isMember("speed") ? text : "";
}

Rows Streams(const Json::Value& status) {
  Rows rows = {{"STREAM", "KIND", "PROFILE", "STATE", "FILM"}};
  for (const Json::Value& stream : status["streams"]) {
    rows.push_back({stream["stream_id"].asString(), stream["kind"].asString(),
                    stream["profile"].asString(), stream["playing"] == true ? "playing" : "idle",
                    stream["path"].asString()});
  }
  return rows;
}

Rows Transcoders(const Json::Value& status) {
  Rows rows = {{"TRANSCODER", "KIND", "SPEED", "POSITION", "STREAM"}};
  for (const Json::Value& transcoder : status["transcoders"]) {
    rows.push_back({transcoder["pid"].asString(), transcoder["kind"].asString(), Speed(transcoder),
                    Clock(static_cast<unsigned>(transcoder["position"].asDouble())),
                    transcoder["stream_id"].asString()});
  }
  return rows;
}

Rows Volumes(const Json::Value& status) {
  Rows rows = {{"VOLUME", "FREE", "SIZE", ""}};
  for (const Json::Value& volume : status["volumes"]) {
    rows.push_back({volume["path"].asString(), Size(volume["free"].asUInt64()),
                    Size(volume["total"].asUInt64()),
                    volume["writable"] == true ? "" : "read-only"});
  }
  return rows;
}

// The analysis works for the service on this machine, and tells of itself in a file.
void PrintAnalysis() {
  Json::Value analysis;
  LibMirevo::ReadJsonFromFile(orvo::SystemPath(serve::kStateFolder) + serve::kAnalysisFile,
                              analysis);
  if (!analysis.isObject()) {
    return;
  }
  std::cout << "key frames: " << analysis["analyzed"].asUInt() << " films analyzed, "
            << analysis["failed"].asUInt() << " failed, " << analysis["waiting"].asUInt()
            << " in line";
  if (analysis.isMember("film")) {
    std::cout << ", at " << Printable(analysis["film"].asString());
  }
  std::cout << "\n";
}

void Print(const Json::Value& status) {
  for (const Rows& rows : {Streams(status), Transcoders(status), Volumes(status)}) {
    if (rows.size() > 1) {
      PrintTable(rows);
      std::cout << "\n";
    }
  }
  std::cout << status["streams"].size() << " streams, " << status["transcoders"].size()
            << " transcoders (limits: " << status["limits"]["software"].asUInt() << " software, "
            << status["limits"]["hardware"].asUInt() << " hardware)\n";
  PrintAnalysis();
}

int Status(bool json) {
  const Reply reply = CallService("Status", "get", {});
  if (reply.exitCode != kOk) {
    Complain(reply.message);
  } else if (json) {
    PrintJson(reply.data);
  } else {
    Print(reply.data);
  }
  return reply.exitCode;
}

}  // namespace

void AddStatusCommand(CLI::App& app, int& exitCode) {
  auto json = std::make_shared<bool>(false);
  CLI::App* const command = app.add_subcommand(
      "status", "Show the streams, transcoders and volumes of the running service");
  command->add_flag("--json", *json, "Print the service's answer as JSON");
  command->callback([json, &exitCode] { exitCode = Status(*json); });
}

}  // namespace mirevo
