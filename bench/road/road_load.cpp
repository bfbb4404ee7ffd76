// Clients of a router: each connects, sends one request, takes its answer, and begins anew.
// Usage: road_load SOCKET CLIENTS SECONDS SIZE

#include <cstdlib>
#include <string>

#include "stream_load.hpp"
#include "unix_socket.hpp"

namespace {

using kestro::bench::Outcome;

struct Router {
  using Call = kestro::bench::Call;

  const char* path;
  long size;  // of the answer that is asked for; 0 for a small one

  void begin(Call& call) const {
    const std::string what = size > 0 ? "\"size\":" + std::to_string(size) : R"("port":"c1-1")";
    call.fd = kestro::bench::connect_to(path);
    kestro::bench::send_whole(call.fd, R"({"jsonrpc":"2.0","method":"ports.Get","params":{)" + what +
                                           R"(},"id":1,"transaction_id":)" + std::to_string(call.number) + "}");
  }
  [[nodiscard]] Outcome take(const Call& call, bool ended) const {
    if (is_whole(call)) return Outcome::Answered;
    return ended ? Outcome::Lost : Outcome::Pending;
  }
  void end(Call& /*call*/) const {}

  // The end of the connection is not waited for: neither do the callers of the other systems.
  [[nodiscard]] bool is_whole(const Call& call) const {
    const std::string end = "\"transaction_id\":" + std::to_string(call.number) + "}";
    const auto& answer = call.received;
    return answer.ends_with(end) && answer.size() >= end.size() + static_cast<size_t>(size) &&
           answer.find("\"result\":") < 60;
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  const Router router{.path = argv[1], .size = strtol(argv[4], nullptr, 10)};
  kestro::bench::StreamLoad(router, strtoul(argv[2], nullptr, 10), strtod(argv[3], nullptr)).run();
}
