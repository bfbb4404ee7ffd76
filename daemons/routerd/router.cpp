#include "routerd/router.hpp"

#include <jansson.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <asio/co_spawn.hpp>
#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

#include "common/free_memory.hpp"
#include "common/log.hpp"
#include "common/notify.hpp"
#include "core/owned.hpp"
#include "core/site.hpp"
#include "core/status.hpp"
#include "kestro_jrpc.h"
#include "kestro_jrpc/await.hpp"
#include "kestro_jrpc/envelope.hpp"
#include "kestro_jrpc/methods.hpp"
#include "kestro_lsyslog.h"
#include "kestro_socket.h"

namespace kestro::routerd {

namespace {

constexpr auto here = site_of("kestro_routerd");

using namespace std::chrono_literals;

constexpr int listen_backlog = 4'096;
// Those who have connected must not keep the others from their answers.
constexpr int clients_at_a_time = 64;
constexpr auto pause_without_descriptors = 1s;
constexpr auto last_writes = 1s;

constexpr auto use_result = [](asio::error_code& failed) { return asio::redirect_error(asio::use_awaitable, failed); };

// The name of a method, which its caller chose, in a line of the log. To be made for lines that are written only.
std::string shown(const std::string& method) noexcept {
  try {
    return daemons::one_line(method);
  } catch (const std::bad_alloc&) {
    return "out of memory";  // short enough to need none
  }
}

// The router whose own methods the library calls: handlers have no argument for it.
Router* serving = nullptr;

int32_t set_maintenance(json_t* params, json_t** /*result*/, json_t** /*err_data*/) {
  const json_t* const enable = json_object_get(params, "enable");
  if (!json_is_boolean(enable)) return status::not_found;
  serving->set_maintenance(json_is_true(enable));
  return status::ok;
}

kestro_jrpc_mapping_t privileged_methods[] = {
    {"logger.ReloadConf", kestro_lsyslog_reload_conf_api},
    {"router.SetMaintenance", set_maintenance},
    {nullptr, nullptr},
};
kestro_jrpc_mapping_t open_methods[] = {
    {"logger.ReloadConf", kestro_lsyslog_reload_conf_api},
    {nullptr, nullptr},
};

// Whether a notification is for others than this client, so that the log and the counters can say so.
bool is_forbidden(const Request& request, const Client& client) {
  const char* const method = json_string_value(json_object_get(request.object(), "method"));
  if (method == nullptr || client.is_privileged()) return false;
  return find_method(open_methods, method) == nullptr && find_method(privileged_methods, method) != nullptr;
}

}  // namespace

class Router::Presence {
 public:
  Presence(Router& router, Client& client)
      : router_(router), place_(router.clients_.insert(router.clients_.end(), &client)) {}
  Presence(const Presence&) = delete;
  Presence& operator=(const Presence&) = delete;
  ~Presence() {
    router_.clients_.erase(place_);
    asio::error_code ignored;
    router_.client_left_.cancel(ignored);
  }

 private:
  Router& router_;
  std::list<Client*>::iterator place_;
};

Router::Router(asio::io_context& io, Options options)
    : io_(io),
      options_(std::move(options)),
      bus_(io, options_.bus.publish, options_.bus.subscribe),
      signals_(io, SIGTERM, SIGINT),
      client_left_(io, asio::steady_timer::time_point::max()),
      stats_timer_(io),
      // The channels share one buffer for each subscriber.
      windows_(bus_.capacity() / 4),
      stats_variable_(options_.stats_name) {
  int32_t fd = -1;
  if (!options_.listen_unix.empty()) {
    if (kestro_unix_socket_init(options_.listen_unix.c_str(), &fd, 1) != 0) {
      throw std::runtime_error("cannot listen at " + options_.listen_unix);
    }
    listen(AF_UNIX, fd);
  }
  if (options_.listen_tcp != 0) {
    if (kestro_tcp_socket_init(options_.listen_tcp, &fd, 1) != 0) {
      throw std::runtime_error("cannot listen at port " + std::to_string(options_.listen_tcp));
    }
    listen(AF_INET, fd);
  }
  serving = this;
}

Router::~Router() {
  serving = nullptr;
}

void Router::listen(int family, int32_t fd) {
  ::listen(fd, listen_backlog);  // the library's backlog is for one client at a time
  listeners_.push_back({family, asio::posix::stream_descriptor(io_, fd), fd});
}

void Router::run() {
  const auto spawn = [this](asio::awaitable<void> task) {
    asio::co_spawn(io_, std::move(task), [this](const std::exception_ptr& failure) {
      if (!failure) return;
      here().log(Error, "out of memory\n");
      end_at_once();
    });
  };
  for (auto& listener : listeners_) spawn(accept_clients(listener));
  spawn(bus_.receive([this](std::string text) { deliver(std::move(text)); }));
  spawn(keep_stats());
  spawn(end_on_signal());
  daemons::notify("READY=1");
  here().log(Info, "ready: clients at %s%s%s, publishing at %s\n", options_.listen_unix.c_str(),
             listeners_.size() > 1 ? " and " : "",
             options_.listen_tcp != 0 ? ("port " + std::to_string(options_.listen_tcp)).c_str() : "",
             options_.bus.publish.c_str());
  io_.run();
}

// ---- Clients ----

asio::awaitable<void> Router::accept_clients(Listener& listener) {
  while (!draining_) {
    asio::error_code woken;
    if (clients_.size() >= options_.max_clients) {
      co_await client_left_.async_wait(use_result(woken));
      continue;
    }
    co_await listener.readable.async_wait(asio::posix::stream_descriptor::wait_read, use_result(woken));
    if (woken || draining_) co_return;
    if (accept_those_waiting(listener)) continue;

    here().log(Warning, "accepting is paused: %s\n", strerror(errno));
    asio::steady_timer pause(io_, pause_without_descriptors);
    co_await pause.async_wait(use_result(woken));
  }
}

// Many at a time: what the bus brings meanwhile is taken in one go as well, and its thread is woken less often. False
// when the system has no descriptor or memory for a connection that waits.
bool Router::accept_those_waiting(Listener& listener) {
  for (int i = 0; i < clients_at_a_time; ++i) {
    // The other listener may have taken the last place.
    if (clients_.size() >= options_.max_clients) break;
    if (!accept_one(listener)) return false;
    pollfd waiting{.fd = listener.fd, .events = POLLIN, .revents = 0};
    if (poll(&waiting, 1, 0) <= 0) break;
  }
  return true;
}

bool Router::accept_one(Listener& listener) {
  int32_t fd = -1;
  errno = 0;
  const bool accepted = (listener.family == AF_UNIX ? kestro_socket_accept(&listener.fd, &fd)
                                                    : kestro_tcp_socket_accept(&listener.fd, &fd)) == 0;
  if (!accepted) return errno != EMFILE && errno != ENFILE && errno != ENOBUFS && errno != ENOMEM;
  ++stats_.accepted;
  Descriptor connection(fd);
  try {
    auto client = std::make_shared<Client>(io_, listener.family, std::move(connection));
    begin_serving(client);
  } catch (const std::exception& failure) {
    here().log(Warning, "a connection is dropped: %s\n", failure.what());
    refuse("out_of_memory");
  }
  return true;
}

void Router::begin_serving(const std::shared_ptr<Client>& client) {
  auto presence = std::make_unique<Presence>(*this, *client);
  asio::co_spawn(io_, serve(client, std::move(presence)), [this, client](const std::exception_ptr& failure) {
    if (!failure) return;
    refuse("out_of_memory");
    client->close();
  });
}

// The life of one client, from its first byte to the end of its connection.
asio::awaitable<void> Router::serve(std::shared_ptr<Client> client, std::unique_ptr<Presence> /*presence*/) {
  auto received = co_await client->read_request(options_.max_request, options_.read_timeout);
  stats_.bytes_in += received.text.size();
  if (received.failure != nullptr) {
    refuse(received.failure);
    co_return client->close();
  }

  Request request(std::move(received.text));
  if (request.objection() != nullptr) {
    refuse(request.objection());
    co_return client->close();
  }
  if (request.is_notification()) {
    handle_own(request, *client);
    co_return client->close();
  }

  const auto answer = co_await answer_to(request);
  if (answer.empty()) co_return client->close();
  if (const char* const failure = co_await client->write(answer, options_.write_timeout)) {
    ++stats_.client_gone;
    if (log_admits(Info)) {
      here().log(Info, "%s: the client did not get its answer: %s\n", shown(request.method()).c_str(), failure);
    }
  } else {
    stats_.bytes_out += answer.size();
  }
  co_return client->close();
}

// What the client is to be sent; empty when its request turns out to be none that can travel.
asio::awaitable<std::string> Router::answer_to(Request& request) {
  // An answer is made before it is counted: without memory for it the client is counted as refused.
  if (is_busy()) {
    auto answer = request.busy(options_.strict_ids);
    ++stats_.busy;
    co_return answer;
  }
  InFlight::Entry entry(in_flight_, io_, request.method(), InFlight::Clock::now() + time_for(request.method()));
  const char* const channel = service_channel(request.method().c_str());
  Text text = request.addressed(entry.number());
  if (!text) {
    refuse("out_of_memory");
    co_return std::string();
  }
  request.forget_object();
  const size_t size = strlen(channel) + 1 + strlen(text.get());
  if (size > bus_message_limit) {
    refuse("too_large");
    co_return std::string();
  }

  SendWindow::Place place(windows_.of(channel));
  if (place.enter_at_once(size) || co_await place.enter(io_, size, entry.deadline(), entry.given_up())) {
    if (bus_.publish(channel, text.get()) != 0) {
      refuse("not_published");
      co_return std::string();
    }
    text.reset();  // the client may wait for long
    if (auto response = co_await entry.response()) {
      const auto latency = InFlight::Clock::now() - entry.begun();
      auto answer = request.restore(std::move(*response), options_.strict_ids);
      ++stats_.answered;
      stats_.count_latency(latency);
      co_return answer;
    }
  }
  if (entry.given_up()) {
    auto answer = request.busy(options_.strict_ids);
    ++stats_.busy;
    co_return answer;
  }
  auto answer = request.timed_out(options_.strict_ids);
  ++stats_.timed_out;
  if (log_admits(Warning)) here().log(Warning, "%s: no response in time\n", shown(request.method()).c_str());
  co_return answer;
}

void Router::deliver(std::string text) {
  Response response(std::move(text));
  if (!response.is_sound()) {
    ++stats_.garbage;
    here().log(Debug, "dropped what is no response\n");
    return;
  }
  switch (in_flight_.deliver(response)) {
    case InFlight::Delivery::Done:
      break;
    case InFlight::Delivery::Late:
      ++stats_.late;
      if (log_admits(Debug))
        here().log(Debug, "dropped a late or repeated response of %s\n", shown(response.method()).c_str());
      break;
    case InFlight::Delivery::Foreign:
      ++stats_.foreign;
      if (log_admits(Debug))
        here().log(Debug, "dropped a response of %s that was not asked for here\n", shown(response.method()).c_str());
      break;
  }
}

void Router::refuse(const char* reason) {
  ++stats_.refused[reason];
  here().log(Warning, "request not forwarded, connection closed: %s\n", reason);
}

void Router::handle_own(const Request& request, const Client& client) {
  auto* const table = client.is_privileged() ? privileged_methods : open_methods;
  if (kestro_jrpc_router_eval_notification(request.object(), table) == 0) {
    ++stats_.handled;
  } else {
    refuse(is_forbidden(request, client) ? "not_permitted" : "no_id");
  }
}

bool Router::is_busy() const {
  return maintenance_ || draining_ || in_flight_.size() >= options_.max_in_flight;
}

void Router::set_maintenance(bool enabled) {
  maintenance_ = enabled;
  here().log(Warning, "maintenance %s\n", enabled ? "on: every request is answered busy" : "off");
}

std::chrono::nanoseconds Router::time_for(const std::string& method) const {
  const auto row = options_.method_timeouts.find(method);
  const double seconds = row != options_.method_timeouts.end() ? row->second : attempts_for_method(method.c_str());
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
}

// ---- Operating ----

asio::awaitable<void> Router::keep_stats() {
  while (!ended_) {
    publish_stats();
    stats_timer_.expires_after(1s);
    asio::error_code woken;
    co_await stats_timer_.async_wait(use_result(woken));
  }
}

// Without memory they stay as they are until the next time.
void Router::publish_stats() noexcept {
  try {
    stats_.clients = clients_.size();
    stats_.in_flight = in_flight_.size();
    stats_variable_.publish(stats_);
    daemons::notify("WATCHDOG=1\nSTATUS=" + std::to_string(stats_.clients) + " clients, " +
                    std::to_string(stats_.in_flight) + " requests in flight" + (maintenance_ ? ", maintenance" : ""));
    if (stats_.in_flight == 0) daemons::give_free_memory_back();
  } catch (const std::bad_alloc&) {
    here().log(Warning, "out of memory: the counters are not published\n");
  }
}

// Everything that is awaited anywhere comes to its end here, so that the loop runs out of work.
asio::awaitable<void> Router::end_on_signal() {
  asio::error_code failed;
  co_await signals_.async_wait(use_result(failed));
  signals_.async_wait([this](const asio::error_code& stopped, int) {
    if (!stopped) end_at_once();
  });
  co_await drain();
  for (Client* client : clients_) client->abandon("shutting_down");
  ended_ = true;
  stats_timer_.cancel();
  bus_.stop();
  signals_.cancel();
}

asio::awaitable<void> Router::drain() {
  daemons::notify("STOPPING=1");
  here().log(Info, "ending: %zu requests in flight\n", in_flight_.size());
  draining_ = true;
  stop_listening();
  co_await wait_until(options_.drain_timeout, [this] { return in_flight_.size() == 0; });
  in_flight_.give_up_all();
  windows_.wake_all();
  for (Client* client : clients_) {
    if (!client->has_asked()) client->abandon("shutting_down");
  }
  co_await wait_until(last_writes, [this] { return clients_.empty(); });
  here().log(Info, "ended: %llu accepted, %llu answered, %llu busy, %llu timed out\n",
             static_cast<unsigned long long>(stats_.accepted), static_cast<unsigned long long>(stats_.answered),
             static_cast<unsigned long long>(stats_.busy), static_cast<unsigned long long>(stats_.timed_out));
}

asio::awaitable<void> Router::wait_until(std::chrono::duration<double> limit, std::function<bool()> done) {
  asio::steady_timer timer(io_);
  asio::error_code ignored;
  const auto deadline = InFlight::Clock::now() + limit;
  while (!done() && InFlight::Clock::now() < deadline) {
    timer.expires_after(10ms);
    co_await timer.async_wait(use_result(ignored));
  }
}

void Router::stop_listening() {
  for (auto& listener : listeners_) {
    asio::error_code ignored;
    listener.readable.close(ignored);
  }
  client_left_.cancel();
  if (!options_.listen_unix.empty()) unlink(options_.listen_unix.c_str());
}

void Router::end_at_once() {
  stop_listening();
  shm_unlink(options_.stats_name.c_str());
  _exit(1);
}

}  // namespace kestro::routerd
