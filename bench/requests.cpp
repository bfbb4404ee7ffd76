#include "requests.hpp"

#include <benchmark/benchmark.h>
#include <jansson.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "core/owned.hpp"
#include "kestro_jrpc/evaluate.hpp"

namespace kestro::bench {

namespace {

json_t* make_port() {
  return json_pack("{s:s,s:b,s:i}", "port_id", "c1-1", "enabled", 1, "vlan", 100);
}

}  // namespace

size_t list_length = 0;

size_t element_size() {
  const Json port(make_port());
  const Text text(json_dumps(port.get(), JSON_COMPACT | JSON_ENSURE_ASCII));
  return std::string_view(text.get()).size() + 1;
}

int32_t answer_port(json_t* /*params*/, json_t** result, json_t** /*err_data*/) {
  *result = make_port();
  return 0;
}

int32_t answer_list(json_t* /*params*/, json_t** result, json_t** /*err_data*/) {
  *result = json_array();
  for (size_t i = 0; i < list_length; ++i) json_array_append_new(*result, make_port());
  return 0;
}

Methods::Methods(size_t methods, Handler handler) {
  for (size_t i = 0; i < methods; ++i) {
    auto number = std::to_string(i);
    number.insert(0, 4 - number.size(), '0');
    names_.push_back("ports.GetPort" + number);
  }
  for (const auto& name : names_) rows_.push_back({name.c_str(), handler});
  rows_.push_back({nullptr, nullptr});
}

std::string request_of(size_t size, const std::string& method) {
  const std::string head = R"({"jsonrpc":"2.0","method":")" + method + R"(","params":{"port_id":"c1-1","note":")";
  const std::string tail = R"("},"id":7,"transaction_id":12})";
  const size_t fixed = head.size() + tail.size();
  if (size < fixed) throw std::invalid_argument("no room for a request");
  return head + std::string(size - fixed, 'x') + tail;
}

Repeat evaluation(std::string request, Methods methods) {
  return repeat([request = std::move(request), methods = std::make_shared<Methods>(std::move(methods))]() mutable {
    char* response = nullptr;
    benchmark::DoNotOptimize(kestro_jrpc_eval_request(request.data(), methods->table(), &response));
    free(response);
  });
}

Repeat bare_evaluation(std::string request, Methods::Handler handler) {
  return repeat([request = std::move(request), handler] {
    json_error_t error;
    json_t* const root =
        json_loads(request.c_str(), JSON_REJECT_DUPLICATES | JSON_DISABLE_EOF_CHECK | JSON_DECODE_ANY, &error);
    json_t* result = nullptr;
    json_t* err_data = nullptr;
    handler(json_object_get(root, "params"), &result, &err_data);
    json_t* const response = json_pack("{s:s,s:O,s:o,s:O}", "jsonrpc", "2.0", "id", json_object_get(root, "method"),
                                       "result", result, "transaction_id", json_object_get(root, "transaction_id"));
    char* const text = json_dumps(response, JSON_COMPACT | JSON_ENSURE_ASCII);
    benchmark::DoNotOptimize(text);
    free(text);
    json_decref(response);
    json_decref(root);
  });
}

}  // namespace kestro::bench
