// Which response belongs to which request.
#ifndef KESTRO_CTL_PAIRING_HPP
#define KESTRO_CTL_PAIRING_HPP

#include <jansson.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <list>
#include <map>
#include <optional>
#include <string>

namespace kestro::ctl {

// By the channel on which the answer is awaited, the method, and "transaction_id" where there is one. Several requests
// that nothing tells apart are answered in their order.
class Pairing {
 public:
  using Clock = std::chrono::steady_clock;

  // Requests beyond the limit make the oldest ones forgotten: nobody will answer those.
  explicit Pairing(size_t limit = 10'000) : limit_(limit) {}

  void request(const json_t* request, Clock::time_point when);
  // How long the request of this response has waited; nothing where it was not seen.
  std::optional<Clock::duration> response(const std::string& channel, const json_t* response, Clock::time_point when);
  [[nodiscard]] size_t waiting() const { return order_.size(); }

 private:
  struct Waiting {
    std::string key;
    Clock::time_point since;
  };
  using Order = std::list<Waiting>;

  size_t limit_;
  Order order_;  // the oldest first
  std::map<std::string, std::deque<Order::iterator>> by_key_;
};

}  // namespace kestro::ctl

#endif
