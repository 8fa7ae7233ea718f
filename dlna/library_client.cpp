#include "dlna/library_client.h"

#include <memory>
#include <utility>

#include "util/json_utils.h"

namespace dlna {
namespace {

constexpr int kAtATime = 4;
constexpr size_t kLine = 32;
constexpr unsigned kSeconds = 30;

std::string AddressOf(const std::string& service, const Question& question) {
  const Text id(g_uri_escape_string(question.id.c_str(), nullptr, FALSE));
  return service + "/dlna/browse?id=" + id.get() +
         "&children=" + (question.children ? "true" : "false") +
         "&start=" + std::to_string(question.start) + "&count=" + std::to_string(question.count);
}

Json::Value DataIn(const Bytes& body) {
  size_t size = 0;
  const auto* const text =
      body ? static_cast<const char*>(g_bytes_get_data(body.get(), &size)) : nullptr;
  Json::Value answer;
  const bool isAnswer = text != nullptr && LibMirevo::ParseJson({text, size}, answer) &&
                        answer.isObject() && answer["success"] == true;
  return isAnswer ? answer["data"] : Json::Value();
}

}  // namespace

struct LibraryClient::Asked {
  LibraryClient& client;
  Object<SoupMessage> message;
  Take take;
};

LibraryClient::LibraryClient(std::string service, std::string word)
    : service_(std::move(service)),
      word_(std::move(word)),
      session_(
          soup_session_new_with_options("timeout", kSeconds, "proxy-resolver", nullptr, nullptr)) {}

bool LibraryClient::Ask(const Question& question, Take take) {
  if (underWay_ < kAtATime) {
    Send(question, std::move(take));
    return true;
  }
  if (waiting_.size() >= kLine) {
    return false;
  }
  waiting_.emplace_back(question, std::move(take));
  return true;
}

void LibraryClient::Send(const Question& question, Take take) {
  const std::string address = AddressOf(service_, question);
  Object<SoupMessage> message(soup_message_new(SOUP_METHOD_GET, address.c_str()));
  const std::string proof = "Bearer " + word_;
  soup_message_headers_replace(soup_message_get_request_headers(message.get()), "Authorization",
                               proof.c_str());
  SoupMessage* const sent = message.get();
  ++underWay_;
  soup_session_send_and_read_async(session_.get(), sent, G_PRIORITY_DEFAULT, nullptr, Receive,
                                   new Asked{*this, std::move(message), std::move(take)});
}

void LibraryClient::Receive(GObject* source, GAsyncResult* result, gpointer data) {
  const std::unique_ptr<Asked> asked(static_cast<Asked*>(data));
  const Bytes body(soup_session_send_and_read_finish(SOUP_SESSION(source), result, nullptr));
  Reply reply;
  reply.status = body ? soup_message_get_status(asked->message.get()) : 0;
  reply.data = DataIn(body);
  --asked->client.underWay_;
  asked->client.SendNext();
  asked->take(reply);
}

void LibraryClient::SendNext() {
  if (!waiting_.empty()) {
    auto [question, take] = std::move(waiting_.front());
    waiting_.pop_front();
    Send(question, std::move(take));
  }
}

}  // namespace dlna
