#include "kestroctl/pairing.hpp"

#include "core/owned.hpp"

namespace kestro::ctl {

namespace {

std::string key_of(const std::string& channel, const json_t* method, const json_t* transaction_id) {
  const char* const name = json_string_value(method);
  const Text number(transaction_id != nullptr ? json_dumps(transaction_id, JSON_ENCODE_ANY) : nullptr);
  return channel + '|' + (name != nullptr ? name : "") + '|' + (number ? number.get() : "");
}

}  // namespace

void Pairing::request(const json_t* request, Clock::time_point when) {
  const char* const channel = json_string_value(json_object_get(request, "id"));
  if (channel == nullptr) return;
  const auto key = key_of(channel, json_object_get(request, "method"), json_object_get(request, "transaction_id"));
  if (order_.size() >= limit_) {
    const auto oldest = by_key_.find(order_.front().key);
    oldest->second.pop_front();
    if (oldest->second.empty()) by_key_.erase(oldest);
    order_.pop_front();
  }
  by_key_[key].push_back(order_.insert(order_.end(), {key, when}));
}

std::optional<Pairing::Clock::duration> Pairing::response(const std::string& channel, const json_t* response,
                                                          Clock::time_point when) {
  const auto found =
      by_key_.find(key_of(channel, json_object_get(response, "id"), json_object_get(response, "transaction_id")));
  if (found == by_key_.end()) return std::nullopt;
  const auto request = found->second.front();
  const auto waited = when - request->since;
  found->second.pop_front();
  if (found->second.empty()) by_key_.erase(found);
  order_.erase(request);
  return waited;
}

}  // namespace kestro::ctl
