// A service that does to the router what services should not, as the method's name behind its last dot asks:
//
//   Echo            answers with its "params"
//   Size            answers with a text of params.bytes characters
//   Twice           answers, and answers again
//   Garbage         publishes what is no response, and answers then
//   WithoutNumber   answers without "transaction_id"
//   Foreign         answers somebody else: with a number that was not asked under
//   OtherMethod     answers in the name of another method
//   Escaped         answers with a key that is written with an escape
//   Flood           floods the reply channel from now on, and answers
//   Silent          does not answer
//   Late            answers when Release or SIGUSR1 comes
//   Burst           answers with params.n, all at once when it has params.of of them
//   Release         lets go of the late answers, and answers
//
//   misbehaving_service PUBLISH_ADDRESS SUBSCRIBE_ADDRESS CHANNEL

#include <jansson.h>
#include <kestro.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "core/log.hpp"
#include "core/owned.hpp"

namespace {

using kestro::Json;
using kestro::Text;

volatile std::sig_atomic_t release_asked = 0;

class Service {
 public:
  Service(const char* publish, const char* subscribe, const char* channel) {
    const bool up = kestro_jrpc_mq_pub_init(publish, &out_) == 0 && kestro_jrpc_mq_sub_init(&in_, 0) == 0 &&
                    kestro_jrpc_mq_sub_set_channel(subscribe, channel, &in_) == 0 &&
                    kestro_mq_socket_set_timeout(in_, 20) == 0;
    if (!up) throw std::runtime_error("no bus");
  }

  void serve() {
    for (;;) {
      if (release_asked != 0) release();
      char* raw = nullptr;
      int32_t length = 0;
      if (kestro_mq_socket_recv(in_, &raw, &length, 0) != 0) continue;
      const Text frame(raw);
      take(strchr(frame.get(), '|') + 1);
    }
  }

 private:
  void take(const char* text) {
    const Json request(json_loads(text, 0, nullptr));
    const std::string method = json_string_value(json_object_get(request.get(), "method"));
    const auto found = ways_.find(method.substr(method.rfind('.') + 1));
    if (found != ways_.end()) found->second(request.get(), method);
  }

  static Json response(json_t* request, const std::string& method, json_t* result) {
    return Json(json_pack("{s:s,s:s,s:o*,s:O*}", "jsonrpc", "2.0", "id", method.c_str(), "result", result,
                          "transaction_id", json_object_get(request, "transaction_id")));
  }
  static Json echo(json_t* request, const std::string& method) {
    return response(request, method, json_incref(json_object_get(request, "params")));
  }
  static std::string compact(const Json& object) {
    return Text(json_dumps(object.get(), JSON_COMPACT | JSON_ENSURE_ASCII)).get();
  }

  void publish(const std::string& text) { kestro_jrpc_mq_pub(&out_, KESTRO_JRPC_CHANNEL_ROUTER_REPLY, text.c_str()); }
  void publish(const Json& object) { publish(compact(object)); }

  void release() {
    release_asked = 0;
    for (const auto& text : held_) publish(text);
    held_.clear();
  }

  void publish_garbage() {
    for (const char* text : {"", "no JSON", "[1,2]", "5", R"({"id":"a","id":"b"})"}) publish(text);
    kestro_mq_socket_send(out_, KESTRO_JRPC_CHANNEL_ROUTER_REPLY);  // no separator
  }

  void flood() {
    for (;;) publish(R"({"jsonrpc":"2.0","id":"ports.Echo","result":0})");
  }

  using Way = std::function<void(json_t* request, const std::string& method)>;
  const std::map<std::string, Way> ways_ = {
      {"Echo", [this](json_t* request, const std::string& method) { publish(echo(request, method)); }},
      {"Size",
       [this](json_t* request, const std::string& method) {
         const auto bytes = json_integer_value(json_object_get(json_object_get(request, "params"), "bytes"));
         publish(response(request, method, json_string(std::string(static_cast<size_t>(bytes), 'x').c_str())));
       }},
      {"Twice",
       [this](json_t* request, const std::string& method) {
         publish(echo(request, method));
         publish(response(request, method, json_string("again")));
       }},
      {"Garbage",
       [this](json_t* request, const std::string& method) {
         publish_garbage();
         publish(echo(request, method));
       }},
      {"WithoutNumber",
       [this](json_t* request, const std::string& method) {
         json_object_del(request, "transaction_id");
         publish(echo(request, method));
       }},
      {"Foreign",
       [this](json_t* request, const std::string& method) {
         json_object_set_new(request, "transaction_id", json_integer(1LL << 40));
         publish(echo(request, method));
       }},
      {"OtherMethod", [this](json_t* request, const std::string&) { publish(echo(request, "ports.Echo")); }},
      {"Escaped",
       [this](json_t* request, const std::string& method) {
         auto text = compact(echo(request, method));
         text.replace(text.find("transaction_id"), strlen("transaction_id"), "transaction\\u005fid");
         publish(text);
       }},
      {"Flood",
       [this](json_t* request, const std::string& method) {
         std::thread([this] { flood(); }).detach();
         publish(echo(request, method));
       }},
      {"Late", [this](json_t* request, const std::string& method) { held_.push_back(compact(echo(request, method))); }},
      {"Burst",
       [this](json_t* request, const std::string& method) {
         const json_t* const params = json_object_get(request, "params");
         held_.push_back(compact(response(request, method, json_incref(json_object_get(params, "n")))));
         const auto of = json_integer_value(json_object_get(params, "of"));
         if (held_.size() == static_cast<size_t>(of)) release();
       }},
      {"Release",
       [this](json_t* request, const std::string& method) {
         release();
         publish(echo(request, method));
       }},
  };

  int32_t out_ = -1;
  int32_t in_ = -1;
  std::vector<std::string> held_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  kestro::_level = 0;
  signal(SIGUSR1, [](int) { release_asked = 1; });
  Service(argv[1], argv[2], argv[3]).serve();
}
